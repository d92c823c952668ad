// The machine with the system's own drives, on trees that a test has made: what it takes for a drive, when it writes,
// and what it refuses. Kernel and hardware are the matter of the bench in tests/usb.
#include "platform/linux/linux_machine.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "support/fake_system.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMebibyte = 1048576;
constexpr OpenMode kReadWrite{kAccessReadWrite, kShareReadWrite, kOpenExisting, 0};
constexpr OpenMode kQuery{0, kShareReadWrite, kOpenExisting, 0};
const std::string kStick = "\\\\.\\PhysicalDrive1";

class LinuxDrives : public testing::Test {
 protected:
  LinuxDrives() { StartAnew(); }

  // Another system with the usual stick, and no machine yet.
  void StartAnew() {
    machine_.reset();
    fs::remove_all(folder_.File("root"));
    unclaimed_ = std::make_unique<FakeSystem>(folder_.File("root"));
    system_ = unclaimed_.get();
    system_->AddStick("sdb");
    system_->AddPartition("sdb", 1, "8:17", 2048, 1000);
  }

  LinuxMachine& Machine() {
    if (!machine_) {
      machine_ = std::make_unique<LinuxMachine>(HostSettings{}, std::move(unclaimed_));
    }
    return *machine_;
  }

  // The handle of a drive that has been identified, as a mode gets it.
  static Handle OpenForMode(LinuxMachine& machine) {
    const Handle probe = machine.Open(kStick, kReadWrite);
    machine.Seek(probe, 0);
    machine.Close(probe);
    return machine.Open(kStick, kReadWrite);
  }

  bool WriteSector(Handle handle, std::uint8_t value = 0x5A) {
    const std::vector<std::uint8_t> sector(512, value);
    std::uint32_t moved = 0;
    return machine_->Seek(handle, 512) && machine_->Write(handle, sector, moved) && moved == sector.size();
  }

  std::string Written() const { return ReadBytes(NodeOf(*system_, "sdb"), 512, 512); }

  const ScratchFolder folder_;
  std::unique_ptr<FakeSystem> unclaimed_;  // until there is a machine
  FakeSystem* system_ = nullptr;
  std::unique_ptr<LinuxMachine> machine_;
};

TEST_F(LinuxDrives, AreTakenFromSysfs) {
  system_->AddStick("sdd");
  system_->Put(system_->Sys("sdd/removable"), "0");
  system_->AddPartition("sdd", 1, "8:49", 63, 10);
  system_->AddPartition("sdd", 2, "8:50", 100, 2);  // an extended one
  system_->AddPartition("sdd", 5, "8:53", 102, 500);
  fs::remove(system_->Sys("sdd/device"));
  fs::create_directories(system_->Sys("sdd/device"));
  LinuxMachine& machine = Machine();
  const struct {
    const char* path;
    std::uint32_t number;
    std::uint32_t partition;
    std::uint64_t bytes;
    std::uint8_t bus;
  } items[] = {
      {"\\\\.\\PhysicalDrive1", 1, 0, kStickBytes, kBusTypeUsb},
      {"\\\\.\\PhysicalDrive3", 3, 0, kStickBytes, kBusTypeAta},
      {"\\\\.\\D:", 1, 1, 512'000, kBusTypeUsb},
      {"\\\\.\\E:", 3, 1, 5120, kBusTypeAta},
      {"\\\\.\\F:", 3, 5, 256'000, kBusTypeAta},
  };
  for (const auto& item : items) {
    SCOPED_TRACE(item.path);
    const Handle handle = machine.Open(item.path, kQuery);
    DeviceNumber device{};
    std::uint64_t bytes = 0;
    std::uint8_t bus = 0;
    EXPECT_TRUE(machine.QueryDeviceNumber(handle, device) && machine.QueryLength(handle, bytes) &&
                machine.QueryBusType(handle, bus));
    EXPECT_EQ(device.device_number, item.number);
    EXPECT_EQ(device.partition_number, item.partition);
    EXPECT_EQ(bytes, item.bytes);
    EXPECT_EQ(bus, item.bus);
  }
  EXPECT_EQ(machine.DriveType("D:\\"), kDriveTypeRemovable);
  EXPECT_EQ(machine.DriveType("F:\\"), kDriveTypeFixed);
  EXPECT_EQ(machine.DriveType("G:\\"), kDriveTypeNoRoot);
  EXPECT_TRUE(system_->opens.empty()) << "no device is opened for a question";
  for (const char* path : {"\\\\.\\PhysicalDrive0", "\\\\.\\PhysicalDrive26", "\\\\.\\PhysicalDrive01", "\\\\.\\G:"}) {
    EXPECT_EQ(machine.Open(path, kReadWrite), kInvalidHandle) << path;
    EXPECT_EQ(machine.LastError(), kErrorFileNotFound) << path;
  }
}

TEST_F(LinuxDrives, AreReadWithoutTouchingAnything) {
  system_->SetMounts({{30, 1, "8:17", "/mnt", "/dev/sdb1"}});
  WriteBytes(NodeOf(*system_, "sdb"), 1024, "some bytes");
  LinuxMachine& machine = Machine();
  const Handle handle = OpenForMode(machine);
  std::vector<std::uint8_t> buffer(9 * kMebibyte);  // longer than a transfer in one piece
  std::uint32_t moved = 0;
  system_->outcome = {-EINTR, 512, 1024};
  EXPECT_TRUE(machine.Seek(handle, 1024) && machine.Read(handle, buffer, moved));
  EXPECT_EQ(moved, buffer.size());
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 10), "some bytes");
  EXPECT_TRUE(system_->unmounted.empty());
  for (const auto& opened : system_->opens) {
    EXPECT_EQ(opened.flags & O_ACCMODE, O_RDONLY);
    EXPECT_NE(opened.flags & O_DIRECT, 0);
  }
}

