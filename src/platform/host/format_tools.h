// The tools of a POSIX system that make the file systems which the program leaves to the platform: mkfs.exfat and
// mkntfs.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

// Statuses of the format service that the machines built on these tools know.
inline constexpr std::uint32_t kFormatWriteProtected = 0x07;
inline constexpr std::uint32_t kFormatVolumeInUse = 0x08;  // or gone
inline constexpr std::uint32_t kFormatCompleted = 0x0B;

struct FormatJob {
  std::string file_system;         // "EXFAT" or "NTFS"
  std::string label;               // in code page 1252; empty for none
  std::uint64_t first_sector = 0;  // of the volume on its drive, in sectors of 512 bytes
  std::uint32_t heads = 255;
  std::uint32_t sectors_per_track = 63;
};

// Sets the job's geometry to the one that the table in a drive's sector 0 was made for, as the end of the volume's
// entry shows it; without such an entry it stays.
void SetGeometry(FormatJob& job, ConstByteSpan sector);

// Makes an empty file system, quickly and with the tool's own choice of the cluster size, on the file or block device
// behind `descriptor`, which is open for reading and writing, lies above the standard ones and is as long as the
// volume. The tool opens it anew, of a block device exclusively. It is looked for in the absolute folders of PATH,
// and then in /usr/sbin and /sbin where PATH names /usr/bin or /bin. It is silent, inherits no other descriptor and
// ends with this process. The volume knows its place on the drive: exFAT in both boot regions, NTFS with its geometry.
// False where the tool is missing or fails, whatever is on the volume then.
bool MakeFileSystem(int descriptor, const FormatJob& job);
