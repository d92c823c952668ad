// The program on the Windows machine and the system's own calls, from end to end: a driver owns \\.\PhysicalDrive1,
// with an image file behind it. What comes out has to be what the simulated machine makes of the same drive.
#include "platform/windows/system_calls.h"
// Behind windows.h, whose names it needs.
#include <winsvc.h>

#include <fstream>
#include <regex>

#include "support/machine_double.h"
#include "support/program.h"
#include "windows/driver/test_drive.h"
#include "windows/machine/machine_fixture.h"

namespace {

constexpr const char* kService = "KorventixTestDrive";
constexpr const char* kImage = "test_drive.img";
constexpr std::uint64_t kDriveSectors = 300 * 2048;

std::string FullPath(const std::string& name) {
  std::array<char, MAX_PATH> path{};
  GetFullPathNameA(name.c_str(), static_cast<DWORD>(path.size()), path.data(), nullptr);
  return path.data();
}

// --- The driver ----------------------------------------------------------------------------------------------------

// The service for as long as the object lives.
class TestDriver {
 public:
  // A service that an earlier run has left is removed first, which may take a moment.
  TestDriver() : manager_(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)) {
    constexpr int kTries = 50;
    for (int i = 0; i < kTries && !started_; ++i) {
      Sleep(i == 0 ? 0 : 100);
      Remove();
      Start();
    }
  }
  TestDriver(const TestDriver&) = delete;
  TestDriver& operator=(const TestDriver&) = delete;
  ~TestDriver() {
    Remove();
    CloseServiceHandle(manager_);
  }

  bool Started() const { return started_; }
  DWORD Error() const { return error_; }

