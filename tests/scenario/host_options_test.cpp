#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "support/run.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMebibyte = 1048576;

// The run has to end at once with 1, silent but for one line that names `named`.
void ExpectRefused(const std::vector<std::string>& arguments, const std::string& named) {
  const RunResult run = RunKorventix(arguments);
  EXPECT_EQ(run.exit_code, 1) << named;
  EXPECT_EQ(run.out, "") << named;
  EXPECT_TRUE(run.err.starts_with("korventix: ")) << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  EXPECT_TRUE(run.err.ends_with('\n')) << run.err;
  EXPECT_NE(run.err.find(named), std::string::npos) << run.err;
}

}  // namespace

TEST(HostOptions, VersionAndHelp) {
  const RunResult version = RunKorventix({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_EQ(version.out, "KORVENTIX v1.0.0\r\n");
  EXPECT_EQ(version.err, "");
  const RunResult help = RunKorventix({"--help", "DRIVE=1"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_EQ(help.err, "");
  for (const char* option :
       {"--drive", "--no-wait", "--seed", "--version", "size=", "bus=", "fixed", "vendor=", "product=", "revision=",
        "serial=", "sector=", "wrap=", "absent=", "cache=", "bad=", "badread=", "badwrite=", "readonly"}) {
    EXPECT_NE(help.out.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(std::count(help.out.begin(), help.out.end(), '\n'), std::count(help.out.begin(), help.out.end(), '\r'));
}

TEST(HostOptions, CreatesAndGrowsSparseFiles) {
  const ScratchFolder folder;
  const std::string created = folder.File("my disk.img");
  const std::string grown = folder.File("grown.img");
  const std::string fake = folder.File("fake.img");
  WriteBytes(grown, 0, "kept");
  const RunResult run = RunKorventix({"--drive", "1=" + created + ",size=7.5G", "--drive", "2=" + grown + ",size=1M",
                                      "--drive", "3=" + fake + ",size=1T,wrap=2M", "--no-wait"});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(fs::file_size(created), 8053063680U);
  EXPECT_EQ(fs::file_size(grown), kMebibyte);
  EXPECT_EQ(ReadBytes(grown, 0, 5), std::string("kept\0", 5));
  EXPECT_EQ(fs::file_size(fake), 2 * kMebibyte);
  struct stat status {};
  ASSERT_EQ(stat(created.c_str(), &status), 0);
  EXPECT_LT(status.st_blocks, 1000);
}

TEST(HostOptions, BadOnesCreateAndChangeNothing) {
  const ScratchFolder folder;
  const std::string small = folder.File("small.img");
  const std::string other = folder.File("other.img");
  const std::string odd = folder.File("odd.img");
  const std::string empty = folder.File("empty.img");
  const std::string fifo = folder.File("fifo");
  const std::string fresh = folder.File("fresh.img");
  WriteBytes(small, 0, std::string(1024, 's'));
  WriteBytes(other, 0, std::string(1024, 's'));
  WriteBytes(odd, 0, std::string(1023, 'o'));
  WriteBytes(empty, 0, "");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/null", folder.File("link").c_str()), 0);
  const std::string good = "1=" + fresh + ",size=1M";
  const std::string growing = "2=" + small + ",size=1M";
  const std::vector<std::string> bad_drives = {
      "3=" + folder.File("missing.img"),
      "3=" + folder.File("no folder/x.img") + ",size=1M",
      "3=" + other + ",size=512",
      "3=" + other + ",size=1M,wrap=512",
      "3=" + other + ",sector=4096",
      "3=" + odd,
      "3=" + empty,
      "3=" + fifo,
      "3=" + fifo + ",size=1M",
      "3=" + folder.File("link"),
      "3=/dev/null,size=1M",
      "3=" + folder.File("."),
      "3=" + fresh + ",size=1M",
      "3=" + small + ",size=1M,readonly",
      "3=" + folder.File("huge.img") + ",size=8388607T",
  };
  for (const std::string& bad : bad_drives) {
    ExpectRefused({"--drive", good, "--drive", growing, "--drive", bad, "DRIVE=1", "SURE", "CLEAN"}, bad);
    EXPECT_FALSE(fs::exists(fresh)) << bad;
    EXPECT_FALSE(fs::exists(folder.File("huge.img"))) << bad;
    EXPECT_EQ(ReadBytes(small, 0, 4096), std::string(1024, 's')) << bad;
    EXPECT_EQ(fs::file_size(other), 1024U) << bad;
    EXPECT_EQ(fs::file_size(odd), 1023U) << bad;
    EXPECT_EQ(fs::file_size(empty), 0U) << bad;
  }
  ExpectRefused({"--drive", "3=" + folder.File("two\nlines")}, "two?lines");
  ExpectRefused({"--drive", good, "--frob"}, "--frob");
  EXPECT_FALSE(fs::exists(fresh));
}

TEST(HostOptions, AFileIsForOneRunOnly) {
  const ScratchFolder folder;
  const std::string file = folder.File("a.img");
  SetFileSize(file, kMebibyte);
  const int holder = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);
  ExpectRefused({"--drive", "1=" + file, "--no-wait"}, "in use");
  close(holder);
  EXPECT_EQ(RunKorventix({"--drive", "1=" + file, "--no-wait"}).err, "");
}

// A program that runs can't be written, whoever the user is: its own file, made of whole sectors, is the image.
TEST(HostOptions, AnImageThatCantBeWrittenNeedsReadonly) {
  const ScratchFolder folder;
  const std::string program = folder.File("program");
  fs::copy_file(KORVENTIX_BINARY, program);
  SetFileSize(program, (fs::file_size(program) / 512 + 1) * 512);
  const RunResult refused = RunCommand({program, "--drive", "1=" + program, "--no-wait"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_TRUE(refused.err.starts_with("korventix: --drive 1=" + program + ": the file cannot be opened for writing"));
  EXPECT_EQ(RunCommand({program, "--drive", "1=" + program + ",readonly", "--no-wait"}).err, "");
}