TEST_F(LinuxDrives, AreFreedBeforeTheFirstWrite) {
  system_->AddPartition("sdb", 2, "8:18", 4000, 1000);
  system_->SetMounts({{20, 1, "8:1", "/", "/dev/sda1"},
                      {30, 20, "8:17", "/mnt/my\\040stick", "/dev/sdb1"},
                      {31, 20, "8:18", "/mnt/other", "/dev/sdb2", "fuseblk"},
                      {32, 20, "0:99", "/b", NodeOf(*system_, "sdb1")}});  // as btrfs shows itself
  // The program of a mounted file system ends when that is unmounted; one that only reads may stay.
  system_->AddOpen("77", "sdb2", O_RDWR);
  system_->AddOpen("78", "sdb", O_RDONLY);
  system_->on_pause = [&] { fs::remove_all(system_->Trees().proc + "/77"); };
  const Handle handle = OpenForMode(Machine());
  EXPECT_TRUE(WriteSector(handle));
  EXPECT_EQ(Written(), std::string(512, 0x5A));
  EXPECT_EQ(system_->unmounted, (std::vector<std::string>{"/mnt/my stick", "/mnt/other", "/b"}));
  EXPECT_EQ(system_->pauses, 1);
  EXPECT_EQ(system_->opens.back().flags & (O_ACCMODE | O_EXCL | O_DIRECT | O_DSYNC),
            O_RDWR | O_EXCL | O_DIRECT | O_DSYNC);
  EXPECT_TRUE(system_->complaints.empty());
  const std::size_t opens = system_->opens.size();
  EXPECT_TRUE(WriteSector(handle, 1));
  EXPECT_EQ(system_->opens.size(), opens) << "the claim holds";
}

