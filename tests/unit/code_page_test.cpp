#include "platform/host/code_page.h"

#include <gtest/gtest.h>

TEST(CodePage, ToCodePage) {
  const struct {
    const char* label;
    std::string utf8, text;
  } rows[] = {
      {"plain letters", "DRIVE=1 \x7F", "DRIVE=1 \x7F"},
      {"two bytes, Latin letters", "\xC3\xA9\xC2\xA0\xC3\xBF", "\xE9\xA0\xFF"},
      {"euro sign, the first special one", "\xE2\x82\xAC", "\x80"},
      {"last special one", "\xC5\xB8", "\x9F"},
      {"a control character that an undefined byte would be", "\xC2\x81", "?"},
      {"not in the code page: Greek, a line drawing, an emoji", "\xCE\xA9\xE2\x94\x80\xF0\x9F\x98\x80", "???"},
      {"each invalid byte on its own", "\xFF\x80z", "??z"},
      {"cut at the end", "a\xE2\x82", "a??"},
      {"overlong", "\xC0\xAF", "??"},
      {"surrogate", "\xED\xA0\x80", "???"},
      {"above the last character", "\xF4\x90\x80\x80", "????"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ToCodePage(row.utf8), row.text) << row.label;
  }
}

TEST(CodePage, EveryDefinedByteComesBack) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool undefined = byte == 0x81 || byte == 0x8D || byte == 0x8F || byte == 0x90 || byte == 0x9D;
    EXPECT_EQ(ToCodePage(FromCodePage(text)), undefined ? "?" : text) << byte;
  }
}
