// The program on emulated drives, under a real kernel: every mode does what it does on a simulated drive, what is in
// use is refused, and drives that fail end the run.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <tuple>

#include "boot/fat_volume.h"
#include "boot/machine.h"
#include "usb/guest.h"

namespace {

namespace fs = std::filesystem;

const std::string kUas = "scsi-hd,bus=uas.0,removable=on";
const std::string kFixed = "usb-storage,bus=ehci.0";
constexpr std::uint64_t kStartLba = 2048;

class UsbBench : public testing::Test {
 protected:
  // A sparse image of so many MiB.
  std::string NewImage(const std::string& name, std::uint64_t mebibytes) {
    const std::string image = folder_.File(name);
    SetFileSize(image, mebibytes << 20U);
    return image;
  }
  // A copy of a prepared stick of 64 MiB with one volume.
  std::string NewStick(const std::string& name) {
    const std::string master = folder_.File("prepared");
    if (!fs::exists(master)) {
      EXPECT_EQ(RunOnDrive(NewImage("prepared", 64), "", "DRIVE=1 SURE WIN7").exit_code, 0);
    }
    fs::copy_file(master, folder_.File(name));
    return folder_.File(name);
  }
  bool Unchanged(const std::string& name) {
    return RunCommand({"cmp", folder_.File(name), folder_.File("prepared")}).exit_code == 0;
  }
  // Runs a command in the folder of the images.
  RunResult RunHere(std::vector<std::string> command) {
    command.insert(command.begin(), {"env", "-C", folder_.File("")});
    return RunCommand(command);
  }

