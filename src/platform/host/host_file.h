// One open file of the system. One source per system.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

class HostFile {
 public:
  // As FindFile, RemoveFile and OpenFile of the port; null with the reason in `code`.
  static bool Exists(const std::string& path);
  static ErrorCode Remove(const std::string& path);
  static std::unique_ptr<HostFile> Open(const std::string& path, const OpenMode& mode, ErrorCode& code);
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;
  ~HostFile();

  // `position` is not negative.
  ErrorCode Seek(std::int64_t position) const;
  ErrorCode Read(ByteSpan buffer, std::uint32_t& moved) const;
  ErrorCode Write(ConstByteSpan buffer, std::uint32_t& moved) const;
  ErrorCode QuerySize(std::uint64_t& bytes) const;

 private:
  explicit HostFile(std::intptr_t native) : native_(native) {}

  std::intptr_t native_;  // the system's descriptor or handle
};
