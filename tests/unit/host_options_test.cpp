#include "platform/host/host_options.h"

#include <gtest/gtest.h>

#include "platform/host/host_machine.h"

namespace {

using Arguments = std::vector<std::string>;

// The one drive of "--drive" + argument; a drive number of -1 when it is refused.
DriveOption ParsedDrive(const std::string& argument) {
  HostOptions options;
  std::string problem;
  DriveOption refused;
  refused.number = -1;
  return ParseHostOptions({"--drive", argument}, options, problem) ? options.drives.at(0) : refused;
}

}  // namespace

TEST(ParseHostOptions, EndsAtTheFirstOtherArgument) {
  HostOptions options;
  std::string problem;
  ASSERT_TRUE(ParseHostOptions({"--seed", "18446744073709551615", "--drive", "98=a", "--no-wait", "-x", "--bogus"},
                               options, problem));
  EXPECT_EQ(options.consumed, 5U);
  EXPECT_EQ(options.seed, 18446744073709551615U);
  EXPECT_TRUE(options.no_wait);
  EXPECT_FALSE(options.help || options.version);
  ASSERT_EQ(options.drives.size(), 1U);
  EXPECT_EQ(options.drives[0].number, 98);
}

TEST(ParseHostOptions, Sizes) {
  struct Row {
    const char* size;
    std::uint64_t bytes;
  };
  const Row rows[] = {
      {"512", 512},
      {"8G", 8589934592},
      {"8g", 8589934592},
      {"1.5K", 1536},
      {"1.999K", 1536},
      {"0.0005m", 512},
      {"7.45G", 7999376384},
      {"0.000000000465661287307739257812501T", 512},  // 512 / 2^40, and a little
      {"1024.7", 1024},
      {"9223372036854775296", 9223372036854775296U},
      {"8388607.9999999999999999T", 9223372036854775296U},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(ParsedDrive(std::string("1=a,size=") + row.size).traits.bytes, row.bytes) << row.size;
  }
  for (const char* size : {"0",
                           "0K",
                           "511",
                           "513",
                           "1.4",
                           "0.4K",
                           "1.K",
                           ".5K",
                           "1,5K",
                           "-1K",
                           "+1K",
                           "K",
                           "8GB",
                           "8 G",
                           "1e3",
                           "0x200",
                           "9223372036854775808",
                           "8388608T",
                           "99999999999999999999",
                           "1.5.1K"}) {
    EXPECT_EQ(ParsedDrive(std::string("1=a,size=") + size).number, -1) << size;
  }
}

TEST(ParseHostOptions, KeysOfADrive) {
  const DriveOption drive = ParsedDrive(
      "7=dir/my disk=1.img,sector=4096,size=8G,wrap=1.0001G,cache=8K,bus=ata,fixed,vendor=ACME,product=P\xC3\xA4,"
      "revision=2.01,serial=12345678901234567890,bad=5,badread=8-9,badwrite=0-0,bad=6-7,readonly");
  EXPECT_EQ(drive.number, 7);
  EXPECT_EQ(drive.file, "dir/my disk=1.img");
  EXPECT_EQ(drive.traits.bytes, 8589934592U);
  EXPECT_EQ(drive.traits.sector_bytes, 4096U);
  EXPECT_EQ(drive.traits.wrap_bytes, 1073848320U);  // 1.0001 x 2^30 = 1073849198.18, less 878 over a sector
  EXPECT_EQ(drive.file_bytes, drive.traits.wrap_bytes);
  EXPECT_EQ(drive.traits.cache_bytes, 8192U);
  EXPECT_FALSE(drive.traits.usb);
  EXPECT_FALSE(drive.traits.removable);
  EXPECT_TRUE(drive.traits.read_only);
  EXPECT_EQ(drive.traits.vendor, "ACME");
  EXPECT_EQ(drive.traits.product, "P\xE4");
  EXPECT_EQ(drive.traits.revision, "2.01");
  EXPECT_EQ(drive.traits.serial, "12345678901234567890");
  ASSERT_EQ(drive.traits.bad_reads.size(), 3U);
  EXPECT_EQ(drive.traits.bad_reads[1].first, 8U);
  EXPECT_EQ(drive.traits.bad_reads[1].last, 9U);
  ASSERT_EQ(drive.traits.bad_writes.size(), 3U);
  EXPECT_EQ(drive.traits.bad_writes[1].last, 0U);
}

