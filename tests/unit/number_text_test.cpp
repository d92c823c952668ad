#include "console/number_text.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "console/sector_dump.h"
#include "disk/sector_io.h"

namespace {

TEST(PlainNumber, HasNoExponentAndNoMoreThanFifteenDigits) {
  const std::vector<std::pair<double, std::string>> cases{
      {0, "0"},
      {8004304896.0, "8004304896"},
      {999999999999999.0, "999999999999999"},
      {-2.25, "-2.25"},
      {0.1, "0.1"},
      {15601100.0 / 63 / 255, "971.123560535325"},
      {1.0 / 1048576, "0.00000095367431640625"},
  };
  for (const auto& [value, text] : cases) {
    EXPECT_EQ(PlainNumber(value), text);
  }
  EXPECT_EQ(PlainNumber(UINT64_MAX), "18446744073709551615");
}

TEST(NumberText, GroupsAndCuts) {
  const std::vector<std::tuple<double, std::string, std::string>> cases{
      {999, "", "999"},
      {1000, "", "1,000"},
      {1234567, "", "1,234,567"},
      {-1000, "", "-1,000"},
      {-999, "", "-999"},
      {1536.25, ".0#", "1,536.25"},
      {1536.999, ".0", "1,536.9"},
      {1536.25, "##################0", "1,536"},
      {12.004, ".0#", "12"},
      {12.5, "#,##0.0###", "12.5"},
      {0.123456, ".0###", "0.1234"},
  };
  for (const auto& [value, format, text] : cases) {
    EXPECT_EQ(NumberText(value, format), text) << format;
  }
}

TEST(SizeText, TurnsAtAThousand) {
  const std::vector<std::tuple<double, int, std::string>> cases{
      {999, 0, "999 Bytes"},     {1000, 1, "0.9 KiB"},   {1'024'000, 1, "1,000 KiB"},
      {1'024'001, 1, "0.9MiB"},  {1'048'576, 0, "1MiB"}, {1.5 * 1'073'741'824, 2, "1.5GiB"},
      {3e12, 3, "2,793.967GiB"},
  };
  for (const auto& [value, decimals, text] : cases) {
    EXPECT_EQ(SizeText(value, decimals), text) << value;
  }
}

TEST(Columns, AreCutAndFilled) {
  EXPECT_EQ(HexText(0), "0");
  EXPECT_EQ(HexText(0x1FFFFFFFFFFFFF), "1FFFFFFFFFFFFF");
  EXPECT_EQ(HexPad(255, 4), "00FF");
  EXPECT_EQ(HexPad(4096, 2), "00");
  EXPECT_EQ(PadText("abc", '.', 5, false), "..abc");
  EXPECT_EQ(PadText("abcdef", '.', 4, false), "cdef");
  EXPECT_EQ(PadText("abcdef", '.', 4, true), "abcd");
  EXPECT_EQ(CutAtNul(std::string("  ab \0cd ", 9)), "ab ");
  EXPECT_EQ(CutAtNul(std::string("\0cd", 3)), "");
}

TEST(UpperCase, FollowsTheCodePage) {
  EXPECT_EQ(UpperCase("az\xE4\xF6\xFC\xE9\xFE"), "AZ\xC4\xD6\xDC\xC9\xDE");
  EXPECT_EQ(UpperCase("\x9A\x9C\x9E\xFF"), "\x8A\x8C\x8E\x9F");
  const std::string unchanged = "\x83\xB5\xDF\xF7\xD7{[\x80\x9D";
  EXPECT_EQ(UpperCase(unchanged), unchanged);
}

TEST(DumpSector, ShowsLinesAndHeadings) {
  std::vector<std::uint8_t> buffer(1024);
  for (std::size_t i = 0; i < 16; ++i) {
    buffer[i] = static_cast<std::uint8_t>(0x3A + i * 5);
  }
  LastSectorLba = 2048;
  LastTransferBytes = 1024;
  DumpText.clear();
  DumpSector(buffer, 0);
  EXPECT_NE(DumpText.find("================\r\n\r\n\r\n[Sector 2048]  1MB\r\n"
                          "0000 3A 3F 44 49 4E 53 58 5D - 62 67 6C 71 76 7B 80 85  :?DINSX] bglqv{..\r\n0010 "),
            std::string::npos);
  EXPECT_NE(DumpText.find("........ ........\r\n\r\n[Sector 2049]  1MB\r\n0200 "), std::string::npos);
  // An incomplete line has no characters; more than the buffer holds is never shown.
  DumpText.clear();
  DumpSector(ConstByteSpan(buffer).first(3), 512);
  EXPECT_NE(DumpText.find("\r\n0000 3A 3F 44 \r\n\r\n"), std::string::npos);
  DumpText.clear();
}

}  // namespace
