// exFAT and NTFS preparations with the system's own tools, and what independent tools say of the volumes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/run.h"

namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kStart = 2048;

std::uint64_t Field(const std::string& bytes, std::size_t at, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  }
  return value;
}

// A folder of tools that stand in front of the system's.
class ToolFolder {
 public:
  explicit ToolFolder(const ScratchFolder& scratch) : folder_(scratch.File("tools")) {
    std::filesystem::create_directory(folder_);
  }
  // Gives both tools a shell script.
  void Add(const std::string& script) const {
    for (const std::string tool : {"mkfs.exfat", "mkntfs"}) {
      const std::string file = folder_ + "/" + tool;
      std::filesystem::remove(file);
      WriteBytes(file, 0, "#!/bin/sh\n" + script + "\n");
      std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }
  }
  // Runs a command line on drive 1 with them, under a limit for the length of files in units of 512 bytes.
  RunResult Run(const std::string& image, const std::string& drive_options, const std::string& line,
                const std::string& input = "", const std::string& limit = "unlimited") const {
    const std::string shell = "ulimit -f " + limit + "; PATH=" + folder_ + ":/usr/bin:/bin; exec \"$@\"";
    std::vector<std::string> command = Words(line);
    const std::string drive = "1=" + image + drive_options;
    command.insert(command.begin(), {"sh", "-c", shell, "sh", KORVENTIX_BINARY, "--drive", drive, "--no-wait"});
    return RunCommand(command, input);
  }

 private:
  std::string folder_;
};

void ExpectEqualBytes(const std::string& made, const std::string& image, std::uint64_t position, std::size_t bytes) {
  ASSERT_TRUE(ReadBytes(made, position, bytes) == ReadBytes(image, kStart * kSector + position, bytes)) << position;
}

// Every stretch of the tool's volume that has data stands in the image too, but for `replaced` bytes at its start.
void ExpectCopied(const std::string& made, const std::string& image, std::uint64_t replaced) {
  constexpr off_t kChunk = 1 << 20;
  const int fd = open(made.c_str(), O_RDONLY | O_CLOEXEC);
  int stretches = 0;
  for (off_t at = lseek(fd, static_cast<off_t>(replaced), SEEK_DATA); at >= 0; at = lseek(fd, at, SEEK_DATA)) {
    const off_t stop = std::min(lseek(fd, at, SEEK_HOLE), at + kChunk);
    ExpectEqualBytes(made, image, static_cast<std::uint64_t>(at), static_cast<std::size_t>(stop - at));
    ++stretches;
    at = stop;
  }
  close(fd);
  EXPECT_GT(stretches, 2);
}

// All of FAT, bitmap, up-case table and root directory, zeros too.
void ExpectExfatCopied(const std::string& made, const std::string& image, std::uint64_t replaced) {
  const std::string boot = ReadBytes(made, 0, kSector);
  const std::uint64_t cluster = Field(boot, 0x6D, 1);
  const std::uint64_t end = (Field(boot, 0x58, 4) + ((Field(boot, 0x60, 4) - 1) << cluster)) * kSector;
  ExpectEqualBytes(made, image, replaced, static_cast<std::size_t>(end - replaced));
}

