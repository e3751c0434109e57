#include "engine/stores/MariaAddress.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <utility>

namespace nvadmin::engine {

namespace {

constexpr std::string_view kScheme = "mariadb://";
constexpr std::uint16_t kDefaultPort = 3306;
constexpr std::uint32_t kLongestSeconds = 3600;

struct Option {
  std::string_view word;
  bool (*take)(std::string value, MariaAddress& address);
};

// From the root: programs begin in various folders.
template <std::string MariaAddress::*member>
bool TakePath(std::string value, MariaAddress& address) {
  address.*member = std::move(value);
  return (address.*member).starts_with('/');
}

template <std::uint32_t MariaAddress::*member>
bool TakeSeconds(std::string value, MariaAddress& address) {
  std::uint32_t& seconds = address.*member;
  const auto [end, fault] = std::from_chars(value.data(), value.data() + value.size(), seconds);
  return fault == std::errc() && end == value.data() + value.size() && seconds >= 1 &&
         seconds <= kLongestSeconds;
}

bool TakeTls(std::string value, MariaAddress& address) {
  constexpr std::pair<std::string_view, TlsUse> kUses[] = {
      {"off", TlsUse::kOff}, {"on", TlsUse::kOn}, {"verify", TlsUse::kVerify}};
  for (const auto& [word, use] : kUses) {
    if (word != value) continue;
    address.tls = use;
    return true;
  }
  return false;
}

constexpr Option kOptions[] = {
    {"socket", TakePath<&MariaAddress::socket>},
    {"password-file", TakePath<&MariaAddress::passwordFile>},
    {"tls", TakeTls},
    {"tls-ca", TakePath<&MariaAddress::tlsCa>},
    {"tls-cert", TakePath<&MariaAddress::tlsCert>},
    {"tls-key", TakePath<&MariaAddress::tlsKey>},
    {"connect-timeout", TakeSeconds<&MariaAddress::connectSeconds>},
    {"timeout", TakeSeconds<&MariaAddress::answerSeconds>},
};

// Cuts `text` at the first `mark`: what stands before it is returned, what stands behind it is left. Without
// the mark all of it is returned.
std::string_view CutOff(std::string_view& text, char mark) {
  const std::size_t length = std::min(text.find(mark), text.size());
  const std::string_view before = text.substr(0, length);
  text.remove_prefix(std::min(length + 1, text.size()));
  return before;
}

// Nothing for a "%" without two hexadecimal digits, and for a byte 0.
std::optional<std::string> Decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    unsigned byte = static_cast<unsigned char>(text[at]);
    if (byte == '%') {
      const std::string_view digits = text.substr(at + 1, 2);
      const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
      if (digits.size() != 2 || fault != std::errc() || end != digits.data() + 2) return std::nullopt;
      at += 2;
    }
    if (byte == 0) return std::nullopt;
    decoded += static_cast<char>(byte);
  }
  return decoded;
}

// What is wrong with it; empty: nothing.
std::string ReadHost(std::string_view text, MariaHost& host) {
  const bool inBrackets = text.starts_with('[');
  const std::size_t bracket = text.find(']');
  if (inBrackets && bracket == std::string_view::npos) return "a bracket never ends";
  const std::size_t end = inBrackets ? bracket + 1 : std::min(text.find(':'), text.size());
  host.name = inBrackets ? text.substr(1, bracket - 1) : text.substr(0, end);
  host.port = kDefaultPort;
  std::string_view port = text.substr(end);
  if (host.name.empty()) return "a host has no name";
  const std::string_view kOfNames = inBrackets ? ":.%" : ".-_";
  const auto isOfName = [kOfNames](unsigned char c) {
    return std::isalnum(c) != 0 || kOfNames.find(static_cast<char>(c)) != std::string_view::npos;
  };
  if (!std::all_of(host.name.begin(), host.name.end(), isOfName))
    return fmt::format("'{}' is no name of a host", host.name);
  if (port.empty()) return {};
  port.remove_prefix(1);
  const auto [last, fault] = std::from_chars(port.data(), port.data() + port.size(), host.port);
  const bool isPort = text[end] == ':' && fault == std::errc() && last == port.data() + port.size();
  return isPort && host.port > 0 ? "" : fmt::format("'{}' is no port; use 1 to 65535", port);
}

