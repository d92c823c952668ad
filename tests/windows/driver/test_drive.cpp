// A driver that owns \\.\PhysicalDrive1: a removable USB drive whose sectors are those of an image file. It answers
// opens, reads, writes and the control codes by which drives are identified, and checks what it is given as the
// system's own drivers do. Loaded by Wine as a service.
#include <intrin.h>
// The kernel's headers define these two once more, which C++ doesn't allow.
#define InterlockedBitTestAndSet KernelInterlockedBitTestAndSet
#define InterlockedBitTestAndReset KernelInterlockedBitTestAndReset
#include <ntifs.h>
// Behind ntifs.h, whose names they need.
#include <ntddscsi.h>
#include <windef.h>
#include <winioctl.h>

#include "windows/driver/test_drive.h"

namespace {

constexpr ULONG kSector = 512;
constexpr UCHAR kBusTypeOfUsb = 7;
constexpr UCHAR kRemovable = 0x80;
constexpr UCHAR kInquiryBytes = 96;

// The image; null where none is attached.
HANDLE image = nullptr;
LONGLONG image_bytes = 0;

struct Outcome {
  NTSTATUS status;
  ULONG_PTR bytes;
};

void Copy(void* to, const void* from, ULONG bytes) { RtlCopyMemory(to, from, bytes); }

Outcome AttachImage(void* path, ULONG bytes) {
  if (image != nullptr) {
    ZwClose(image);
    image = nullptr;
  }
  UNICODE_STRING name{static_cast<USHORT>(bytes), static_cast<USHORT>(bytes), static_cast<PWSTR>(path)};
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE | OBJ_KERNEL_HANDLE, nullptr, nullptr);
  IO_STATUS_BLOCK io{};
  NTSTATUS status =
      ZwCreateFile(&image, GENERIC_READ | GENERIC_WRITE | SYNCHRONIZE, &attributes, &io, nullptr, FILE_ATTRIBUTE_NORMAL,
                   FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_OPEN, FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  if (!NT_SUCCESS(status)) {
    image = nullptr;
    return {status, 0};
  }
  FILE_STANDARD_INFORMATION information{};
  status = ZwQueryInformationFile(image, &io, &information, sizeof information, FileStandardInformation);
  image_bytes = information.EndOfFile.QuadPart;
  return {status, 0};
}

// Whole sectors inside the drive, to or from the request's buffer.
Outcome Transfer(IRP* request, bool write) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(request);
  // Both kinds of transfer have their parameters at the same places.
  LARGE_INTEGER position = stack->Parameters.Read.ByteOffset;
  const ULONG bytes = stack->Parameters.Read.Length;
  if (image == nullptr) {
    return {STATUS_NO_MEDIA_IN_DEVICE, 0};
  }
  if (position.QuadPart % kSector != 0 || bytes % kSector != 0 || position.QuadPart < 0) {
    return {STATUS_INVALID_PARAMETER, 0};
  }
  if (position.QuadPart > image_bytes || bytes > image_bytes - position.QuadPart) {
    return {STATUS_NONEXISTENT_SECTOR, 0};
  }
  IO_STATUS_BLOCK io{};
  void* buffer = request->AssociatedIrp.SystemBuffer;
  const NTSTATUS status = write ? ZwWriteFile(image, nullptr, nullptr, nullptr, &io, buffer, bytes, &position, nullptr)
                                : ZwReadFile(image, nullptr, nullptr, nullptr, &io, buffer, bytes, &position, nullptr);
  return {status, NT_SUCCESS(status) ? io.Information : 0};
}

// The data that the drive has for a command, into zeros; 0 bytes for one that it doesn't know.
ULONG Answer(const UCHAR* cdb, UCHAR* data) {
  if (cdb[0] == 0x25) {  // READ CAPACITY (10)
    const auto last = static_cast<ULONG>(image_bytes / kSector - 1);
    const UCHAR capacity[] = {static_cast<UCHAR>(last >> 24),
                              static_cast<UCHAR>(last >> 16),
                              static_cast<UCHAR>(last >> 8),
                              static_cast<UCHAR>(last),
                              0,
                              0,
                              kSector >> 8,
                              0};
    Copy(data, capacity, sizeof capacity);
    return sizeof capacity;
  }
  if (cdb[0] == 0x12 && cdb[1] == 0) {  // INQUIRY
    const UCHAR head[] = {0, kRemovable, 4, 2, kInquiryBytes - 5, 0, 0, 0};
    Copy(data, head, sizeof head);
    Copy(data + sizeof head, "Generic Flash Disk      1.00", 28);
    return kInquiryBytes;
  }
  if (cdb[0] == 0x12 && cdb[1] == 1 && cdb[2] == 0x80) {  // the page of the serial number
    Copy(data,
         "\0\x80\0\x04"
         "AB12",
         8);
    return 8;
  }
  return 0;
}

