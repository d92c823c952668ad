// What scenario and boot tests share: running programs, scratch folders, bytes of image files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

struct RunResult {
  int exit_code = -1;  // 128 + signal where a signal ended the program
  std::string out;
  std::string err;
};

// Runs a program (found by PATH) to its end, with `input` as its standard input and no controlling terminal.
RunResult RunCommand(const std::vector<std::string>& command, std::string_view input = "");
// Runs the built program with these arguments.
RunResult RunKorventix(std::vector<std::string> arguments, std::string_view input = "");

// A folder of its own that is gone with the object.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path());
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  // The path of a file in the folder.
  std::string File(std::string_view name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// Bytes of a file; what lies behind its end is left out.
std::string ReadBytes(const std::string& file, std::uint64_t position, std::size_t bytes);
// Overwrites bytes of a file, which is created or grown as needed.
void WriteBytes(const std::string& file, std::uint64_t position, std::string_view bytes);
// Creates a sparse file, or sets the length of one.
void SetFileSize(const std::string& file, std::uint64_t bytes);
// Copies a stretch of a file into a file of its own, holes as holes.
void ExtractBytes(const std::string& file, std::uint64_t position, std::uint64_t bytes, const std::string& target);
// The words of a line, separated by single blanks.
std::vector<std::string> Words(const std::string& line);
// Runs a command line with the image as simulated drive 1; `drive_options` such as "size=8G,fixed".
RunResult RunOnDrive(const std::string& image, const std::string& drive_options, const std::string& line,
                     std::string_view input = "");
