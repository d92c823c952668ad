#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <array>

#include "platform/host/host_description.h"

bool SystemDescribesItself() { return false; }

std::vector<std::vector<std::string>> SystemObjects(const std::string& /*root*/, const std::string& /*query*/,
                                                    const std::vector<std::string>& /*properties*/) {
  return {};
}

char SystemDecimalSign() {
  std::array<char, 8> sign{};
  const int length = GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, sign.data(), static_cast<int>(sign.size()));
  return length > 0 ? sign[0] : '.';
}
