// What a machine does to its process, tried in processes of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "platform/simulated/simulated_machine.h"
#include "support/memory_store.h"

namespace {

class LoudStore : public MemoryStore {
 public:
  using MemoryStore::MemoryStore;
  ErrorCode Flush() override {
    std::fputs("flushed;", stderr);
    return kErrorNone;
  }
};

[[noreturn]] void WriteAndExit() {
  std::vector<AttachedDrive> drives;
  drives.push_back({1, std::make_unique<SimulatedDrive>(DriveTraits(), std::make_unique<LoudStore>(512000))});
  SimulatedMachine machine({}, std::move(drives));
  const Handle handle = machine.Open("\\\\.\\PhysicalDrive1", {kAccessReadWrite, kShareReadWrite, kOpenExisting, 0});
  std::uint32_t moved = 0;
  machine.Write(handle, std::vector<std::uint8_t>(512), moved);
  machine.Exit(6);
}

// Ends with the answers to three OK/Cancel boxes as its decimal digits.
[[noreturn]] void AskThreeTimes(std::string_view input) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0 || write(ends[1], input.data(), input.size()) < 0) {
    std::abort();
  }
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  SimulatedMachine machine({}, {});
  int answers = 0;
  for (int i = 0; i < 3; ++i) {
    machine.ShowBox("", kBoxOk, "");  // takes no line, as nobody sits there
    answers = answers * 10 + machine.ShowBox("", kBoxOkCancel, "");
  }
  std::_Exit(answers);
}

}  // namespace

TEST(Process, ExitFlushesWhatIsStillOpen) { EXPECT_EXIT(WriteAndExit(), ::testing::ExitedWithCode(6), "^flushed;$"); }

TEST(Process, EachBoxTakesOneLine) {
  EXPECT_EXIT(AskThreeTimes("ok\nno\ny\n"), ::testing::ExitedWithCode(121), "");
  EXPECT_EXIT(AskThreeTimes("\nyes"), ::testing::ExitedWithCode(212), "");
  EXPECT_EXIT(AskThreeTimes("OK" + std::string(1000, 'k') + "\nO\r\nn"), ::testing::ExitedWithCode(212), "");
}

TEST(Process, SkippedWaitsPutTheClockOn) {
  SimulatedMachine machine({"", std::nullopt, /*no_wait=*/true}, {});
  const std::string before = machine.DateTimeText();
  constexpr std::uint32_t kTwoDays = 2 * 24 * 3600 * 1000;
  machine.Wait(kTwoDays);
  const std::string after = machine.DateTimeText();
  EXPECT_EQ(before.size(), std::string("yyyy-mm-dd hh:mm:ss").size());
  EXPECT_GT(after.substr(0, 10), before.substr(0, 10));
}

TEST(Process, SeedIsFixedOrNew) {
  SimulatedMachine fixed({"", 77, false}, {});
  EXPECT_EQ(fixed.RandomSeed(), 77U);
  SimulatedMachine free({}, {});
  EXPECT_NE(free.RandomSeed(), free.RandomSeed());
}
