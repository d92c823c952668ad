// The platform port: every service that the layers above ask of the outside world, and nothing else.
//
// One service stands for one outside call and hands back what its caller needs: a result flag, the count that was
// moved, and, through LastError(), the platform's error code. A machine never prints, never retries and never ends the
// run unless it is asked to; it reports short transfers and failures truthfully, also where the layer above ignores
// them. Reads come from the medium and not from a cache of the machine's own.
//
// Every service that can fail sets the last error: 0 on success, else one of the Windows error codes (ErrorCode).
// Text is one byte a character in Windows code page 1252; a machine converts at its border. Positions, lengths and
// counts are bytes.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// A handle as the platform gives it out: above 0 when open, 0 for none, kInvalidHandle from a failed open.
using Handle = std::int32_t;
inline constexpr Handle kInvalidHandle = -1;

using ByteSpan = std::span<std::uint8_t>;
using ConstByteSpan = std::span<const std::uint8_t>;

// Error codes that machines report (the numbers of the Windows API).
enum ErrorCode : std::uint32_t {
  kErrorNone = 0,
  kErrorFileNotFound = 2,
  kErrorAccessDenied = 5,
  kErrorInvalidHandle = 6,
  kErrorWriteProtected = 19,
  kErrorNotReady = 21,
  kErrorCrc = 23,
  kErrorSectorNotFound = 27,
  kErrorSharingViolation = 32,
  kErrorInvalidParameter = 87,
  kErrorDiskFull = 112,
  kErrorNegativeSeek = 131,
  kErrorIoDevice = 1117,
};

// What CreateFile is given behind the path.
struct OpenMode {
  std::uint32_t access;  // 0 query only, else kAccess...
  std::uint32_t share;   // 0 none, else kShare...
  std::uint32_t disposition;
  std::uint32_t flags;
};
inline constexpr std::uint32_t kAccessReadAttributes = 0x80;
inline constexpr std::uint32_t kAccessRead = 0x80000000;
inline constexpr std::uint32_t kAccessWrite = 0x40000000;
inline constexpr std::uint32_t kAccessReadWrite = kAccessRead | kAccessWrite;
inline constexpr std::uint32_t kShareRead = 1;
inline constexpr std::uint32_t kShareWrite = 2;
inline constexpr std::uint32_t kShareReadWrite = 3;
inline constexpr std::uint32_t kOpenExisting = 3;
inline constexpr std::uint32_t kOpenAlways = 4;
inline constexpr std::uint32_t kFlagNormal = 0x80;
inline constexpr std::uint32_t kFlagNoBuffering = 0x20000000;

// Control codes that carry no data in either direction.
enum class ControlCode : std::uint32_t {
  kLockVolume = 0x00090018,
  kUnlockVolume = 0x0009001C,
  kDismountVolume = 0x00090020,
  kUpdateProperties = 0x00070140,  // on a drive handle: read the partition table again
};

// The answer to IOCTL_STORAGE_GET_DEVICE_NUMBER.
struct DeviceNumber {
  std::uint32_t device_type;  // kDeviceTypeDisk for a disk
  std::uint32_t device_number;
  std::uint32_t partition_number;
};
inline constexpr std::uint32_t kDeviceTypeDisk = 7;
inline constexpr std::uint8_t kBusTypeUsb = 7;
inline constexpr std::uint8_t kBusTypeAta = 3;

// A drive type as GetDriveType gives it.
inline constexpr std::uint32_t kDriveTypeNoRoot = 1;
inline constexpr std::uint32_t kDriveTypeRemovable = 2;
inline constexpr std::uint32_t kDriveTypeFixed = 3;

// Message boxes: buttons, icon (added to the buttons), answers.
inline constexpr int kBoxOk = 0x00;
inline constexpr int kBoxOkCancel = 0x01;
inline constexpr int kBoxYesNoCancel = 0x03;
inline constexpr int kBoxStop = 0x10;
inline constexpr int kBoxExclamation = 0x30;
inline constexpr int kBoxButtonMask = 0x0F;
inline constexpr int kAnswerOk = 1;
inline constexpr int kAnswerCancel = 2;
inline constexpr int kAnswerYes = 6;
inline constexpr int kAnswerNo = 7;

// What FormatMessage is given beside the code.
struct MessageMode {
  std::uint32_t flags;       // kMessage...
  std::uint32_t characters;  // room for the text
};
inline constexpr std::uint32_t kMessageFromSystem = 0x1000;
inline constexpr std::uint32_t kMessageIgnoreInserts = 0x200;

// The format service calls back with a status, what it is doing, and a detail of that. The answer is whether to go on.
using FormatCallback =
    std::function<std::uint32_t(std::uint32_t status, std::uint32_t sub_action, std::uint32_t action_info)>;
