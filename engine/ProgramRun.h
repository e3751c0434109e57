// One run of one program, so that another program can tell whether it still goes on.
#pragma once

#include <cstdint>
#include <string>

namespace nvadmin::engine {

struct ProgramRun {
  // What makes a pid unique: this boot of this kernel, and the pid namespace; empty where the system doesn't
  // tell.
  std::string machine;
  std::int64_t pid = 0;
  std::int64_t started = 0;  // in the system's ticks; 0: not known
};

ProgramRun ThisRun();

// Whether `run`, which must be of this machine, goes on. One that can't be looked into counts as running; a
// corpse that its parent hasn't fetched yet, or a later program with the same pid, doesn't.
bool IsRunning(const ProgramRun& run);

}  // namespace nvadmin::engine
