#include "discovery/drive_list.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/program.h"

namespace {

using Names = std::vector<std::string>;

// Drive 1 has the volumes from D: on, of these sizes; a size of 0 can't be had.
class SizedVolumes : public MachineDouble {
 public:
  explicit SizedVolumes(std::vector<std::uint64_t> sizes) : MachineDouble({}), sizes_(std::move(sizes)) {
    ResetProgram(*this);
  }

  Names asked;  // for their sizes

  Handle Open(const std::string& path, const OpenMode& /*mode*/) override {
    const char letter = path.at(std::string("\\\\.\\").size());
    return letter >= kFirst && IndexOf(letter) < sizes_.size() ? letter : kInvalidHandle;
  }
  bool Close(Handle /*handle*/) override { return true; }
  bool QueryDeviceNumber(Handle /*handle*/, DeviceNumber& answer) override {
    answer = {kDeviceTypeDisk, 1, 1};
    return true;
  }
  bool QueryVolumeSize(const std::string& name, std::uint64_t& bytes) override {
    asked.push_back(name);
    bytes = name.empty() ? 0 : sizes_.at(IndexOf(name[0]));
    return bytes != 0;
  }

 private:
  static constexpr char kFirst = 'D';
  static std::size_t IndexOf(char letter) { return static_cast<std::size_t>(letter - kFirst); }
  std::vector<std::uint64_t> sizes_;
};

TEST(GetDriveLetter, PassesOverSmallVolumes) {
  const struct {
    std::vector<std::uint64_t> sizes;
    std::string letter;
    Names asked;
  } cases[] = {
      {{39'999}, "D:", {"D:"}},
      {{39'999, 40'000, 1 << 30}, "E:", {"D:", "E:"}},
      {{40'000, 1 << 30}, "D:", {"D:"}},
      {{0, 1 << 30}, "D:", {"D:"}},
      {{1, 0, 1 << 30}, "E:", {"D:", "E:"}},
      {{1, 1, 1}, "F:", {"D:", "E:", "F:"}},
      {{1, 1, 1, 1, 1 << 30}, "G:", {"D:", "E:", "F:"}},
  };
  for (const auto& row : cases) {
    SizedVolumes machine(row.sizes);
    EXPECT_EQ(GetDriveLetter(1), row.letter) << row.sizes.size();
    EXPECT_EQ(machine.asked, row.asked) << row.sizes.size() << ", " << row.letter;
    EXPECT_EQ(GetDriveLetter(99), "");
  }
}

}  // namespace
