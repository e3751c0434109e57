// One session of the engine: what it lends to the add-in. It ties a port, the account's store, the locks, the
// result grid and the sentences together.
//
// Invariants: (1) Output commit: whatever the session wrote is on disk before any text of it leaves through
// the port and before it waits for input. (2) No transaction is open while it waits. (3) GetErrorDetail is
// empty after success; every false write or delete leaves a text; a missing item leaves a text after the
// plain reads and none after the locked reads. (4) The result grid changes only when a query or SQL SELECT
// ran; a failed one empties it.
//
// One exception to 1 and 2: behind a progress line (kProgressWord) of a port that shows pages, and across the
// ReadInput that takes its answer, writes may stay open until they are 10,000 items or half a second old. The
// line is one WriteOutput; any other text commits first.
//
// A session is used on one thread; Interrupt alone may come from another thread or a signal handler.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/Home.h"
#include "engine/LoadRecord.h"
#include "engine/Locks.h"
#include "engine/Port.h"
#include "engine/ResultGrid.h"
#include "engine/TranslationMemory.h"
#include "engine/query/Text.h"
#include "engine/stores/Store.h"
#include "session/EngineCallBack.h"

namespace nvadmin::engine {

// A write or delete that the session answered with false. Valid during the call that tells of it. No item
// contents.
struct RefusedWrite {
  std::string_view account, table, id, reason;  // table: empty when the FileVar was
  // All of it for a log: account, file and item are named, the item once.
  std::string Text() const;
};

struct SessionSettings {
  std::string account;
  std::string user;
  std::string from;  // where the user sits, as others see it: "terminal pts/3", "127.0.0.1:52110"
  // Whether the user may be in an account, which is there and given in capitals; empty: in every one.
  std::function<bool(std::string_view account)> mayEnter = {};
  // A delete of an item that isn't there is no refusal.
  std::function<void(const RefusedWrite&)> onRefusedWrite = {};
  // Takes a line about each load of a transfer file that handed something over.
  std::function<void(std::string_view line)> onLoad = {};
};

class EngineSession final : public EngineCallBack {
 public:
  // `home` and `port` are lent for the session's life. Fails when the account is unknown or not for this
  // user, or its store can't be opened.
  EngineSession(Home& home, Port& port, SessionSettings settings);
  ~EngineSession() override;
  EngineSession(const EngineSession&) = delete;
  EngineSession& operator=(const EngineSession&) = delete;

  // The border: see session/EngineCallBack.h.
  std::shared_ptr<SharedDictionary> GetSharedDictionary() override;
  std::string GetOutputMode() override;
  std::string GetResultCell(std::int32_t column, std::int32_t row) override;
  std::int32_t GetResultBound(std::int32_t dimension) override;
  std::string GetErrorDetail() override;
  bool ReadInput(std::string& target, std::int32_t length, bool lineEnd, float wait) override;
  void WriteOutput(std::string_view text, bool lineEnd) override;
  std::string CursorString(std::int32_t column, std::int32_t row) override;
  std::string ExecuteSentence(std::string_view sentence) override;
  VariantBool OpenFile(std::string_view name, std::string& fileVar) override;
  bool ReadItem(std::string& item, std::string_view fileVar, std::string_view id) override;
  bool ReadAttribute(std::string& value, std::string_view fileVar, std::string_view id,
                     std::int32_t attribute) override;
  bool ReadItemLocked(std::string& item, std::string_view fileVar, std::string_view id) override;
  bool ReadAttributeLocked(std::string& value, std::string_view fileVar, std::string_view id,
                           std::int32_t attribute) override;
  bool WriteItem(std::string_view item, std::string_view fileVar, std::string_view id) override;
  bool WriteItemKeepLock(std::string_view item, std::string_view fileVar, std::string_view id) override;
  bool WriteAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                      std::int32_t attribute) override;
  bool WriteAttributeKeepLock(std::string_view value, std::string_view fileVar, std::string_view id,
                              std::int32_t attribute) override;
  bool DeleteItem(std::string_view fileVar, std::string_view id) override;
  void ReleaseItem(std::string_view fileVar, std::string_view id) override;

  // For the TCL prompt.

