// What one conversion may cost, whatever its codes say. Expressions nest, call further codes, read items and
// ask for columns that hold expressions themselves, perhaps the same one: all that happens under one
// outermost conversion shares one account of this thread. Once it is used up, or nesting goes too deep,
// everything under it fails.
#pragma once

#include <cstddef>

namespace nvadmin::mv {

// Units are about as many as bytes touched.
inline constexpr std::size_t kMaxEffort = std::size_t{64} << 20;
inline constexpr int kMaxNesting = 256;
// What reading an item or asking for a column costs.
inline constexpr std::size_t kCallEffort = 1024;

// One level of nesting, as long as it lives. The outermost one opens the account.
class NestingLevel {
 public:
  NestingLevel();
  ~NestingLevel();
  NestingLevel(const NestingLevel&) = delete;
  NestingLevel& operator=(const NestingLevel&) = delete;

  bool IsAllowed() const;
};

// Takes units off the account; false when there are not enough left. Requires a NestingLevel.
bool Spend(std::size_t units);

}  // namespace nvadmin::mv
