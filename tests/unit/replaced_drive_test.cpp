// The whole program on a Linux machine whose stick is swapped for another one right before one of its opens, or whose
// medium is swapped behind one of its writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "support/fake_system.h"
#include "support/program.h"

namespace {

constexpr std::uint64_t kSectors = 34'000;
const std::string kOtherData = "data of another";

// When something becomes of the stick: right before the n-th open of it, or behind the n-th write to it. 0 for never.
struct Moment {
  int open = 0;
  int write = 0;
};

// At that moment there is another stick, of the same kind and size. Its serial number may be the same as well, as that
// of a card reader is with another card in it.
class SwappingSystem : public FakeSystem {
 public:
  SwappingSystem(const std::string& root, Moment moment, bool same_serial)
      : FakeSystem(root), moment_(moment), same_serial_(same_serial) {
    AddStick("sdb");
    AddPartition("sdb", 1, "0:0", 2048, 30'000);
    Put(Sys("sdb/size"), std::to_string(kSectors));
    SetFileSize(NodeOf(*this, "sdb"), kSectors * 512);
  }

  int Open(const std::string& node, int flags) override {
    if (node == NodeOf(*this, "sdb") && ++stick_opens == moment_.open) {
      Swap();
    }
    return FakeSystem::Open(node, flags);
  }

  ssize_t Write(int descriptor, const void* buffer, std::size_t bytes, off_t position) override {
    const ssize_t moved = FakeSystem::Write(descriptor, buffer, bytes, position);
    if (++writes == moment_.write) {
      Swap();
    }
    return moved;
  }

  int stick_opens = 0;
  int writes = 0;

 private:
  // The node keeps its file, as it does with another card in a reader.
  void Swap() {
    if (!same_serial_) {
      Put(Trees().sys + "/devices/usb1/1-sdb/serial", "S-other");
    }
    Put(Sys("sdb/diskseq"), "8");
    SetFileSize(NodeOf(*this, "sdb"), 0);
    WriteBytes(NodeOf(*this, "sdb"), 0, kOtherData);
    SetFileSize(NodeOf(*this, "sdb"), kSectors * 512);
  }

  Moment moment_;
  bool same_serial_;
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
  int writes;
  bool refused;
  bool untouched;  // the other stick, where there was one
};

Swapped RunSwapped(const std::string& words, Moment moment, bool same_serial = false) {
  const ScratchFolder folder;
  WriteBytes(folder.File("source"), 0, std::string(100'000, 's'));
  std::string line = "DRIVE=1 SURE " + words;
  if (const std::size_t at = line.find('@'); at != std::string::npos) {
    line.replace(at, 1, folder.File(""));
  }
  auto owned = std::make_unique<SwappingSystem>(folder.File("root"), moment, same_serial);
  const SwappingSystem& system = *owned;
  UnattendedMachine machine({line, /*seed=*/1, /*no_wait=*/true}, std::move(owned));
  const int level = RunMain(machine);
  const std::string bytes = ReadBytes(NodeOf(system, "sdb"), 0, kSectors * 512);
  const bool untouched =
      bytes.starts_with(kOtherData) && bytes.find_first_not_of('\0', kOtherData.size()) == std::string::npos;
  return {level, system.stick_opens, system.writes, !system.complaints.empty(), untouched};
}

TEST(ReplacedDrive, IsNeverWritten) {
  for (const char* words : {"", "WINPE", "FREEDOS 2PTN", "WRITEMBRONLY", "FIRSTPART", "CLEAN", "ERASE", "QUICKTEST",
                            "FILETOUSB FILE=\"@source\"", "USBTOFILE FILE=\"@target\" LENGTH=9SEC", "FIND"}) {
    const Swapped good = RunSwapped(words, {});
    EXPECT_EQ(good.level, 0) << words;
    EXPECT_FALSE(good.refused) << words;
    EXPECT_GE(good.opens, 2) << words;
    for (int open = 2; open <= good.opens; ++open) {
      const Swapped swapped = RunSwapped(words, {.open = open}, /*same_serial=*/open % 2 == 0);
      EXPECT_TRUE(swapped.untouched) << words << ", swapped before open " << open;
      EXPECT_TRUE(swapped.refused) << words << ", swapped before open " << open;
    }
  }
}

TEST(ReplacedDrive, IsNotWrittenOn) {
  for (const char* words : {"WINPE", "FREEDOS 2PTN", "FIRSTPART", "ERASE", "QUICKTEST", "FILETOUSB FILE=\"@source\""}) {
    const int writes = RunSwapped(words, {}).writes;
    EXPECT_GE(writes, 1) << words;
    const int step = std::max(1, writes / 6);
    for (int write = 1; write < writes; write += step) {
      const Swapped swapped = RunSwapped(words, {.write = write}, /*same_serial=*/true);
      EXPECT_TRUE(swapped.untouched) << words << ", swapped behind write " << write << " of " << writes;
      EXPECT_TRUE(swapped.refused) << words << ", swapped behind write " << write;
    }
  }
}

}  // namespace
