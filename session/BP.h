// The entry object: all that the engine asks of the add-in comes in here.
#pragma once

#include <string_view>

#include "session/EngineCallBack.h"

namespace nvadmin {

// Has no fields of its own: what a session remembers lives in SessionState, one copy per thread, so all BP
// objects of one thread share it. Drive a BP on the thread that made it, and give every session a new thread.
//
// Expected order of calls: CallBack, CmdSentence, Query or UMenu, CallBackClose. CmdSentence and Query may
// repeat while the engine is lent. BP catches nothing: a failure of the engine, of the helper or of a routine
// leaves the member that was called. So does the failure that follows when the port is lost
// ("<&PORT_DISCONNECT>" as input).
class BP {
 public:
  // Lends the engine until CallBackClose and runs the start-up sequence; nullptr only takes the engine away.
  // A further call with an engine runs the whole sequence again: account and datastore word are read afresh,
  // the item cache stays.
  void CallBack(EngineCallBack* value);
  // Takes the engine away; all else that the session remembers stays.
  void CallBackClose();
  // The sentence that Query will serve, kept exactly as it is.
  void CmdSentence(std::string_view text);
  // Does nothing, at any time.
  void Test();
  // Runs the Admin Menu until its user leaves it.
  void UMenu();
  // Serves the sentence by its first word, in any letter case, and returns when that is done. A word that the
  // add-in doesn't serve returns at once, without output.
  void Query();
};

}  // namespace nvadmin
