// Asks whoever runs a command for a new password: at a terminal twice and without echo, otherwise for one
// line of standard input. Never from the command line, which other users of the machine can read.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nvadmin::host {

// In code page bytes. Nothing, with the complaint made, when there is none, the two differ, or a character is
// outside the code page. A signal that ends the program does so after the terminal's echo is back.
std::optional<std::string> AskNewPassword(std::string_view user);
// The password of a database's user, asked for once, in the bytes that were typed, as the server knows it; it
// may be empty. Nothing, with the complaint made, when the question isn't answered.
std::optional<std::string> AskStorePassword(std::string_view user, std::string_view database);

}  // namespace nvadmin::host
