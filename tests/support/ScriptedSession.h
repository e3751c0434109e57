// A session on a scripted engine, logged on and with nothing on its record yet: the fixture of the add-in's
// tests. Every test starts with an empty SessionState.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "session/BP.h"
#include "session/SessionState.h"
#include "session/basNvLibrary.h"
#include "tests/support/ScriptedEngine.h"

namespace nvadmin::test {

class ScriptedSession : public testing::Test {
 protected:
  ScriptedSession() { LogOn("JET"); }
  ~ScriptedSession() override { Session() = {}; }

  // Starts afresh on a datastore of that word.
  void LogOn(std::string_view datastoreKind) {
    Session() = {};
    engine.Answer("WHO", "7 DEMO");
    engine.Answer("SYSTEM DATASTORE", datastoreKind);
    bp.CallBack(&engine);
    engine.Forget();
  }

  // Serves the sentence; what the user has seen.
  std::string Run(std::string_view sentence) {
    engine.Forget();
    bp.CmdSentence(sentence);
    bp.Query();
    return engine.Screen();
  }

  // Gathers the trace in `trace`, without the timer.
  void Trace() {
    TraceTo([this](std::string_view line) { trace += Shown(line.substr(line.find(' ') + 1)) + "\n"; });
  }

  ScriptedEngine engine;
  BP bp;
  std::string trace;
};

}  // namespace nvadmin::test
