// The copies between drive and file: a plan with its warnings, a question, and the transfer in chunks with progress
// lines. Starts and lengths are position expressions. Nothing is moved before the user agrees.
#pragma once

#include <cstdint>
#include <string>

// Copies are moved in chunks of so many bytes: 640 sectors.
inline constexpr std::int64_t kChunkBytes = 327'680;

// FILETOUSB: writes a stretch of the file named by FileName and FilePath to the drive, whose main volume is locked and
// dismounted meanwhile; the drive is remounted at the end. The length counts bytes; the last sector is filled up with
// what the buffer held. With OptNoWrite the file is read and nothing written. Ends the run: level 0, 1 for a missing
// file or a bad value, 2 when the user declines, 6 when the file can't be read, 7 when a write fails; what was written
// so far stays.
[[noreturn]] void FileToDriveCommand(const std::string& usb_start, const std::string& file_start,
                                     const std::string& length);

// USBTOFILE: writes a stretch of the drive to the file, which is created where it is missing and never cut. The length
// counts sectors. A file that is longer than the result keeps its tail, unless the user has it deleted first. With
// OptNoWrite the drive is read and nothing written, but the file is created. Ends the run: level 0, 1 for a bad value,
// 2 when the user declines, 6 when the file can't be written, 7 when a read fails.
[[noreturn]] void DriveToFileCommand(const std::string& usb_start, const std::string& file_start,
                                     const std::string& length);