// Header, command, and places of sense bytes and data have to lie in the buffer, which is input and output.
Outcome PassThrough(UCHAR* buffer, ULONG input_bytes, ULONG output_bytes) {
  SCSI_PASS_THROUGH header;
  if (input_bytes < sizeof header) {
    return {STATUS_INVALID_PARAMETER, 0};
  }
  Copy(&header, buffer, sizeof header);
  if (header.Length != sizeof header) {
    return {STATUS_REVISION_MISMATCH, 0};
  }
  const ULONG_PTR data = header.DataBufferOffset;
  const bool data_fits = data >= header.SenseInfoOffset + header.SenseInfoLength && data <= output_bytes &&
                         header.DataTransferLength <= output_bytes - data;
  if (header.DataIn != SCSI_IOCTL_DATA_IN || header.CdbLength > sizeof header.Cdb || header.TimeOutValue == 0 ||
      header.SenseInfoOffset < sizeof header || !data_fits) {
    return {STATUS_INVALID_PARAMETER, 0};
  }
  UCHAR answer[kInquiryBytes] = {};
  const ULONG bytes = Answer(header.Cdb, answer);
  const ULONG sent = bytes < header.DataTransferLength ? bytes : header.DataTransferLength;
  Copy(buffer + data, answer, sent);
  reinterpret_cast<SCSI_PASS_THROUGH*>(buffer)->DataTransferLength = sent;
  reinterpret_cast<SCSI_PASS_THROUGH*>(buffer)->ScsiStatus = bytes != 0 ? 0 : 2;  // CHECK CONDITION
  return {STATUS_SUCCESS, data + sent};
}

// An answer of `bytes` that the output has to have room for.
Outcome Reply(void* buffer, ULONG output_bytes, const void* answer, ULONG bytes) {
  if (output_bytes < bytes) {
    return {STATUS_BUFFER_TOO_SMALL, 0};
  }
  Copy(buffer, answer, bytes);
  return {STATUS_SUCCESS, bytes};
}

Outcome Control(IRP* request) {
  const auto& control = IoGetCurrentIrpStackLocation(request)->Parameters.DeviceIoControl;
  void* buffer = request->AssociatedIrp.SystemBuffer;
  const ULONG input = control.InputBufferLength;
  const ULONG output = control.OutputBufferLength;
  if (control.IoControlCode == kAttachImage) {
    return AttachImage(buffer, input);
  }
  if (image == nullptr) {
    return {STATUS_NO_MEDIA_IN_DEVICE, 0};
  }
  switch (control.IoControlCode) {
    case IOCTL_SCSI_PASS_THROUGH:
      return PassThrough(static_cast<UCHAR*>(buffer), input, output);
    case IOCTL_DISK_GET_LENGTH_INFO:
      return Reply(buffer, output, &image_bytes, sizeof image_bytes);
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      const ULONG number[] = {FILE_DEVICE_DISK, 1, 0};
      return Reply(buffer, output, number, sizeof number);
    }
    case IOCTL_STORAGE_QUERY_PROPERTY: {
      UCHAR descriptor[40] = {};
      descriptor[28] = kBusTypeOfUsb;
      if (input < 12 || *static_cast<ULONG*>(buffer) != 0) {
        return {STATUS_INVALID_PARAMETER, 0};
      }
      return Reply(buffer, output, descriptor, sizeof descriptor);
    }
    case IOCTL_DISK_UPDATE_PROPERTIES:
      return {STATUS_SUCCESS, 0};
    default:
      return {STATUS_INVALID_DEVICE_REQUEST, 0};
  }
}

NTSTATUS WINAPI Dispatch(DEVICE_OBJECT* /*device*/, IRP* request) {
  Outcome outcome{STATUS_SUCCESS, 0};
  switch (IoGetCurrentIrpStackLocation(request)->MajorFunction) {
    case IRP_MJ_READ:
      outcome = Transfer(request, false);
      break;
    case IRP_MJ_WRITE:
      outcome = Transfer(request, true);
      break;
    case IRP_MJ_DEVICE_CONTROL:
      outcome = Control(request);
      break;
    default:  // create and close
      break;
  }
  request->IoStatus.Status = outcome.status;
  request->IoStatus.Information = outcome.bytes;
  IoCompleteRequest(request, IO_NO_INCREMENT);
  return outcome.status;
}

void WINAPI Unload(DRIVER_OBJECT* driver) {
  UNICODE_STRING link;
  RtlInitUnicodeString(&link, TEST_DRIVE_LINK);
  IoDeleteSymbolicLink(&link);
  IoDeleteDevice(driver->DeviceObject);
  if (image != nullptr) {
    ZwClose(image);
  }
}

}  // namespace

extern "C" NTSTATUS WINAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* /*registry*/) {
  constexpr UCHAR kFunctions[] = {IRP_MJ_CREATE, IRP_MJ_CLOSE, IRP_MJ_READ, IRP_MJ_WRITE, IRP_MJ_DEVICE_CONTROL};
  for (const UCHAR function : kFunctions) {
    driver->MajorFunction[function] = Dispatch;
  }
  driver->DriverUnload = Unload;
  UNICODE_STRING name;
  UNICODE_STRING link;
  RtlInitUnicodeString(&name, TEST_DRIVE_DEVICE);
  RtlInitUnicodeString(&link, TEST_DRIVE_LINK);
  DEVICE_OBJECT* device = nullptr;
  NTSTATUS status = IoCreateDevice(driver, 0, &name, FILE_DEVICE_DISK, FILE_REMOVABLE_MEDIA, FALSE, &device);
  if (NT_SUCCESS(status)) {
    device->Flags |= DO_BUFFERED_IO;
    device->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
    status = IoCreateSymbolicLink(&link, &name);
  }
  return status;
}
