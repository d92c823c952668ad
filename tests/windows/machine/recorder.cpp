#include "windows/machine/recorder.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "platform/windows/pass_through.h"
#include "support/machine_double.h"

namespace {

// --- What is written down ------------------------------------------------------------------------------------------

std::string TextOf(std::uint64_t number) {
  std::ostringstream text;
  text << std::hex << std::uppercase << number;
  return text.str();
}
std::string TextOf(DWORD number) { return TextOf(std::uint64_t{number}); }
std::string TextOf(UINT number) { return TextOf(std::uint64_t{number}); }
std::string TextOf(int number) { return number < 0 ? std::to_string(number) : TextOf(static_cast<UINT>(number)); }
std::string TextOf(LONG number) { return TextOf(static_cast<int>(number)); }
std::string TextOf(const std::string& text) { return text; }
std::string TextOf(const char* text) { return text == nullptr ? "null" : text; }
std::string TextOf(const wchar_t* text) { return text == nullptr ? "null" : "L" + AnsiText(text); }
std::string TextOf(HANDLE handle) { return handle == nullptr ? "null" : TextOf(HandleToULong(handle)); }

template <typename... Arguments>
void Record(const std::string& name, const Arguments&... arguments) {
  std::string call = name + "(";
  const char* separator = "";
  ((call += separator + TextOf(arguments), separator = ", "), ...);
  recorder.calls.push_back(call + ")");
}

// Bytes as pairs of digits, without the zeros at their end.
std::string HexOf(const void* data, std::size_t count) {
  const ConstByteSpan bytes(static_cast<const std::uint8_t*>(data), count);
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += (byte < 0x10 ? "0" : "") + TextOf(UINT{byte});
  }
  return text.substr(0, (text.find_last_not_of('0') + 2) / 2 * 2);
}

// --- What is answered ----------------------------------------------------------------------------------------------

BOOL Result(bool succeeds) {
  if (!succeeds) {
    SetLastError(recorder.error);
  }
  return succeeds ? TRUE : FALSE;
}

BOOL ResultOf(const std::string& call) { return Result(!recorder.failing.contains(call)); }

HANDLE NextHandle() {
  const unsigned number = recorder.next_handle;
  recorder.next_handle += 0x10;
  recorder.calls.back() += " = " + TextOf(number);
  return ULongToHandle(number);
}

HANDLE OpenName(const std::string& name) {
  if (Result(recorder.devices.contains(name)) == FALSE) {
    return INVALID_HANDLE_VALUE;
  }
  HANDLE handle = NextHandle();
  recorder.open[handle] = name;
  return handle;
}

// A reply to a command fills the buffer's data.
DWORD AnswerScsi(void* output, DWORD output_bytes) {
  auto* buffer = static_cast<NativePassThrough*>(output);
  const auto found = recorder.scsi.find(UINT{buffer->header.Cdb[0]} << 8 | buffer->header.Cdb[1]);
  if (found == recorder.scsi.end()) {
    return 0;
  }
  std::copy(found->second.begin(), found->second.end(), buffer->data.begin());
  return output_bytes;
}

DWORD Answer(DWORD code, HANDLE handle, void* output, DWORD output_bytes) {
  auto* bytes = static_cast<std::uint8_t*>(output);
  switch (code) {
    case 0x0004D004:
      return AnswerScsi(output, output_bytes);
    case 0x002D1400:
      bytes[28] = recorder.bus;
      return output_bytes;
    case 0x0007405C:
      std::memcpy(output, &recorder.length, sizeof recorder.length);
      return sizeof recorder.length;
    case 0x002D1080:
      bytes[0] = kDeviceTypeDisk;
      bytes[4] = recorder.devices.at(recorder.open.at(handle));
      bytes[8] = 1;
      return 12;
    default:
      return 0;
  }
}

// A name that ends the walk over the volumes fails.
BOOL NextName(LPSTR name) {
  if (Result(!recorder.volumes.empty()) == FALSE) {
    return FALSE;
  }
  std::strcpy(name, recorder.volumes.front().c_str());
  recorder.volumes.erase(recorder.volumes.begin());
  return TRUE;
}

