#include "platform/host/host_options.h"

#include <gtest/gtest.h>

#include "platform/host/host_machine.h"
#include "support/run.h"

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
  const std::pair<const char*, std::uint64_t> rows[] = {
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
  for (const auto& [size, bytes] : rows) {
    EXPECT_EQ(ParsedDrive(std::string("1=a,size=") + size).traits.bytes, bytes) << size;
  }
  for (const std::string& size :
       Words("0 0K 511 513 1.4 1.K .5K 1,5K -1K +1K K 8GB 1e3 0x200 8388608T 99999999999999999999 1.5.1K")) {
    EXPECT_EQ(ParsedDrive("1=a,size=" + size).number, -1) << size;
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
  // The arguments, and what the message has to name.
  const std::pair<const char*, const char*> rows[] = {
      {"--", "--:"},
      {"--drive 1=a --x", "--x"},
      {"--drive", "--drive"},
      {"--seed 18446744073709551616", "18446744073709551616"},
      {"--no-wait", "--no-wait"},
      {"--drive 99=a", "99=a"},
      {"--drive 1", "1"},
      {"--drive 1=a --drive 1=b", "1=b"},
      {"--drive 1=a,", "1=a,"},
      {"--drive 1=a,SIZE=1K", "SIZE"},
      {"--drive 1=a,size", "size"},
      {"--drive 1=a,vendor=", "vendor"},
      {"--drive 1=a,fixed=1", "fixed"},
      {"--drive 1=a,bus=scsi", "bus=scsi"},
      {"--drive 1=a,size=1K,size=1K", "size"},
      {"--drive 1=", "1="},
      {"--drive 1=a,bad=1-", "bad=1-"},
      {"--drive 1=a,vendor=123456789", "vendor"},
      {"--drive 1=a,product=12345678901234567", "product"},
      {"--drive 1=a,revision=12345", "revision"},
      {"--drive 1=a,serial=123456789012345678901", "serial"},
      {"--drive 1=a,sector=504", "sector=504"},
      {"--drive 1=a,sector=65544", "sector=65544"},
      {"--drive 1=a,sector=513", "sector=513"},
      {"--drive 1=a,size=1K,sector=4096", "size="},
      {"--drive 1=a,bad=5-4", "bad=5-4"},
      {"--drive 1=a,size=1M,wrap=1K,absent=1K", "wrap="},
      {"--drive 1=a,size=1K,wrap=1.5K", "size="},
      {"--drive 1=a,absent=2K,size=1K", "size="},
      {"--drive 1=a,size=1M,cache=1K", "cache="},
  };
  for (const auto& [arguments, named] : rows) {
    HostOptions options;
    std::string problem;
    EXPECT_FALSE(ParseHostOptions(Words(arguments), options, problem)) << named;
    EXPECT_NE(problem.find(named), std::string::npos) << named << ": " << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos) << named;
  }
}

TEST(JoinCommandLine, GivesFileItsQuotesBack) {
  const std::pair<Arguments, const char*> rows[] = {
      {{"--skipped", "DRIVE=1", "Sure"}, "DRIVE=1 Sure"},
      {{"--skipped", "FILE=my disk.bin", "x"}, "FILE=\"my disk.bin\" x"},
      {{"--skipped", "file=a"}, "file=\"a\""},
      {{"--skipped", "FILE=\"a b\""}, "FILE=\"a b\""},
      {{"--skipped", "FILES=a", "a", "", "b"}, "FILES=a a  b"},
  };
  for (const auto& [arguments, line] : rows) {
    EXPECT_EQ(JoinCommandLine(arguments, 1), line);
  }
}

TEST(SplitCommandLine, SplitsAsTheCRuntime) {
  const std::pair<std::string, Arguments> rows[] = {
      {"", {""}},
      {"\"c:\\my dir\\a.exe\"  --drive 1=b  X", {"c:\\my dir\\a.exe", "--drive", "1=b", "X"}},
      {"a\\ \"1=my disk.img,size=8G\" \"\"", {"a\\", "1=my disk.img,size=8G", ""}},
      {"a x\\y\\\\z \\\"q\\\" \"e\\\\\" f", {"a", "x\\y\\\\z", "\"q\"", "e\\", "f"}},
      {"a \"b\"\"c\" d\\", {"a", "b\"c", "d\\"}},
      {"a \"open end", {"a", "open end"}},
  };
  for (const auto& [line, arguments] : rows) {
    Arguments texts;
    for (const LineArgument& argument : SplitCommandLine(line)) {
      texts.push_back(argument.text);
    }
    EXPECT_EQ(texts, arguments) << line;
  }
  const std::string line = "\"a b\"   --no-wait  FILE=\"x  y\" z";
  EXPECT_EQ(line.substr(SplitCommandLine(line).at(1).end), "FILE=\"x  y\" z");
}

TEST(BoxAnswer, WordsThatCount) {
  const struct {
    const char* line;
    int ok_cancel, yes_no_cancel;
  } rows[] = {
      {"ok", kAnswerOk, kAnswerCancel},        {"O", kAnswerOk, kAnswerCancel},
      {" Yes \r", kAnswerOk, kAnswerYes},      {"y", kAnswerOk, kAnswerYes},
      {"no", kAnswerCancel, kAnswerNo},        {"N", kAnswerCancel, kAnswerNo},
      {"", kAnswerCancel, kAnswerCancel},      {"okay", kAnswerCancel, kAnswerCancel},
      {"y e s", kAnswerCancel, kAnswerCancel}, {"cancel", kAnswerCancel, kAnswerCancel},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(BoxAnswer(row.line, kBoxOkCancel | kBoxExclamation), row.ok_cancel) << row.line;
    EXPECT_EQ(BoxAnswer(row.line, kBoxYesNoCancel), row.yes_no_cancel) << row.line;
    EXPECT_EQ(BoxAnswer(row.line, kBoxOk | kBoxStop), kAnswerOk) << row.line;
  }
}