TEST_F(LinuxDrives, InUseAreRefused) {
  const std::string node = NodeOf(*system_, "sdb1");
  const struct {
    const char* label;
    std::function<void(FakeSystem&)> use;
    std::string why;
  } cases[] = {
      {"root",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/", "x"}});
       },
       node + " is mounted on / and belongs to the running system"},
      {"boot beside a free one",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x"}, {31, 1, "8:17", "/boot/efi", "x"}});
       },
       node + " is mounted on /boot/efi and belongs to the running system"},
      {"open files",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x"}, {31, 1, "8:17", "/busy", "x"}});
         s.busy = "/busy";
       },
       node + " is mounted on /busy and in use"},
      {"nested",
       [](FakeSystem& s) {
         s.SetMounts({{29, 1, "8:17", "/free", "x"}, {30, 1, "8:17", "/mnt", "x"}, {31, 30, "8:17", "/mnt/in", "x"}});
       },
       node + " is mounted on /mnt and has another file system mounted on it"},
      {"another drive mounted on it",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x"}, {31, 30, "8:1", "/mnt/in", "x"}});
       },
       node + " is mounted on /mnt and has another file system mounted on it"},
      {"swap", [&](FakeSystem& s) { s.Put(s.Trees().proc + "/swaps", "Filename\n" + node + "\tpartition\n"); },
       node + " is swap space"},
      {"device mapper", [](FakeSystem& s) { fs::create_directories(s.Sys("sdb/sdb1/holders/dm-0")); },
       node + " is part of " + NodeOf(*system_, "dm-0")},
      {"loop device", [&](FakeSystem& s) { s.Put(s.Sys("loop3/loop/backing_file"), node + "\n"); },
       node + " is part of " + NodeOf(*system_, "loop3")},
      {"another namespace",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x"}}, "77");
         s.Put(s.Trees().proc + "/77/comm", "shell\n");
       },
       node + " is mounted on /mnt for process 77 (shell)"},
      {"own and in another namespace",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x"}});
         s.SetMounts({{40, 2, "8:17", "/mnt", "x"}}, "77");
         s.Put(s.Trees().proc + "/77/comm", "shell\n");
       },
       node + " is mounted on /mnt for process 77 (shell)"},
      {"writer of the drive", [](FakeSystem& s) { s.AddOpen("77", "sdb", O_RDWR | O_CLOEXEC); },
       NodeOf(*system_, "sdb") + " is open in process 77 (shell)"},
      {"writer beside a mount",
       [](FakeSystem& s) {
         s.SetMounts({{30, 1, "8:17", "/mnt", "x", "vfat"}});
         s.AddOpen("77", "sdb1", O_WRONLY);
       },
       node + " is open in process 77 (shell)"},
      {"another program", [](FakeSystem& s) { s.writer_error = EBUSY; },
       NodeOf(*system_, "sdb") + " or a part of it is held by another program"},
      {"no right", [](FakeSystem& s) { s.writer_error = EACCES; },
       NodeOf(*system_, "sdb") + " can't be opened without the right to write to it"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    StartAnew();
    c.use(*system_);
    LinuxMachine& machine = Machine();
    const Handle handle = OpenForMode(machine);
    const Handle volume = machine.Open("\\\\.\\D:", kReadWrite);
    EXPECT_FALSE(machine.Control(volume, ControlCode::kLockVolume));
    for (int i = 0; i < 2; ++i) {
      EXPECT_FALSE(WriteSector(handle));
      EXPECT_EQ(machine.LastError(), kErrorAccessDenied);
    }
    system_->SetMounts({});
    fs::remove_all(system_->Trees().proc + "/77");
    system_->writer_error = 0;
    EXPECT_FALSE(WriteSector(handle)) << "for the rest of the run";
    EXPECT_EQ(Written(), std::string(512, '\0'));
    EXPECT_TRUE(system_->unmounted.empty());
    EXPECT_EQ(system_->complaints, std::vector<std::string>{"drive 1 is refused: " + c.why});
  }
}

