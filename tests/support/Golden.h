// Golden transcripts: what a user saw in a whole dialogue, kept as a text file that a person has read against
// the rules. To remake them after a wanted change, run the test program with NVADMIN_REMAKE_GOLDEN=1, and
// read the difference blank by blank before it is committed.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace nvadmin::test {

// `path` counts from the tests folder.
inline void ExpectGolden(const std::string& path, const std::string& screen) {
  const std::string file = std::string(NVADMIN_SOURCE_DIR) + "/tests/" + path;
  if (std::getenv("NVADMIN_REMAKE_GOLDEN") != nullptr) {
    std::ofstream(file, std::ios::binary) << screen << "\n";
  }
  std::ifstream stream(file, std::ios::binary);
  const std::string golden{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_EQ(screen + "\n", golden) << "differs from " << path;
}

}  // namespace nvadmin::test
