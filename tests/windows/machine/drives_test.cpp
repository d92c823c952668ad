// What is asked of drives and volumes, call by call: identification, transfers, locks, the walk over the volumes.
#include <cstring>
#include <regex>

#include "cli/option_model.h"
#include "discovery/drive_list.h"
#include "discovery/identification.h"
#include "disk/handles.h"
#include "disk/sector_io.h"
#include "disk/volumes.h"
#include "platform/windows/pass_through.h"
#include "windows/machine/machine_fixture.h"

namespace {

using Drives = RecordedMachine;

std::vector<std::uint8_t> Bytes(std::string_view text) { return {text.begin(), text.end()}; }

// The header of a command as the system takes it, up to its last byte that is not zero, by its places in programs of 64
// bits: 38 is the header's length, 58 where the data begins, 38 where the sense bytes do.
std::string Header(const std::string& cdb_length, const std::string& bytes, const std::string& cdb) {
  return "<38000000"
         "0100" +
         cdb_length +
         "18"
         "01000000" +
         bytes +
         "02000000"
         "00000000"
         "5800000000000000"
         "38000000" +
         cdb + ">";
}

TEST_F(Drives, IdentificationAsksBusCapacityLengthNamesAndTheLastSector) {
  recorder.length = 10 * 8225280ULL;
  recorder.scsi[0x2500] = {0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x02, 0x00};
  std::vector<std::uint8_t> inquiry =
      Bytes(std::string("\x00\x80\x00\x00\x23\x00\x00\x00"
                        "ACME    Flash Disk      1.00",
                        36));
  recorder.scsi[0x1200] = inquiry;
  recorder.scsi[0x1201] =
      Bytes(std::string("\x00\x80\x00\x04"
                        "AB12",
                        8));
  DriveNumber = 1;
  SizeSectorBuffer(512);
  GetUSBDiskDriveInfo(1);
  const std::string drive = "\\\\.\\PhysicalDrive1, ";
  EXPECT_EQ(TakeCalls(),
            (Calls{
                "CreateFileA(" + drive + "0, 0, null, 3, 0, null) = 10",
                "DeviceIoControl(10, 2D1400, <>, C, output, 200, null)",
                "CloseHandle(10)",
                "CreateFileA(" + drive + "0, 0, null, 3, 0, null) = 20",
                "DeviceIoControl(20, 2D1400, <>, C, output, 200, null)",
                "CloseHandle(20)",
                "CreateFileA(" + drive + "C0000000, 3, null, 3, 0, null) = 30",
                "DeviceIoControl(30, 4D004, " + Header("0A", "C0000000", "25") + ", 455, output, 455, null)",
                "DeviceIoControl(30, 7405C, null, 0, output, 8, null)",
                "DeviceIoControl(30, 4D004, " + Header("06", "FC030000", "12000003FC") + ", 455, output, 455, null)",
                "DeviceIoControl(30, 4D004, " + Header("06", "FC030000", "12018003FC") + ", 455, output, 455, null)",
                "CloseHandle(30)",
                "CreateFileA(" + drive + "C0000000, 3, null, 3, 0, null) = 40",
                "SetFilePointerEx(40, 4699000, null, 0)",
                "ReadFile(40, 200, null)",
                "FormatMessageA(1200, null, 0, 0, 100)",
                "CloseHandle(40)",
            }));
  EXPECT_EQ(DriveModel, "ACME Flash Disk");
  EXPECT_EQ(DriveFirmware, "100");
  EXPECT_EQ(DriveSerial, "AB12");
  EXPECT_EQ(DriveMedia, "REMOVABLE MEDIA");
  EXPECT_EQ(DriveReportedBytes, 10 * 8225280ULL);
}

TEST_F(Drives, ADriveOnAnotherBusIsAskedForItsBusAlone) {
  recorder.bus = kBusTypeAta;
  GetUSBDiskDriveInfo(1);
  EXPECT_EQ(TakeCalls().size(), 3U);
  EXPECT_EQ(DriveReportedBytes, 0U);
}

// The form that programs of 32 bits give, which this one shares up to the places of its fields.
TEST(PassThrough, HasTheBytesOfItsFields) {
  const std::vector<std::uint8_t> cdb{0x12, 0x01, 0x80, 0x03, 0xFC, 0x00};
  const std::vector<std::uint8_t> reply(1020, 0xEE);
  const PassThroughOf32Bits buffer(cdb, reply);
  std::array<std::uint8_t, 1100> bytes{};
  std::memcpy(bytes.data(), &buffer, sizeof buffer);
  std::vector<std::uint8_t> expected{44, 0, 0, 0,  1, 0, 6, 24, 1, 0, 0, 0,    0xFC, 0x03, 0,    0,   2,
                                     0,  0, 0, 76, 0, 0, 0, 44, 0, 0, 0, 0x12, 0x01, 0x80, 0x03, 0xFC};
  expected.resize(76);
  expected.insert(expected.end(), 1020, 0xEE);
  expected.resize(1100);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), expected.begin(), expected.end()));
}

