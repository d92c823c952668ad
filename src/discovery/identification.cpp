#include "discovery/identification.h"

#include <algorithm>
#include <array>
#include <limits>

#include "cli/option_model.h"
#include "console/console.h"
#include "console/number_text.h"
#include "disk/handles.h"
#include "disk/sector_io.h"

namespace {

constexpr std::int64_t kCylinderBytes = 255LL * 63 * kSectorBytes;

// SCSI commands (SPC and SBC), with their allocation length in the last bytes.
constexpr std::array<std::uint8_t, 10> kReadCapacity10{0x25};
constexpr std::array<std::uint8_t, 6> kInquiry{0x12, 0x00, 0x00, 0x03, 0xFC, 0x00};
constexpr std::array<std::uint8_t, 6> kInquirySerialNumber{0x12, 0x01, 0x80, 0x03, 0xFC, 0x00};
constexpr std::size_t kCapacityReplyBytes = 192;
constexpr std::size_t kInquiryReplyBytes = 1020;
constexpr std::uint8_t kRemovableBit = 0x80;

// A command's data, zeros behind what the device sent.
struct Reply {
  std::array<std::uint8_t, kInquiryReplyBytes> data{};
  bool succeeded = false;
  std::uint32_t returned = 0;
};

Reply Send(Handle handle, ConstByteSpan cdb, std::size_t reply_bytes) {
  Reply reply;
  reply.succeeded = port->ScsiCommand(handle, cdb, ByteSpan(reply.data).first(reply_bytes), reply.returned);
  return reply;
}

std::uint64_t LoadBig32(ConstByteSpan bytes, std::size_t at) {
  return (std::uint64_t{bytes[at]} << 24) | (std::uint64_t{bytes[at + 1]} << 16) | (std::uint64_t{bytes[at + 2]} << 8) |
         bytes[at + 3];
}

std::string WithoutNuls(std::string text) {
  std::erase(text, '\0');
  return text;
}

void ClearRecord() {
  DriveBus.clear();
  DriveMedia.clear();
  DriveModel.clear();
  DriveFirmware.clear();
  DriveSerial.clear();
  DriveBytes = 0;
  DriveReportedBytes = 0;
}

// The size by READ CAPACITY (10), 0 if the drive refuses the command. The last LBA times the block length, plus 512
// whatever the block length is.
std::uint64_t CapacityByScsi(Handle handle) {
  const Reply reply = Send(handle, kReadCapacity10, kCapacityReplyBytes);
  if (!reply.succeeded || reply.returned == 0) {
    return 0;
  }
  const auto block_length = static_cast<std::uint32_t>(LoadBig32(reply.data, 4));
  BytesPerSector = block_length > 0 ? block_length : kSectorBytes;
  const std::uint64_t capacity = LoadBig32(reply.data, 0) * block_length;
  return capacity > 0 ? capacity + kSectorBytes : 0;
}

void ReadInquiry(Handle handle) {
  const Reply reply = Send(handle, kInquiry, kInquiryReplyBytes);
  if (!reply.succeeded || reply.returned == 0) {
    return;
  }
  const int additional_length = reply.data[4];
  if (additional_length >= 43) {
    DriveSerial = CleanText(WithoutNuls(BytesToText(reply.data, 36, 43, true)));
  }
  if (additional_length >= 31) {
    const std::string model =
        Trim(BytesToText(reply.data, 8, 15, false) + " " + BytesToText(reply.data, 16, 31, false));
    DebugLog(" MyMODEL=*" + model + "*");
    DriveModel = CleanText(WithoutNuls(model));
  }
  if (additional_length >= 35) {
    DriveFirmware = WithoutNuls(Trim(CleanText(BytesToText(reply.data, 32, 35, false))));
  }
  const int removable = reply.data[1] & kRemovableBit;
  DebugLog(" REMOVABLE BIT=" + std::to_string(removable));
  DriveMedia = removable != 0 ? "REMOVABLE MEDIA" : "FIXED MEDIA";
}

void ReadUnitSerialNumber(Handle handle) {
  const Reply reply = Send(handle, kInquirySerialNumber, kInquiryReplyBytes);
  const int page_length = reply.data[3];
  if (reply.returned == 0 || page_length == 0) {
    return;
  }
  const std::string serial = BytesToText(reply.data, 4, page_length + 4, true);
  if (!serial.empty()) {
    DriveSerial = serial;
  }
}

// The last usable sector must be readable, else one more cylinder is given up. Not proved a second time.
void ProveLastSector() {
  Open_Physical_Disk_hDrive(DriveNumber);
  const auto last_sector = static_cast<std::uint64_t>(DriveBytes / kSectorBytes - 1);
  if (!DirectRead(last_sector, 1)) {
    DriveBytes -= kCylinderBytes;
  }
  MyCloseHandle(DiskHandle);
}

}  // namespace

