// QUICKTEST on counterfeits and SPEEDTEST beside its own files, as the real program runs them.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

constexpr std::uint64_t kRunBytes = 66'560'000;

// In memory where that can be had: thousands of sectors with holes between them keep a disk busy for long.
RunResult QuickTest(const std::string& drive_options) {
  const std::filesystem::path memory = "/dev/shm";
  const ScratchFolder folder(std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path());
  return RunOnDrive(folder.File("drive.img"), drive_options, "DRIVE=1 QUICKTEST SURE");
}

// The size in the last line of a failed test; -1 where it passed.
std::int64_t Recommended(const std::string& output, const std::string& label = "partition size: ") {
  const std::size_t at = output.rfind(label);
  return at == std::string::npos ? -1 : std::stoll(output.substr(at + label.size()));
}

TEST(QuickTestRun, JudgesCounterfeits) {
  constexpr int kOverflow = 255;  // of an exit status
  const struct {
    std::string drive;
    int exit_code;
    std::int64_t recommended;  // MiB; -1: passed
  } rows[] = {
      {"size=16G", 0, -1},
      {"size=16G,wrap=128M", 127, 127},
      {"size=16G,wrap=1G", kOverflow, 1023},
      {"size=64G,wrap=7G", kOverflow, 7167},
      {"size=256G,wrap=8.5G", kOverflow, 8703},
      {"size=256G,wrap=32664M", kOverflow, 32'663},  // 31.9 GB
      {"size=256G,wrap=40G", 6, 40'959},
      {"size=64G,absent=7G", kOverflow, 7167},
      // Over 390 GiB of missing memory fill the table before the pass comes to the first bad block.
      {"size=2T,wrap=32G", 6, 1'697'143},
      // No multiple of 8 MiB: no two markers meet, or only those that lie four times as far apart as the memory is
      // long.
      {"size=64G,wrap=32666M", 0, -1},
      {"size=64G,wrap=1000000000", 0, -1},
      {"size=256G,wrap=32666M", 6, 130'663},
      // All markers of 64 GB are under 4 MiB and 1 KiB; a cache holds those that were written last.
      {"size=64G,wrap=8G,cache=1M", kOverflow, 16'375},
      {"size=64G,wrap=8G,cache=5M", 0, -1},
      // Sectors that fail, the last of block 100 and of block 1000, and some without a marker.
      {"size=16G,badread=1654783,badread=16400383", kOverflow, 799},
      {"size=16G,bad=1654783", 7, -1},
      {"size=16G,bad=1654700-1654782,bad=1654784-1671166", 0, -1},
      {"size=16G,readonly", 7, -1},
  };
  for (const auto& row : rows) {
    const RunResult run = QuickTest(row.drive);
    EXPECT_EQ(run.exit_code, row.exit_code) << row.drive;
    EXPECT_EQ(Recommended(run.out), row.recommended) << row.drive;
    EXPECT_EQ(run.out.find("*** PASSED ***") != std::string::npos, row.exit_code == 0) << row.drive;
    EXPECT_EQ(run.err, "");
  }
}

TEST(QuickTestRun, AgreesWithF3ProbeOnAbsentMemory) {
  const struct {
    std::uint64_t claimed, real;
  } rows[] = {{1ULL << 34, 1ULL << 30},
              {1ULL << 34, 1'100'000'256},
              {64'000'000'000, 8'500'000'256},
              {64'000'000'000, (8ULL << 30) - 512},
              {256'000'000'000, 32'000'000'000}};
  for (const auto& row : rows) {
    const ScratchFolder folder;
    const std::string real = std::to_string(row.real);
    const std::string claimed = std::to_string(row.claimed);
    const std::string module = std::to_string(static_cast<int>(std::ceil(std::log2(row.claimed))));
    const RunResult judge =
        RunCommand({"f3probe", "--destructive", "--debug-real-size=" + real, "--debug-fake-size=" + claimed,
                    "--debug-wrap=" + module, "--debug-block-order=9", folder.File("probed.img")});
    ASSERT_NE(judge.out.find("counterfeit"), std::string::npos) << judge.out << judge.err;
    const std::int64_t last_sector = Recommended(judge.out, "--last-sec=");
    const RunResult run = QuickTest("size=" + claimed + ",absent=" + real);
    const std::int64_t recommended = Recommended(run.out, "(Sector=");
    EXPECT_LE(recommended, last_sector) << real;
    EXPECT_GE(recommended, last_sector - 16384) << real;
  }
}

TEST(QuickTestRun, LeavesMarkersAndNoTable) {
  const ScratchFolder folder;
  const std::string image = folder.File("drive.img");
  ASSERT_EQ(RunOnDrive(image, "size=1G", "DRIVE=1 SURE FAT32 WINPE").exit_code, 0);
  const RunResult careful = RunOnDrive(image, "", "DRIVE=1 QUICKTEST SURE NOWRITE");
  EXPECT_EQ(careful.exit_code, 6);
  EXPECT_EQ(ReadBytes(image, 510, 2), "\x55\xAA");
  EXPECT_EQ(RunOnDrive(image, "", "DRIVE=1 QUICKTEST").exit_code, 2);
  EXPECT_EQ(ReadBytes(image, 510, 2), "\x55\xAA");
  EXPECT_EQ(RunOnDrive(image, "", "DRIVE=1 QUICKTEST", "ok\n").exit_code, 0);
  EXPECT_EQ(ReadBytes(image, 0, 512), std::string(512, '\0'));
  EXPECT_EQ(ReadBytes(image, (1 << 30) - 512, 9), std::string("\xFF\xFF\x1F\0\0\0\0\x80\xFF", 9));
}

// A copy of the program in a folder of its own, and a drive with contents beside it.
class SpeedTestRun : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::copy_file(KORVENTIX_BINARY, folder_.File("korventix"));
    SetFileSize(Image(), 80 << 20);
    std::string contents(kRunBytes, '\0');
    for (std::size_t i = 0; i < contents.size(); ++i) {
      contents[i] = static_cast<char>(i * 0x9E3779B97F4A7C15 >> 56);
    }
    WriteBytes(Image(), 0, contents);
  }

  std::string Image() const { return images_.File("drive.img"); }
  // The words of `before` stand in front of the program.
  RunResult Run(std::vector<std::string> before = {}) const {
    before.insert(before.end(),
                  {folder_.File("korventix"), "--drive", "1=" + Image(), "--no-wait", "DRIVE=1", "SPEEDTEST", "SURE"});
    return RunCommand(before);
  }
  std::string Lines(const std::string& name) const {
    return std::filesystem::exists(folder_.File(name)) ? ReadBytes(folder_.File(name), 0, 1 << 16) : "(none)";
  }
  static std::size_t Count(const std::string& text, char character) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), character));
  }

  ScratchFolder folder_;
  ScratchFolder images_;
};

