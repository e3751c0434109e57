#include "engine/EngineSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <thread>
#include <unordered_set>

#include "engine/TransferFile.h"
#include "engine/query/Parse.h"
#include "engine/query/Text.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/RunSentence.h"
#include "engine/sentences/Sql.h"
#include "engine/stores/OpenStore.h"
#include "mv/DynamicArray.h"
#include "mv/EngineHooks.h"

namespace nvadmin::engine {

namespace {

constexpr std::string_view kDisconnected = "<&PORT_DISCONNECT>";

// Sentences that talk for as long as their port lives: for them the end of a pipe is the end of the port.
constexpr std::string_view kConversations[] = {"NV.BACKSRV", "MENU"};

constexpr std::string_view kLockRefused = "[920]";
constexpr auto kRetrySoon = std::chrono::milliseconds(20);
constexpr auto kRetryPause = std::chrono::milliseconds(2);

constexpr std::int32_t kMostOpenWrites = 10000;
constexpr auto kLongestOpen = std::chrono::milliseconds(500);

constexpr std::int32_t kFirstBatchItems = 16;
constexpr std::int32_t kLargestBatchItems = 256;
constexpr std::int32_t kBatchGrowth = 4;
constexpr std::size_t kMostAheadBytes = 4u << 20;

// The session whose hooks this thread's conversions use.
thread_local const EngineSession* hookOwner = nullptr;

// A FileVar is read by its "."; blanks in it get lost on the way.
std::string WithoutPeriods(std::string_view name) {
  std::string encoded;
  for (const char letter : name) {
    if (letter == '.' || letter == ' ' || letter == '%') {
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(letter));
    } else {
      encoded += letter;
    }
  }
  return encoded;
}

std::string MissingItem(std::string_view id, std::string_view table) {
  return fmt::format("item {} is not in table {}", Quoted(id), table);
}

// How many items to read at once behind a batch of `items` items that had so many bytes.
std::int32_t NextBatchSize(std::int32_t last, std::size_t items, std::size_t bytes) {
  const std::size_t average = bytes / items + 1;
  const std::size_t fitting = std::clamp<std::size_t>(kMostAheadBytes / average, 1, kLargestBatchItems);
  return std::min(last * kBatchGrowth, static_cast<std::int32_t>(fitting));
}

std::size_t LengthToMark(std::string_view text) {
  return static_cast<std::size_t>(std::find_if(text.begin(), text.end(), IsMark) - text.begin());
}

// The number of the first attribute that has the value, or subvalue; 0: none has.
std::int32_t FindValue(std::string_view item, std::string_view value) {
  for (std::int32_t attribute = 1;;) {
    const std::size_t length = LengthToMark(item);
    if (item.substr(0, length) == value) return attribute;
    if (length == item.size()) return 0;
    if (item[length] == kAttributeMark) ++attribute;
    item.remove_prefix(length + 1);
  }
}

}  // namespace

// A lock taken on the way to something that may yet fail: given back unless kept or held before.
class EngineSession::LockClaim {
 public:
  LockClaim(Locks& locks, const OpenedFile& file, std::string_view id)
      : locks_(locks), file_(file), id_(id) {}
  ~LockClaim() {
    if (!fresh_) return;
    // A lock that can't be given back stays until the session ends; the failure on the way here is told.
    try {
      locks_.Release(file_.account->account.name, file_.tableName, id_);
    } catch (const StoreFailure&) {
    }
  }
  LockClaim(const LockClaim&) = delete;
  LockClaim& operator=(const LockClaim&) = delete;

  bool Take(std::string& refusal) {
    const std::string& account = file_.account->account.name;
    const bool held = locks_.Holds(account, file_.tableName, id_);
    if (!locks_.Take(account, file_.tableName, id_, refusal)) return false;
    fresh_ = !held;
    return true;
  }
  void Keep() { fresh_ = false; }