  ScratchFolder folder_;
};

// --- Every mode ----------------------------------------------------------------------------------------------------

enum class Same { kAll, kBytes, kText };

struct Sequence {
  std::string serial;  // of the stick, and the name of the row
  std::uint64_t mebibytes;
  std::vector<std::string> lines;  // run one after the other
  Same same = Same::kAll;          // measurements differ, and so do the numbers that formatters draw
  std::string device = kStick;
  std::string traits = "";  // of the simulated drive
};

const std::vector<Sequence> kSequences = {
    {"fat32", 300, {"SURE FAT32 WINPE VOLUME=MY STICK", "USBINFO SURE LENGTH=1"}},
    {"fat12", 600, {"SURE FAT32 FREEDOS 2PTN", "SURE FIRSTPART=2"}},
    {"fat16", 100, {"SURE MSDOS", "SURE WRITEMBRONLY", "SURE CLEAN"}},
    {"floppy", 40, {"SURE WIN7 USBFDD"}, Same::kAll, kFixed, ",fixed"},
    {"uas", 300, {"SURE FAT32 XP 2MBR", "GETDRV"}, Same::kAll, kUas},
    {"copy", 32, {"SURE FILETOUSB FILE=numbers USBSTART=5SEC", "SURE USBTOFILE FILE=back USBSTART=5SEC LENGTH=1MB"}},
    {"erase", 24, {"SURE ERASE"}},
    {"quick", 24, {"SURE QUICKTEST"}},
    {"speed", 32, {"SURE SPEEDTEST"}, Same::kBytes},
    {"exfat", 64, {"SURE EXFAT WIN7"}, Same::kText},
    {"ntfs", 64, {"SURE NTFS WIN7"}, Same::kText, kFixed, ",fixed"},
};

// The numbers from 1 to 300000, a line each, as seq writes them.
std::string Numbers() {
  std::string text;
  for (int i = 1; i <= 300000; ++i) {
    text += std::to_string(i) + "\n";
  }
  return text;
}

std::string LabelOf(const Sequence& sequence, std::size_t line) { return sequence.serial + "." + std::to_string(line); }

// Letters depend on what other drives there are, and times on how fast they are.
std::string Comparable(std::string text) {
  static const std::pair<std::regex, const char*> kVariable[] = {
      {std::regex("\\b[D-Z]:"), "*:"},
      {std::regex("- [^\r]* remaining"), "- * remaining"},
      {std::regex("took \\d+ seconds"), "took * seconds"},
  };
  for (const auto& [pattern, instead] : kVariable) {
    text = std::regex_replace(text, pattern, instead);
  }
  return text;
}

std::string ScriptOf(const Sequence& sequence) {
  std::string script = "wait_for drive " + sequence.serial + "\n";
  script += "run number." + sequence.serial + " drive " + sequence.serial + "\n(\n";
  for (std::size_t i = 0; i < sequence.lines.size(); ++i) {
    script += "on " + sequence.serial + " " + LabelOf(sequence, i) + " " + sequence.lines[i] + "\n";
  }
  return script + ") &\n";
}

// The same line on a simulated drive with the names of an emulated one.
std::vector<std::string> SimulatedCommand(const Sequence& sequence, std::size_t line, const std::string& number) {
  std::vector<std::string> command = {
      KORVENTIX_BINARY,
      "--drive",
      number + "=" + sequence.serial +
          ".sim,vendor=QEMU,product=QEMU HARDDISK,revision=2.5+,serial=" + sequence.serial + sequence.traits,
      "--no-wait",
      "--seed",
      "1",
      "DRIVE=" + number};
  const std::vector<std::string> words = Words(sequence.lines[line]);
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

TEST_F(UsbBench, EveryModeDoesWhatItDoesOnASimulatedDrive) {
  Guest guest;
  guest.Add("usb-uas,id=uas,bus=xhci.0,serial=uas");
  std::string script = "seq 1 300000 >numbers\n";
  for (const Sequence& sequence : kSequences) {
    guest.Attach(sequence.serial, NewImage(sequence.serial, sequence.mebibytes), sequence.device);
    script += ScriptOf(sequence);
  }
  script += "wait\nrun back sha256sum back\n";
  GuestResults results = guest.Run(script);
  WriteBytes(folder_.File("numbers"), 0, Numbers());
  for (const Sequence& sequence : kSequences) {
    const std::string simulated = NewImage(sequence.serial + ".sim", sequence.mebibytes);
    const std::string number = std::to_string(std::atoi(results["number." + sequence.serial].out.c_str()));
    for (std::size_t i = 0; i < sequence.lines.size(); ++i) {
      SCOPED_TRACE(LabelOf(sequence, i) + " " + sequence.lines[i]);
      const RunResult& real = results[LabelOf(sequence, i)];
      const RunResult expected = RunHere(SimulatedCommand(sequence, i, number));
      EXPECT_EQ(real.exit_code, expected.exit_code);
      EXPECT_EQ(real.err, "");
      if (sequence.same != Same::kBytes) {
        EXPECT_EQ(Comparable(real.out), Comparable(expected.out));
      }
    }
    if (sequence.same != Same::kText) {
      EXPECT_EQ(RunCommand({"cmp", folder_.File(sequence.serial), simulated}).out, "");
    }
  }
  EXPECT_EQ(results["back"].out, RunHere({"sha256sum", "back"}).out);
  for (const auto& [serial, number_at, checker] :
       {std::tuple{"exfat", 0x64, std::vector<std::string>{"fsck.exfat", "-n"}},
        std::tuple{"ntfs", 0x48, std::vector<std::string>{"ntfsinfo", "-m"}}}) {
    // The boot sector but for the volume's serial number, and the volume as others see it.
    std::string sectors[2];
    for (const char* suffix : {"", ".sim"}) {
      std::string& sector = sectors[*suffix == 0 ? 0 : 1];
      sector = ReadBytes(folder_.File(std::string(serial) + suffix), kStartLba * kSectorBytes, kSectorBytes);
      sector.replace(static_cast<std::size_t>(number_at), 8, 8, '\0');
    }
    EXPECT_EQ(sectors[0], sectors[1]) << serial;
    std::vector<std::string> command = checker;
    command.push_back(folder_.File("volume"));
    ExtractBytes(folder_.File(serial), kStartLba * kSectorBytes, 60U << 20U, command.back());
    const RunResult checked = RunCommand(command);
    EXPECT_EQ(checked.exit_code, 0) << checked.out << checked.err;
  }

  // The stick that the program has written on the USB bus starts from it.
  FatVolume volume = OpenVolume(folder_.File("fat32"), kStartLba);
  const std::string loader = StubLoader(66001);
  const Placement placement{3};
  WriteFile(volume, placement, loader);
  PlaceEntries(volume, 1, DirectoryEntry("BOOTMGR    ", kArchive, placement.first, loader.size()));
  const BootReport report = BootDirectly(folder_.File("fat32"), kUsb);
  EXPECT_TRUE(report.loaded) << report.text;
  EXPECT_EQ(report.hash, HashOf(loader));
}

// --- What is refused -----------------------------------------------------------------------------------------------

struct UseOfStick {
  std::string serial;
  std::string setup;  // shell lines; $p is the stick's partition
  int exit_code;
  std::string err;  // a part of it; empty for none at all
  bool written;
  std::string words = "CLEAN";
};

const std::vector<UseOfStick> kUses = {
    // Other namespaces get copies of all mounts that there are, so that these come first.
    {"away",
     "unshare -m sh -c \"mount --make-rprivate /; mount $p /tmp; sleep 1000\" &\nwait_for grep $p /proc/$!/mounts", 7,
     "is mounted on /tmp for process", false},
    {"copied", "mkdir /mnt/own; mount $p /mnt/own; unshare -m sleep 1000 &\nwait_for elsewhere $!", 7,
     "is mounted on /mnt/own for process", false},
    {"joined",
     "mkdir /mnt/j; mount -t tmpfs none /mnt/j; mount --make-shared /mnt/j; mkdir /mnt/j/x; mount $p /mnt/j/x\n"
     "unshare -m --propagation slave sleep 1000 &\nwait_for elsewhere $!",
     0, "", true},
    {"swap", "mkswap $p\nswapon $p", 7, "is swap space", false},
    {"loop", "losetup /dev/loop0 $p", 7, "is part of /dev/loop0", false},
    {"home", "mkdir /home; mount $p /home", 7, "is mounted on /home and belongs to the running system", false},
    // What could be unmounted stays too, however often that is asked.
    {"open",
     "mkdir /mnt/idle /mnt/open; mount $p /mnt/idle; mount --bind /mnt/idle /mnt/open; (cd /mnt/open; sleep 1000) &\n"
     "on open open.before SURE CLEAN",
     7, "is mounted on /mnt/open and in use", false},
    {"under", "mkdir /mnt/u; mount $p /mnt/u; mkdir /mnt/u/x; mount -t tmpfs none /mnt/u/x", 7,
     "is mounted on /mnt/u and has another file system mounted on it", false},
    {"writer", "sleep 1000 3<>$p &", 7, "is open in process", false},
    {"reader", "sleep 1000 <$p &", 6, "the system still uses its old partition table: /dev/", true,
     "NTFS WIN7 SIZE=20"},
    {"free", "mkdir -p '/mnt/a b/c' /mnt/d; mount $p '/mnt/a b'; mount --bind '/mnt/a b' /mnt/d", 0, "", true},
};

std::string ScriptOf(const UseOfStick& use) {
  return "wait_for drive " + use.serial + "\np=$(device " + use.serial + ")1\n" + use.setup + "\nsync\n" + "on " +
         use.serial + " " + use.serial + " SURE " + use.words + " &\nruns=\"$runs $!\"\n";
}

TEST_F(UsbBench, RefusesWhatIsInUse) {
  Guest guest;
  // Whether a process has a mount namespace of its own.
  std::string script = "elsewhere() { [ $(readlink /proc/$1/ns/mnt) != $(readlink /proc/$$/ns/mnt) ]; }\n";
  for (const UseOfStick& use : kUses) {
    guest.Attach(use.serial, NewStick(use.serial));
    script += ScriptOf(use);
  }
  GuestResults results = guest.Run(script + "wait $runs\nrun mounts mount\n");
  for (const UseOfStick& use : kUses) {
    SCOPED_TRACE(use.serial);
    const RunResult& run = results[use.serial];
    EXPECT_EQ(run.exit_code, use.exit_code) << run.out;
    EXPECT_NE(run.err.find(use.err), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), use.err.empty() ? 0 : 1) << run.err;
    // What is mounted may have written to its own stick.
    const std::string old_code = ReadBytes(folder_.File("prepared"), 0, kSectorBytes);
    EXPECT_EQ(ReadBytes(folder_.File(use.serial), 0, kSectorBytes) != old_code, use.written);
  }
  const std::string& mounts = results["mounts"].out;
  for (const char* kept : {"open", "idle", "own", "u", "u/x"}) {
    EXPECT_NE(mounts.find(std::string("on /mnt/") + kept + " "), std::string::npos) << kept << "\n" << mounts;
  }
  for (const char* unmounted : {"a b", "d", "j/x"}) {
    EXPECT_EQ(mounts.find(std::string("on /mnt/") + unmounted + " "), std::string::npos) << unmounted << "\n" << mounts;
  }
  EXPECT_NE(results["reader"].out.find("Error: Volume is locked for access"), std::string::npos);
  EXPECT_EQ(ReadBytes(folder_.File("reader"), kStartLba * kSectorBytes, kSectorBytes).find("NTFS"), std::string::npos);
}

// --- Drives as they come ---------------------------------------------------------------------------------------------

// Fails what has this kind ("read", "write", "flush") on a sector, or everywhere.
std::string Failing(const std::string& kind, const std::string& event, int sector) {
  const std::string rule = ",file.inject-error.0.";
  return "driver=raw,file.driver=blkdebug" + rule + "event=" + event + rule + "iotype=" + kind + rule + "errno=5" +
         rule + "sector=" + std::to_string(sector) + ",file.image.driver=file,file.image.filename=";
}

// So many bytes a second; the group is one of its own.
std::string Throttled(const std::string& group) {
  return "driver=throttle,throttle-group=" + group + ",file.driver=raw,file.file.driver=file,file.file.filename=";
}

struct Scene {
  std::string serial;
  std::string device;
  std::string chain;
  std::string script;  // shell lines
};

const std::vector<Scene> kScenes = {
    {"protected", kStick, "read-only=on," + kPlain, "on protected protected SURE WIN7"},
    {"large", "scsi-hd,bus=uas.0,logical_block_size=4096,physical_block_size=4096", kPlain, "on large large SURE WIN7"},
    {"system", "ide-hd,bus=ahci.0", kPlain,
     "on system system.usb SURE CLEAN\nmkdir /boot\nmount $(device system)1 /boot\non system system.all SURE CLEAN "
     "ALLDRIVES"},
    {"badread", kStick, Failing("read", "read_aio", 0), "on badread badread SURE WIN7"},
    {"badwrite", kStick, Failing("write", "write_aio", kStartLba), "on badwrite badwrite SURE WIN7"},
    {"badflush", kStick, Failing("flush", "flush_to_disk", -1), "on badflush badflush SURE CLEAN"},
    {"slow", kStick, Throttled("slow"), "on slow slow SURE WIN7"},
    {"pulled", kStick, Throttled("pulled"),
     "on pulled pulled SURE ERASE & erase=$!\n"
     "wait_for grep -q '10% complete' /results/pulled.out\n"
     "monitor device_del dev-pulled\nwait $erase"},
    {"shared", kStick, Throttled("shared"),
     "on shared shared.erase SURE ERASE & erase=$!\n"
     "wait_for grep -q '5% complete' /results/shared.erase.out\n"
     "on shared shared.second SURE CLEAN\non shared shared.find FIND\n"
     "run shared.busy kill $erase"},
    {"user", kStick, kPlain,
     "as_user() { label=$1; shift; run user.$label su user -c \"korventix --seed 1 $*\"; }\n"
     "as_user none DRIVE=$(drive user) SURE WIN7\nchmod 666 $(device user)\n"
     "as_user list LIST\nas_user prepared DRIVE=$(drive user) SURE WIN7\nchmod 666 $(device user)1\n"
     "as_user service DRIVE=$(drive user) SURE NTFS WIN7 SIZE=20"},
};

// Starts the program on a drive whose run stops at a question, and waits for that.
const std::string kAskedOn =
    "asked_on() { mkfifo answer.$1\n"
    "{ korventix DRIVE=$(drive $1) CLEAN <answer.$1 >/results/$2.out 2>/results/$2.err\n"
    "echo $? >/results/$2.code; } & exchange=$!\n"
    "exec 3>answer.$1\nwait_for grep -q \"$3\" /results/$2.out; }\n";

// A drive is asked about before it is opened for the mode, since it is large; meanwhile another comes in its place,
// which gets another number.
const std::string kExchange =
    "wait_for drive old\nnumber=$(drive old)\nasked_on old exchanged Accessing\n"
    "monitor device_del dev-old\nwait_for sh -c '! ls /dev/sd? | grep -q '$(device old)\n"
    "monitor device_add " +
    kStick +
    ",drive=new,serial=new,id=dev-new\nwait_for drive new\n"
    "run number.other [ $number != $(drive new) ]\necho ok >&3\nwait $exchange\n";

// The card of a reader is exchanged for one of the same size while the run waits for the answer before its first write.
std::string ExchangeOfCard(const std::string& other) {
  return "wait_for drive card\nasked_on card card.exchanged Accessing\nsleep 3\nmonitor eject -f card\nmonitor change "
         "card " +
         other + " raw\nsleep 1\necho ok >&3\nwait $exchange\n";
}

struct Outcome {
  std::string label;
  int exit_code;
  std::string out;  // parts of them
  std::string err;  // empty for none at all
};

const std::vector<Outcome> kOutcomes = {
    {"protected", 7, "ERROR: The media is write protected.", ""},
    {"large", 6, "is reported as a 4K-bytes per sector drive!", ""},
    {"system.usb", 4, "is not a USB drive!", ""},
    {"system.all", 7, "ERROR: Access is denied.", "is mounted on /boot and belongs to the running system"},
    {"badread", 6, "Error accessing sector 0", ""},
    {"badwrite", 7, "Disk Write Error!", ""},
    {"badflush", 7, "WRITE ERROR TO MBR", ""},
    {"slow", 0, "Operation completed OK", ""},
    {"pulled", 7, "*** ERROR *** writing to drive at Sector", ""},
    {"shared.second", 6, "Failed to open handle on disk", "is locked by another program"},
    {"shared.find", 0, "SIZE=57576960", ""},
    {"shared.busy", 0, "", ""},
    {"user.none", 6, "Failed to open handle on disk", "can't be opened without the right to read it"},
    {"user.list", 0, "Sno=user", "can't be opened without the right to read it"},
    {"user.prepared", 0, "Operation completed OK", ""},
    {"empty", 6, "Failed to open handle on disk", "has no medium"},
    {"user.service", 6, "Volume is locked for access",
     "the system still uses its old partition table: Permission denied"},
    {"number.other", 0, "", ""},
    {"exchanged", 6, "Failed to open handle on disk", ""},
    {"card.exchanged", 7, "ERROR", "has another medium now (QEMU QEMU HARDDISK 2.5+, serial number card"},
    {"trace", 0, "", ""},
    {"calls", 0, "", ""},
    {"list", 0, "3,071.9GiB QEMU QEMU HARDDISK              Fw=25+   Sno=big", ""},
};

// All but the system's, and the one that has no sectors of 512 bytes; and the three that are in no scene.
const std::size_t kReadByList = kScenes.size() - 2 + 3;

// The kernel's counts of each drive's transfers, before LIST and behind it: nothing written, and at most the sector
// with which a drive's size is proved read.
void ExpectOneReadOfEach(const std::string& counts) {
  std::vector<std::uint64_t> reads;
  std::vector<std::uint64_t> writes;
  std::istringstream lines(counts);
  for (std::string line; std::getline(lines, line) && !line.empty();) {
    std::istringstream words(line);
    std::uint64_t ignored = 0;
    words >> reads.emplace_back() >> ignored >> ignored >> ignored >> writes.emplace_back();
  }
  const std::size_t drives = reads.size() / 2;
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < drives; ++i) {
    EXPECT_LE(reads[i + drives] - reads[i], 1U);
    EXPECT_EQ(writes[i + drives], writes[i]);
    total += reads[i + drives] - reads[i];
  }
  EXPECT_EQ(total, kReadByList);
}

