#include "boot/ntfs_drive.h"

#include <gtest/gtest.h>

#include "boot/exfat_boot_code.h"
#include "boot/ntfs_structures.h"
#include "format/images/boot_images.h"

namespace {

constexpr std::size_t kVolumesOwn = 0x54;  // bytes of the boot sector that the boot code doesn't replace
constexpr std::size_t kSectorBytesField = 0x0B;
constexpr std::size_t kClusterField = 0x0D;
constexpr std::size_t kTotalField = 0x28;

std::string BootCode(bool for_ntldr) {
  if (for_ntldr) {
    NTLDR_NTFS_Code();
  } else {
    Bootmgr_NTFS_Code();
  }
  const std::size_t sectors = for_ntldr ? 7 : 9;
  return {BinArray.begin(), BinArray.begin() + static_cast<std::ptrdiff_t>(sectors * kSectorBytes)};
}

// Creates files through a mount; ends only when the file system has let go of the volume.
void Fill(const ScratchFolder& folder, const std::string& volume, const std::vector<NtfsFile>& files) {
  constexpr const char* kScript =
      "ntfs-3g -o no_detach \"$1\" \"$2\" & pid=$!\n"
      "until mountpoint -q \"$2\"; do kill -0 $pid || exit 1; sleep 0.01; done\n"
      "while read -r name; do read -r from; if [ -n \"$from\" ]; then cp \"$from\" \"$2/$name\"; "
      "else : > \"$2/$name\"; fi || echo failed; done\n"
      "fusermount3 -u \"$2\"; wait $pid\n";
  const std::string mount = folder.File("mount");
  std::filesystem::create_directory(mount);
  std::string list;
  for (const NtfsFile& file : files) {
    const std::string source = file.bytes.empty() ? "" : folder.File("file" + std::to_string(list.size()));
    if (!file.bytes.empty()) {
      WriteBytes(source, 0, file.bytes);
    }
    list += file.name + "\n" + source + "\n";
  }
  const RunResult filled = RunCommand({"timeout", "60", "sh", "-c", kScript, "fill", volume, mount}, list);
  EXPECT_TRUE(filled.exit_code == 0 && filled.out.empty())
      << "the volume can't be mounted or written through ntfs-3g: " << filled.out << filled.err;
}

// Makes 4 KiB records, which mkntfs gives to drives with such sectors, those of a drive with sectors of 512 bytes.
void TakeSectorsOf512Bytes(const std::string& volume, const NtfsDrive& drive) {
  WriteBytes(volume, kSectorBytesField, Little(kSectorBytes, 2));
  WriteBytes(volume, kClusterField, Little(drive.layout.cluster_bytes / kSectorBytes, 1));
  WriteBytes(volume, kTotalField, Little(drive.bytes / kSectorBytes - 8, 8));
}

// Copies a volume to its place on the drive, holes as holes; the file is gone then.
void PutVolume(const NtfsDrive& drive, const std::string& volume) {
  if (drive.layout.first_lba == 0) {
    return std::filesystem::rename(volume, drive.image);
  }
  const RunResult copied =
      RunCommand({"dd", "if=" + volume, "of=" + drive.image, "bs=64K", "conv=notrunc,sparse", "oflag=seek_bytes",
                  "seek=" + std::to_string(drive.ClusterLba(0) * kSectorBytes)});
  EXPECT_EQ(copied.exit_code, 0) << copied.err;
  std::filesystem::remove(volume);
}

}  // namespace

NtfsDrive::NtfsDrive(const NtfsLayout& wanted, const std::vector<NtfsFile>& files)
    : layout(wanted), image(folder.File("drive.img")), bytes(wanted.mib << 20U) {
  const std::string volume = folder.File("volume.img");
  SetFileSize(volume, bytes);
  const bool large_records = layout.record_bytes > 1024;
  const RunResult made =
      RunCommand({"mkntfs", "-q", "-Q", "-F", "-T", "-p", std::to_string(layout.first_lba), "-H", "255", "-S", "63",
                  "-s", large_records ? "4096" : "512", "-c", std::to_string(layout.cluster_bytes), volume});
  EXPECT_EQ(made.exit_code, 0) << made.out << made.err;
  if (large_records) {
    TakeSectorsOf512Bytes(volume, *this);
  }
  const std::string code = BootCode(layout.for_ntldr);
  WriteBytes(volume, kVolumesOwn, code.substr(kVolumesOwn));
  Fill(folder, volume, files);
  const std::uint64_t sectors = bytes / kSectorBytes;
  if (layout.first_lba != 0) {
    SetFileSize(image, (layout.first_lba + sectors) * kSectorBytes);
    WriteBytes(image, 0,
               MasterBootRecord(static_cast<std::uint32_t>(layout.first_lba), static_cast<std::uint32_t>(sectors)));
  }
  PutVolume(*this, volume);
  mft = RunsOfMft(*this);
}

NtfsDrive::NtfsDrive(const std::string& size, const std::string& words, const std::vector<NtfsFile>& files)
    : image(folder.File("drive.img")) {
  const RunResult prepared = RunOnDrive(image, "size=" + size, "DRIVE=1 SURE NTFS " + words);
  EXPECT_EQ(prepared.exit_code, 0) << prepared.out << prepared.err;
  const std::string sector = ReadBytes(image, ClusterLba(0) * kSectorBytes, kSectorBytes);
  layout.cluster_bytes = Number(sector.substr(kClusterField, 1)) * kSectorBytes;
  layout.for_ntldr = words.starts_with("NTLDR");
  bytes = (std::uint64_t{Number(sector.substr(kTotalField, 4))} + 1) * kSectorBytes;
  const std::string volume = folder.File("volume.img");
  ExtractBytes(image, ClusterLba(0) * kSectorBytes, bytes, volume);
  Fill(folder, volume, files);
  PutVolume(*this, volume);
  mft = RunsOfMft(*this);
}

void SetBootField(const NtfsDrive& drive, std::size_t offset, std::string_view bytes) {
  WriteBytes(drive.image, drive.ClusterLba(0) * kSectorBytes + offset, bytes);
}

std::string BytesByOthers(const NtfsDrive& drive, const std::string& name) {
  const std::string volume = drive.folder.File("volume.img");
  ExtractBytes(drive.image, drive.ClusterLba(0) * kSectorBytes, drive.bytes, volume);
  const RunResult read = RunCommand({"ntfscat", "-q", "-f", volume, name});
  std::filesystem::remove(volume);
  return read.out + read.err;
}
