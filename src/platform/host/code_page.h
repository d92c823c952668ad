// Text at the border: UTF-8 outside, Windows code page 1252 (one byte a character) inside.
#pragma once

#include <string>
#include <string_view>

// What stands for a character that the other side doesn't have.
inline constexpr char kNoCharacter = '?';

// A character that the code page doesn't have becomes one '?', and so does each byte that is no valid UTF-8.
std::string ToCodePage(std::string_view utf8);
// The bytes of `utf8` behind `characters` characters of ToCodePage(utf8), from character `first` on, or behind those of
// them that there are.
std::string_view BytesBehind(std::string_view utf8, std::size_t first, std::size_t characters);
// Letters of the code page in upper case (ƒ, µ and ß have none); every other byte as it is, valid or not.
std::string UpperUtf8(std::string_view utf8);
// The five bytes that the code page leaves undefined become '?'.
std::string FromCodePage(std::string_view text);