// The calls of the system that LIST makes, but for what it reads of the system's own tables.
const std::string kTraceOfList =
    "run trace strace -o /tmp/calls korventix LIST\n"
    "run calls grep -vE "
    "'^(close|getdents64|newfstatat|read|readlink)\\(|^fcntl\\(.*F_(DUPFD_CLOEXEC|GETFL|SETFD)|^openat\\(.*\"/"
    "(proc|sys)/[^\"]*\", "
    "O_RDONLY' /tmp/calls\n";

// Drives are opened for reading alone, are asked for their names and size, and have one sector read; nothing else in
// the system is changed by any call.
void ExpectNothingTouched(const std::string& calls) {
  static const std::regex kHarmless(
      "openat\\(AT_FDCWD, \"[^\"]*\", O_RDONLY[|)].*"
      "|ioctl\\(\\d+, SG_IO, \\{interface_id='S', dxfer_direction=SG_DXFER_FROM_DEV, cmd_len=\\d+, "
      "cmdp=\"\\\\x(12|25)\\\\.*"
      "|(pread64|write)\\((\\d+), .*"
      "|(access|arch_prctl|brk|clock_nanosleep|execve|exit_group|fstat|futex|getpid|getrandom|lseek|mmap|mprotect|"
      "munmap"
      "|prlimit64|rseq|rt_sigaction|set_robust_list|set_tid_address|statx)\\(.*"
      "|\\+\\+\\+ exited with 0 \\+\\+\\+");
  std::size_t reads = 0;
  std::size_t commands = 0;
  std::istringstream lines(calls.substr(std::min(calls.find("execve("), calls.size())));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(std::regex_match(line, kHarmless)) << line;
    EXPECT_TRUE(!line.starts_with("write(") || line.starts_with("write(1, ")) << line;
    commands += line.starts_with("ioctl(") ? 1 : 0;
    reads += line.starts_with("pread64(") && line.find(", 512, ") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(reads, kReadByList) << calls;
  EXPECT_GE(commands, 3 * reads);
}

