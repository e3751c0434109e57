// What a session remembers: one copy a thread, reached directly and never passed. BP has no fields of its
// own. A session therefore has a thread of its own, never one of a pool: the state of the one before would
// still be there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "session/EngineCallBack.h"
#include "session/MvServices.h"

namespace nvadmin {

struct SessionState {
  // Lent by the engine from CallBack to CallBackClose; a lost port empties it too, and its use then fails.
  EngineCallBack* Engine = nullptr;
  // Held for the session; nothing is called on it.
  std::shared_ptr<nvadmin::SharedDictionary> SharedDictionary;
  std::unique_ptr<MvServices> Mv;
  std::string CurrentAccount;
  // "JET", "MSSQL", "MYSQL", "ORACLE", or a word that begins with "MV" for a native multivalue store.
  std::string DatastoreKind;
  // The sentence exactly as it was set.
  std::string CmdSentenceText;

  // The item cache, as basNvLibrary keeps it: key n ("FileVar, ValueMark, item ID") and body n belong
  // together and never move; index 0 is unused; a retired entry has the key "##Deleted##". The positions find
  // a key that isn't retired.
  std::vector<std::string> ItemCacheKeys{1};
  std::vector<std::string> ItemCacheValues{1};
  std::unordered_map<std::string, std::size_t> ItemCachePositions;

  // Row of the result grid read last; 0: a list stands ready; -2: the last select left none.
  std::int32_t ListPosition = 0;

  // The trace switch of LogLine and where its lines go; TraceTo sets both.
  bool DebugLog = false;
  std::function<void(std::string_view line)> LogChannel;
};

// The state of this thread.
SessionState& Session();

// The engine that is lent to this thread's session. Fails when none is.
EngineCallBack& LentEngine();

}  // namespace nvadmin
