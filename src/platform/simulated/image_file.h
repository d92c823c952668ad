// A regular file as the store of a simulated drive, locked against every other opener for as long as it is open.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/simulated/store.h"

class ImageFile : public Store {
 public:
  // Opens a regular file that exists, links followed, or creates one that doesn't, and locks it; `file` is UTF-8. Null
  // on failure, with the reason in `problem`. A device is never opened.
  static std::unique_ptr<ImageFile> Open(const std::string& file, bool writable, std::string& problem);
  static std::unique_ptr<ImageFile> Create(const std::string& file, std::string& problem);
  ~ImageFile() override;

  // Grows the file by a hole, or cuts it. False on failure, with the reason in `problem`.
  bool Resize(std::uint64_t bytes, std::string& problem);

  std::uint64_t Size() const override { return bytes_; }
  ErrorCode Read(std::uint64_t position, ByteSpan buffer) override;
  // Zeros that fall into a hole of the file leave the hole.
  ErrorCode Write(std::uint64_t position, ConstByteSpan bytes) override;
  ErrorCode Flush() override;

 private:
  explicit ImageFile(std::intptr_t native) : native_(native) {}
  // Locks the new file and takes its length.
  bool Claim(std::string& problem);

  std::intptr_t native_;  // the system's descriptor or handle
  std::uint64_t bytes_ = 0;
};
