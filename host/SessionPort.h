// What a session at the TCL prompt needs of its port beside what the engine needs.
#pragma once

#include <string>
#include <string_view>

#include "engine/Port.h"
#include "session/EngineCallBack.h"

namespace nvadmin::host {

// The port is gone; what() is empty where there is nothing to say (the reader of a pipe went away).
struct PortLost : EngineFailure {
  using EngineFailure::EngineFailure;
};

// Once the port is lost, each Write and Flush fails with PortLost, and each reading gives kLost.
class SessionPort : public engine::Port {
 public:
  // The next sentence typed at the prompt, which stands on the open line.
  virtual engine::InputResult ReadSentence(std::string& sentence) = 0;
  // Ends the open line, if there is one.
  virtual void EndOpenLine() = 0;
  // What stands on the line that was printed last and not ended; of a long one its start.
  virtual std::string_view OpenLine() const = 0;
  virtual bool IsLost() const = 0;
  // The user broke off behind the sentence that was taken last, perhaps before it was begun.
  virtual bool IsInterrupted() const { return false; }
  // Whoever looks on may be told: the session is in this account now.
  virtual void ShowAccount(std::string_view /*account*/) {}
  // Lines that came in but hold what the code page can't; each was refused by name.
  virtual int RefusedLines() const { return 0; }
};

}  // namespace nvadmin::host