TEST_F(LinuxDrives, HaveToStayTheSame) {
  const std::string usb = system_->Trees().sys + "/devices/usb1/1-sdb";
  const struct {
    const char* label;
    std::function<void()> change;
    bool same;
  } cases[] = {
      {"another size", [&] { system_->Put(system_->Sys("sdb/size"), "131071"); }, false},
      {"the old size", [&] { system_->Put(system_->Sys("sdb/size"), "131072"); }, true},
      {"another model", [&] { system_->Put(usb + "/host/lun/model", "Stack"); }, false},
      {"the old model", [&] { system_->Put(usb + "/host/lun/model", "Stick"); }, true},
      {"another serial number", [&] { system_->Put(usb + "/serial", "S-2"); }, false},
      {"the old serial number", [&] { system_->Put(usb + "/serial", "S-sdb"); }, true},
      {"put in again", [&] { system_->Put(system_->Sys("sdb/diskseq"), "8"); }, false},
      {"as it was", [&] { system_->Put(system_->Sys("sdb/diskseq"), "7"); }, true},
      {"its sectors are unknown", [&] { fs::remove(system_->Sys("sdb/queue/logical_block_size")); }, false},
      {"gone", [&] { fs::remove(system_->Sys("sdb/dev")); }, false},
  };
  LinuxMachine& machine = Machine();
  const Handle handle = OpenForMode(machine);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    c.change();
    EXPECT_EQ(machine.Open(kStick, kReadWrite) != kInvalidHandle, c.same) << machine.LastError();
    EXPECT_EQ(machine.Open(kStick, kQuery) != kInvalidHandle, c.same);
  }
  EXPECT_EQ(system_->complaints.size(), 1U);
  EXPECT_NE(system_->complaints[0].find("sdb is another device now (Maker Stick, serial number S-sdb, 67108352 bytes; "
                                        "it was Maker Stick, serial number S-sdb, 67108864 bytes)"),
            std::string::npos)
      << system_->complaints[0];
  EXPECT_FALSE(WriteSector(handle)) << "not claimed before";
  EXPECT_EQ(Written(), std::string(512, '\0'));
}

TEST_F(LinuxDrives, HaveToKeepTheirMedium) {
  const Handle handle = OpenForMode(Machine());
  EXPECT_TRUE(WriteSector(handle));
  system_->Put(system_->Sys("sdb/diskseq"), "8");
  for (const char* sequence : {"8", "7"}) {
    system_->Put(system_->Sys("sdb/diskseq"), sequence);
    EXPECT_FALSE(WriteSector(handle, 1));
    EXPECT_EQ(machine_->LastError(), kErrorAccessDenied);
  }
  EXPECT_EQ(Written(), std::string(512, 0x5A));
  EXPECT_EQ(system_->complaints,
            std::vector<std::string>{"drive 1 is refused: " + NodeOf(*system_, "sdb") +
                                     " has been put in again, or has another medium now (Maker Stick, serial number "
                                     "S-sdb, 67108864 bytes)"});
}

// What this process has open of a node under the tests' folder.
std::size_t OpenDescriptors(const std::string& node) {
  std::size_t count = 0;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    count += fs::read_symlink(entry.path(), error) == node ? 1 : 0;
  }
  return count;
}

TEST_F(LinuxDrives, StayOpenFromTheFirstOpenOn) {
  const std::string node = NodeOf(*system_, "sdb");
  LinuxMachine& machine = Machine();
  machine.Close(machine.Open(kStick, kQuery));
  EXPECT_EQ(OpenDescriptors(node), 0U);
  machine.Close(machine.Open(kStick, kReadWrite));
  EXPECT_EQ(OpenDescriptors(node), 1U) << "so that nothing else can get its number";
  machine.Close(OpenForMode(machine));
  EXPECT_EQ(OpenDescriptors(node), 1U);
  machine_.reset();
  EXPECT_EQ(OpenDescriptors(node), 0U);
}

TEST_F(LinuxDrives, LoseNoMountWithoutAWord) {
  system_->SetMounts({{30, 1, "8:17", "/a", "x"}, {31, 1, "8:17", "/b", "x"}, {32, 1, "8:17", "/c", "x"}});
  system_->soon_busy = "/c";
  EXPECT_FALSE(WriteSector(OpenForMode(Machine())));
  EXPECT_EQ(system_->unmounted, (std::vector<std::string>{"/a", "/b"}));
  EXPECT_EQ(system_->complaints,
            std::vector<std::string>{"drive 1 is refused: " + NodeOf(*system_, "sdb1") +
                                     " is mounted on /c and in use; before that was found, /a and /b were unmounted"});
}

