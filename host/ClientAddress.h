// By what the clients of a server are counted, wherever there is a limit for an address.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin::host {

// An IPv4 address as it is, also one that is mapped into IPv6. An IPv6 address as its network
// "2001:db8::/64": whoever has one has all of these. Any other text as it is.
std::string CountedAddress(std::string_view address);

}  // namespace nvadmin::host
