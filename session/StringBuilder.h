// Gathers a long text, such as a whole page, out of many small pieces. A piece costs its own length: the text
// is copied only when the buffer grows, which it does by its own size, and in toString.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin {

class StringBuilder {
 public:
  StringBuilder() { Buffer.reserve(kFirstCapacity); }

  // A copy of the text so far.
  std::string toString() const { return Buffer; }
  void Append(std::string_view text) { Buffer.append(text); }
  // The text so far, lent until the next Append.
  std::string_view View() const { return Buffer; }

 private:
  static constexpr std::size_t kFirstCapacity = 10'000;

  std::string Buffer;
};

}  // namespace nvadmin