TEST(ParseHostOptions, ACounterfeitClaimsItsOwnSizeAtLeast) {
  EXPECT_EQ(ParsedDrive("1=a,size=1K,wrap=1K").traits.bytes, 1024U);
  const DriveOption unclaimed = ParsedDrive("1=a,absent=1K");
  EXPECT_EQ(unclaimed.traits.bytes, 0U);
  EXPECT_EQ(unclaimed.file_bytes, 1024U);
}

TEST(ParseHostOptions, RefusesBadOptions) {
  struct Row {
    const char* label;
    Arguments arguments;
    const char* named;  // what the message has to name
  };
  const Row rows[] = {
      {"unknown", {"--frob"}, "--frob"},
      {"two hyphens alone", {"--"}, "--:"},
      {"unknown behind a good one", {"--drive", "1=a", "--x"}, "--x"},
      {"value missing", {"--drive"}, "--drive"},
      {"seed missing", {"--seed"}, "--seed"},
      {"seed of 65 bits", {"--seed", "18446744073709551616"}, "18446744073709551616"},
      {"seed below 0", {"--seed", "-1"}, "-1"},
      {"no-wait alone", {"--no-wait"}, "--no-wait"},
      {"number of 99", {"--drive", "99=a"}, "99=a"},
      {"no number", {"--drive", "=a"}, "=a"},
      {"no file", {"--drive", "1="}, "1="},
      {"no equals sign", {"--drive", "1"}, "1"},
      {"number twice", {"--drive", "1=a", "--drive", "1=b"}, "1=b"},
      {"unknown key", {"--drive", "1=a,colour=red"}, "colour"},
      {"empty key", {"--drive", "1=a,"}, "1=a,"},
      {"key in capitals", {"--drive", "1=a,SIZE=1K"}, "SIZE"},
      {"key without value", {"--drive", "1=a,size"}, "size"},
      {"key with an empty value", {"--drive", "1=a,vendor="}, "vendor"},
      {"value where none belongs", {"--drive", "1=a,fixed=1"}, "fixed"},
      {"key twice", {"--drive", "1=a,size=1K,size=1K"}, "size"},
      {"bus", {"--drive", "1=a,bus=scsi"}, "bus=scsi"},
      {"vendor of 9", {"--drive", "1=a,vendor=123456789"}, "vendor"},
      {"product of 17", {"--drive", "1=a,product=12345678901234567"}, "product"},
      {"revision of 5", {"--drive", "1=a,revision=12345"}, "revision"},
      {"serial of 21", {"--drive", "1=a,serial=123456789012345678901"}, "serial"},
      {"sector below 512", {"--drive", "1=a,sector=504"}, "sector=504"},
      {"sector above 65536", {"--drive", "1=a,sector=65544"}, "sector=65544"},
      {"sector no multiple of 8", {"--drive", "1=a,sector=513"}, "sector=513"},
      {"size against a later sector", {"--drive", "1=a,size=1K,sector=4096"}, "size="},
      {"bad backwards", {"--drive", "1=a,bad=5-4"}, "bad=5-4"},
      {"bad of three", {"--drive", "1=a,bad=1-2-3"}, "bad=1-2-3"},
      {"bad without end", {"--drive", "1=a,bad=1-"}, "bad=1-"},
      {"two counterfeits", {"--drive", "1=a,size=1M,wrap=1K,absent=1K"}, "wrap="},
      {"wrap above size", {"--drive", "1=a,size=1K,wrap=1.5K"}, "size="},
      {"absent above size", {"--drive", "1=a,absent=2K,size=1K"}, "size="},
      {"cache of an honest drive", {"--drive", "1=a,size=1M,cache=1K"}, "cache="},
  };
  for (const Row& row : rows) {
    HostOptions options;
    std::string problem;
    EXPECT_FALSE(ParseHostOptions(row.arguments, options, problem)) << row.label;
    EXPECT_NE(problem.find(row.named), std::string::npos) << row.label << ": " << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos) << row.label;
  }
}