// Media flags that the format service takes.
inline constexpr std::uint32_t kMediaRemovable = 0x0B;
inline constexpr std::uint32_t kMediaFixed = 0x0C;

// What GetVersionEx says; platform 0 where the system is not Windows or the query failed.
struct SystemVersion {
  std::uint32_t platform;  // 1 the Windows 95 family, 2 the NT family
  std::uint32_t major;
  std::uint32_t minor;
};

class Platform {
 public:
  Platform() = default;
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;
  virtual ~Platform() = default;

  // --- The run ---------------------------------------------------------------------------------------------------

  // The command line behind the program's name and the host options, case and double quotes kept.
  virtual std::string CommandLine() = 0;
  // What the user typed for the `characters` characters of CommandLine() from `first` on, byte by byte, in the system's
  // own encoding; shorter where the line ends earlier. A file's path is taken from here, since names on the system may
  // have bytes that the code page has no character for.
  virtual std::string OriginalText(std::size_t first, std::size_t characters) = 0;
  // The seed of the random source: different in each run, unless the host options fix it.
  virtual std::uint64_t RandomSeed() = 0;
  // Keeps the system from showing critical-error boxes of its own.
  virtual void SuppressErrorBoxes() = 0;
  // Ends the process. Where an exit status has 8 bits, a level above 255 is carried as 255.
  [[noreturn]] virtual void Exit(std::int32_t level) = 0;
  virtual SystemVersion Version() = 0;

  // --- Console ---------------------------------------------------------------------------------------------------

  // Standard output's handle; fetched anew for each write, since it may have been closed.
  virtual Handle StandardOutput() = 0;
  // Writes all of `text` to standard output in one go. False when any of it could not be written.
  virtual bool WriteText(Handle output, std::string_view text) = 0;
  // A modal box with `text`, `buttons` (kBox...) and `title`; returns kAnswer....
  virtual int ShowBox(std::string_view text, int buttons, std::string_view title) = 0;
  // Posts a close message to the shell's dialog of that title, if there is one.
  virtual void CloseShellDialog(std::string_view title) = 0;

  // --- Time ------------------------------------------------------------------------------------------------------

  virtual void Wait(std::uint32_t milliseconds) = 0;
  // Milliseconds since some moment, modulo 2^32.
  virtual std::uint32_t TickCount() = 0;
  // Whole seconds of the calendar since some moment.
  virtual std::int64_t CalendarSeconds() = 0;
  // The present local date and time in the platform's general format (yyyy-mm-dd hh:mm:ss outside Windows).
  virtual std::string DateTimeText() = 0;

  // --- Errors ----------------------------------------------------------------------------------------------------

  virtual std::uint32_t LastError() = 0;
  // The system's message for a code, with CR LF behind it; empty for a code that it does not know, for a message that
  // is too long, and for one with places to fill in that the mode doesn't ignore.
  virtual std::string ErrorMessage(std::uint32_t code, const MessageMode& mode) = 0;

  // --- Drives and volumes, opened by path ------------------------------------------------------------------------

