#include "host/Passwords.h"

#include <sodium.h>

#include <array>
#include <cerrno>

#include <fmt/format.h>

#include "session/EngineCallBack.h"

namespace nvadmin::host {

namespace {

constexpr unsigned long long kPasses = 2;
constexpr std::size_t kMemoryBytes = 64u << 20;

void PrepareLibrary() {
  static const int prepared = sodium_init();
  if (prepared < 0) throw EngineFailure("passwords can't be checked: the system gives no random numbers");
}

[[noreturn]] void FailForMemory() {
  throw EngineFailure(fmt::format(
      "a password can't be checked: it needs {} MiB of memory; end other programs", kMemoryBytes >> 20));
}

}  // namespace

std::string HashPassword(std::string_view password) {
  PrepareLibrary();
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  if (crypto_pwhash_str(hash.data(), password.data(), password.size(), kPasses, kMemoryBytes) != 0)
    FailForMemory();
  return hash.data();
}

bool IsPassword(std::string_view password, const std::string& hash) {
  PrepareLibrary();
  const bool fits = password.size() <= kLongestPassword;
  const std::string_view checked = fits ? password : password.substr(0, kLongestPassword);
  errno = 0;
  if (crypto_pwhash_str_verify(hash.c_str(), checked.data(), checked.size()) == 0) return fits;
  if (errno == ENOMEM) FailForMemory();
  return false;
}

std::string HashOfNobody() {
  PrepareLibrary();
  std::array<char, 32> password{};
  randombytes_buf(password.data(), password.size());
  return HashPassword({password.data(), password.size()});
}

std::string NewToken() {
  PrepareLibrary();
  std::array<unsigned char, 32> bytes{};
  randombytes_buf(bytes.data(), bytes.size());
  std::array<char, 64> text{};
  sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(),
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  return text.data();
}

bool IsSameToken(std::string_view left, std::string_view right) {
  return left.size() == right.size() && sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace nvadmin::host