 private:
  Locks& locks_;
  const OpenedFile& file_;
  std::string_view id_;
  bool fresh_ = false;
};

EngineSession::EngineSession(Home& home, Port& port, SessionSettings settings)
    : home_(home),
      port_(port),
      settings_(std::move(settings)),
      locks_(home.LocksFile(), settings_.user, settings_.from),
      load_(BulkFolder(home), settings_.onLoad) {
  std::string error;
  if (!EnterAccount(settings_.account, error)) throw EngineFailure(error);
  InstallHooks();
}

EngineSession::~EngineSession() {
  if (hookOwner == this) {
    mv::Hooks() = {};
    hookOwner = nullptr;
  }
  // A failure here loses only writes that nobody was told of.
  try {
    CommitWrites();
  } catch (const std::exception&) {
  }
}

void EngineSession::InstallHooks() {
  hookOwner = this;
  mv::Hooks().readItem = [this](std::string_view file, std::string_view id, std::string& item) {
    return translations_.Read(file, id, item);
  };
  mv::Hooks().sendToClient = [this](std::string_view text) { WriteOutput(text, true); };
}

bool EngineSession::ReadForTranslation(std::string_view file, std::string_view id, std::string& item) {
  StopIfInterrupted();
  const std::int32_t index = FindTranslated(file);
  if (index < 0 || id.empty()) return false;
  OpenedFile& opened = files_[index];
  const std::int32_t most = std::max(opened.targetsAtOnce, kFirstBatchItems);
  const std::vector<std::string_view> ids = TargetsToCome(file, id, static_cast<std::size_t>(most));
  if (ids.size() < 2) return CurrentStore().Read(opened.table, id, item);

  CurrentStore().ReadBatch(opened.table, ids, targets_);
  std::size_t bytes = 0;
  for (const BatchItem& target : targets_) bytes += target.item.size();
  for (std::size_t at = 1; at < ids.size(); ++at)
    translations_.Remember(file, ids[at], targets_[at].found, targets_[at].item);
  opened.targetsAtOnce = NextBatchSize(most, ids.size(), bytes);
  item.swap(targets_[0].item);
  return targets_[0].found;
}

// A file stays found for all of a sentence: one that others drop has no items, and made anew it is read as it
// is then.
std::int32_t EngineSession::FindTranslated(std::string_view file) {
  const auto known = translatedFiles_.find(file);
  if (known != translatedFiles_.end()) return known->second;
  std::string ignored;
  const std::int32_t index = FindOrOpen(file, ignored);
  translatedFiles_.emplace(file, index);
  return index;
}

// The item IDs to read when an item of a walk has `id` translated: that, and those that stand in the same
// attribute of the items to come, since these will be translated next.
std::vector<std::string_view> EngineSession::TargetsToCome(std::string_view file, std::string_view id,
                                                           std::size_t most) const {
  std::vector<std::string_view> ids = {id};
  const std::span<const BatchItem> items =
      ItemsToCome::All().empty() ? AheadFrom(walkRow_) : ItemsToCome::All();
  const std::int32_t attribute = items.empty() ? 0 : FindValue(items[0].item, id);
  if (attribute == 0) return ids;
  std::unordered_set<std::string_view> seen = {id};
  for (const BatchItem& item : items) {
    std::string_view rest = mv::Extract(item.item, attribute);
    while (!rest.empty()) {
      const std::string_view value = rest.substr(0, LengthToMark(rest));
      rest.remove_prefix(std::min(value.size() + 1, rest.size()));
      if (value.empty() || translations_.Knows(file, value) || !seen.insert(value).second) continue;
      ids.push_back(value);
      if (ids.size() == most) return ids;
    }
  }
  return ids;
}

void EngineSession::StopIfInterrupted() const {
  if (interrupted_.load(std::memory_order_relaxed)) throw EngineFailure("interrupted");
}

bool EngineSession::Refuse(std::string text) {
  errorDetail_ = std::move(text);
  return false;
}

