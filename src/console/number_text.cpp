#include "console/number_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

std::string PlainNumber(double value) {
  // Fifteen significant digits in scientific form, then the point put where the exponent says.
  std::array<char, 40> scientific{};
  std::snprintf(scientific.data(), scientific.size(), "%.14e", std::fabs(value));
  const std::string text = scientific.data();
  const std::size_t mark = text.find('e');
  if (mark == std::string::npos) {
    return "0";  // not a number, or infinite
  }
  std::string digits = text.substr(0, 1) + text.substr(2, mark - 2);
  digits.erase(digits.find_last_not_of('0') + 1);
  if (digits.empty()) {
    return "0";
  }
  const int exponent = std::atoi(text.c_str() + mark + 1);
  if (exponent < 0) {
    digits = "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
  } else {
    const auto whole = static_cast<std::size_t>(exponent) + 1;
    if (digits.size() <= whole) {
      digits.append(whole - digits.size(), '0');
    } else {
      digits.insert(whole, 1, '.');
    }
  }
  return (value < 0 ? "-" : "") + digits;
}

static std::size_t DecimalsOf(std::string_view format) {
  constexpr std::array<std::string_view, 4> kMarkers{".0###", ".0##", ".0#", ".0"};
  for (std::size_t i = 0; i < kMarkers.size(); ++i) {
    if (format.find(kMarkers[i]) != std::string_view::npos) {
      return kMarkers.size() - i;
    }
  }
  return 0;
}

std::string GroupDigits(std::string_view plain, std::string_view format) {
  std::size_t point = plain.find('.');
  if (point == std::string_view::npos) {
    point = plain.find(',');
  }
  const std::string_view whole = plain.substr(0, point);
  const std::string_view fraction = point == std::string_view::npos ? "" : plain.substr(point + 1);

  std::string grouped;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    const std::size_t from_right = whole.size() - i;
    if (i > 0 && from_right % 3 == 0 && whole[i - 1] >= '0' && whole[i - 1] <= '9') {
      grouped += ',';
    }
    grouped += whole[i];
  }
  const std::string decimals(fraction.substr(0, DecimalsOf(format)));
  if (decimals.find_first_not_of('0') == std::string::npos) {
    return grouped;
  }
  return grouped + "." + decimals;
}

std::string SizeText(double value, int decimals) {
  constexpr double kTurn = 1000;
  constexpr double kStep = 1024;
  std::string_view unit = " Bytes";
  if (value >= kTurn) {
    value /= kStep;
    unit = " KiB";
    for (const std::string_view next : {"MiB", "GiB"}) {
      if (value > kTurn) {
        value /= kStep;
        unit = next;
      } else {
        break;
      }
    }
  }
  constexpr std::array<std::string_view, 5> kFormats{"", ".0", ".0#", ".0##", ".0###"};
  const auto index = static_cast<std::size_t>(std::clamp(decimals, 0, 4));
  return NumberText(value, kFormats[index]) + std::string(unit);
}

std::string HexText(std::uint64_t value) {
  std::string text;
  do {
    text.insert(text.begin(), "0123456789ABCDEF"[value % 16]);
    value /= 16;
  } while (value > 0);
  return text;
}

std::string HexPad(std::uint64_t value, std::size_t width) { return PadText(HexText(value), '0', width, false); }

std::string PadText(std::string_view text, char pad, std::size_t width, bool left_align) {
  const std::string filler(width, pad);
  if (left_align) {
    return (std::string(text) + filler).substr(0, width);
  }
  const std::string padded = filler + std::string(text);
  return padded.substr(padded.size() - width);
}

std::string Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) {
    return "";
  }
  return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

std::string CutAtNul(std::string_view text) {
  const std::string trimmed = Trim(text);
  return trimmed.substr(0, trimmed.find('\0'));
}

static char UpperCaseCharacter(char character) {
  const auto code = static_cast<unsigned char>(character);
  constexpr unsigned char kDivisionSign = 0xF7;
  if ((code >= 'a' && code <= 'z') || (code >= 0xE0 && code <= 0xFE && code != kDivisionSign)) {
    return static_cast<char>(code - 0x20);
  }
  switch (code) {
    case 0x9A:  // s, o-e ligature and z with caron lie 16 below, y with diaeresis on its own
    case 0x9C:
    case 0x9E:
      return static_cast<char>(code - 0x10);
    case 0xFF:
      return static_cast<char>(0x9F);
    default:
      return character;
  }
}

std::string UpperCase(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), UpperCaseCharacter);
  return upper;
}
