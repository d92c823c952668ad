// Numbers and fields as the user reads them: grouping by commas, decimals with a point whatever the regional setting,
// capital hexadecimal, fixed-width columns. Nothing here prints or fails.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

// The shortest decimal form of a number: no grouping, no exponent, a point for the decimal sign, at most 15 significant
// digits of a fraction. Whole numbers are exact over the whole 64-bit range.
std::string PlainNumber(double value);
template <std::integral Whole>
std::string PlainNumber(Whole value) {
  return std::to_string(value);
}

// Groups the digits of a plain number by commas. The longest marker that `format` contains (".0", ".0#", ".0##",
// ".0###") gives the number of decimals, which are cut and never rounded; decimals that are all zero are left out.
std::string GroupDigits(std::string_view plain, std::string_view format);
template <typename Number>
std::string NumberText(Number value, std::string_view format) {
  return GroupDigits(PlainNumber(value), format);
}

// A size in bytes with its unit (Bytes, KiB, MiB, GiB), which turns at 1000; `decimals` 0 to 4.
std::string SizeText(double value, int decimals);

// Capital hexadecimal without prefix or leading zeros; "0" for 0.
std::string HexText(std::uint64_t value);
// The same cut on the left, or filled with zeros, to `width` characters.
std::string HexPad(std::uint64_t value, std::size_t width);

// A column of `width` characters. Right-aligned text that is too long loses its left end, left-aligned its right end.
std::string PadText(std::string_view text, char pad, std::size_t width, bool left_align);

// Text without the blanks (and only the blanks) at both ends.
std::string Trim(std::string_view text);
// A field from a fixed buffer: trimmed, and cut at the first NUL.
std::string CutAtNul(std::string_view text);
// Upper case after code page 1252, accented letters too; ƒ, µ and ß have none.
std::string UpperCase(std::string_view text);
