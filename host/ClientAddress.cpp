#include "host/ClientAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

namespace nvadmin::host {

std::string CountedAddress(std::string_view address) {
  const std::string whole(address.substr(0, address.find('%')));  // without the scope of a link's address
  in6_addr bytes{};
  if (inet_pton(AF_INET6, whole.c_str(), &bytes) != 1) return std::string(address);
  char text[INET6_ADDRSTRLEN];
  if (IN6_IS_ADDR_V4MAPPED(&bytes)) return inet_ntop(AF_INET, bytes.s6_addr + 12, text, sizeof text);
  std::fill(bytes.s6_addr + 8, bytes.s6_addr + 16, std::uint8_t{0});
  return std::string(inet_ntop(AF_INET6, &bytes, text, sizeof text)) + "/64";
}

}  // namespace nvadmin::host
