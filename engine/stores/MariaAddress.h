// The address of a MariaDB database:
//
//   mariadb://USER@HOST[:PORT][,HOST[:PORT]...]/DATABASE[?OPTION=VALUE&...]
//
// Port 3306 unless told otherwise; an IPv6 address stands in brackets. "%" and two hexadecimal digits stand
// for a byte that has a meaning here. A password has no place in it. Options, each PATH from the root:
//
// * socket=PATH: the server's socket on this machine; no HOST then
// * password-file=PATH: its first line is the password
// * tls=verify, on or off: with "on" all is encrypted, whoever the server is. Beyond this machine, and
//   with one of the next three, verify is the default, else off.
// * tls-ca=PATH, tls-cert=PATH, tls-key=PATH: what signed the server's certificate, and what proves the user
// * connect-timeout=SECONDS for one host, 5 unless told otherwise; timeout=SECONDS for an answer, 60
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::engine {

enum class TlsUse { kOff, kOn, kVerify };

struct MariaHost {
  std::string name;  // empty: the socket
  std::uint16_t port = 0;

  std::string Shown() const;  // "host:3306", "[::1]:3306", "this machine"
  bool IsThisMachine() const;
};

struct MariaAddress {
  std::string user;
  std::vector<MariaHost> hosts;  // at least one
  std::string database;
  std::string socket, passwordFile, tlsCa, tlsCert, tlsKey;
  TlsUse tls = TlsUse::kOff;
  std::uint32_t connectSeconds = 5;
  std::uint32_t answerSeconds = 60;
};

// Names are in the code page. False, with what is wrong and the right form in `error`.
bool ReadMariaAddress(std::string_view text, MariaAddress& address, std::string& error);

}  // namespace nvadmin::engine
