// Choices of a seeded generator.
#pragma once

#include <cstddef>
#include <random>
#include <vector>

namespace nvadmin::engine {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  std::size_t Below(std::size_t limit) { return engine_() % limit; }
  bool Chance(std::size_t percent) { return Below(100) < percent; }
  template <typename Element, std::size_t count>
  const Element& Of(const Element (&elements)[count]) {
    return elements[Below(count)];
  }
  template <typename Element>
  const Element& Of(const std::vector<Element>& elements) {
    return elements[Below(elements.size())];
  }

 private:
  std::mt19937 engine_;
};

}  // namespace nvadmin::engine
