#include "platform/TransferObserver.h"

namespace nvadmin::platform {

TransferObserver& ObserverOfTransfers() {
  thread_local TransferObserver observer;
  return observer;
}

}  // namespace nvadmin::platform
