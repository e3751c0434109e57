// A small generator of pseudo-random numbers, so that every machine and library makes the same sample data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nvadmin::samples {

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  // From `lowest` to `highest`, both included. Requires lowest <= highest and a span below 2^31.
  std::int32_t Between(std::int32_t lowest, std::int32_t highest) {
    const auto span = static_cast<std::uint64_t>(highest - lowest) + 1;
    return lowest + static_cast<std::int32_t>((Next() >> 32) * span >> 32);
  }
  bool Chance(std::int32_t percent) { return Between(1, 100) <= percent; }
  // One element of a table.
  template <typename Element, std::size_t kCount>
  const Element& Pick(const Element (&table)[kCount]) {
    return table[Between(0, static_cast<std::int32_t>(kCount) - 1)];
  }

 private:
  // A Weyl sequence whose steps are mixed by two multiplications (SplitMix64).
  std::uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15u;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBu;
    return mixed ^ mixed >> 31;
  }

  std::uint64_t state_;
};

}  // namespace nvadmin::samples
