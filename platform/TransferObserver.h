// Tells the program that runs the add-in while a transfer file is being read, so that it may take note of
// what becomes of the items. A load opens its file twice: once for the statistics, once for the items.
#pragma once

#include <functional>
#include <string_view>

namespace nvadmin::platform {

struct TransferObserver {
  std::function<void(std::string_view path)> opened;  // as the reader was given it
  std::function<void()> closed;  // may be called while a failure is on its way: never throws
};

// That of this thread; empty until a program sets it. What it calls must be there as long as it is set.
TransferObserver& ObserverOfTransfers();

}  // namespace nvadmin::platform
