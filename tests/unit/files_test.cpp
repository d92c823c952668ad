#include "disk/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "support/machine_double.h"
#include "support/run.h"

namespace {

constexpr OpenMode kForReading = {kAccessRead, kShareRead, kOpenExisting, kFlagNormal};
constexpr OpenMode kForItsLength = {kAccessReadAttributes, kShareRead, kOpenExisting, 0};
constexpr std::uint64_t kAbove4GiB = 5368709121;  // 5 GiB and a byte

class FilesTest : public ::testing::Test {
 protected:
  FilesTest() { port = &machine; }

  // Opens a file of the folder and closes it again; the error code.
  std::uint32_t OpenCode(const std::string& name, const OpenMode& mode) {
    const Handle handle = machine.OpenFile(folder.File(name), mode);
    const std::uint32_t code = machine.LastError();
    EXPECT_EQ(handle == kInvalidHandle, code != kErrorNone) << name;
    machine.Close(handle);
    return code;
  }

  ScratchFolder folder;
  MachineDouble machine{{}};
};

}  // namespace

TEST_F(FilesTest, ANameInAnotherCaseStandsForTheOnlyOneThatThereIs) {
  const struct {
    const char* label;
    std::vector<std::string> there;  // each as long as its place in the list, from 1
    const char* asked;
    std::uint64_t bytes;  // 0: not found
  } rows[] = {
      {"one in another case", {"b.bin", "a.bin"}, "A.Bin", 2},
      {"as typed, beside another", {"a.bin", "A.BIN"}, "A.BIN", 2},
      {"two in other cases", {"a.bin", "A.BIN"}, "A.bin", 0},
      {"accents", {"\xC3\xA9t\xC3\xA9 \xC5\x93\xC3\xBF"}, "\xC3\x89T\xC3\x89 \xC5\x92\xC5\xB8", 1},
      {"multiplication is no division", {"\xC3\xB7"}, "\xC3\x97", 0},
      {"letters outside the code page are not alike", {"\xD0\x96.bin"}, "\xD0\xA9.BIN", 0},
      {"an invalid byte stays", {"\xFE.bin"}, "\xFE.BIN", 1},
  };
  for (const auto& row : rows) {
    const ScratchFolder place;
    for (const std::string& name : row.there) {
      WriteBytes(place.File(name), 0, std::string(static_cast<std::size_t>(&name - row.there.data()) + 1, 'x'));
    }
    EXPECT_EQ(FileExists(place.File(row.asked)), row.bytes != 0) << row.label;
    EXPECT_EQ(FileLength(place.File(row.asked)), row.bytes) << row.label;
  }
}

TEST_F(FilesTest, OnlyRegularFilesAreOpened) {
  WriteBytes(folder.File("file"), 0, "text");
  mkdir(folder.File("folder").c_str(), 0777);
  mkfifo(folder.File("pipe").c_str(), 0666);
  symlink("file", folder.File("link").c_str());
  symlink("/dev/zero", folder.File("device").c_str());
  symlink("gone", folder.File("dangling").c_str());
  const struct {
    const char* name;
    bool exists;
    std::uint32_t code;
  } rows[] = {
      {"file", true, kErrorNone},
      {"link", true, kErrorNone},
      {"folder", true, kErrorAccessDenied},
      {"pipe", true, kErrorAccessDenied},
      {"device", true, kErrorAccessDenied},
      {"dangling", false, kErrorFileNotFound},
      {"file/file", false, kErrorFileNotFound},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(FileExists(folder.File(row.name)), row.exists) << row.name;
    EXPECT_EQ(OpenCode(row.name, kForReading), row.code) << row.name;
    EXPECT_EQ(OpenCode(row.name, kForItsLength), row.code) << row.name;
    EXPECT_EQ(FileLength(folder.File(row.name)), row.code == kErrorNone ? 4U : 0U) << row.name;
  }
  EXPECT_FALSE(FileExists(""));
  EXPECT_EQ(FileLength(""), 0U);
}

TEST_F(FilesTest, ReadsUpToTheEndOfAFileAbove4GiB) {
  SetFileSize(folder.File("big"), kAbove4GiB - 3);
  WriteBytes(folder.File("big"), kAbove4GiB - 3, "end");
  EXPECT_EQ(FileLength(folder.File("big")), kAbove4GiB);
  const Handle file = machine.OpenFile(folder.File("big"), kForReading);
  for (const auto& [position, read] : {std::pair(kAbove4GiB - 4, std::string("\0end", 4)), {kAbove4GiB + 512, ""}}) {
    std::array<std::uint8_t, 8> buffer{};
    std::uint32_t moved = 99;
    ASSERT_TRUE(machine.Seek(file, static_cast<std::int64_t>(position))) << position;
    ASSERT_TRUE(machine.Read(file, buffer, moved)) << position;
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + moved), read) << position;
  }
  EXPECT_FALSE(machine.Seek(file, -1));
  EXPECT_EQ(machine.LastError(), kErrorNegativeSeek);
}

TEST(OriginalText, IsWhatWasTypedForThoseCharacters) {
  const struct {
    const char* label;
    std::vector<std::string> arguments;
    std::string text;  // as the program sees it
    std::size_t first, characters;
    std::string original;
  } rows[] = {
      {"quotes that were added count", {"X", "FILE=a b"}, "X FILE=\"a b\"", 7, 5, "\"a b\""},
      {"behind an accent", {"\xC3\xA9", "ab"}, "\xE9 ab", 2, 2, "ab"},
      {"three and four bytes", {"\xE2\x82\xAC\xF0\x9F\x98\x80z"}, "\x80?z", 0, 2, "\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"no character of the code page", {"a\xD0\x96z"}, "a?z", 1, 1, "\xD0\x96"},
      {"invalid bytes", {"a\xFF\xC3z\xC3"}, "a??z?", 1, 2, "\xFF\xC3"},
      {"a cut sequence at the end", {"z\xE2\x82"}, "z??", 1, 2, "\xE2\x82"},
      {"up to the end", {"abc"}, "abc", 1, 99, "bc"},
      {"behind the end", {"abc"}, "abc", 4, 1, ""},
  };
  for (const auto& row : rows) {
    MachineDouble machine({}, JoinCommandLine(row.arguments, 0));
    EXPECT_EQ(machine.CommandLine(), row.text) << row.label;
    EXPECT_EQ(machine.OriginalText(row.first, row.characters), row.original) << row.label;
  }
}
