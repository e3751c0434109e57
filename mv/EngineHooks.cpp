#include "mv/EngineHooks.h"

namespace nvadmin::mv {

EngineHooks& Hooks() {
  thread_local EngineHooks hooks;
  return hooks;
}

}  // namespace nvadmin::mv
