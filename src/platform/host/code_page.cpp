#include "platform/host/code_page.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

constexpr char32_t kFirstSpecial = 0x80;
constexpr char32_t kFirstLatin1 = 0xA0;  // from here to 0xFF, and below 0x80, byte and character are equal

// The characters of the bytes 0x80 to 0x9F; 0 where the code page has none.
constexpr std::array<char32_t, kFirstLatin1 - kFirstSpecial> kSpecial = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

struct Decoded {
  char32_t character = 0;
  std::size_t bytes = 0;  // 0: not valid UTF-8
};

struct SequenceForm {
  std::uint8_t mask;  // of the first byte
  std::uint8_t lead;
  std::size_t bytes;
  char32_t lowest;  // a smaller character in so many bytes is an overlong form
};
constexpr std::array<SequenceForm, 4> kForms = {
    {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}}};

bool IsScalar(char32_t character) { return character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF); }

Decoded DecodeForm(std::string_view text, const SequenceForm& form) {
  if (text.size() < form.bytes) {
    return {};
  }
  char32_t character = static_cast<std::uint8_t>(text[0]) & static_cast<std::uint8_t>(~form.mask);
  for (std::size_t i = 1; i < form.bytes; ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    if ((byte & 0xC0) != 0x80) {
      return {};
    }
    character = character << 6 | (byte & 0x3F);
  }
  return character >= form.lowest && IsScalar(character) ? Decoded{character, form.bytes} : Decoded{};
}

// The first character of `text`, which is not empty.
Decoded Decode(std::string_view text) {
  for (const SequenceForm& form : kForms) {
    if ((static_cast<std::uint8_t>(text[0]) & form.mask) == form.lead) {
      return DecodeForm(text, form);
    }
  }
  return {};
}

char ByteOf(char32_t character) {
  if (character < kFirstSpecial || (character >= kFirstLatin1 && character <= 0xFF)) {
    return static_cast<char>(character);
  }
  const auto* found = std::find(kSpecial.begin(), kSpecial.end(), character);
  return found == kSpecial.end() ? kNoCharacter : static_cast<char>(kFirstSpecial + (found - kSpecial.begin()));
}

char32_t CharacterOf(std::uint8_t byte) {
  if (byte < kFirstSpecial || byte >= kFirstLatin1) {
    return byte;
  }
  const char32_t special = kSpecial[byte - kFirstSpecial];
  return special == 0 ? static_cast<char32_t>(kNoCharacter) : special;
}

// The bytes of the first character of `utf8`, which is not empty; one byte that is no valid UTF-8 counts as one.
std::size_t FirstBytes(std::string_view utf8) { return std::max<std::size_t>(Decode(utf8).bytes, 1); }

std::string_view WithoutCharacters(std::string_view utf8, std::size_t characters) {
  for (; characters != 0 && !utf8.empty(); --characters) {
    utf8.remove_prefix(FirstBytes(utf8));
  }
  return utf8;
}

char32_t UpperCharacter(char32_t character) {
  constexpr char32_t kDivisionSign = 0xF7;
  constexpr char32_t kLittleYDiaeresis = 0xFF;
  constexpr char32_t kBigYDiaeresis = 0x178;
  constexpr std::u32string_view kBehindTheirBigOnes = U"\u0153\u0161\u017E";  // o-e ligature, s and z with caron
  const bool latin1 = character >= 0xE0 && character < kLittleYDiaeresis && character != kDivisionSign;
  if (latin1 || (character >= 'a' && character <= 'z')) {
    return character - 0x20;
  }
  if (kBehindTheirBigOnes.find(character) != std::u32string_view::npos) {
    return character - 1;
  }
  return character == kLittleYDiaeresis ? kBigYDiaeresis : character;
}

// Characters of the code page have at most 16 bits, so three bytes are enough.
void AppendUtf8(std::string& text, char32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += static_cast<char>(0xC0 | character >> 6);
    text += static_cast<char>(0x80 | (character & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | character >> 12);
    text += static_cast<char>(0x80 | (character >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (character & 0x3F));
  }
}

}  // namespace

std::string ToCodePage(std::string_view utf8) {
  std::string text;
  while (!utf8.empty()) {
    const Decoded decoded = Decode(utf8);
    text += decoded.bytes == 0 ? kNoCharacter : ByteOf(decoded.character);
    utf8.remove_prefix(std::max<std::size_t>(decoded.bytes, 1));
  }
  return text;
}

std::string_view BytesBehind(std::string_view utf8, std::size_t first, std::size_t characters) {
  const std::string_view tail = WithoutCharacters(utf8, first);
  return tail.substr(0, tail.size() - WithoutCharacters(tail, characters).size());
}

std::string UpperUtf8(std::string_view utf8) {
  std::string upper;
  while (!utf8.empty()) {
    const Decoded decoded = Decode(utf8);
    const std::size_t bytes = std::max<std::size_t>(decoded.bytes, 1);
    const char32_t character = UpperCharacter(decoded.character);
    if (character != decoded.character) {
      AppendUtf8(upper, character);
    } else {
      upper += utf8.substr(0, bytes);
    }
    utf8.remove_prefix(bytes);
  }
  return upper;
}

std::string FromCodePage(std::string_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (const char byte : text) {
    AppendUtf8(utf8, CharacterOf(static_cast<std::uint8_t>(byte)));
  }
  return utf8;
}