TEST_F(Drives, ACommandThatIsRefusedReturnsNothingAndKeepsTheReplysBytes) {
  recorder.failing = {"DeviceIoControl 4D004"};
  recorder.error = ERROR_INVALID_FUNCTION;
  const std::vector<std::uint8_t> cdb(6);
  std::vector<std::uint8_t> reply(8, 0x55);
  std::uint32_t returned = 99;
  EXPECT_FALSE(machine.ScsiCommand(0x10, cdb, reply, returned));
  EXPECT_EQ(machine.LastError(), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(returned, 0U);
  EXPECT_EQ(reply, std::vector<std::uint8_t>(8, 0x55));
}

TEST_F(Drives, ATransferIsOneSeekAndOneCallStraightFromThePage) {
  ASSERT_TRUE(Open_Physical_Disk_hDrive(1));
  SizeSectorBuffer(3 * 512);
  TakeCalls();
  const std::uint64_t lba = 0x0123456789;
  EXPECT_TRUE(DirectRead(lba, 2));
  EXPECT_EQ(recorder.transferred, SectorBuffer.data());
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(SectorBuffer.data()) % 4096, 0U);
  EXPECT_TRUE(DirectWrite(lba, 2));
  EXPECT_EQ(recorder.transferred, SectorBuffer.data());
  EXPECT_EQ(TakeCalls(), (Calls{
                             "SetFilePointerEx(10, 2468ACF1200, null, 0)",
                             "ReadFile(10, 400, null)",
                             "FormatMessageA(1200, null, 0, 0, 100)",
                             "SetFilePointerEx(10, 2468ACF1200, null, 0)",
                             "LockFile(10, 8ACF1200, 246, 400, 0)",
                             "WriteFile(10, 400, null)",
                             "FormatMessageA(1200, null, 0, 0, 100)",
                             "FlushFileBuffers(10)",
                             "UnlockFile(10, 8ACF1200, 246, 400, 0)",
                         }));
  EXPECT_EQ(LastErrorText, "\r\nERROR: Text.");
}

TEST_F(Drives, AFailedTransferTellsTheSystemsError) {
  ASSERT_TRUE(Open_Physical_Disk_hDrive(1));
  SizeSectorBuffer(512);
  recorder.error = ERROR_CRC;
  for (const char* call : {"SetFilePointerEx", "ReadFile"}) {
    recorder.failing = {call};
    EXPECT_FALSE(DirectRead(5, 1)) << call;
    EXPECT_EQ(LastDllError, kErrorCrc) << call;
    EXPECT_EQ(LastTransferBytes, 0U) << call;
  }
  TakeCalls();
  recorder.failing = {"WriteFile"};
  EXPECT_FALSE(DirectWrite(5, 1));
  EXPECT_EQ(LastDllError, kErrorCrc);
  EXPECT_EQ(TakeCalls().back(), "FormatMessageA(1200, null, 17, 0, 100)");  // no flush, and the range stays locked
  recorder.failing = {"LockFile", "FlushFileBuffers", "UnlockFile"};
  EXPECT_TRUE(DirectWrite(5, 1));
  EXPECT_EQ(LastDllError, 0U);
}

TEST_F(Drives, VolumesAreLockedAndLetGo) {
  Lock_Unlock_All_Volumes(1, "LOCK");
  const std::string query = ", 0, 3, null, 3, 0, null)";
  const std::string mode = ", C0000000, 3, null, 3, 0, null)";
  Calls calls = TakeCalls();
  // 24 letters from C: to Z: are tried.
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [&](const std::string& call) { return call.find(query) != std::string::npos; }),
            24);
  std::erase_if(calls, [&](const std::string& call) { return call.ends_with(query); });
  EXPECT_EQ(calls, (Calls{
                       "CreateFileA(\\\\.\\C:" + query + " = 10",
                       "DeviceIoControl(10, 2D1080, null, 0, output, C, null)",
                       "CloseHandle(10)",
                       "CreateFileA(\\\\.\\E:" + query + " = 20",
                       "DeviceIoControl(20, 2D1080, null, 0, output, C, null)",
                       "CloseHandle(20)",
                       "CreateFileA(\\\\.\\F:" + query + " = 30",
                       "DeviceIoControl(30, 2D1080, null, 0, output, C, null)",
                       "CloseHandle(30)",
                       "CreateFileA(\\\\.\\E:" + mode + " = 40",
                       "DeviceIoControl(40, 90018, null, 0, null, 0, null)",
                       "CreateFileA(\\\\.\\F:" + mode + " = 50",
                       "DeviceIoControl(50, 90018, null, 0, null, 0, null)",
                   }));
  Lock_Unlock_All_Volumes(1, "UNLOCK");
  EXPECT_EQ(TakeCalls(), (Calls{
                             "DeviceIoControl(40, 90020, null, 0, null, 0, null)",
                             "DeviceIoControl(40, 9001C, null, 0, null, 0, null)",
                             "CloseHandle(40)",
                             "DeviceIoControl(50, 90020, null, 0, null, 0, null)",
                             "DeviceIoControl(50, 9001C, null, 0, null, 0, null)",
                             "CloseHandle(50)",
                         }));
  Lock_Unlock_All_Volumes(1, "UNLOCK");
  EXPECT_EQ(TakeCalls(), Calls{});
}