// `file` null: the FileVar was empty, and the error detail says so.
bool EngineSession::RefuseWrite(const OpenedFile* file, std::string_view id, std::string text) {
  errorDetail_ = std::move(text);
  if (errorDetail_.starts_with(kLockRefused)) NoteRefusedLock(*file, id);
  if (settings_.onRefusedWrite) {
    settings_.onRefusedWrite({file != nullptr ? file->account->account.name : current_->account.name,
                              file != nullptr ? std::string_view(file->tableName) : std::string_view(), id,
                              errorDetail_});
  }
  return false;
}

std::string RefusedWrite::Text() const {
  const bool namesItem = reason.find(fmt::format("item {}", Quoted(id))) != std::string_view::npos;
  if (namesItem) return fmt::format("account {}: {}", account, reason);
  return fmt::format("account {}, file {}, item {}: {}", account, table, Quoted(id), reason);
}

// --- The result grid and the small services.

std::shared_ptr<SharedDictionary> EngineSession::GetSharedDictionary() { return nullptr; }

std::string EngineSession::GetOutputMode() { return port_.ShowsPages() ? "HTML" : ""; }

std::string EngineSession::GetResultCell(std::int32_t column, std::int32_t row) {
  const std::string_view cell = grid_.Cell(column, row);
  if (column == 0) walkRow_ = row;
  return std::string(cell);
}

std::int32_t EngineSession::GetResultBound(std::int32_t dimension) {
  if (dimension == 1) return grid_.HighestColumn();
  if (dimension == 2) return grid_.HighestRow();
  throw EngineFailure(fmt::format("the result grid has no dimension {}: 1 is columns, 2 is rows", dimension));
}

std::string EngineSession::GetErrorDetail() { return errorDetail_; }

std::string EngineSession::CursorString(std::int32_t column, std::int32_t row) {
  return port_.CursorString(column, row);
}

// --- Input and output.

bool EngineSession::ReadInput(std::string& target, std::int32_t length, bool lineEnd, float /*wait*/) {
  StopIfInterrupted();
  if (!(progressShown_ && WritesMayStayOpen())) CommitWrites();
  progressShown_ = false;
  ForgetFileNames();

  port_.Flush();
  const InputResult result = port_.ReadLine(target, length, lineEnd);
  // At the end of input nobody was waited for: a report that runs into a file is one piece.
  if (result != InputResult::kEnd) ForgetItems();
  StopIfInterrupted();
  switch (result) {
    case InputResult::kLine:
      break;
    case InputResult::kEnd: {
      const auto isTyped = [verb = FirstWord(typedSentence_)](std::string_view word) {
        return SameWord(word, verb);
      };
      target =
          std::any_of(std::begin(kConversations), std::end(kConversations), isTyped) ? kDisconnected : "";
      break;
    }
    case InputResult::kLost:
      target = kDisconnected;
      break;
  }
  return result == InputResult::kLine;
}

void EngineSession::WriteOutput(std::string_view text, bool lineEnd) {
  StopIfInterrupted();
  if (writing_ != nullptr) {
    progressShown_ = lineEnd && text.ends_with(kProgressWord) && port_.ShowsPages() && WritesMayStayOpen();
    if (!progressShown_) CommitOpenWrites();
  }
  port_.WriteMessage(text, lineEnd);
}

void EngineSession::PrintLine(std::string_view text) {
  StopIfInterrupted();
  progressShown_ = false;
  CommitWrites();
  port_.Write(text, /*lineEnd=*/true);
}

// --- Sentences.

std::string EngineSession::ExecuteSentence(std::string_view sentence) {
  StopIfInterrupted();
  ForgetFileNames();
  ForgetItems();
  translatedFiles_.clear();
  ahead_.file = -1;
  walkRow_ = 0;
  SentenceResult result = RunSentence(*this, sentence);
  if (result.ok) {
    errorDetail_.clear();
    return std::move(result.text);
  }
  errorDetail_ = std::move(result.text);
  typedSentenceError_ = errorDetail_;
  return "ERROR";
}

