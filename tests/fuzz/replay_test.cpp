// Every file of the fuzzers' corpus, in the ordinary test run.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "fuzz/targets.h"
#include "support/run.h"

namespace {

TEST(FuzzCorpus, RunsThroughItsTargets) {
  for (const FuzzTarget& target : kFuzzTargets) {
    std::size_t files = 0;
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(KORVENTIX_CORPUS) / target.name)) {
      SCOPED_TRACE(file.path().string());
      const std::string bytes = ReadBytes(file.path().string(), 0, std::filesystem::file_size(file.path()));
      target.run({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
      ++files;
    }
    EXPECT_GT(files, 0U) << target.name;
  }
}

}  // namespace
