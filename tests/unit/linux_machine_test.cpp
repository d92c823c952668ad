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
                      {31, 30, "8:18", "/mnt/my\\040stick/in", "/dev/sdb2"},
                      {32, 20, "0:99", "/b", NodeOf(*system_, "sdb1")}});  // as btrfs shows itself
  const Handle handle = OpenForMode(Machine());
  EXPECT_TRUE(WriteSector(handle));
  EXPECT_EQ(Written(), std::string(512, 0x5A));
  EXPECT_EQ(system_->unmounted, (std::vector<std::string>{"/b", "/mnt/my stick/in", "/mnt/my stick"}));
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
         s.writer_error = EBUSY;
       },
       node + " is mounted on /mnt for process 77 (shell)"},
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
      {"put in again", [&] { system_->Put(system_->Sys("sdb/diskseq"), "8"); }, true},
      {"another size", [&] { system_->Put(system_->Sys("sdb/size"), "131071"); }, false},
      {"the old size", [&] { system_->Put(system_->Sys("sdb/size"), "131072"); }, true},
      {"another model", [&] { system_->Put(usb + "/host/lun/model", "Stack"); }, false},
      {"the old model", [&] { system_->Put(usb + "/host/lun/model", "Stick"); }, true},
      {"another serial number", [&] { system_->Put(usb + "/serial", "S-2"); }, false},
      {"the old serial number", [&] { system_->Put(usb + "/serial", "S-sdb"); }, true},
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

TEST_F(LinuxDrives, WithoutSerialNumberMustNotBePutInAgain) {
  fs::remove(system_->Trees().sys + "/devices/usb1/1-sdb/serial");
  LinuxMachine& machine = Machine();
  EXPECT_NE(OpenForMode(machine), kInvalidHandle);
  system_->Put(system_->Sys("sdb/diskseq"), "8");
  EXPECT_EQ(machine.Open(kStick, kReadWrite), kInvalidHandle);
  EXPECT_EQ(machine.LastError(), kErrorAccessDenied);
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

}  // namespace