void EngineSession::BeginTypedSentence(std::string_view sentence) {
  typedSentence_ = sentence;
  typedSentenceError_.clear();
  activeList_.reset();
  if (FindQueryVerb(FirstWord(sentence)) != nullptr && !IsSql(sentence)) activeList_.swap(keptList_);
  interrupted_ = false;
}

void EngineSession::EndTypedSentence() {
  typedSentence_.clear();
  if (!typedSentenceError_.empty() && !keptList_) keptList_.swap(activeList_);
  activeList_.reset();
  interrupted_ = false;
  CommitWrites();
}

void EngineSession::Interrupt() noexcept {
  interrupted_ = true;
  if (Store* store = store_.load()) store->Interrupt();
}

const ResultGrid* EngineSession::ActiveListFor(std::string_view sentence) const {
  return IsTypedSentence(sentence) && activeList_ ? &*activeList_ : nullptr;
}

void EngineSession::KeepList() {
  ResultGrid list;
  list.Start(1);
  for (std::int32_t row = 1; row <= grid_.HighestRow(); ++row) list.AppendCell(grid_.Cell(0, row));
  keptList_ = std::move(list);
}

// --- Accounts and files.

bool EngineSession::EnterAccount(std::string_view name, std::string& error) {
  CommitWrites();
  const std::optional<Account> found = home_.FindAccount(name);
  if (!found || !MayEnter(found->name)) {
    error = UnknownAccount(name);
    return false;
  }
  std::unique_ptr<EnteredAccount>& entered = accounts_[found->name];
  if (entered == nullptr) {
    auto opened = std::make_unique<EnteredAccount>();
    opened->account = *found;
    try {
      opened->store = OpenStore(home_, *found);
      if (!found->store.empty()) locks_.UseServer(found->name, FindStorePlace(home_, *found));
    } catch (const EngineFailure& failure) {
      accounts_.erase(found->name);
      error = failure.what();
      return false;
    }
    entered = std::move(opened);
  }
  locks_.SetAccount(found->name);
  if (current_ != entered.get()) keptList_.reset();
  current_ = entered.get();
  store_ = current_->store.get();
  translations_.Forget();
  translatedFiles_.clear();
  return true;
}

// Who may not be everywhere doesn't learn what accounts there are besides.
std::string EngineSession::UnknownAccount(std::string_view name) const {
  if (settings_.mayEnter) {
    return fmt::format(
        "user {} has no account {}; the command 'nvadmin user accounts' sets a user's accounts",
        settings_.user, Quoted(name));
  }
  return fmt::format("there is no account {}; the command 'nvadmin account list' shows the accounts",
                     Quoted(name));
}

std::int32_t EngineSession::FindOrOpen(std::string_view name, std::string& error) {
  const auto known = current_->fileByName.find(name);
  if (known != current_->fileByName.end()) return known->second;

  TableHandle table = 0;
  if (!CurrentStore().OpenTable(name, table, error)) return -1;
  const auto [file, isNew] =
      current_->fileByTable.try_emplace(table, static_cast<std::int32_t>(files_.size()));
  if (isNew) {
    OpenedFile opened;
    opened.account = current_;
    opened.table = table;
    opened.tableName = CurrentStore().Describe(table).name;
    opened.index = file->second;
    opened.fileVar = fmt::format("{}.{}.{}", WithoutPeriods(current_->account.name),
                                 WithoutPeriods(opened.tableName), opened.index);
    files_.push_back(std::move(opened));
  }
  current_->fileByName.emplace(name, file->second);
  return file->second;
}

std::string EngineSession::UnknownFile(std::string_view name, std::string_view why) const {
  if (!why.empty() && !why.starts_with(kNoSuchTable))
    return fmt::format("file {} can't be opened: {}", Quoted(name), why);
  return fmt::format("file {} is not in account {}; LISTF lists the files", Quoted(name),
                     current_->account.name);
}