std::string ReadOptions(std::string_view options, MariaAddress& address) {
  std::array<bool, std::size(kOptions)> isGiven{};
  while (!options.empty()) {
    std::string_view value = CutOff(options, '&');
    const std::string_view word = CutOff(value, '=');
    const auto option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                     [word](const Option& known) { return known.word == word; });
    if (option == std::end(kOptions)) return fmt::format("there is no option '{}'", word);
    if (std::exchange(isGiven[static_cast<std::size_t>(option - kOptions)], true))
      return fmt::format("the option {} is given twice", word);
    std::optional<std::string> decoded = Decoded(value);
    if (!decoded || !option->take(std::move(*decoded), address))
      return fmt::format("'{}' is no value of the option {}", value, word);
  }
  return {};
}

std::string Read(std::string_view text, MariaAddress& address) {
  if (!text.starts_with(kScheme)) return fmt::format("it doesn't begin with {}", kScheme);
  text.remove_prefix(kScheme.size());
  std::string_view options = text;
  text = CutOff(options, '?');
  std::string_view place = CutOff(text, '/');
  const std::size_t at = place.find('@');
  if (at == std::string_view::npos || at == 0) return "it names no user";
  const std::string_view user = place.substr(0, at);
  if (user.find(':') != std::string_view::npos)
    return "a password has no place in it: give it by the environment, a file or at the question";
  std::string_view hosts = place.substr(at + 1);
  const std::optional<std::string> userName = Decoded(user);
  if (text.find('/') != std::string_view::npos) return "a '/' in a database's name is written %2F";
  const std::optional<std::string> database = Decoded(text);
  if (!userName || !database)
    return "a '%' in it stands before no two hexadecimal digits, or for a character 0";
  if (database->empty()) return "it names no database";
  address.user = *userName;
  address.database = *database;

  const bool endsInComma = hosts.ends_with(',');
  while (!hosts.empty()) {
    const std::string fault = ReadHost(CutOff(hosts, ','), address.hosts.emplace_back());
    if (!fault.empty()) return fault;
  }
  if (endsInComma) return "a host has no name";
  const bool isNear = std::all_of(address.hosts.begin(), address.hosts.end(),
                                  [](const MariaHost& host) { return host.IsThisMachine(); });
  const bool choosesTls = fmt::format("&{}", options).find("&tls=") != std::string::npos;
  const std::string fault = ReadOptions(options, address);
  if (!fault.empty()) return fault;
  if (!address.socket.empty() && !address.hosts.empty()) return "it names a host and a socket";
  if (!address.socket.empty()) address.hosts.assign(1, {});
  const bool hasTlsFiles = !address.tlsCa.empty() || !address.tlsCert.empty() || !address.tlsKey.empty();
  if (!choosesTls) address.tls = isNear && !hasTlsFiles ? TlsUse::kOff : TlsUse::kVerify;
  return address.hosts.empty() ? "it names neither a host nor a socket" : "";
}

}  // namespace

std::string MariaHost::Shown() const {
  if (name.empty()) return "this machine";
  const bool isVersion6 = name.find(':') != std::string::npos;
  return isVersion6 ? fmt::format("[{}]:{}", name, port) : fmt::format("{}:{}", name, port);
}

bool MariaHost::IsThisMachine() const {
  return name.empty() || name == "localhost" || name == "::1" || name.starts_with("127.");
}

bool ReadMariaAddress(std::string_view text, MariaAddress& address, std::string& error) {
  MariaAddress found;
  std::string fault = Read(text, found);
  if (fault.empty()) {
    address = std::move(found);
    return true;
  }
  // What may be a password isn't shown.
  const std::size_t scheme = text.find("://");
  const std::string_view behindScheme = text.substr(scheme == std::string_view::npos ? 0 : scheme + 1);
  const bool mayHoldPassword = behindScheme.find(':') < behindScheme.rfind('@') ||
                               behindScheme.find("passw", behindScheme.find('?')) != std::string_view::npos;
  if (mayHoldPassword && fault.starts_with('\'')) fault = "a part of it can't be read";
  error = fmt::format(
      "{} is no address of a database: {}; the form is mariadb://USER@HOST:PORT/DATABASE, with more hosts "
      "behind commas and options such as ?socket=PATH behind it",
      mayHoldPassword ? "what was given" : fmt::format("'{}'", text), fault);
  return false;
}

}  // namespace nvadmin::engine