TEST_F(UsbBench, TakesDrivesAsTheyAre) {
  Guest guest;
  guest.Add("usb-uas,id=uas,bus=xhci.0,serial=large");
  for (const auto& [group, speed] : {std::pair{"slow", "1000000"}, {"pulled", "8000000"}, {"shared", "1000000"}}) {
    guest.Argue({"-object", std::string("throttle-group,id=") + group + ",x-bps-total=" + speed});
  }
  guest.Argue({"-drive", "if=none,id=empty"});
  guest.Add(kStick + ",drive=empty,serial=empty");
  guest.Argue({"-drive", "if=none,id=card,format=raw,file=" + NewStick("card")});
  guest.Add(kStick + ",drive=card,serial=card");
  guest.Bring("/usr/bin/strace");
  guest.Attach("big", NewImage("big", 3U << 20U));
  guest.Attach("old", NewImage("old", 70000));
  guest.AddImage("new", NewStick("new"));
  std::string waits = "wait_for drive empty\nwait_for drive big\n";
  std::string scenes;
  for (const Scene& scene : kScenes) {
    guest.Attach(scene.serial, NewStick(scene.serial), scene.device, scene.chain);
    waits += "wait_for drive " + scene.serial + "\n";
    scenes += "(\n" + scene.script + "\n) &\n";
  }
  GuestResults results = guest.Run(kAskedOn + kExchange + ExchangeOfCard(NewStick("other")) + waits +
                                   "cat /sys/block/sd*/stat >before\nrun list korventix LIST\n" +
                                   "run stat sh -c 'cat before /sys/block/sd*/stat'\n" + kTraceOfList +
                                   "on empty empty SURE CLEAN\n" + scenes + "wait\n");
  for (const Outcome& outcome : kOutcomes) {
    SCOPED_TRACE(outcome.label);
    const RunResult& run = results[outcome.label];
    EXPECT_EQ(run.exit_code, outcome.exit_code) << run.out;
    EXPECT_NE(run.out.find(outcome.out), std::string::npos) << run.out;
    EXPECT_NE(run.err.find(outcome.err), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), outcome.err.empty() ? 0 : 1) << run.err;
  }
  for (const char* untouched : {"protected", "large", "badread", "new"}) {
    EXPECT_TRUE(Unchanged(untouched)) << untouched;
  }
  ExpectOneReadOfEach(results["stat"].out);
  ExpectNothingTouched(results["calls"].out);
}

}  // namespace