VariantBool EngineSession::OpenFile(std::string_view name, std::string& fileVar) {
  std::string error;
  const std::int32_t index = FindOrOpen(name, error);
  if (index < 0) {
    Refuse(UnknownFile(name, error));
    return kFalse;
  }
  errorDetail_.clear();
  fileVar = files_[index].fileVar;
  return kTrue;
}

const EngineSession::OpenedFile* EngineSession::FindFile(std::string_view fileVar) {
  errorDetail_.clear();
  if (fileVar.empty()) {
    Refuse("the FileVar is empty; open the file first");
    return nullptr;
  }
  const std::string_view number = fileVar.substr(fileVar.rfind('.') + 1);
  std::size_t index = files_.size();
  std::from_chars(number.data(), number.data() + number.size(), index);
  if (index < files_.size() && files_[index].fileVar == fileVar) return &files_[index];
  throw EngineFailure(fmt::format("{} is no FileVar of this session; open the file first", Quoted(fileVar)));
}

const EngineSession::OpenedFile* EngineSession::FindFileToChange(std::string_view fileVar) {
  if (writing_ != nullptr && !writing_->HasOpenWrites()) CommitOpenWrites();
  return FindFile(fileVar);
}

void EngineSession::ForgetItems() {
  DropReadAhead();
  translations_.Forget();
  std::erase_if(translatedFiles_, [](const auto& entry) { return entry.second < 0; });
}

void EngineSession::ForgetFileNames() {
  for (auto& [name, entered] : accounts_) entered->fileByName.clear();
}

// --- Reading.

bool EngineSession::ReadItem(std::string& item, std::string_view fileVar, std::string_view id) {
  StopIfInterrupted();
  const OpenedFile* file = FindFile(fileVar);
  bool found = false;
  buffer_.clear();
  if (file != nullptr) {
    if (const BatchItem* ahead = ReadAlong(*file, id)) {
      found = ahead->found;
      buffer_ = ahead->item;
    } else {
      found = file->account->store->Read(file->table, id, buffer_);
    }
    if (!found) Refuse(MissingItem(id, file->tableName));
  }
  item.swap(buffer_);
  return found;
}

bool EngineSession::ReadAttribute(std::string& value, std::string_view fileVar, std::string_view id,
                                  std::int32_t attribute) {
  StopIfInterrupted();
  const OpenedFile* file = FindFile(fileVar);
  bool found = false;
  buffer_.clear();
  if (file != nullptr) {
    found = file->account->store->ReadAttribute(file->table, id, attribute, buffer_);
    if (!found) Refuse(MissingItem(id, file->tableName));
  }
  value.swap(buffer_);
  return found;
}

// The item of the walk's row when it lies ready; null: it is to be read from the store. The first row of a
// walk is read plainly; the second one in order starts a batch.
const BatchItem* EngineSession::ReadAlong(const OpenedFile& file, std::string_view id) {
  std::string_view key;
  if (walkRow_ < 1 || !grid_.FindCell(0, walkRow_, key) || key != id) return nullptr;

  if (ahead_.file != file.index) {
    const bool servesAnother = ahead_.file >= 0 && walkRow_ < ahead_.nextRow;
    if (!servesAnother) StartReadAhead(file);
    return nullptr;
  }
  if (walkRow_ == ahead_.nextRow) FillReadAhead(file);
  const std::span<const BatchItem> ahead = AheadFrom(walkRow_);
  if (ahead.empty()) {
    StartReadAhead(file);
    return nullptr;
  }
  if (ahead_.lastRow != walkRow_) {
    ahead_.lastRow = walkRow_;
    ++ahead_.served;
  }
  return ahead.data();
}

