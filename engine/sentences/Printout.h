// What a verb prints while it runs, and returns as its text when it is done.
#pragma once

#include <string>
#include <string_view>

#include "engine/EngineSession.h"
#include "engine/sentences/Verbs.h"

namespace nvadmin::engine {

class Printout {
 public:
  explicit Printout(EngineSession& session) : session_(session) {}

  void Line(std::string_view text) {
    session_.PrintLine(text);
    if (started_) text_ += "\r\n";
    text_ += text;
    started_ = true;
  }
  SentenceResult Done() { return {true, std::move(text_)}; }

 private:
  EngineSession& session_;
  std::string text_;
  bool started_ = false;
};

}  // namespace nvadmin::engine
