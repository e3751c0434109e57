// What a conversion needs of an engine. The helper itself
// knows none: the engine installs these for its thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace nvadmin::mv {

struct EngineHooks {
  // Reads an item for file translation; false when it (or its
  // file) is missing. `file` may begin with "DICT ".
  std::function<bool(std::string_view file, std::string_view id, std::string& item)> readItem;
  // Sends a text to the client, line ended.
  std::function<void(std::string_view text)> sendToClient;
};

// The hooks of this thread. Empty members: every record counts as missing, and nothing is sent.
EngineHooks& Hooks();

}  // namespace nvadmin::mv