TEST_F(SpeedTestRun, KeepsTheDriveAndThreeLines) {
  const std::string before = ReadBytes(Image(), 0, kRunBytes);
  const RunResult run = Run();
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(ReadBytes(Image(), 0, kRunBytes) == before);
  for (const std::string name : {"USBSpeed.csv", "USBSpeedDP.csv"}) {
    const std::string lines = Lines(name);
    EXPECT_EQ(Count(lines, '\n'), 3U) << lines;
    EXPECT_EQ(lines.rfind("USB MODEL,SIZE (MiB),Operating System", 0), 0U) << lines;
    EXPECT_NE(lines.find("\r\nGeneric Flash Disk,80,"), std::string::npos) << lines;
    EXPECT_NE(run.out.find("written to " + folder_.File("").substr(0, folder_.File("").size() - 1) + "\\" + name),
              std::string::npos)
        << run.out;
  }
  // The speed in the file is the one on the screen, which is that of 66,560,000 bytes in the time on the screen.
  const std::size_t time = run.out.find("Read 63.4765625 MiB in ") + 23;
  const std::size_t speed = run.out.find(" seconds = ", time) + 11;
  const std::string shown = run.out.substr(speed, run.out.find("MiB/s READ", speed) - speed);
  EXPECT_NE(Lines("USBSpeed.csv").find(",READ," + shown + ","), std::string::npos);
  std::string digits = shown;
  std::erase(digits, ',');
  EXPECT_NEAR(std::stod(digits), 63.4765625 / std::stod(run.out.substr(time)), 0.1);
}

TEST_F(SpeedTestRun, FollowsTheDecimalCommaOfTheRegion) {
  const std::string locale = folder_.File("de_DE.UTF-8");
  RunCommand({"localedef", "--no-archive", "-i", "de_DE", "-f", "UTF-8", locale});
  ASSERT_TRUE(std::filesystem::exists(locale + "/LC_NUMERIC"));
  const std::string path = "LOCPATH=" + folder_.File("");
  const std::string leaks = "ASAN_OPTIONS=detect_leaks=0";  // the C library doesn't free that path
  EXPECT_EQ(Run({"env", path, leaks, "LC_ALL=", "LC_NUMERIC=de_DE.UTF-8"}).exit_code, 0);
  EXPECT_EQ(Count(Lines("USBSpeed.csv"), ';'), 15U) << Lines("USBSpeed.csv");
  EXPECT_EQ(Count(Lines("USBSpeedDP.csv"), ';'), 0U);
  // Without it, and with one that isn't there, fields are separated by commas.
  EXPECT_EQ(Run({"env", path, leaks, "LC_ALL=C"}).exit_code, 0);
  EXPECT_EQ(Run({"env", path, leaks, "LC_ALL=xx_XX"}).exit_code, 0);
  EXPECT_EQ(Count(Lines("USBSpeed.csv"), ';'), 15U) << Lines("USBSpeed.csv");
}

TEST_F(SpeedTestRun, EndsWhereMemoryRunsOut) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer takes more memory than it has";
#endif
  const RunResult run = Run({"prlimit", "--as=60000000"});
  EXPECT_EQ(run.exit_code, 6);
  EXPECT_TRUE(run.out.ends_with("bytes)\r\n\r\n*** ERROR *** not enough memory for a buffer of 66560001 bytes\r\n\r\n"))
      << run.out;
  EXPECT_EQ(Lines("USBSpeed.csv"), "(none)");
}

}  // namespace