void GetUSBDiskDriveInfo(std::int32_t drive) {
  ClearRecord();
  if (OptAllDrives || IsUsbDrive(drive)) {
    GetDiskDriveInfo(drive);
  }
}

void GetDiskDriveInfo(std::int32_t drive) {
  ClearRecord();
  BytesPerSector = kSectorBytes;
  DriveBus = IsUsbDrive(drive) ? "USB" : "";
  std::uint64_t size = GetSCSICapacity(drive);
  if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    size = 0;  // a device that makes no sense
  }
  Diagnose(" SCSI size=" + std::to_string(size));
  DriveReportedBytes = size;
  DriveBytes = (static_cast<std::int64_t>(size / kCylinderBytes) - 1) * kCylinderBytes;
  ProveLastSector();
  if (DriveReportedBytes > 0 && DriveBytes < 0) {
    DriveBytes = 0;  // there is a drive, with nothing to use on it
  }
}

bool IsUsbDrive(std::int32_t drive) {
  const std::string name = "PhysicalDrive" + std::to_string(drive).substr(0, 2);
  const Handle handle = port->Open(DevicePath(name), {0, 0, kOpenExisting, 0});
  if (handle == kInvalidHandle) {
    return false;
  }
  std::uint8_t bus = 0;
  const bool answered = port->QueryBusType(handle, bus);
  port->Close(handle);
  return answered && bus == kBusTypeUsb;
}

std::uint64_t GetSCSICapacity(std::int32_t drive) {
  const std::string name = DriveName(drive);
  Handle handle = port->Open(DevicePath(name), {kAccessReadWrite, kShareReadWrite, kOpenExisting, 0});
  if (handle == kInvalidHandle) {
    DebugLog(" GetSCSICapacity - Handle for " + name + " not obtained!");
    return 0;
  }
  // READ CAPACITY (10) ends at 2^32 blocks, and some drives refuse it: the platform's length then is the larger.
  const std::uint64_t by_scsi = CapacityByScsi(handle);
  const std::uint64_t size = std::max(by_scsi, GetDiskLength(handle));
  ReadInquiry(handle);
  ReadUnitSerialNumber(handle);
  MyCloseHandle(handle);
  return size;
}

std::uint64_t GetDiskLength(Handle handle) {
  std::uint64_t bytes = 0;
  return handle != kInvalidHandle && port->QueryLength(handle, bytes) ? bytes : 0;
}

std::string MediaClassText() {
  const bool removable = UpperCase(DriveMedia).find("REMOVABLE") != std::string::npos;
  return "\r\n\r\nINFO: This device is classed as a " + std::string(removable ? "Removable" : "Fixed") +
         " Disk by Windows.";
}

std::string BytesToText(ConstByteSpan bytes, int first, int last, bool stop_at_nul) {
  const int end = static_cast<int>(bytes.size()) - 1;
  last = last == -1 ? end : std::min(last, end);
  std::string text;
  for (int i = std::max(first, 0); i <= last; ++i) {
    const std::uint8_t byte = bytes[static_cast<std::size_t>(i)];
    if (stop_at_nul && byte == 0 && !text.empty() && text[0] != '\0') {
      break;
    }
    text += static_cast<char>(byte);
  }
  return Trim(text);
}

std::string CleanText(std::string_view text) {
  constexpr std::string_view kKept =
      "1234567890qwertyuiopasdfghjklzxcvbnmQWERTYUIOPASDFGHJKLZXCVBNM `~!@#$%^&*()_-=+[]{};:'\\?/\x96";
  std::string kept;
  std::copy_if(text.begin(), text.end(), std::back_inserter(kept),
               [&](char character) { return kKept.find(character) != std::string_view::npos; });
  return kept;
}