  // Opens "\\.\PhysicalDrive" + number, "\\.\" + letter + ":", or a volume's system name without the backslash that
  // ends it. kInvalidHandle on failure: kErrorFileNotFound where there is no such thing.
  virtual Handle Open(const std::string& path, const OpenMode& mode) = 0;
  // False, without harm, for a handle that is not open.
  virtual bool Close(Handle handle) = 0;
  // Sets the position of the next transfer, in bytes from the start; a negative one fails with kErrorNegativeSeek.
  virtual bool Seek(Handle handle, std::int64_t position) = 0;
  // One transfer at the present position, straight to or from `buffer`, which on drives and volumes should begin on a
  // page of memory; `moved` gets the bytes that were moved. On all machines but Windows a transfer moves everything or
  // nothing: one that crosses the end of the drive fails with kErrorSectorNotFound, one that is not made of whole
  // sectors with kErrorInvalidParameter.
  virtual bool Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) = 0;
  virtual bool Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) = 0;
  // Passes what was written on to the medium.
  virtual bool Flush(Handle handle) = 0;
  // An advisory lock of a byte range against other processes.
  virtual bool LockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) = 0;
  virtual bool UnlockRange(Handle handle, std::uint64_t position, std::uint64_t bytes) = 0;
  virtual bool Control(Handle handle, ControlCode code) = 0;
  virtual bool QueryDeviceNumber(Handle handle, DeviceNumber& answer) = 0;
  // The drive's length in bytes.
  virtual bool QueryLength(Handle handle, std::uint64_t& bytes) = 0;
  // The drive's bus type (kBusType...).
  virtual bool QueryBusType(Handle handle, std::uint8_t& bus) = 0;
  // Sends a SCSI command with data from the device and a time-out of 2 seconds. `data` is the reply's buffer, as long
  // as the command's allocation length; what the device doesn't fill keeps its value. `returned` is above 0 when the
  // command was carried through.
  virtual bool ScsiCommand(Handle handle, ConstByteSpan cdb, ByteSpan data, std::uint32_t& returned) = 0;

  // --- Files -----------------------------------------------------------------------------------------------------
  //
  // A path is in the bytes of OriginalText. Where names differ by case, one that doesn't exist as given stands for the
  // only entry of its folder that differs from it in case alone (of letters of the code page, in the last part of the
  // path), if there is exactly one. A file's handle serves Close, Seek, Read and Write too; a read that reaches the end
  // of the file succeeds and moves fewer bytes, a seek may go behind the end, and a write that fails may have moved
  // some of its bytes.

  // Whether a directory search for `path` yields anything, links followed.
  virtual bool FindFile(const std::string& path) = 0;
  // Opens a file that exists (kOpenExisting) for reading (kAccessRead) or for QueryFileSize alone
  // (kAccessReadAttributes), or one that is created where it is missing (kOpenAlways) for writing (kAccessWrite); what
  // it holds is kept. kInvalidHandle on failure: kErrorAccessDenied for what is no regular file, such as a folder or a
  // device, and kErrorSharingViolation for the image of an attached drive, unless only its size is asked for.
  virtual Handle OpenFile(const std::string& path, const OpenMode& mode) = 0;
  // The file's length in bytes.
  virtual bool QueryFileSize(Handle file, std::uint64_t& bytes) = 0;
  // Deletes a file; never a folder.
  virtual bool RemoveFile(const std::string& path) = 0;
  // The path of a file that lies beside the program, and the program's folder as a text.
  virtual std::string PathBesideProgram(const std::string& name) = 0;
  virtual std::string ProgramFolder() = 0;

  // --- Volumes ---------------------------------------------------------------------------------------------------

  // Enumerates all volumes by system name ("\\?\Volume{...}\", with the backslash that ends it). FirstVolume gives
  // kInvalidHandle where there is none; the handle is given back with EndVolumes.
  virtual Handle FirstVolume(std::string& name) = 0;
  virtual bool NextVolume(Handle search, std::string& name) = 0;
  virtual void EndVolumes(Handle search) = 0;
  // Gives the volume `name` (with its backslash) the root `root` ("D:\"). Fails where it has a letter already.
  virtual bool MountVolume(const std::string& root, const std::string& name) = 0;
  // The type of the drive behind a root such as "D:\" (kDriveType...).
  virtual std::uint32_t DriveType(const std::string& root) = 0;
  // The size of the file system on a volume, named by letter and colon. Fails where there is none.
  virtual bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) = 0;
  // Has the system format the volume of the root ("E:") quickly, with its own choice of the cluster size. `media` is
  // kMedia..., `file_system` "NTFS" or "EXFAT". Synchronous: every status comes inside the call, 0x0B last on success.
  // Where the service can't be had there is no status at all.
  virtual void FormatVolume(const std::string& root, std::uint32_t media, const std::string& file_system,
                            const std::string& label, const FormatCallback& callback) = 0;

  // --- Other programs and the machine ------------------------------------------------------------------------------

  // Starts a command line with the console of this process; the handle is given back with Close. kInvalidHandle on
  // failure.
  virtual Handle StartProcess(const std::string& command) = 0;
  // The exit code of a started process, kStillActive while it runs.
  virtual bool QueryExitCode(Handle process, std::uint32_t& code) = 0;

  // Connects to the management service that describes this machine; false where it can't be had.
  virtual bool BindManagement() = 0;
  // Runs a query ("Select * from Win32_..."). One row for each object that it finds, with the values of `properties` in
  // their order, empty where an object has no such value. `forward_only` asks for the cheaper enumeration that can't be
  // walked twice. No rows on failure.
  virtual std::vector<std::vector<std::string>> QueryManagement(const std::string& query, bool forward_only,
                                                                const std::vector<std::string>& properties) = 0;
  // The value of the registry under its full path, numbers in decimal; false where there is none.
  virtual bool ReadRegistry(const std::string& path, std::string& value) = 0;
  // Whether the process is a 32-bit one on a 64-bit system.
  virtual bool IsWow64() = 0;
  // The decimal sign of the user's regional setting.
  virtual char DecimalSign() = 0;
};
inline constexpr std::uint32_t kStillActive = 259;

// The machine of this run; set once before Main.
inline Platform* port = nullptr;