// What is read ahead from a row on; nothing when that row isn't.
std::span<const BatchItem> EngineSession::AheadFrom(std::int32_t row) const {
  const std::int32_t within = row - ahead_.firstRow;
  if (ahead_.file < 0 || within < 0 || within >= ahead_.kept) return {};
  return std::span(ahead_.items).subspan(within);
}

void EngineSession::StartReadAhead(const OpenedFile& file) {
  ahead_.file = file.index;
  ahead_.kept = 0;
  ahead_.lastRow = walkRow_;
  ahead_.nextRow = walkRow_ + 1;
  ahead_.batchSize = kFirstBatchItems;
  ahead_.served = 1;
}

// A walk that goes on behind this, page by page perhaps, gets as many items at once as it took until now: a
// page costs one batch, and a walk that writes each of its items reads no other.
void EngineSession::DropReadAhead() {
  ahead_.kept = 0;
  if (ahead_.served == 0) return;
  ahead_.nextRow = ahead_.lastRow + 1;
  ahead_.batchSize = std::min(ahead_.served, kLargestBatchItems);
  ahead_.served = 0;
}

void EngineSession::FillReadAhead(const OpenedFile& file) {
  const std::int32_t count = std::min(ahead_.batchSize, grid_.HighestRow() - walkRow_ + 1);
  std::vector<std::string_view> ids(count);
  for (std::int32_t row = 0; row < count; ++row) grid_.FindCell(0, walkRow_ + row, ids[row]);
  ahead_.kept = 0;
  file.account->store->ReadBatch(file.table, ids, ahead_.items);

  // What lies beyond the limit is given back and read again when its turn comes.
  std::size_t bytes = 0;
  while (ahead_.kept < count && (ahead_.kept == 0 || bytes < kMostAheadBytes))
    bytes += ahead_.items[ahead_.kept++].item.size();
  ahead_.items.resize(ahead_.kept);
  ahead_.firstRow = walkRow_;
  ahead_.nextRow = walkRow_ + ahead_.kept;
  ahead_.batchSize = NextBatchSize(ahead_.batchSize, ahead_.kept, bytes);
}

// --- Locked reads, writes and locks.

bool EngineSession::ReadItemLocked(std::string& item, std::string_view fileVar, std::string_view id) {
  return ReadLocked(item, fileVar, id, nullptr);
}

bool EngineSession::ReadAttributeLocked(std::string& value, std::string_view fileVar, std::string_view id,
                                        std::int32_t attribute) {
  return ReadLocked(value, fileVar, id, &attribute);
}

// `attribute` null: the whole item.
bool EngineSession::ReadLocked(std::string& text, std::string_view fileVar, std::string_view id,
                               const std::int32_t* attribute) {
  StopIfInterrupted();
  const OpenedFile* file = FindFileToChange(fileVar);
  bool found = false;
  buffer_.clear();
  if (file != nullptr) {
    PauseBeforeRetry(*file, id);
    LockClaim claim(locks_, *file, id);
    if (claim.Take(errorDetail_)) {
      errorDetail_.clear();
      BeginWrites(*file);
      Store& store = *file->account->store;
      found = attribute == nullptr ? store.Read(file->table, id, buffer_)
                                   : store.ReadAttribute(file->table, id, *attribute, buffer_);
      KeepAtCommit(*file, id);
      claim.Keep();
    } else {
      NoteRefusedLock(*file, id);
    }
  }
  text.swap(buffer_);
  return found;
}

bool EngineSession::WriteItem(std::string_view item, std::string_view fileVar, std::string_view id) {
  if (load_.IsUnderWay()) return PutFromLoad(item, fileVar, id);
  return Put({.text = item}, fileVar, id, LockAfter::kReleased);
}

bool EngineSession::WriteItemKeepLock(std::string_view item, std::string_view fileVar, std::string_view id) {
  return Put({.text = item}, fileVar, id, LockAfter::kKept);
}

bool EngineSession::WriteAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                                   std::int32_t attribute) {
  return PutAttribute(value, fileVar, id, attribute, LockAfter::kReleased);
}

