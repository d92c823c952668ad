#include "platform/simulated/drive_images.h"

#include <filesystem>

#include "platform/simulated/image_file.h"

namespace {

namespace fs = std::filesystem;

// A drive's file on its way: looked at, opened, then brought to its length.
struct Attachment {
  const DriveOption& option;
  std::unique_ptr<ImageFile> image;
  std::uint64_t old_bytes = 0;
  bool created = false;
};

fs::path PathOf(const std::string& file) { return fs::path(std::u8string(file.begin(), file.end())); }

// Opens the file where there is one, and checks its length against what is asked.
bool OpenExisting(Attachment& attachment, std::string& why) {
  const DriveOption& option = attachment.option;
  const fs::path path = PathOf(option.file);
  std::error_code error;
  if (fs::status(path, error).type() == fs::file_type::not_found) {
    why = "does not exist (size= creates it)";
    return option.file_bytes != 0;
  }
  const std::uintmax_t length = fs::file_size(path, error);
  const bool grows = !error && length < option.file_bytes;
  attachment.image = ImageFile::Open(option.file, grows || !option.traits.read_only, why);
  if (!attachment.image) {
    return false;
  }
  attachment.old_bytes = attachment.image->Size();
  if (option.file_bytes != 0 && attachment.old_bytes > option.file_bytes) {
    why = "is longer than " + std::to_string(option.file_bytes) + " bytes already";
    return false;
  }
  if (option.file_bytes == 0 && (attachment.old_bytes == 0 || attachment.old_bytes % option.traits.sector_bytes != 0)) {
    why = "is not made of whole sectors of " + std::to_string(option.traits.sector_bytes) + " bytes";
    return false;
  }
  return true;
}

// Creates the file where there is none, and grows it where it is too short.
bool BringToLength(Attachment& attachment, std::string& why) {
  const DriveOption& option = attachment.option;
  if (!attachment.image) {
    attachment.image = ImageFile::Create(option.file, why);
    attachment.created = attachment.image != nullptr;
  }
  if (!attachment.image) {
    return false;
  }
  return attachment.image->Size() >= option.file_bytes || attachment.image->Resize(option.file_bytes, why);
}

// Leaves the file as it was found.
void Undo(Attachment& attachment) {
  std::string ignored;  // the failure that led here is the one to report
  std::error_code ignored_error;
  if (attachment.created) {
    attachment.image.reset();
    fs::remove(PathOf(attachment.option.file), ignored_error);
  } else if (attachment.image && attachment.image->Size() != attachment.old_bytes) {
    attachment.image->Resize(attachment.old_bytes, ignored);
  }
}

}  // namespace

bool AttachImages(const std::vector<DriveOption>& options, std::vector<AttachedDrive>& drives, std::string& problem) {
  std::vector<Attachment> attachments;
  attachments.reserve(options.size());
  for (const DriveOption& option : options) {
    attachments.push_back({option, nullptr});
  }
  // All that exist are looked at before the first one changes.
  for (auto* step : {OpenExisting, BringToLength}) {
    for (Attachment& attachment : attachments) {
      std::string why;
      if (!step(attachment, why)) {
        problem = "--drive " + attachment.option.argument + ": the file " + why;
        for (Attachment& each : attachments) {
          Undo(each);
        }
        return false;
      }
    }
  }
  for (Attachment& attachment : attachments) {
    const DriveOption& option = attachment.option;
    drives.push_back({option.number, std::make_unique<SimulatedDrive>(option.traits, std::move(attachment.image))});
  }
  return true;
}
