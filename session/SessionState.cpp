#include "session/SessionState.h"

namespace nvadmin {

SessionState& Session() {
  thread_local SessionState state;
  return state;
}

EngineCallBack& LentEngine() {
  EngineCallBack* engine = Session().Engine;
  if (engine == nullptr)
    throw EngineFailure("the session has no engine: its port is closed, or CallBack lent none");
  return *engine;
}

}  // namespace nvadmin