bool EngineSession::WriteAttributeKeepLock(std::string_view value, std::string_view fileVar,
                                           std::string_view id, std::int32_t attribute) {
  return PutAttribute(value, fileVar, id, attribute, LockAfter::kKept);
}

bool EngineSession::PutAttribute(std::string_view value, std::string_view fileVar, std::string_view id,
                                 std::int32_t attribute, LockAfter lockAfter) {
  return Put({.text = value, .isAttribute = true, .attribute = attribute}, fileVar, id, lockAfter);
}

bool EngineSession::PutFromLoad(std::string_view item, std::string_view fileVar, std::string_view id) {
  const OpenedFile* file = FindFileToChange(fileVar);
  if (file == nullptr) return RefuseWrite(nullptr, id, std::move(errorDetail_));
  const std::string& account = file->account->account.name;
  load_.HandOver(file->index, account, file->tableName);
  const bool isQueued = Put({.text = item}, fileVar, id, LockAfter::kReleased);
  if (isQueued) {
    load_.Queue();
  } else {
    load_.Refuse(id, item, RefusedWrite{account, file->tableName, id, errorDetail_}.Text());
  }
  return isQueued;
}

// What the load wrote last is on disk no later than anything that tells of it.
void EngineSession::EndLoad() {
  load_.End();
  if (writing_ == nullptr) load_.Settle(/*isKept=*/true);
}

bool EngineSession::Put(const Change& change, std::string_view fileVar, std::string_view id,
                        LockAfter lockAfter) {
  const OpenedFile* file = FindFileToChange(fileVar);
  if (file == nullptr) return RefuseWrite(nullptr, id, std::move(errorDetail_));
  const bool isAppended = change.attribute == -1;
  if (change.isAttribute && !isAppended && (change.attribute < 1 || change.attribute > mv::kMostAddedMarks)) {
    return RefuseWrite(
        file, id,
        fmt::format("attribute {} of item {} of table {} can't be written: attributes count from "
                    "1 to {}, and -1 appends one",
                    change.attribute, Quoted(id), file->tableName, mv::kMostAddedMarks));
  }
  if (id.empty()) {
    return RefuseWrite(file, id, fmt::format("an item of table {} can't have an empty ID", file->tableName));
  }
  ForgetItems();
  PauseBeforeRetry(*file, id);

  // The lock first, then the transaction; behind its start a write asks whether others hold the item, or its
  // own lock was taken from it.
  std::string error;
  LockClaim claim(locks_, *file, id);
  if (lockAfter == LockAfter::kKept && !claim.Take(error)) return RefuseWrite(file, id, std::move(error));
  BeginWrites(*file);
  if (!locks_.Check(file->account->account.name, file->tableName, id, error))
    return RefuseWrite(file, id, std::move(error));

  Store& store = *file->account->store;
  std::string changed;
  std::string_view item = change.text;
  if (change.isAttribute) {
    store.Read(file->table, id, buffer_);
    changed = mv::Replace(buffer_, change.attribute, 0, 0, change.text);
    item = changed;
  }
  if (!store.Write(file->table, id, item, error)) return RefuseWrite(file, id, std::move(error));

  ++writesQueued_;
  if (lockAfter == LockAfter::kKept) {
    KeepAtCommit(*file, id);
    claim.Keep();
  } else {
    ReleaseAtCommit(*file, id);
  }
  return true;
}

bool EngineSession::DeleteItem(std::string_view fileVar, std::string_view id) {
  const OpenedFile* file = FindFileToChange(fileVar);
  if (file == nullptr) return RefuseWrite(nullptr, id, std::move(errorDetail_));
  ForgetItems();
  PauseBeforeRetry(*file, id);
  BeginWrites(*file);
  std::string error;
  if (!locks_.Check(file->account->account.name, file->tableName, id, error))
    return RefuseWrite(file, id, std::move(error));

  Store& store = *file->account->store;
  const bool erased = store.Erase(file->table, id, error);
  const bool isGone = erased || !store.Read(file->table, id, buffer_);
  if (isGone) ReleaseAtCommit(*file, id);
  if (!erased) {
    if (error.empty()) error = MissingItem(id, file->tableName);
    return isGone ? Refuse(std::move(error)) : RefuseWrite(file, id, std::move(error));
  }
  ++writesQueued_;
  return true;
}

