// Password hashes (argon2id, two passes over 64 MiB, about 0.1 s each) and tokens. The one place that uses
// the library of ciphers.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nvadmin::host {

inline constexpr std::size_t kShortestPassword = 8;  // bytes of the code page, so characters
inline constexpr std::size_t kLongestPassword = 1024;

// With salt and costs, as printable ASCII. Both fail with an EngineFailure when the memory can't be had.
std::string HashPassword(std::string_view password);
// False for a password over the limit, in the same time.
bool IsPassword(std::string_view password, const std::string& hash);
// A hash that no password has.
std::string HashOfNobody();

// 32 random bytes as 43 letters, digits, "-" and "_".
std::string NewToken();
// In a time that doesn't tell where they differ.
bool IsSameToken(std::string_view left, std::string_view right);

}  // namespace nvadmin::host