TEST(JoinCommandLine, GivesFileItsQuotesBack) {
  struct Row {
    Arguments arguments;
    const char* line;
  };
  const Row rows[] = {
      {{"--skipped"}, ""},
      {{"--skipped", "DRIVE=1", "Sure"}, "DRIVE=1 Sure"},
      {{"--skipped", "FILE=my disk.bin", "x"}, "FILE=\"my disk.bin\" x"},
      {{"--skipped", "file=a"}, "file=\"a\""},
      {{"--skipped", "FILE=\"a b\""}, "FILE=\"a b\""},
      {{"--skipped", "FILE=\xC3\xA9"}, "FILE=\"\xC3\xA9\""},
      {{"--skipped", "FILES=a", "a", "", "b"}, "FILES=a a  b"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(JoinCommandLine(row.arguments, 1), row.line);
  }
}

TEST(SplitCommandLine, SplitsAsTheCRuntime) {
  struct Row {
    std::string line;
    Arguments arguments;
  };
  const Row rows[] = {
      {"", {""}},
      {"a.exe", {"a.exe"}},
      {"\"c:\\my dir\\a.exe\"  --drive 1=b  X", {"c:\\my dir\\a.exe", "--drive", "1=b", "X"}},
      {"a\\ \"1=my disk.img,size=8G\" \"\"", {"a\\", "1=my disk.img,size=8G", ""}},
      {"a x\\y\\\\z \\\"q\\\" \"e\\\\\" f", {"a", "x\\y\\\\z", "\"q\"", "e\\", "f"}},
      {"a \"b\"\"c\" d\\", {"a", "b\"c", "d\\"}},
      {"a \"open end", {"a", "open end"}},
  };
  for (const Row& row : rows) {
    Arguments texts;
    for (const LineArgument& argument : SplitCommandLine(row.line)) {
      texts.push_back(argument.text);
    }
    EXPECT_EQ(texts, row.arguments) << row.line;
  }
  const std::string line = "\"a b\"   --no-wait  FILE=\"x  y\" z";
  EXPECT_EQ(line.substr(SplitCommandLine(line).at(1).end), "FILE=\"x  y\" z");
}

TEST(BoxAnswer, WordsThatCount) {
  struct Row {
    const char* line;
    int ok_cancel;
    int yes_no_cancel;
  };
  const Row rows[] = {
      {"ok", kAnswerOk, kAnswerCancel},        {"O", kAnswerOk, kAnswerCancel},
      {" Yes \r", kAnswerOk, kAnswerYes},      {"y", kAnswerOk, kAnswerYes},
      {"no", kAnswerCancel, kAnswerNo},        {"N", kAnswerCancel, kAnswerNo},
      {"", kAnswerCancel, kAnswerCancel},      {"okay", kAnswerCancel, kAnswerCancel},
      {"y e s", kAnswerCancel, kAnswerCancel}, {"cancel", kAnswerCancel, kAnswerCancel},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(BoxAnswer(row.line, kBoxOkCancel | kBoxExclamation), row.ok_cancel) << row.line;
    EXPECT_EQ(BoxAnswer(row.line, kBoxYesNoCancel), row.yes_no_cancel) << row.line;
    EXPECT_EQ(BoxAnswer(row.line, kBoxOk | kBoxStop), kAnswerOk) << row.line;
  }
}