  // Call before each sentence that a user typed, with its text. A list kept by SAVE-LIST or GET-LIST
  // restricts the next of them that is a query, wherever it is executed from; then it is gone, unless the
  // query was refused.
  void BeginTypedSentence(std::string_view sentence);
  // The text of the last sentence that failed since BeginTypedSentence; empty when none did.
  const std::string& TypedSentenceError() const { return typedSentenceError_; }
  // Commits what is open and ends the typed sentence: call it after each, also after a failure left it.
  void EndTypedSentence();

  const Account& CurrentAccount() const { return current_->account; }

  // For the host, which learns of it from the add-in: what is written between the two is a load.
  void BeginLoad(std::string_view path) { load_.Begin(path); }
  void EndLoad();

  // Stops the statement or output under way with an EngineFailure "interrupted", and so every further text,
  // input, sentence and item read, until the typed sentence ends or the next begins.
  void Interrupt() noexcept;

  // For the sentences (engine/sentences).

  // A line of the engine's own: WriteOutput is the add-in's.
  void PrintLine(std::string_view text);
  Home& SystemHome() { return home_; }
  Store& CurrentStore() { return *store_.load(std::memory_order_relaxed); }
  ResultGrid& Grid() { return grid_; }
  Locks& ItemLocks() { return locks_; }
  const LoadRecord& LastLoad() const { return load_; }
  const std::string& User() const { return settings_.user; }
  // The session's number, from 1, which no other living session on the home has.
  std::int32_t PortNumber() const { return locks_.Number(); }
  // Files opened before keep their FileVars; the list kept in another account is gone. False when there is no
  // such account, it isn't for this user, or its store can't be opened.
  bool EnterAccount(std::string_view name, std::string& error);
  // `account` in capitals.
  bool MayEnter(std::string_view account) const { return !settings_.mayEnter || settings_.mayEnter(account); }
  // The refusal of a file that the current account doesn't have.
  // `why`: the store's error.
  std::string UnknownFile(std::string_view name, std::string_view why) const;
  // Puts what is open on disk, then releases the locks that waited for it.
  void CommitWrites() {
    if (writing_ != nullptr) CommitOpenWrites();
  }
  // True when this session holds the item and no release of it is under way.
  bool HoldsItem(std::string_view fileVar, std::string_view id);
  // The list that restricts `sentence`: the active one when that is the typed sentence; null: none.
  const ResultGrid* ActiveListFor(std::string_view sentence) const;
  // The list that is kept for the next query; null: none.
  const ResultGrid* KeptList() const { return keptList_ ? &*keptList_ : nullptr; }
  bool IsTypedSentence(std::string_view sentence) const { return sentence == typedSentence_; }
  // Keeps the keys (column 0) of the grid for the next query that is typed.
  void KeepList();
  // Whether a report's cells go into the grid. Only a page of a native account takes them from there; a
  // terminal's report reads the items itself, and a list of a million of them should cost no more than their
  // keys.
  bool WantsReportCells() const { return CurrentAccount().IsNative() && port_.ShowsPages(); }

 private:
  // An account that the session has been in: its store stays open for the files opened there.
  struct EnteredAccount {
    Account account;
    std::unique_ptr<Store> store;
    // Index into files_ by the names used since the last wait or sentence: others may drop a file meanwhile.
    TextMap<std::int32_t> fileByName;
    std::unordered_map<TableHandle, std::int32_t> fileByTable;
  };

  struct OpenedFile {
    std::string fileVar;
    EnteredAccount* account = nullptr;
    TableHandle table = 0;
    std::string tableName;
    std::int32_t index = 0;
    std::int32_t targetsAtOnce = 0;  // that translations into it read in one batch
  };

  // Items read before they were asked for: those of `items`, for the grid's rows from firstRow on.
  struct ReadAhead {
    std::int32_t file = -1;  // -1: nothing is known of the walk
    std::int32_t firstRow = 0;
    std::int32_t kept = 0;     // entries of `items` that count
    std::int32_t nextRow = 0;  // where the next batch starts when the walk goes on in order
    std::int32_t batchSize = 0;
    std::int32_t served = 0;   // rows since the walk began or what was read ahead was dropped
    std::int32_t lastRow = 0;  // of these
    std::vector<BatchItem> items;
  };

