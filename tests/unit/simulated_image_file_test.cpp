#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "platform/simulated/image_file.h"
#include "support/run.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kMebibyte = 1048576;
constexpr std::uint64_t kImageBytes = 8192 * kMebibyte;

class ImageFileTest : public ::testing::Test {
 protected:
  ImageFileTest() {
    SetFileSize(file, kImageBytes);
    image = ImageFile::Open(file, /*writable=*/true, problem);
  }

  std::uint64_t AllocatedBytes() const {
    struct stat status {};
    stat(file.c_str(), &status);
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
  }

  ScratchFolder folder;
  std::string file = folder.File("a.img");
  std::string problem;
  std::unique_ptr<ImageFile> image;
};

}  // namespace

TEST_F(ImageFileTest, ZerosLeaveHolesAndClearData) {
  EXPECT_EQ(image->Write(kImageBytes - 64 * kMebibyte, Bytes(64 * kMebibyte)), kErrorNone);
  EXPECT_LT(AllocatedBytes(), kMebibyte);
  // Data in a hole, at the beginning, in the middle and at the end of what is cleared, and on both sides of it.
  for (const std::uint64_t place : {0U, 1U, 5U, 9U, 10U}) {
    ASSERT_EQ(image->Write(place * kMebibyte, Bytes(kMebibyte, 7)), kErrorNone);
  }
  EXPECT_EQ(image->Write(kMebibyte, Bytes(9 * kMebibyte)), kErrorNone);
  Bytes read(11 * kMebibyte);
  ASSERT_EQ(image->Read(0, read), kErrorNone);
  EXPECT_EQ(std::count(read.begin(), read.end(), 7), 2 * static_cast<std::ptrdiff_t>(kMebibyte));
  EXPECT_EQ(read[kMebibyte - 1], 7);
  EXPECT_EQ(read[kMebibyte], 0);
  EXPECT_EQ(read[10 * kMebibyte - 1], 0);
  EXPECT_EQ(read[10 * kMebibyte], 7);
  EXPECT_LT(AllocatedBytes(), 8 * kMebibyte);
}

TEST_F(ImageFileTest, FailuresKeepTheirCodes) {
  image.reset();
  const auto reader = ImageFile::Open(file, /*writable=*/false, problem);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(reader->Write(0, Bytes(512, 1)), kErrorWriteProtected);
  SetFileSize(file, kMebibyte);  // behind its back
  Bytes buffer(512);
  EXPECT_EQ(reader->Read(kMebibyte - 512, buffer), kErrorNone);
  EXPECT_EQ(reader->Read(kMebibyte, buffer), kErrorIoDevice);
}

TEST_F(ImageFileTest, AFullDiskIsSaid) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit low{kMebibyte, limit.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  EXPECT_EQ(image->Write(0, Bytes(512, 1)), kErrorNone);
  EXPECT_EQ(image->Write(2 * kMebibyte, Bytes(512, 1)), kErrorDiskFull);
  setrlimit(RLIMIT_FSIZE, &limit);
}