TEST_F(LinuxDrives, AreFreedWhereOtherNamespacesFollow) {
  // The folder that a mount lies on, and the mount, here and there.
  const struct {
    const char* label;
    Mount under_own, own, under_other, other;
    bool free;
  } cases[] = {
      {"the same namespace",
       {20, 1, "8:1", "/", "x"},
       {30, 20, "8:17", "/m", "x"},
       {20, 1, "8:1", "/", "x"},
       {30, 20, "8:17", "/m", "x"},
       true},
      {"peers",
       {20, 1, "8:1", "/", "x", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "5"},
       {40, 2, "8:1", "/", "x", "", "1"},
       {41, 40, "8:17", "/m", "x", "", "5"},
       true},
      {"a slave",
       {20, 1, "8:1", "/", "x", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "5"},
       {40, 2, "8:1", "/", "x", "", "7", "1"},
       {41, 40, "8:17", "/m", "x", "", "", "5"},
       true},
      {"at another place",
       {20, 1, "8:1", "/", "x", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "5"},
       {40, 2, "8:1", "/", "x", "", "1"},
       {41, 40, "8:17", "/n", "x", "", "5"},
       false},
      {"a private copy",
       {20, 1, "8:1", "/", "x", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "5"},
       {40, 2, "8:1", "/", "x", "", "1"},
       {41, 40, "8:17", "/m", "x"},
       false},
      {"on a private one",
       {20, 1, "8:1", "/", "x", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "5"},
       {40, 2, "8:1", "/", "x"},
       {41, 40, "8:17", "/m", "x", "", "5"},
       false},
      {"from there to here",
       {20, 1, "8:1", "/", "x", "", "", "1"},
       {30, 20, "8:17", "/m", "x", "", "", "5"},
       {40, 2, "8:1", "/", "x", "", "1"},
       {41, 40, "8:17", "/m", "x", "", "5"},
       false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    StartAnew();
    system_->SetMounts({c.under_other, c.other}, "77");
    system_->SetMounts({c.under_own, c.own});
    EXPECT_EQ(WriteSector(OpenForMode(Machine())), c.free);
    EXPECT_EQ(system_->unmounted.size(), c.free ? 1U : 0U);
  }
}

TEST_F(LinuxDrives, WithTheSystemOnThemAreKnownByTheirFolder) {
  for (const auto& [folder, free] : {std::pair{"/", false},
                                     {"/boot", false},
                                     {"/boot/efi", false},
                                     {"/efi", false},
                                     {"/etc/x", false},
                                     {"/home", false},
                                     {"/nix/store", false},
                                     {"/opt/a/b", false},
                                     {"/root", false},
                                     {"/srv", false},
                                     {"/usr/local", false},
                                     {"/var/lib/x", false},
                                     {"/bootstick", true},
                                     {"/home/me/s", true},
                                     {"/media/me/stick", true},
                                     {"/mnt", true},
                                     {"/run/media/me/s", true},
                                     {"/variety", true}}) {
    StartAnew();
    system_->SetMounts({{30, 1, "8:17", folder, "x"}});
    EXPECT_EQ(WriteSector(OpenForMode(Machine())), free) << folder;
  }
}

TEST_F(LinuxDrives, BelongToOneRun) {
  const Handle first = OpenForMode(Machine());
  ASSERT_NE(first, kInvalidHandle);
  machine_->Close(first);
  auto* other_system = new FakeSystem(folder_.File("root"));
  LinuxMachine other(HostSettings{}, std::unique_ptr<LinuxSystem>(other_system));
  const Handle identified = other.Open(kStick, kReadWrite);
  EXPECT_NE(identified, kInvalidHandle);
  std::uint32_t moved = 0;
  std::vector<std::uint8_t> sector(512);
  EXPECT_TRUE(other.Seek(identified, 0) && other.Read(identified, sector, moved));
  EXPECT_EQ(other.Open(kStick, kReadWrite), kInvalidHandle);
  EXPECT_EQ(other.LastError(), kErrorSharingViolation);
  EXPECT_EQ(other_system->complaints.size(), 1U);
  machine_.reset();
  EXPECT_NE(other.Open(kStick, kReadWrite), kInvalidHandle);
}

TEST_F(LinuxDrives, FailWithTheirCode) {
  LinuxMachine& machine = Machine();
  const Handle handle = OpenForMode(machine);
  ASSERT_TRUE(WriteSector(handle));
  const struct {
    int error;
    std::uint32_t code;
  } transfers[] = {{EIO, kErrorIoDevice},    {ENODATA, kErrorCrc},        {EROFS, kErrorWriteProtected},
                   {ENODEV, kErrorNotReady}, {ENXIO, kErrorNotReady},     {EPERM, kErrorWriteProtected},
                   {ENOSPC, kErrorNotReady}, {ETIMEDOUT, kErrorIoDevice}, {ENOMEDIUM, kErrorNotReady},
                   {0, kErrorNotReady}};
  std::vector<std::uint8_t> buffer(1024);
  std::uint32_t moved = 7;
  for (const auto& row : transfers) {
    SCOPED_TRACE(row.error);
    for (const bool write : {false, true}) {
      machine.Seek(handle, 512);
      system_->outcome = {512, -row.error};
      EXPECT_FALSE(write ? machine.Write(handle, buffer, moved) : machine.Read(handle, buffer, moved));
      EXPECT_EQ(machine.LastError(), row.code);
      EXPECT_EQ(moved, 0U);
    }
  }
  machine.Seek(handle, kStickBytes - 512);
  EXPECT_FALSE(machine.Read(handle, buffer, moved));
  EXPECT_EQ(machine.LastError(), kErrorSectorNotFound);
  machine.Seek(handle, 100);
  EXPECT_FALSE(machine.Write(handle, buffer, moved));
  EXPECT_EQ(machine.LastError(), kErrorInvalidParameter);
  for (const auto& [error, code] :
       {std::pair{EACCES, kErrorAccessDenied}, std::pair{ENOENT, kErrorFileNotFound}, std::pair{EIO, kErrorIoDevice}}) {
    system_->open_error = error;
    EXPECT_EQ(machine.Open(kStick, kReadWrite), kInvalidHandle);
    EXPECT_EQ(machine.LastError(), code);
  }
}

TEST_F(LinuxDrives, ThatCanOnlyBeReadSayProtected) {
  for (const bool kernel_knows : {true, false}) {
    StartAnew();
    system_->Put(system_->Sys("sdb/ro"), kernel_knows ? "1" : "0");
    system_->writer_error = EROFS;
    system_->SetMounts({{30, 1, "8:17", "/mnt", "x"}});
    const Handle handle = OpenForMode(Machine());
    EXPECT_FALSE(WriteSector(handle));
    EXPECT_EQ(machine_->LastError(), kErrorWriteProtected);
    EXPECT_TRUE(!kernel_knows || system_->unmounted.empty());
    EXPECT_TRUE(system_->complaints.empty());
  }
}

TEST_F(LinuxDrives, WithoutAMediumAreIdentifiedOnly) {
  system_->Put(system_->Sys("sdb/size"), "0");
  EXPECT_EQ(OpenForMode(Machine()), kInvalidHandle);
  EXPECT_EQ(machine_->LastError(), kErrorNotReady);
  EXPECT_EQ(system_->complaints.size(), 1U);
}

TEST_F(LinuxDrives, GetNewVolumesWhenTheTableIsReadAgain) {
  LinuxMachine& machine = Machine();
  const Handle handle = OpenForMode(machine);
  ASSERT_TRUE(WriteSector(handle));
  system_->busy_rereads = 3;
  system_->on_reread = [&] { system_->AddPartition("sdb", 2, "8:18", 4000, 3000); };
  EXPECT_EQ(machine.DriveType("E:\\"), kDriveTypeNoRoot);
  EXPECT_TRUE(machine.Control(handle, ControlCode::kUpdateProperties));
  EXPECT_EQ(system_->pauses, 3);
  std::uint64_t bytes = 0;
  EXPECT_TRUE(machine.QueryVolumeSize("E:", bytes));
  EXPECT_EQ(bytes, 3000U * 512);
  system_->busy_rereads = 1000;
  EXPECT_FALSE(machine.Control(handle, ControlCode::kUpdateProperties));
  EXPECT_FALSE(machine.Control(machine.Open("\\\\.\\D:", kReadWrite), ControlCode::kUpdateProperties));
}

TEST_F(LinuxDrives, AreNotFormattedByATableThatIsGone) {
  const struct {
    const char* label;
    int error;
    const char* user;
    std::string why;
  } cases[] = {
      {"held", EBUSY, "sdb1", ": " + NodeOf(*system_, "sdb1") + " is open in process 77 (shell)"},
      {"held by nobody that is seen", EBUSY, "", ": a part of " + NodeOf(*system_, "sdb") + " is in use"},
      {"no right", EACCES, "", ": Permission denied"},
      {"never asked", 0, "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    StartAnew();
    if (*c.user != 0) {
      system_->AddOpen("77", c.user, O_RDONLY);
    }
    LinuxMachine& machine = Machine();
    const Handle handle = OpenForMode(machine);
    const auto status_of_format = [&] {
      std::uint32_t last = 0;
      machine.FormatVolume("D:", kMediaRemovable, "NTFS", "",
                           [&](std::uint32_t status, std::uint32_t, std::uint32_t) { return last = status; });
      return last;
    };
    const auto write_table = [&] {
      std::uint32_t moved = 0;
      return machine.Seek(handle, 0) && machine.Write(handle, std::vector<std::uint8_t>(512, 1), moved);
    };
    ASSERT_TRUE(WriteSector(handle));
    EXPECT_TRUE(machine.Control(handle, ControlCode::kUpdateProperties));
    for (int i = 0; i < 2; ++i) {  // after one that was read, too
      ASSERT_TRUE(write_table());
      system_->busy_rereads = c.error == 0 ? 0 : 1000;
      system_->reread_error = c.error;
      if (c.error != 0) {
        EXPECT_FALSE(machine.Control(handle, ControlCode::kUpdateProperties));
      }
      system_->opens.clear();
      EXPECT_EQ(status_of_format(), 0x08U);
      EXPECT_TRUE(system_->opens.empty());
      system_->busy_rereads = 0;
      EXPECT_TRUE(machine.Control(handle, ControlCode::kUpdateProperties));
      status_of_format();
      EXPECT_FALSE(system_->opens.empty());
      EXPECT_EQ(system_->opens.empty() ? "" : system_->opens.front().name, "sdb1");
    }
    EXPECT_EQ(system_->complaints,
              std::vector<std::string>{"drive 1 is refused: the system still uses its old partition table" + c.why});
  }
}

TEST_F(LinuxDrives, FormatOnlyTheVolumeThatWasFound) {
  const Handle handle = OpenForMode(Machine());
  ASSERT_TRUE(WriteSector(handle));
  std::uint32_t last = 0;
  const FormatCallback note = [&](std::uint32_t status, std::uint32_t, std::uint32_t) { return last = status; };
  // Somebody else has had the table read again.
  system_->AddPartition("sdb", 1, "8:17", 4096, 1000);
  machine_->Close(machine_->Open(kStick, kQuery));
  machine_->FormatVolume("D:", kMediaRemovable, "NTFS", "", note);
  EXPECT_EQ(last, 0x08U);
  EXPECT_NE(system_->opens.back().name, "sdb1");
}

TEST_F(LinuxDrives, HaveNoSizeOfAStumpThatIsNotFormatted) {
  for (const bool formatted : {false, true}) {
    StartAnew();
    system_->AddPartition("sdb", 1, "8:17", 2048, 60);
    system_->AddPartition("sdb", 2, "8:18", 4096, 1000);
    if (formatted) {
      WriteBytes(NodeOf(*system_, "sdb"), 2048 * 512, "\xEB" + std::string(509, 'x') + "\x55\xAA");
    }
    for (const auto& [name, sectors] : {std::pair{"D:", formatted ? 60U : 0U}, {"E:", 1000U}, {"F:", 0U}}) {
      std::uint64_t bytes = 1;
      EXPECT_EQ(Machine().QueryVolumeSize(name, bytes), sectors != 0) << name;
      EXPECT_EQ(bytes, sectors * 512) << name;
    }
  }
}

}  // namespace
