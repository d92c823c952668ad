// The whole program on a Linux machine whose stick is swapped for another one right before one of its opens.
#include <gtest/gtest.h>

#include <memory>

#include "support/fake_system.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kSectors = 34'000;
const std::string kOtherData = "data of another";

// Before the n-th open of the stick, it is another one of the same kind and size.
class SwappingSystem : public FakeSystem {
 public:
  SwappingSystem(const std::string& root, int swap_before) : FakeSystem(root), swap_before_(swap_before) {
    AddStick("sdb");
    AddPartition("sdb", 1, "0:0", 2048, 30'000);
    Put(Sys("sdb/size"), std::to_string(kSectors));
    SetFileSize(NodeOf(*this, "sdb"), kSectors * 512);
  }

  int Open(const std::string& node, int flags) override {
    if (node == NodeOf(*this, "sdb") && ++stick_opens == swap_before_) {
      Put(Trees().sys + "/devices/usb1/1-sdb/serial", "S-other");
      Put(Sys("sdb/diskseq"), "8");
      Put(node, kOtherData);
      SetFileSize(node, kSectors * 512);
    }
    return FakeSystem::Open(node, flags);
  }

  int stick_opens = 0;

 private:
  int swap_before_;
};

class UnattendedMachine : public LinuxMachine {
 public:
  using LinuxMachine::LinuxMachine;
  [[noreturn]] void Exit(std::int32_t level) override { throw RunEnded{level}; }
  bool WriteText(Handle /*output*/, std::string_view /*text*/) override { return true; }
};

struct Swapped {
  int level;
  int opens;
  bool refused;
  bool untouched;  // the other stick, where there was one
};

Swapped RunSwapped(const std::string& words, int swap_before) {
  const ScratchFolder folder;
  WriteBytes(folder.File("source"), 0, std::string(100'000, 's'));
  std::string line = "DRIVE=1 SURE " + words;
  if (const std::size_t at = line.find('@'); at != std::string::npos) {
    line.replace(at, 1, folder.File(""));
  }
  auto owned = std::make_unique<SwappingSystem>(folder.File("root"), swap_before);
  const SwappingSystem& system = *owned;
  UnattendedMachine machine({line, /*seed=*/1, /*no_wait=*/true}, std::move(owned));
  const int level = RunMain(machine);
  const std::string bytes = ReadBytes(NodeOf(system, "sdb"), 0, kSectors * 512);
  const bool untouched =
      bytes.starts_with(kOtherData) && bytes.find_first_not_of('\0', kOtherData.size()) == std::string::npos;
  return {level, system.stick_opens, !system.complaints.empty(), untouched};
}

TEST(ReplacedDrive, IsNeverWritten) {
  for (const char* words : {"", "WINPE", "FREEDOS 2PTN", "WRITEMBRONLY", "FIRSTPART", "CLEAN", "ERASE", "QUICKTEST",
                            "FILETOUSB FILE=\"@source\"", "USBTOFILE FILE=\"@target\" LENGTH=9SEC", "FIND"}) {
    const Swapped good = RunSwapped(words, 0);
    EXPECT_EQ(good.level, 0) << words;
    EXPECT_FALSE(good.refused) << words;
    EXPECT_GE(good.opens, 2) << words;
    for (int open = 2; open <= good.opens; ++open) {
      const Swapped swapped = RunSwapped(words, open);
      EXPECT_TRUE(swapped.untouched) << words << ", swapped before open " << open;
      EXPECT_TRUE(swapped.refused) << words << ", swapped before open " << open;
    }
  }
}

}  // namespace
