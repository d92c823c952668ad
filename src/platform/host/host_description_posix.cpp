#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/host/code_page.h"
#include "platform/host/descriptor.h"
#include "platform/host/host_description.h"

namespace {

constexpr std::string_view kDmiFolder = "sys/class/dmi/id/";

// The contents of a file that one read takes in; empty where it can't be read, as serial numbers without the right to.
std::string SmallFile(const std::string& path) {
  const int descriptor = OpenDescriptor(path, O_RDONLY);
  if (descriptor < 0) {
    return "";
  }
  std::array<char, 16384> buffer{};
  const ssize_t got = read(descriptor, buffer.data(), buffer.size());
  close(descriptor);
  return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

std::string FirstLine(const std::string& path) {
  const std::string text = SmallFile(path);
  return text.substr(0, text.find('\n'));
}

// A value of os-release without the quotes and backslashes of the shell.
std::string Unquoted(std::string_view value) {
  const char quote = !value.empty() && (value[0] == '"' || value[0] == '\'') ? value[0] : '\0';
  std::string text;
  for (std::size_t i = quote == '\0' ? 0 : 1; i < value.size() && (quote == '\0' || value[i] != quote); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) {
      ++i;
    }
    text += value[i];
  }
  return text;
}

std::string SystemName(const std::string& root) {
  constexpr std::string_view kKey = "\nPRETTY_NAME=";
  std::string release = "\n" + SmallFile(root + "etc/os-release");
  if (release.size() == 1) {
    release += SmallFile(root + "usr/lib/os-release");
  }
  const std::size_t at = release.find(kKey);
  if (at == std::string::npos) {
    return "Linux";
  }
  const std::size_t value = at + kKey.size();
  return Unquoted(std::string_view(release).substr(value, release.find('\n', value) - value));
}

// Of the system, also where the program itself is a 32-bit one.
std::string WordSize() {
  utsname names{};
  const bool wide = sizeof(void*) == 8 ||
                    (uname(&names) == 0 && std::string_view(names.machine).find("64") != std::string_view::npos);
  return wide ? "64-bit" : "32-bit";
}

struct Property {
  std::string_view object;
  std::string_view name;
  const char* dmi_file;
};
constexpr std::array kDmiProperties = {
    Property{"Win32_ComputerSystemProduct", "IdentifyingNumber", "product_serial"},
    Property{"Win32_ComputerSystemProduct", "Name", "product_name"},
    Property{"Win32_ComputerSystemProduct", "Vendor", "sys_vendor"},
    Property{"Win32_BaseBoard", "SerialNumber", "board_serial"},
    Property{"Win32_BaseBoard", "Product", "board_name"},
    Property{"Win32_BaseBoard", "Manufacturer", "board_vendor"},
    Property{"Win32_SystemEnclosure", "SerialNumber", "chassis_serial"},
};
constexpr std::string_view kSystemObject = "Win32_OperatingSystem";

std::string ValueOf(const std::string& root, std::string_view object, std::string_view name) {
  if (object == kSystemObject) {
    // Speeds follow the kernel more than anything that a distribution counts.
    return name == "Caption"          ? SystemName(root)
           : name == "Version"        ? FirstLine(root + "proc/sys/kernel/osrelease")
           : name == "OSArchitecture" ? WordSize()
                                      : "";
  }
  for (const Property& row : kDmiProperties) {
    if (row.object == object && row.name == name) {
      return FirstLine(root + std::string(kDmiFolder) + row.dmi_file);
    }
  }
  return "";
}

bool IsKnown(std::string_view object) {
  return object == kSystemObject || std::any_of(kDmiProperties.begin(), kDmiProperties.end(),
                                                [=](const Property& row) { return row.object == object; });
}

}  // namespace

bool SystemDescribesItself() { return true; }

std::vector<std::vector<std::string>> SystemObjects(const std::string& root, const std::string& query,
                                                    const std::vector<std::string>& properties) {
  const std::string object = query.substr(query.rfind(' ') + 1);
  if (!IsKnown(object)) {
    return {};
  }
  std::vector<std::string> values;
  values.reserve(properties.size());
  for (const std::string& property : properties) {
    values.push_back(ToCodePage(ValueOf(root, object, property)));
  }
  return {values};
}

char SystemDecimalSign() {
  // What LC_ALL, LC_NUMERIC or LANG ask for; the program's own locale stays as it is.
  const locale_t locale = newlocale(LC_NUMERIC_MASK, "", nullptr);
  if (locale == nullptr) {
    return '.';
  }
  const std::string sign = ToCodePage(nl_langinfo_l(RADIXCHAR, locale));
  freelocale(locale);
  return sign.size() == 1 ? sign[0] : '.';
}