void EngineSession::ReleaseItem(std::string_view fileVar, std::string_view id) {
  if (fileVar.empty()) {
    errorDetail_.clear();
    if (!id.empty()) return;
    CommitWrites();
    return locks_.ReleaseAll();
  }
  const OpenedFile* file = FindFile(fileVar);
  if (id.empty()) {
    CommitWrites();
    return locks_.ReleaseTable(file->account->account.name, file->tableName);
  }
  if (writing_ != nullptr) return ReleaseAtCommit(*file, id);
  locks_.Release(file->account->account.name, file->tableName, id);
}

bool EngineSession::HoldsItem(std::string_view fileVar, std::string_view id) {
  const OpenedFile* file = FindFile(fileVar);
  return file != nullptr && locks_.Holds(file->account->account.name, file->tableName, id) &&
         !releaseAtCommit_.contains({file->index, std::string(id)});
}

void EngineSession::NoteRefusedLock(const OpenedFile& file, std::string_view id) {
  refusedLock_ = {file.index, std::string(id), std::chrono::steady_clock::now()};
}

// A session that asks at once for an item that it was just refused would keep the holder from the processor;
// so the second question, and every further one, waits a little before it is answered as any other.
void EngineSession::PauseBeforeRetry(const OpenedFile& file, std::string_view id) {
  if (refusedLock_.file != file.index || refusedLock_.id != id) return;
  if (std::chrono::steady_clock::now() - refusedLock_.at > kRetrySoon) return;
  CommitWrites();
  std::this_thread::sleep_for(kRetryPause);
  refusedLock_.file = -1;
}

void EngineSession::BeginWrites(const OpenedFile& file) {
  Store& store = *file.account->store;
  if (writing_ == &store) return;
  CommitWrites();
  store.BeginWrites();
  locks_.BeginChecks(file.account->account.name);
  writing_ = &store;
  writesOpenSince_ = std::chrono::steady_clock::now();
  writesQueued_ = 0;
}

bool EngineSession::WritesMayStayOpen() const {
  return writesQueued_ < kMostOpenWrites &&
         std::chrono::steady_clock::now() - writesOpenSince_ < kLongestOpen;
}

void EngineSession::CommitOpenWrites() {
  Store& store = *std::exchange(writing_, nullptr);
  const bool isKept = store.HasOpenWrites();  // a failure may have taken them along
  try {
    store.Commit();
  } catch (...) {
    load_.Settle(/*isKept=*/false);
    // What is lost is to be told, rather than that a lock stays.
    try {
      ReleaseWaitingLocks();
    } catch (const StoreFailure&) {
    }
    throw;
  }
  load_.Settle(isKept);
  ReleaseWaitingLocks();
}

void EngineSession::ReleaseAtCommit(const OpenedFile& file, std::string_view id) {
  if (!locks_.Holds(file.account->account.name, file.tableName, id)) return;
  releaseAtCommit_.emplace(file.index, id);
}

void EngineSession::KeepAtCommit(const OpenedFile& file, std::string_view id) {
  if (!releaseAtCommit_.empty()) releaseAtCommit_.erase({file.index, std::string(id)});
}

void EngineSession::ReleaseWaitingLocks() {
  for (const auto& [index, id] : std::exchange(releaseAtCommit_, {})) {
    const OpenedFile& file = files_[index];
    locks_.Release(file.account->account.name, file.tableName, id);
  }
}

}  // namespace nvadmin::engine
