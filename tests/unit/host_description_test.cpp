// The two texts about the machine, from a management service, from a registry, and from a Linux system's own files.
#include "host/host_description.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/host/host_description.h"
#include "support/program.h"
#include "support/run.h"

namespace {

using Object = MachineDouble::Object;

void Describe(MachineDouble& machine) {
  ResetProgram(machine);
  DescribeHost();
}

TEST(DescribeHost, JoinsWhatTheManagementServiceSays) {
  const Object product{{"IdentifyingNumber", " S1 "}, {"Name", " Model "}, {"Vendor", " Maker "}};
  const Object board{{"SerialNumber", " B1 "}, {"Product", " Board "}, {"Manufacturer", " Board Maker "}};
  const Object enclosure{{"SerialNumber", " E1 "}};
  const struct {
    std::string label;
    std::vector<Object> products, boards, enclosures;
    std::string text;
  } rows[] = {
      {"all", {product}, {board}, {enclosure}, "Maker Model (S1 B1 Board  E1 )"},
      {"the board's maker", {{{"Vendor", "  "}, {"Name", "X"}}}, {board}, {}, "Board Maker X ( B1 Board )"},
      {"the last object counts", {product, {{"Name", "Y"}}}, {}, {{}, enclosure}, " Y (    E1 )"},
  };
  for (const auto& row : rows) {
    MachineDouble machine({});
    machine.objects = {{"Select * from Win32_ComputerSystemProduct", row.products},
                       {"SELECT * FROM Win32_BaseBoard", row.boards},
                       {"Select * from Win32_SystemEnclosure", row.enclosures}};
    Describe(machine);
    EXPECT_EQ(HostPcText, row.text) << row.label;
    EXPECT_EQ(HostOsText, " SP0 ") << row.label;
  }
}

TEST(DescribeHost, NamesTheSystem) {
  const Object full{{"Caption", " System "},
                    {"Version", "6.1"},
                    {"ServicePackMajorVersion", "2"},
                    {"ServicePackMinorVersion", "1"},
                    {"OSArchitecture", "64-bit"}};
  const Object no_pack{{"Caption", "System"}, {"Version", "6.1"}, {"ServicePackMajorVersion", "0"}};
  const struct {
    std::string label;
    std::vector<Object> systems;
    std::string text;
  } rows[] = {
      {"all", {full}, "System (6.1) SP2.1 64-bit"},
      {"an earlier object's service pack", {full, no_pack}, "System (6.1) SP2.1 "},
      {"edition in place of the caption", {{{"OperatingSystemSKU", "4"}}}, "Enterprise Edition () SP0 "},
      {"neither caption nor edition", {{{"OtherTypeDescription", "R2"}}}, "R2 () SP0 "},
  };
  for (const auto& row : rows) {
    MachineDouble machine({});
    machine.objects = {{"Select * from Win32_OperatingSystem", row.systems}};
    Describe(machine);
    EXPECT_EQ(HostOsText, row.text) << row.label;
  }
}

TEST(DescribeHost, FallsBackOnTheRegistry) {
  const std::string bios = "HKEY_LOCAL_MACHINE\\HARDWARE\\DESCRIPTION\\System\\BIOS\\";
  const std::string name = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProductName";
  const std::string pack = "HKEY_LOCAL_MACHINE\\system\\CurrentControlSet\\control\\windows\\CSDVersion";
  const struct {
    MachineDouble::Object registry;
    bool wow64;
    std::string pc, os;
  } rows[] = {
      {{}, false, "   ", " (RTM) 32-bit"},
      {{{bios + "SystemManufacturer", "Maker"},
        {bios + "SystemProductName", "Model"},
        {bios + "BaseBoardProduct", "Board"},
        {bios + "BIOSVersion", "1.0"},
        {name, "System"},
        {pack, "768"}},
       true,
       "Maker Model Board 1.0",
       "System (SP3) 64-bit"},
      {{{name, "System"}, {pack, "255"}}, false, "   ", "System (RTM) 32-bit"},
      {{{name, "System"}, {pack, "4352"}}, false, "   ", "System (SP1) 32-bit"},  // 1100h
  };
  for (const auto& row : rows) {
    MachineDouble machine({});
    machine.registry = row.registry;
    machine.wow64 = row.wow64;
    Describe(machine);
    EXPECT_EQ(HostPcText, row.pc);
    EXPECT_EQ(HostOsText, row.os);
  }
}

TEST(EditionText, CoversTheTable) {
  EXPECT_EQ(EditionText("0"), "Undefined");
  EXPECT_EQ(EditionText("25"), "Small Business Server Premium Edition");
  EXPECT_EQ(EditionText("26"), "Unknown");
  EXPECT_EQ(EditionText(""), "");
}

void PutFile(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  WriteBytes(path, 0, text);
}

std::string ValueIn(const ScratchFolder& root, const std::string& object, const std::string& property) {
  const auto rows = SystemObjects(root.File(""), "Select * from " + object, {"Nothing", property});
  return rows.size() == 1 && rows[0].size() == 2 && rows[0][0].empty() ? rows[0][1] : "(no such object)";
}

TEST(SystemObjects, AnswersFromDmiAndOsRelease) {
  const ScratchFolder root;
  const struct {
    const char *file, *object, *property;
  } rows[] = {
      {"product_serial", "Win32_ComputerSystemProduct", "IdentifyingNumber"},
      {"product_name", "Win32_ComputerSystemProduct", "Name"},
      {"sys_vendor", "Win32_ComputerSystemProduct", "Vendor"},
      {"board_serial", "Win32_BaseBoard", "SerialNumber"},
      {"board_name", "Win32_BaseBoard", "Product"},
      {"board_vendor", "Win32_BaseBoard", "Manufacturer"},
      {"chassis_serial", "Win32_SystemEnclosure", "SerialNumber"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ValueIn(root, row.object, row.property), "") << row.file;
    PutFile(root.File("sys/class/dmi/id/" + std::string(row.file)), std::string(row.file) + " \xC3\xA9\n");
    EXPECT_EQ(ValueIn(root, row.object, row.property), std::string(row.file) + " \xE9");
  }
  EXPECT_TRUE(SystemObjects(root.File(""), "Select * from Win32_Printer", {"Name"}).empty());

  EXPECT_EQ(ValueIn(root, "Win32_OperatingSystem", "Caption"), "Linux");
  PutFile(root.File("usr/lib/os-release"), "PRETTY_NAME=Plain\n");
  EXPECT_EQ(ValueIn(root, "Win32_OperatingSystem", "Caption"), "Plain");
  PutFile(root.File("etc/os-release"), "NAME=No\nPRETTY_NAME=\"Syst\xC3\xA8me \\\"9\\\"\"\nID=x\n");
  EXPECT_EQ(ValueIn(root, "Win32_OperatingSystem", "Caption"), "Syst\xE8me \"9\"");
  PutFile(root.File("proc/sys/kernel/osrelease"), "6.1.0-18\n");
  EXPECT_EQ(ValueIn(root, "Win32_OperatingSystem", "Version"), "6.1.0-18");
  EXPECT_EQ(ValueIn(root, "Win32_OperatingSystem", "OSArchitecture"), sizeof(void*) == 8 ? "64-bit" : "32-bit");
}

}  // namespace