TEST_F(Drives, OneVolumeIsLockedUnbuffered) {
  Open_Lock_Dismount_Volume("E:");
  UnLock_Close_Volume();
  EXPECT_EQ(TakeCalls(), (Calls{
                             "CreateFileA(\\\\.\\E:, C0000000, 3, null, 3, 20000000, null) = 10",
                             "DeviceIoControl(10, 90018, null, 0, null, 0, null)",
                             "DeviceIoControl(10, 90020, null, 0, null, 0, null)",
                             "DeviceIoControl(10, 9001C, null, 0, null, 0, null)",
                             "CloseHandle(10)",
                         }));
}

TEST_F(Drives, VolumesOfTheDriveAreMountedByTheirSystemNames) {
  const std::string first = "\\\\?\\Volume{1}";
  const std::string second = "\\\\?\\Volume{2}";
  recorder.devices[first] = 0;
  recorder.devices[second] = 1;
  recorder.volumes = {first + "\\", "\\\\?\\Volume{gone}\\", second + "\\"};
  recorder.failing = {"SetVolumeMountPointA"};  // a volume that has its letter keeps it
  MountDriveVolumes(1);
  EXPECT_EQ(TakeCalls(), (Calls{
                             "FindFirstVolumeA(1000) = 10",
                             "CreateFileW(L" + first + ", 0, 3, null, 3, 0, null) = 20",
                             "DeviceIoControl(20, 2D1080, null, 0, output, C, null)",
                             "CloseHandle(20)",
                             "FindNextVolumeA(10, 1000)",
                             "CreateFileW(L\\\\?\\Volume{gone}, 0, 3, null, 3, 0, null)",
                             "FindNextVolumeA(10, 1000)",
                             "CreateFileW(L" + second + ", 0, 3, null, 3, 0, null) = 30",
                             "DeviceIoControl(30, 2D1080, null, 0, output, C, null)",
                             "GetDriveTypeA(D:\\)",
                             "GetDriveTypeA(E:\\)",
                             "GetDriveTypeA(F:\\)",
                             "GetDriveTypeA(G:\\)",
                             "SetVolumeMountPointA(G:\\, " + second + "\\)",
                             "CloseHandle(30)",
                             "FindNextVolumeA(10, 1000)",
                             "FindVolumeClose(10)",
                         }));
}

TEST_F(Drives, RemountHasTheTableReadAgain) {
  EXPECT_TRUE(ReMount_Drive(1));
  EXPECT_EQ(TakeCalls(), (Calls{
                             "CreateFileA(\\\\.\\PhysicalDrive1, C0000000, 3, null, 3, 0, null) = 10",
                             "DeviceIoControl(10, 70140, null, 0, null, 0, null)",
                             "CloseHandle(10)",
                         }));
  recorder.failing = {"DeviceIoControl 70140"};
  EXPECT_FALSE(ReMount_Drive(1));
  EXPECT_FALSE(ReMount_Drive(2));
}

TEST_F(Drives, AFailedRemountTellsTheSystemsErrorAndCloses) {
  OptDebug = true;
  recorder.failing = {"DeviceIoControl 70140"};
  recorder.error = ERROR_NOT_READY;
  EXPECT_FALSE(ReMount_Drive(1));
  Calls calls = TakeCalls();
  std::erase(calls, "GetStdHandle(-11)");
  for (std::string& call : calls) {
    call = std::regex_replace(call, std::regex("^(WriteFile\\(7, \r\n)\\d.*:\\d\\d( [AP]M)? "), "$1");  // no date
  }
  EXPECT_EQ(calls, (Calls{
                       "CreateFileA(\\\\.\\PhysicalDrive1, C0000000, 3, null, 3, 0, null) = 10",
                       "WriteFile(7, \r\nOPENED HANDLE for drive PhysicalDrive1 = 16, null)",
                       "WriteFile(7, \r\nReMount_Drive Performing IOCTL_DISK_UPDATE_PROPERTIES on drive PhysicalDrive1 "
                       "Handle=16, null)",
                       "DeviceIoControl(10, 70140, null, 0, null, 0, null)",
                       "FormatMessageA(1000, null, 15, 0, FF)",
                       "WriteFile(7, \r\nReMount_Drive Error: 21 - Text.\r\n, null)",
                       "WriteFile(7, \r\nMyCloseHandle CLOSED HANDLE 16, null)",
                       "CloseHandle(10)",
                   }));
}

TEST_F(Drives, TheVolumesSizeIsAskedByTheBareLetter) {
  recorder.length = 0x1234567890;
  EXPECT_EQ(VolumeBytes("E:"), "78187493520");
  EXPECT_EQ(TakeCalls(), Calls{"GetDiskFreeSpaceExA(E:)"});
  recorder.failing = {"GetDiskFreeSpaceExA"};
  EXPECT_EQ(VolumeBytes("E:"), "0");
}

}  // namespace