using StatusCallback = ULONG(WINAPI*)(ULONG status, ULONG sub_action, void* action_info);
void WINAPI RecordFormatEx(const wchar_t* root, ULONG media, const wchar_t* file_system, const wchar_t* label,
                           LONG quick, ULONG cluster, StatusCallback callback) {
  Record("FormatEx", root, media, file_system, label, quick, cluster);
  for (const ULONG status : recorder.format_statuses) {
    recorder.format_answers.push_back(callback(status, 2, ULongToPtr(3)));
  }
}

BOOL WINAPI RecordIsWow64Process(HANDLE process, BOOL* answer) {
  Record("IsWow64Process", process);
  *answer = TRUE;
  return TRUE;
}

}  // namespace

SystemCalls RecordingCalls() {
  SystemCalls calls;
  calls.CreateFileA = [](LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                         DWORD flags, HANDLE pattern) -> HANDLE {
    Record("CreateFileA", name, access, share, static_cast<HANDLE>(security), disposition, flags, pattern);
    return OpenName(name);
  };
  calls.CreateFileW = [](LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                         DWORD flags, HANDLE pattern) -> HANDLE {
    Record("CreateFileW", name, access, share, static_cast<HANDLE>(security), disposition, flags, pattern);
    return OpenName(AnsiText(name));
  };
  calls.CloseHandle = [](HANDLE handle) -> BOOL {
    Record("CloseHandle", handle);
    return ResultOf("CloseHandle");
  };
  calls.SetFilePointerEx = [](HANDLE handle, LARGE_INTEGER distance, PLARGE_INTEGER position, DWORD method) -> BOOL {
    Record("SetFilePointerEx", handle, static_cast<std::uint64_t>(distance.QuadPart), static_cast<HANDLE>(position),
           method);
    return ResultOf("SetFilePointerEx");
  };
  calls.ReadFile = [](HANDLE handle, LPVOID buffer, DWORD bytes, LPDWORD moved, LPOVERLAPPED overlapped) -> BOOL {
    Record("ReadFile", handle, bytes, static_cast<HANDLE>(overlapped));
    recorder.transferred = buffer;
    *moved = bytes;
    return ResultOf("ReadFile");
  };
  calls.WriteFile = [](HANDLE handle, LPCVOID buffer, DWORD bytes, LPDWORD moved, LPOVERLAPPED overlapped) -> BOOL {
    const bool text = handle == ULongToHandle(7);  // standard output
    Record("WriteFile", handle, text ? std::string(static_cast<const char*>(buffer), bytes) : TextOf(bytes),
           static_cast<HANDLE>(overlapped));
    recorder.transferred = buffer;
    *moved = bytes;
    return ResultOf("WriteFile");
  };
  calls.FlushFileBuffers = [](HANDLE handle) -> BOOL {
    Record("FlushFileBuffers", handle);
    return ResultOf("FlushFileBuffers");
  };
  calls.LockFile = [](HANDLE handle, DWORD low, DWORD high, DWORD bytes_low, DWORD bytes_high) -> BOOL {
    Record("LockFile", handle, low, high, bytes_low, bytes_high);
    return ResultOf("LockFile");
  };
  calls.UnlockFile = [](HANDLE handle, DWORD low, DWORD high, DWORD bytes_low, DWORD bytes_high) -> BOOL {
    Record("UnlockFile", handle, low, high, bytes_low, bytes_high);
    return ResultOf("UnlockFile");
  };
  calls.DeviceIoControl = [](HANDLE handle, DWORD code, LPVOID input, DWORD input_bytes, LPVOID output,
                             DWORD output_bytes, LPDWORD returned, LPOVERLAPPED overlapped) -> BOOL {
    Record("DeviceIoControl", handle, code, input == nullptr ? "null" : "<" + HexOf(input, input_bytes) + ">",
           input_bytes, output == nullptr ? "null" : "output", output_bytes, static_cast<HANDLE>(overlapped));
    const BOOL result = ResultOf("DeviceIoControl " + TextOf(code));
    *returned = result != FALSE ? Answer(code, handle, output, output_bytes) : 0;
    return result;
  };
  calls.GetFileType = [](HANDLE handle) -> DWORD {
    Record("GetFileType", handle);
    return recorder.file_type;
  };
  calls.GetFileInformationByHandle = [](HANDLE handle, LPBY_HANDLE_FILE_INFORMATION /*information*/) -> BOOL {
    Record("GetFileInformationByHandle", handle);
    return ResultOf("GetFileInformationByHandle");
  };
  calls.GetFileSize = [](HANDLE handle, LPDWORD high) -> DWORD {
    Record("GetFileSize", handle);
    *high = static_cast<DWORD>(recorder.length >> 32);
    return ResultOf("GetFileSize") != FALSE ? static_cast<DWORD>(recorder.length) : INVALID_FILE_SIZE;
  };
  calls.FindFirstFileA = [](LPCSTR name, LPWIN32_FIND_DATAA /*entry*/) -> HANDLE {
    Record("FindFirstFileA", name);
    return OpenName(name);
  };
  calls.FindClose = [](HANDLE search) -> BOOL {
    Record("FindClose", search);
    return TRUE;
  };
  calls.DeleteFileA = [](LPCSTR name) -> BOOL {
    Record("DeleteFileA", name);
    return ResultOf("DeleteFileA");
  };
  calls.FindFirstVolumeA = [](LPSTR name, DWORD characters) -> HANDLE {
    Record("FindFirstVolumeA", characters);
    return NextName(name) != FALSE ? NextHandle() : INVALID_HANDLE_VALUE;
  };
  calls.FindNextVolumeA = [](HANDLE search, LPSTR name, DWORD characters) -> BOOL {
    Record("FindNextVolumeA", search, characters);
    return NextName(name);
  };
  calls.FindVolumeClose = [](HANDLE search) -> BOOL {
    Record("FindVolumeClose", search);
    return TRUE;
  };
  calls.SetVolumeMountPointA = [](LPCSTR root, LPCSTR name) -> BOOL {
    Record("SetVolumeMountPointA", root, name);
    return ResultOf("SetVolumeMountPointA");
  };
  calls.GetDriveTypeA = [](LPCSTR root) -> UINT {
    Record("GetDriveTypeA", root);
    return recorder.roots.contains(root) ? recorder.drive_type : DRIVE_NO_ROOT_DIR;
  };
  calls.GetDiskFreeSpaceExA = [](LPCSTR name, PULARGE_INTEGER /*available*/, PULARGE_INTEGER total,
                                 PULARGE_INTEGER /*free*/) -> BOOL {
    Record("GetDiskFreeSpaceExA", name);
    total->QuadPart = recorder.length;
    return ResultOf("GetDiskFreeSpaceExA");
  };
  calls.SetErrorMode = [](UINT mode) -> UINT {
    Record("SetErrorMode", mode);
    return 0;
  };
  calls.GetStdHandle = [](DWORD which) -> HANDLE {
    Record("GetStdHandle", static_cast<LONG>(which));
    return ULongToHandle(7);
  };
  calls.ExitProcess = [](UINT level) {
    Record("ExitProcess", level);
    throw RunEnded{static_cast<std::int32_t>(level)};
  };
  calls.GetVersionExA = [](LPOSVERSIONINFOA version) -> BOOL {
    Record("GetVersionExA", version->dwOSVersionInfoSize);
    version->dwPlatformId = 2;
    version->dwMajorVersion = 6;
    version->dwMinorVersion = 1;
    return ResultOf("GetVersionExA");
  };
  calls.FormatMessageA = [](DWORD flags, LPCVOID source, DWORD code, DWORD language, LPSTR text, DWORD characters,
                            va_list* /*inserts*/) -> DWORD {
    Record("FormatMessageA", flags, source == nullptr ? "null" : "source", code, language, characters);
    std::strcpy(text, "Text.\r\n");
    return ResultOf("FormatMessageA") != FALSE ? 7 : 0;
  };
  calls.Sleep = [](DWORD milliseconds) { Record("Sleep", milliseconds); };
  calls.GetTickCount = []() -> DWORD { return 0xFFFFFFF0; };
  calls.MessageBoxA = [](HWND owner, LPCSTR text, LPCSTR title, UINT buttons) -> int {
    Record("MessageBoxA", static_cast<HANDLE>(owner), text, title, buttons);
    return recorder.box_answer;
  };
  calls.FindWindowA = [](LPCSTR window_class, LPCSTR title) -> HWND {
    Record("FindWindowA", window_class, title);
    return recorder.open_dialog == title ? reinterpret_cast<HWND>(ULongToHandle(9)) : nullptr;
  };
  calls.PostMessageA = [](HWND window, UINT message, WPARAM first, LPARAM second) -> BOOL {
    Record("PostMessageA", static_cast<HANDLE>(window), message, std::uint64_t{first},
           static_cast<std::uint64_t>(second));
    return TRUE;
  };
  calls.CreateProcessA = [](LPCSTR application, LPSTR line, LPSECURITY_ATTRIBUTES process, LPSECURITY_ATTRIBUTES thread,
                            BOOL inherit, DWORD flags, LPVOID environment, LPCSTR folder, LPSTARTUPINFOA startup,
                            LPPROCESS_INFORMATION started) -> BOOL {
    Record("CreateProcessA", application, static_cast<const char*>(line), static_cast<HANDLE>(process),
           static_cast<HANDLE>(thread), inherit, flags, environment, folder,
           "<" + HexOf(startup, sizeof *startup) + ">");
    started->hProcess = ULongToHandle(0xA0);
    started->hThread = ULongToHandle(0xA4);
    return ResultOf("CreateProcessA");
  };
  calls.GetExitCodeProcess = [](HANDLE process, LPDWORD code) -> BOOL {
    Record("GetExitCodeProcess", process);
    if (Result(!recorder.exit_codes.empty()) == FALSE) {
      return FALSE;
    }
    *code = recorder.exit_codes.front();
    recorder.exit_codes.erase(recorder.exit_codes.begin());
    return TRUE;
  };
  calls.GetSystemDirectoryA = [](LPSTR folder, UINT /*characters*/) -> UINT {
    std::strcpy(folder, "C:\\system");
    return 9;
  };
  calls.LoadLibraryA = [](LPCSTR name) -> HMODULE {
    Record("LoadLibraryA", name);
    return ResultOf("LoadLibraryA") != FALSE ? reinterpret_cast<HMODULE>(ULongToHandle(0xB0)) : nullptr;
  };
  calls.GetModuleHandleA = [](LPCSTR name) -> HMODULE {
    Record("GetModuleHandleA", name);
    return reinterpret_cast<HMODULE>(ULongToHandle(0xB4));
  };
  calls.GetProcAddress = [](HMODULE library, LPCSTR name) -> FARPROC {
    Record("GetProcAddress", static_cast<HANDLE>(library), name);
    if (ResultOf("GetProcAddress") == FALSE) {
      return nullptr;
    }
    auto* const routine = name == std::string("FormatEx") ? reinterpret_cast<void (*)()>(RecordFormatEx)
                                                          : reinterpret_cast<void (*)()>(RecordIsWow64Process);
    return reinterpret_cast<FARPROC>(routine);
  };
  calls.GetCurrentProcess = []() -> HANDLE { return INVALID_HANDLE_VALUE; };
  calls.CoInitialize = [](LPVOID reserved) -> HRESULT {
    Record("CoInitialize", reserved);
    return S_OK;
  };
  calls.CoGetObject = [](LPCWSTR name, BIND_OPTS* options, REFIID interface_id, void** object) -> HRESULT {
    Record("CoGetObject", name, static_cast<HANDLE>(options));
    return recorder.management == nullptr ? E_FAIL : recorder.management->QueryInterface(interface_id, object);
  };
  calls.CLSIDFromProgID = [](LPCOLESTR name, LPCLSID id) -> HRESULT {
    Record("CLSIDFromProgID", name);
    *id = {};
    return recorder.shell == nullptr ? E_FAIL : S_OK;
  };
  calls.CoCreateInstance = [](REFCLSID /*id*/, LPUNKNOWN outer, DWORD context, REFIID interface_id,
                              LPVOID* object) -> HRESULT {
    Record("CoCreateInstance", static_cast<HANDLE>(outer), context);
    return recorder.shell->QueryInterface(interface_id, object);
  };
  return calls;
}
