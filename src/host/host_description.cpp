#include "host/host_description.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <vector>

#include "console/number_text.h"
#include "platform/platform.h"

namespace {

constexpr std::array<std::string_view, 26> kEditions{
    "Undefined",
    "Ultimate Edition",
    "Home Basic Edition",
    "Home Basic Premium Edition",
    "Enterprise Edition",
    "Home Basic N Edition",
    "Business Edition",
    "Standard Server Edition",
    "Datacenter Server Edition",
    "Small Business Server Edition",
    "Enterprise Server Edition",
    "Starter Edition",
    "Datacenter Server Core Edition",
    "Standard Server Core Edition",
    "Enterprise Server Core Edition",
    "Enterprise Server Edition for Itanium-Based Systems",
    "Business N Edition",
    "Web Server Edition",
    "Cluster Server Edition",
    "Home Server Edition",
    "Storage Express Server Edition",
    "Storage Standard Server Edition",
    "Storage Workgroup Server Edition",
    "Storage Enterprise Server Edition",
    "Server For Small Business Edition",
    "Small Business Server Premium Edition",
};

// The number at the start of a text; false where there is none.
bool ReadNumber(const std::string& text, std::uint32_t& number) {
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

std::uint32_t NumberOr0(const std::string& text) {
  std::uint32_t number = 0;
  return ReadNumber(text, number) ? number : 0;
}

// --- By the management service -------------------------------------------------------------------------------------

using Properties = std::vector<std::string>;

// The values of the last object that the query finds, all empty where it finds none.
Properties LastObject(const std::string& query, bool forward_only, const Properties& properties) {
  const std::vector<Properties> rows = port->QueryManagement(query, forward_only, properties);
  return rows.empty() ? Properties(properties.size()) : rows.back();
}

void DescribePc() {
  const Properties product =
      LastObject("Select * from Win32_ComputerSystemProduct", true, {"IdentifyingNumber", "Name", "Vendor"});
  const Properties board =
      LastObject("SELECT * FROM Win32_BaseBoard", true, {"SerialNumber", "Product", "Manufacturer"});
  const Properties enclosure = LastObject("Select * from Win32_SystemEnclosure", false, {"SerialNumber"});
  const std::string vendor = Trim(product[2]);
  HostPcText = (vendor.empty() ? Trim(board[2]) : vendor) + " " + Trim(product[1]) + " (" + Trim(product[0]) + " " +
               Trim(board[0]) + " " + Trim(board[1]) + " " + enclosure[0] + ")";
}

void DescribeSystem() {
  std::string service_pack = "0";
  std::string architecture;
  for (const Properties& row :
       port->QueryManagement("Select * from Win32_OperatingSystem", false,
                             {"Caption", "OtherTypeDescription", "OperatingSystemSKU", "Version",
                              "ServicePackMajorVersion", "ServicePackMinorVersion", "OSArchitecture"})) {
    const std::string caption = Trim(row[0]);
    const std::string edition = EditionText(row[2]);
    HostOsText = !caption.empty() ? caption : !edition.empty() ? edition : row[1];
    HostOsText += " (" + row[3] + ")";
    if (NumberOr0(row[4]) > 0) {
      service_pack = row[4] + "." + row[5];
    }
    architecture = row[6];
  }
  HostOsText += " SP" + service_pack + " " + architecture;
}

// --- By the registry -----------------------------------------------------------------------------------------------

std::string RegistryText(const std::string& path) {
  std::string value;
  return port->ReadRegistry(path, value) ? value : "";
}

void DescribeByRegistry() {
  std::string separator;
  for (const char* name : {"SystemManufacturer", "SystemProductName", "BaseBoardProduct", "BIOSVersion"}) {
    HostPcText +=
        separator + RegistryText("HKEY_LOCAL_MACHINE\\HARDWARE\\DESCRIPTION\\System\\BIOS\\" + std::string(name));
    separator = " ";
  }
  // The service pack stands in the third hexadecimal digit.
  const std::uint32_t service_pack =
      NumberOr0(RegistryText("HKEY_LOCAL_MACHINE\\system\\CurrentControlSet\\control\\windows\\CSDVersion")) >> 8 & 0xF;
  HostOsText = RegistryText("HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProductName") +
               (service_pack > 0 ? " (SP" + std::to_string(service_pack) + ")" : " (RTM)") +
               (port->IsWow64() ? " 64-bit" : " 32-bit");
}

}  // namespace

std::string EditionText(const std::string& number) {
  std::uint32_t index = 0;
  if (!ReadNumber(number, index)) {
    return "";
  }
  return index < kEditions.size() ? std::string(kEditions[index]) : "Unknown";
}

void DescribeHost() {
  HostPcText.clear();
  HostOsText.clear();
  if (port->BindManagement()) {
    DescribePc();
    DescribeSystem();
  } else {
    DescribeByRegistry();
  }
}