  // The lock that was refused last.
  struct RefusedLock {
    std::int32_t file = -1;
    std::string id;
    std::chrono::steady_clock::time_point at;
  };

  // What a write puts into an item: all of it, or one attribute.
  struct Change {
    std::string_view text;
    bool isAttribute = false;
    std::int32_t attribute = 0;
  };
  enum class LockAfter { kReleased, kKept };
  class LockClaim;

  void InstallHooks();
  bool ReadForTranslation(std::string_view file, std::string_view id, std::string& item);
  std::int32_t FindTranslated(std::string_view file);
  void StopIfInterrupted() const;
  bool Refuse(std::string text);
  bool RefuseWrite(const OpenedFile* file, std::string_view id, std::string text);

  std::string UnknownAccount(std::string_view name) const;
  // Index of the file in the current account; -1 when there is none.
  std::int32_t FindOrOpen(std::string_view name, std::string& error);
  // Null, with the error detail, for an empty FileVar; fails for one that isn't this session's.
  const OpenedFile* FindFile(std::string_view fileVar);
  // The same for what takes a lock or writes. A store that failed has rolled back what was open: that is
  // settled first.
  const OpenedFile* FindFileToChange(std::string_view fileVar);
  void ForgetFileNames();

  const BatchItem* ReadAlong(const OpenedFile& file, std::string_view id);
  std::span<const BatchItem> AheadFrom(std::int32_t row) const;
  void FillReadAhead(const OpenedFile& file);
  void StartReadAhead(const OpenedFile& file);
  void DropReadAhead();
  std::vector<std::string_view> TargetsToCome(std::string_view file, std::string_view id,
                                              std::size_t most) const;
  // What was read ahead, and what translations remember.
  void ForgetItems();

  bool ReadLocked(std::string& text, std::string_view fileVar, std::string_view id,
                  const std::int32_t* attribute);
  bool PutFromLoad(std::string_view item, std::string_view fileVar, std::string_view id);
  bool Put(const Change& change, std::string_view fileVar, std::string_view id, LockAfter lockAfter);
  bool PutAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                    std::int32_t attribute, LockAfter lockAfter);

  void NoteRefusedLock(const OpenedFile& file, std::string_view id);
  void PauseBeforeRetry(const OpenedFile& file, std::string_view id);

  void BeginWrites(const OpenedFile& file);
  bool WritesMayStayOpen() const;
  void CommitOpenWrites();
  void ReleaseAtCommit(const OpenedFile& file, std::string_view id);
  void KeepAtCommit(const OpenedFile& file, std::string_view id);
  void ReleaseWaitingLocks();

  Home& home_;
  Port& port_;
  SessionSettings settings_;
  Locks locks_;
  std::unordered_map<std::string, std::unique_ptr<EnteredAccount>> accounts_;
  EnteredAccount* current_ = nullptr;
  std::atomic<Store*> store_ = nullptr;  // of current_; atomic for Interrupt
  std::deque<OpenedFile> files_;

  // The store whose writes are open: one at most, so that no two sessions wait crosswise.
  Store* writing_ = nullptr;
  std::chrono::steady_clock::time_point writesOpenSince_;
  std::int32_t writesQueued_ = 0;
  bool progressShown_ = false;
  std::set<std::pair<std::int32_t, std::string>> releaseAtCommit_;  // file index, item ID
  RefusedLock refusedLock_;
  LoadRecord load_;

  ResultGrid grid_;
  std::int32_t walkRow_ = 0;  // the row whose key was asked for last
  ReadAhead ahead_;
  TranslationMemory translations_{std::bind_front(&EngineSession::ReadForTranslation, this)};
  std::vector<BatchItem> targets_;         // of translations, read at once
  TextMap<std::int32_t> translatedFiles_;  // index into files_ by the names that codes use; -1: no such file
  std::string buffer_;                     // what the store reads into: arguments may alias the result

  std::string errorDetail_;
  std::string typedSentence_;
  std::string typedSentenceError_;
  std::optional<ResultGrid> keptList_;    // for the next query that is typed
  std::optional<ResultGrid> activeList_;  // for this one
  std::atomic<bool> interrupted_ = false;
};

}  // namespace nvadmin::engine