std::uint64_t DiskBytes(const std::string& file) {
  struct stat status {};
  stat(file.c_str(), &status);
  return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

void ExpectSoundExfat(const std::string& partition) {
  const RunResult check = RunCommand({"fsck.exfat", "-n", partition});
  EXPECT_NE(check.out.find(": clean. directories 1, files 0\n"), std::string::npos) << check.out << check.err;
  const std::string dump = RunCommand({"dump.exfat", partition}).out;
  EXPECT_NE(dump.find("Volume label: \t\t\t\tStick \xC3\xA9\n"), std::string::npos) << dump;
}

// A file goes onto the volume and comes back.
void ExpectSoundNtfs(const std::string& partition, const std::string& tools_boot_sector, const ScratchFolder& folder) {
  const std::string file = folder.File("file");
  const std::string content = std::string(100'000, 'x') + partition;
  WriteBytes(file, 0, content);
  EXPECT_NE(RunCommand({"ntfsinfo", "-m", partition}).out.find("Volume Name: Stick \xC3\xA9\n"), std::string::npos);
  EXPECT_EQ(RunCommand({"ntfscp", partition, file, "file.bin"}).exit_code, 0);
  EXPECT_EQ(RunCommand({"ntfscat", partition, "file.bin"}).out, content);
  // The copy at the volume's end is the tool's still, which ntfsfix would like the boot sector to be equal to.
  WriteBytes(partition, 0, tools_boot_sector);
  const RunResult fix = RunCommand({"ntfsfix", "-n", partition});
  EXPECT_EQ(fix.exit_code, 0) << fix.out;
}

TEST(ServiceFormats, MakeVolumesThatOthersAccept) {
  for (const std::string size : {"64M", "1G", "8G", "64G", "2T"}) {
    for (const std::string file_system : {"EXFAT", "NTFS"}) {
      SCOPED_TRACE(file_system + " " + size);
      const bool exfat = file_system == "EXFAT";
      const ScratchFolder folder;
      const ToolFolder tools(folder);
      const std::string made = folder.File("made.img");
      tools.Add("/usr/sbin/$(basename $0) \"$@\" && cp /proc/self/fd/0 " + made + " && echo noise");
      const std::string image = folder.File("usb.img");
      WriteBytes(image, 0, std::string(60 << 20, '\xFF'));  // old data must not show through
      const RunResult run =
          tools.Run(image, ",size=" + size, "DRIVE=1 SURE " + file_system + " BOOTMGR VOLUME=Stick \xC3\xA9");
      ASSERT_EQ(run.exit_code, 0) << run.out;
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.out.find("noise"), std::string::npos);
      EXPECT_LE(DiskBytes(image) >> 20, 60 + (exfat ? 1 : 70)) << "MiB, of which NTFS takes up to 64 for its journal";

      const std::uint64_t replaced = exfat ? 24 * kSector : 9 * kSector;
      exfat ? ExpectExfatCopied(made, image, replaced) : ExpectCopied(made, image, replaced);
      const std::string old_boot = ReadBytes(made, 0, kSector);
      const std::string boot = ReadBytes(image, kStart * kSector, kSector);
      if (exfat) {
        EXPECT_EQ(Field(boot, 0x40, 8), kStart);
        EXPECT_EQ(boot.substr(0, 0x40), old_boot.substr(0, 0x40));
        EXPECT_EQ(boot.substr(0x48, 0x79 - 0x48), old_boot.substr(0x48, 0x79 - 0x48));
      } else {
        EXPECT_EQ(boot.substr(0, 0x54), old_boot.substr(0, 0x54));
        EXPECT_EQ(Field(boot, 0x18, 4), 255U << 16 | 63);
        EXPECT_EQ(Field(boot, 0x1C, 4), kStart);
      }
      EXPECT_NE(boot.substr(0x79), old_boot.substr(0x79));
      const std::string partition = folder.File("partition.img");
      ExtractBytes(image, kStart * kSector, std::filesystem::file_size(made), partition);
      exfat ? ExpectSoundExfat(partition) : ExpectSoundNtfs(partition, old_boot, folder);
      EXPECT_NE(RunOnDrive(image, "", "LIST").out.find("D:"), std::string::npos);
    }
  }
}

TEST(ServiceFormats, PrintTheirTexts) {
  const struct {
    std::string line, printed;
  } cases[] = {
      {"EXFAT GRUB4DOS",
       "\r\nEXFAT_Format: FORMATTING AS exFAT\r\nRunning Windows FormatEx API on volume D: - please wait..."
       "\r\nWriting GRLDR for EXFAT\r\nReading EXFAT Volume Boot Record at LBA 32 OK"},
      {"NTFS XP",
       "\r\nNTFS_Format: FORMATTING AS NTFS\r\nRunning Windows NTFS FormatEx API on volume D: - please wait..."
       "\r\nReading NTFS Volume Boot Record at LBA 32 OK"},
  };
  for (const auto& row : cases) {
    const ScratchFolder folder;
    for (const std::string state : {"blank drive", "drive with a volume that is held meanwhile"}) {
      const RunResult run = RunOnDrive(folder.File("usb.img"), "size=100M,fixed", "DRIVE=1 SURE CHS " + row.line);
      EXPECT_NE(run.out.find("\r\nClearing out old VBRs (LBA 1-100)" + row.printed +
                             "\r\nBoot sector code updated OK"
                             "\r\n\r\nINFO: This device is classed as a Fixed Disk by Windows."
                             "\r\nRemounting drive 1\r\nOperation completed OK\r\n\r\n\r\n"),
                std::string::npos)
          << state << run.out;
    }
  }
}

TEST(ServiceFormats, SayWhenTheServiceFails) {
  const std::string unknown = "\r\nUnknown format error 0!\r\n\r\n";
  const struct {
    std::string label, script, drive_options, line, input, ending;
    int level;
    std::string limit;
  } cases[] = {
      {"failing tool", "echo broken; echo broken >&2; exit 1", "", "NTFS BOOTMGR", "", unknown, 6, "unlimited"},
      {"no other way", "exit 1", "", "EXFAT BOOTMGR", "ok\n", unknown, 6, "unlimited"},
      {"tool that dies", "kill -9 $$", "", "EXFAT BOOTMGR", "", unknown, 6, "unlimited"},
      {"tool that lies", "exit 0", "", "NTFS BOOTMGR", "", "\r\nNew Boot sector is not NTFS or invalid!\r\n\r\n\r\n", 9,
       "unlimited"},
      {"bad sector", "exec /usr/sbin/mkntfs \"$@\"", ",badwrite=2090", "NTFS BOOTMGR", "", unknown, 6, "unlimited"},
      {"no room for the tool's file", "exit 0", "", "NTFS BOOTMGR", "", unknown, 6, "120000"},
  };
  for (const auto& row : cases) {
    const ScratchFolder folder;
    const ToolFolder tools(folder);
    tools.Add(row.script);
    SetFileSize(folder.File("usb.img"), 100 << 20);
    const RunResult run =
        tools.Run(folder.File("usb.img"), row.drive_options, "DRIVE=1 SURE " + row.line, row.input, row.limit);
    EXPECT_EQ(run.exit_code, row.level) << row.label;
    EXPECT_TRUE(run.out.ends_with(row.ending)) << row.label << run.out;
    EXPECT_EQ(run.out.find("broken"), std::string::npos);
    EXPECT_EQ(run.err, "") << row.label;
  }
}

TEST(ServiceFormats, GiveTheToolItsFileAndNothingElse) {
  const ScratchFolder folder;
  const ToolFolder tools(folder);
  const std::string seen = folder.File("seen");
  tools.Add("exec >" + seen + "; ls /proc/self/fd; echo $LC_ALL \"$@\"; wc -c <&0");
  tools.Run(folder.File("usb.img"), ",size=100M", "DRIVE=1 SURE EXFAT BOOTMGR VOLUME=-f $HOME");
  EXPECT_EQ(ReadBytes(seen, 0, 200),
            "0\n1\n2\n3\nC.UTF-8 -L -f $HOME /proc/self/fd/0\n" + std::to_string(174'667 * kSector) + "\n");
}

// Both ways of ending at once: the tool goes too, and nothing stays in any folder.
TEST(ServiceFormats, LeaveNothingBehindWhenTheyAreKilled) {
  const ScratchFolder folder;
  const ToolFolder tools(folder);
  const std::string pid = folder.File("pid");
  tools.Add("echo $$ >" + pid + "; exec sleep 100");
  const std::string temporary = folder.File("temporary");
  std::filesystem::create_directory(temporary);
  const RunResult run = RunCommand({"timeout", "20", "sh", "-c",
                                    "TMPDIR=" + temporary + " PATH=" + folder.File("tools") +
                                        ":$PATH " KORVENTIX_BINARY " --drive 1=" + folder.File("usb.img") +
                                        ",size=100M --no-wait DRIVE=1 SURE NTFS BOOTMGR >/dev/null & "
                                        "while [ ! -s " +
                                        pid +
                                        " ]; do sleep 0.01; done; kill -9 $!; "
                                        "while kill -0 $(cat " +
                                        pid + ") 2>/dev/null; do sleep 0.01; done; ls " + temporary});
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(run.out, "");
}

}  // namespace