 private:
  void Start() {
    std::array<char, MAX_PATH> program{};
    GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::string folder(program.data(), std::string(program.data()).find_last_of('\\'));
    const std::string driver = folder + "\\test_drive.sys";
    SC_HANDLE service =
        CreateServiceA(manager_, kService, nullptr, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START,
                       SERVICE_ERROR_NORMAL, driver.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    started_ = service != nullptr && StartServiceA(service, 0, nullptr) != 0;
    error_ = GetLastError();
    CloseServiceHandle(service);
  }
  void Remove() {
    SC_HANDLE service = OpenServiceA(manager_, kService, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status{};
    if (service != nullptr) {
      ControlService(service, SERVICE_CONTROL_STOP, &status);
      DeleteService(service);
      CloseServiceHandle(service);
    }
  }

  SC_HANDLE manager_;
  bool started_ = false;
  DWORD error_ = 0;
};

// --- The calls -----------------------------------------------------------------------------------------------------

// The system's own calls reach the driver, but for those that Wine keeps to itself: a seek and a transfer become a
// transfer with a position of its own, and range locks and flushes succeed. The run's texts are collected, and its end
// is thrown.
std::map<HANDLE, std::uint64_t> positions;
std::string printed;
int boxes = 0;

template <typename Transfer, typename Buffer>
BOOL TransferAtPosition(Transfer transfer, HANDLE handle, Buffer buffer, DWORD bytes, LPDWORD moved) {
  const auto found = positions.find(handle);
  OVERLAPPED place{};
  if (found != positions.end()) {
    place.Offset = static_cast<DWORD>(found->second);
    place.OffsetHigh = static_cast<DWORD>(found->second >> 32);
  }
  return transfer(handle, buffer, bytes, moved, found == positions.end() ? nullptr : &place);
}

SystemCalls LiveCalls() {
  positions.clear();
  printed.clear();
  boxes = 0;
  SystemCalls calls;
  calls.SetFilePointerEx = [](HANDLE handle, LARGE_INTEGER distance, PLARGE_INTEGER /*position*/,
                              DWORD method) -> BOOL {
    positions[handle] = static_cast<std::uint64_t>(distance.QuadPart);
    return method == FILE_BEGIN ? TRUE : FALSE;
  };
  calls.ReadFile = [](HANDLE handle, LPVOID buffer, DWORD bytes, LPDWORD moved, LPOVERLAPPED) -> BOOL {
    return TransferAtPosition(ReadFile, handle, buffer, bytes, moved);
  };
  calls.WriteFile = [](HANDLE handle, LPCVOID buffer, DWORD bytes, LPDWORD moved, LPOVERLAPPED) -> BOOL {
    if (handle == GetStdHandle(STD_OUTPUT_HANDLE)) {
      printed.append(static_cast<const char*>(buffer), bytes);
      *moved = bytes;
      return TRUE;
    }
    return TransferAtPosition(WriteFile, handle, buffer, bytes, moved);
  };
  calls.CloseHandle = [](HANDLE handle) -> BOOL {
    positions.erase(handle);
    return handle == GetStdHandle(STD_OUTPUT_HANDLE) ? TRUE : CloseHandle(handle);
  };
  calls.LockFile = [](HANDLE, DWORD, DWORD, DWORD, DWORD) -> BOOL { return TRUE; };
  calls.UnlockFile = [](HANDLE, DWORD, DWORD, DWORD, DWORD) -> BOOL { return TRUE; };
  calls.FlushFileBuffers = [](HANDLE) -> BOOL { return TRUE; };
  calls.Sleep = [](DWORD) {};
  calls.MessageBoxA = [](HWND, LPCSTR, LPCSTR, UINT) -> int {
    ++boxes;
    return IDOK;
  };
  calls.ExitProcess = [](UINT level) { throw RunEnded{static_cast<std::int32_t>(level)}; };
  return calls;
}

// --- The runs ------------------------------------------------------------------------------------------------------

// The image, empty and sparse, behind the driver's drive.
bool AttachNewImage() {
  DeleteFileA(kImage);
  HANDLE file = CreateFileA(kImage, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  LARGE_INTEGER end{};
  end.QuadPart = static_cast<LONGLONG>(kDriveSectors * 512);
  bool done = SetFilePointerEx(file, end, nullptr, FILE_BEGIN) != 0 && SetEndOfFile(file) != 0;
  CloseHandle(file);
  std::wstring path = WideText("\\??\\" + FullPath(kImage));
  HANDLE drive = CreateFileA("\\\\.\\PhysicalDrive1", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                             nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD returned = 0;
  done = done && DeviceIoControl(drive, kAttachImage, path.data(), static_cast<DWORD>(path.size() * sizeof(wchar_t)),
                                 nullptr, 0, &returned, nullptr) != 0;
  CloseHandle(drive);
  return done;
}

// The first difference between the image and a drive, by its sector; -1 where there is none.
std::int64_t FirstDifference(MachineDouble& simulated) {
  constexpr std::uint64_t kChunkSectors = 2048;
  std::ifstream image(kImage, std::ios::binary);
  std::vector<std::uint8_t> bytes(kChunkSectors * 512);
  for (std::uint64_t lba = 0; lba < kDriveSectors; lba += kChunkSectors) {
    image.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!image || bytes != simulated.DriveBytes(1, lba, kChunkSectors)) {
      return static_cast<std::int64_t>(lba);
    }
  }
  return -1;
}

std::string TakeFile(const char* name) {
  std::ifstream file(name, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  file.close();
  DeleteFileA(name);
  return bytes;
}

// Without what depends on the run's speed.
std::string Comparable(const std::string& text) {
  static const std::regex times(R"(\d+ min \d+ sec +remaining|took \d+ seconds)");
  return std::regex_replace(text, times, "TIME");
}

// In this order, on one drive.
const char* const kLines[] = {
    "LIST",
    "DRIVE=1 GETDRV",
    "DRIVE=1 FAT32 WINPE VOLUME=Stick",
    "DRIVE=1 USBINFO",
    "DRIVE=1 WRITEMBRONLY",
    "DRIVE=1 SURE FILETOUSB FILE=\"source.bin\" USBSTART=300000",
    "DRIVE=1 SURE USBTOFILE FILE=\"target.bin\" USBSTART=299999 LENGTH=2MB",
    "DRIVE=1 SURE USBTOFILE FILE=\"target.bin\" USBSTART=614399 LENGTH=1KB",  // one sector behind the end
    "DRIVE=1 FIRSTPART",
    "DRIVE=1 QUICKTEST",
    "DRIVE=1 2PTN MSDOS SIZE=100",
    "DRIVE=1 CLEAN",
    "DRIVE=2",
};

// A simulated machine that runs one line after the other.
class SimulatedTwin : public MachineDouble {
 public:
  using MachineDouble::MachineDouble;

  std::string line;
  std::string CommandLine() override { return line; }
  std::string OriginalText(std::size_t first, std::size_t characters) override {
    return line.substr(first, characters);
  }
};

TEST(EndToEnd, TheSystemsDriveComesOutAsASimulatedOne) {
  const TestDriver driver;
  ASSERT_TRUE(driver.Started()) << driver.Error();
  ASSERT_TRUE(AttachNewImage());
  std::vector<AttachedDrive> drives;
  DriveTraits traits;
  traits.serial = "AB12";
  drives.push_back(MemoryDrive(1, kDriveSectors * 512, traits));
  SimulatedTwin simulated(std::move(drives));
  for (const char* line : kLines) {
    std::ofstream("source.bin", std::ios::binary) << std::string(1'500'000, 's') << line;
    WindowsMachine machine(HostSettings{line, /*seed*/ 1}, LiveCalls());
    const std::int32_t level = RunMain(machine);
    const std::string copied = TakeFile("target.bin");
    simulated.line = line;
    simulated.console.clear();
    simulated.boxes.clear();
    EXPECT_EQ(level, RunMain(simulated)) << line;
    EXPECT_EQ(Comparable(printed), Comparable(simulated.console)) << line;
    EXPECT_EQ(boxes, static_cast<int>(simulated.boxes.size())) << line;
    EXPECT_TRUE(copied == TakeFile("target.bin")) << line;
    EXPECT_EQ(FirstDifference(simulated), -1) << line;
  }
}

}  // namespace
