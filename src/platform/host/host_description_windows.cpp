#include <array>

#include "platform/host/host_description.h"
#include "platform/windows/management.h"

// The system's own, for as long as the process lives: nothing is to be released when its libraries may be gone.
static Management& SystemManagement() {
  static auto* const management = new Management(SystemCalls{});
  return *management;
}

bool SystemDescribesItself() { return SystemManagement().Bind(); }

std::vector<std::vector<std::string>> SystemObjects(const std::string& /*root*/, const std::string& query,
                                                    const std::vector<std::string>& properties) {
  return SystemManagement().Query(query, /*forward_only*/ false, properties);
}

char SystemDecimalSign() {
  std::array<char, 8> sign{};
  const int length = GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL, sign.data(), static_cast<int>(sign.size()));
  return length > 0 ? sign[0] : '.';
}
