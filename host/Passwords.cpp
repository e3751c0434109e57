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

}  // namespace nvadmin::host
