#include "platform/host/host_machine.h"

#include <algorithm>
#include <array>
#include <thread>

namespace {

struct ErrorRow {
  std::uint32_t code;
  std::string_view message;
};

constexpr std::array kMessages = {
    ErrorRow{kErrorNone, "The operation completed successfully."},
    ErrorRow{kErrorFileNotFound, "The system cannot find the file specified."},
    ErrorRow{kErrorAccessDenied, "Access is denied."},
    ErrorRow{kErrorInvalidHandle, "The handle is invalid."},
    ErrorRow{kErrorWriteProtected, "The media is write protected."},
    ErrorRow{kErrorNotReady, "The device is not ready."},
    ErrorRow{kErrorCrc, "Data error (cyclic redundancy check)."},
    ErrorRow{kErrorSectorNotFound, "The drive cannot find the sector requested."},
    ErrorRow{kErrorSharingViolation, "The process cannot access the file because it is being used by another process."},
    ErrorRow{kErrorInvalidParameter, "The parameter is incorrect."},
    ErrorRow{kErrorDiskFull, "There is not enough space on the disk."},
    ErrorRow{kErrorIoDevice, "The request could not be performed because of an I/O device error."},
    ErrorRow{kErrorNegativeSeek, "An attempt was made to move the file pointer before the beginning of the file."},
};

// Without line breaks and blanks at both ends: a text goes to the console with a line break in front, and into the box
// with or without.
std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

}  // namespace

int BoxAnswer(std::string_view line, int buttons) {
  std::string word(Trimmed(line));
  std::transform(word.begin(), word.end(), word.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  const bool yes = word == "yes" || word == "y";
  const bool ok = word == "ok" || word == "o";
  const bool no = word == "no" || word == "n";
  switch (buttons & kBoxButtonMask) {
    case kBoxOk:
      return kAnswerOk;
    case kBoxYesNoCancel:
      return yes ? kAnswerYes : no ? kAnswerNo : kAnswerCancel;
    default:
      return yes || ok ? kAnswerOk : kAnswerCancel;
  }
}

std::uint64_t HostMachine::RandomSeed() {
  if (settings_.seed) {
    return *settings_.seed;
  }
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(since_epoch).count();
  constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15;  // 2^64 / golden ratio: process numbers reach the high bits
  return static_cast<std::uint64_t>(nanoseconds) ^ ProcessId() * kSpread;
}

void HostMachine::SuppressErrorBoxes() { SystemSuppressErrorBoxes(); }

void HostMachine::Exit(std::int32_t level) { EndProcess(level); }

bool HostMachine::WriteText(Handle output, std::string_view text) {
  if (output != kStandardOutput || output_closed_) {
    return Outcome(kErrorInvalidHandle);
  }
  last_text_ = text;
  return Outcome(WriteStandardOutput(text));
}

bool HostMachine::CloseStandardOutput() {
  const bool was_open = !output_closed_;
  output_closed_ = true;
  return Outcome(was_open ? kErrorNone : kErrorInvalidHandle);
}

int HostMachine::ShowBox(std::string_view text, int buttons, std::string_view title) {
  const bool printed = Trimmed(text) == Trimmed(last_text_);
  return AskUser(std::string(text), buttons, std::string(title), printed);
}

void HostMachine::CloseShellDialog(std::string_view title) { SystemCloseShellDialog(std::string(title)); }

void HostMachine::Wait(std::uint32_t milliseconds) {
  const std::chrono::milliseconds duration(milliseconds);
  if (settings_.no_wait) {
    skipped_ += duration;
  } else {
    std::this_thread::sleep_for(duration);
  }
}

std::uint32_t HostMachine::TickCount() {
  const auto since_start = std::chrono::steady_clock::now().time_since_epoch() + skipped_;
  return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

std::int64_t HostMachine::CalendarSeconds() {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch() + skipped_;
  return std::chrono::duration_cast<std::chrono::seconds>(since_epoch).count();
}

std::string HostMachine::DateTimeText() { return LocalDateTime(std::chrono::system_clock::now() + skipped_); }

// All of its messages are short and have no places to fill in.
std::string HostMachine::ErrorMessage(std::uint32_t code, const MessageMode& /*mode*/) {
  for (const ErrorRow& row : kMessages) {
    if (row.code == code) {
      return std::string(row.message) + "\r\n";
    }
  }
  return {};
}

bool HostMachine::FindFile(const std::string& path) {
  return Outcome(HostFile::Exists(path) ? kErrorNone : kErrorFileNotFound);
}

Handle HostMachine::OpenFile(const std::string& path, const OpenMode& mode) {
  ErrorCode code = kErrorNone;
  std::unique_ptr<HostFile> file = HostFile::Open(path, mode, code);
  if (!Outcome(code)) {
    return kInvalidHandle;
  }
  const Handle handle = NewHandle();
  files_[handle] = std::move(file);
  return handle;
}

HostFile* HostMachine::FileOf(Handle handle) {
  const auto found = files_.find(handle);
  return Outcome(found != files_.end() ? kErrorNone : kErrorInvalidHandle) ? found->second.get() : nullptr;
}

bool HostMachine::QueryFileSize(Handle file, std::uint64_t& bytes) {
  HostFile* open_file = FileOf(file);
  return open_file != nullptr && Outcome(open_file->QuerySize(bytes));
}

bool HostMachine::Close(Handle handle) {
  if (handle == kStandardOutput) {
    return CloseStandardOutput();
  }
  return Outcome(files_.erase(handle) != 0 ? kErrorNone : kErrorInvalidHandle);
}

bool HostMachine::Seek(Handle handle, std::int64_t position) {
  HostFile* file = FileOf(handle);
  return file != nullptr && Outcome(position < 0 ? kErrorNegativeSeek : file->Seek(position));
}

bool HostMachine::Read(Handle handle, ByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  HostFile* file = FileOf(handle);
  return file != nullptr && Outcome(file->Read(buffer, moved));
}

bool HostMachine::Write(Handle handle, ConstByteSpan buffer, std::uint32_t& moved) {
  moved = 0;
  HostFile* file = FileOf(handle);
  return file != nullptr && Outcome(file->Write(buffer, moved));
}

bool HostMachine::Flush(Handle handle) { return FileOf(handle) != nullptr && Outcome(kErrorAccessDenied); }

bool HostMachine::RemoveFile(const std::string& path) { return Outcome(HostFile::Remove(path)); }

std::string HostMachine::PathBesideProgram(const std::string& name) { return SystemPathBesideProgram(name); }

std::string HostMachine::ProgramFolder() { return TextOfLine(SystemProgramFolder()); }

Handle HostMachine::StartProcess(const std::string& /*command*/) {
  Outcome(kErrorFileNotFound);
  return kInvalidHandle;
}

bool HostMachine::QueryExitCode(Handle /*process*/, std::uint32_t& /*code*/) { return Outcome(kErrorInvalidHandle); }

std::vector<std::vector<std::string>> HostMachine::QueryManagement(const std::string& query, bool /*forward_only*/,
                                                                   const std::vector<std::string>& properties) {
  return SystemObjects(settings_.root, query, properties);
}

bool HostMachine::ReadRegistry(const std::string& /*path*/, std::string& /*value*/) {
  return Outcome(kErrorFileNotFound);
}
