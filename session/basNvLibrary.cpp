#include "session/basNvLibrary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "platform/Clock.h"
#include "session/EngineCallBack.h"
#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"

namespace nvadmin {

namespace {

constexpr std::string_view kPortDisconnect = "<&PORT_DISCONNECT>";
constexpr float kWaitForEver = -1.0F;
constexpr std::int32_t kNoLengthLimit = -1;
constexpr std::int32_t kNoListPosition = -2;
constexpr std::string_view kDeletedKey = "##Deleted##";
constexpr std::size_t kTracedItemCharacters = 40;

// The tables whose items enter the cache.
constexpr std::array<std::string_view, 6> kCachedTables = {"table",  "table_nv", "w3html",
                                                           "syscon", "w3syscon", "w3guests"};
// The verbs that leave a select list.
constexpr std::array<std::string_view, 6> kSelectFamily = {"SELECT",  "PSELECT", "QSELECT",
                                                           "SSELECT", "SORT",    "LIST"};

// --- Reading the optional arguments of IInput ---

[[noreturn]] void FailArgument(std::string_view text, std::string_view kind) {
  throw std::invalid_argument(Concat({"IInput: '", text, "' is not ", kind}));
}

std::int32_t WholeNumber(double number) {
  const double whole = std::nearbyint(number);
  if (!(std::abs(whole) <= std::numeric_limits<std::int32_t>::max())) {
    FailArgument(std::to_string(number), "a length");
  }
  return static_cast<std::int32_t>(whole);
}

// The number that an argument holds; nothing for a text that is none.
std::optional<double> NumberIn(const InputArgument& argument) {
  const auto* text = std::get_if<std::string>(&argument);
  if (text == nullptr) {
    return std::visit(
        [](const auto& value) {
          using Value = std::decay_t<decltype(value)>;
          if constexpr (std::is_same_v<Value, bool>) {
            return static_cast<double>(value ? kTrue : kFalse);
          } else if constexpr (std::is_arithmetic_v<Value>) {
            return static_cast<double>(value);
          } else {
            return 0.0;
          }
        },
        argument);
  }
  std::string_view digits = Trim(*text);
  if (!IsNumber(digits)) return std::nullopt;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  double number = HUGE_VAL;  // stays so when the digits are too many
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

// Only for arguments without a number in them, so for a text.
const std::string& TextIn(const InputArgument& argument) { return std::get<std::string>(argument); }

std::int32_t AsWholeNumber(const InputArgument& argument) {
  const std::optional<double> number = NumberIn(argument);
  if (!number) FailArgument(TextIn(argument), "a whole number");
  return WholeNumber(*number);
}

bool AsBoolean(const InputArgument& argument) {
  if (const std::optional<double> number = NumberIn(argument)) return *number != 0;
  const std::string& text = TextIn(argument);
  if (EqualInAnyCase(Trim(text), "true")) return true;
  if (!EqualInAnyCase(Trim(text), "false")) FailArgument(text, "a truth value");
  return false;
}

void ReadLine(std::string& target, std::int32_t length, bool lineEnd) {
  LentEngine().ReadInput(target, length, lineEnd, kWaitForEver);
  if (target == kPortDisconnect) Session().Engine = nullptr;
}

// --- The item cache ---

// The FileVar's second word: the table's name.
std::string_view TableName(std::string_view fileVar) {
  const std::size_t first = fileVar.find('.');
  if (first == std::string_view::npos) return {};
  const std::string_view rest = fileVar.substr(first + 1);
  return rest.substr(0, rest.find('.'));
}

// Only items of the six tables are ever in the cache, so no other item needs to be looked for. An ID that
// holds an attribute mark is no single key of the list of keys: it is never cached.
bool MayBeCached(std::string_view fileVar, std::string_view id) {
  const std::string_view table = TableName(fileVar);
  const bool listed = std::any_of(kCachedTables.begin(), kCachedTables.end(),
                                  [table](std::string_view word) { return EqualInAnyCase(table, word); });
  return listed && id.find(AttributeMark) == std::string_view::npos;
}

std::string CacheKey(std::string_view fileVar, std::string_view id) {
  return Concat({fileVar, ValueMark, id});
}

// Body of the cached item, or null.
std::string* FindCached(std::string_view fileVar, std::string_view id) {
  SessionState& session = Session();
  if (session.ItemCachePositions.empty() || !MayBeCached(fileVar, id)) return nullptr;
  const auto found = session.ItemCachePositions.find(CacheKey(fileVar, id));
  return found == session.ItemCachePositions.end() ? nullptr : &session.ItemCacheValues[found->second];
}

void AddToCache(std::string_view fileVar, std::string_view id, std::string_view item) {
  SessionState& session = Session();
  session.ItemCacheKeys.push_back(CacheKey(fileVar, id));
  session.ItemCacheValues.emplace_back(item);
  session.ItemCachePositions.emplace(session.ItemCacheKeys.back(), session.ItemCacheKeys.size() - 1);
}

void RetireCached(std::string_view fileVar, std::string_view id) {
  SessionState& session = Session();
  if (session.ItemCachePositions.empty()) return;
  const auto found = session.ItemCachePositions.find(CacheKey(fileVar, id));
  if (found == session.ItemCachePositions.end()) return;
  session.ItemCacheKeys[found->second] = kDeletedKey;
  session.ItemCachePositions.erase(found);
}

// --- Record access ---

// Whether the ID is empty, with the guard's trace line.
bool IsGuarded(std::string_view word, std::string_view fileVar, std::string_view id) {
  if (!id.empty()) return false;
  LogLine({word, " ALERT, ItemID = '' so exit function (FV = '", fileVar, "')"});
  return true;
}

// Asks for the error detail and traces it. True when there is none.
bool WentWell(std::string_view word) {
  const std::string detail = ErrorDetail();
  if (detail.empty()) return true;
  LogLine({word, " ErrorDetail = ", detail});
  return false;
}

// The table name under which a relational datastore knows a file.
void MapFileName(std::string& name) {
  constexpr std::string_view kDictPrefix = "dict ";
  name = ToLower(name);
  std::replace(name.begin(), name.end(), '.', '_');
  std::replace(name.begin(), name.end(), '-', '_');
  if (name.starts_with(kDictPrefix)) {
    name = Concat({Trim(std::string_view(name).substr(kDictPrefix.size())), "_dict"});
  }
  if (name == "table" || name == "key") name += "_nv";
}

using ItemWrite = bool (EngineCallBack::*)(std::string_view, std::string_view, std::string_view);
using AttributeWrite = bool (EngineCallBack::*)(std::string_view, std::string_view, std::string_view,
                                                std::int32_t);

bool WriteWholeItem(std::string_view word, ItemWrite write, std::string_view item, std::string_view fileVar,
                    std::string_view id) {
  if (IsGuarded(word, fileVar, id)) return false;
  const bool ok = (LentEngine().*write)(item, fileVar, id);
  if (!WentWell(word)) return ok;
  if (std::string* cached = FindCached(fileVar, id)) cached->assign(item);
  return ok;
}

bool WriteOneAttribute(std::string_view word, AttributeWrite write, std::string_view value,
                       std::string_view fileVar, std::string_view id, std::int32_t attribute) {
  if (IsGuarded(word, fileVar, id)) return false;
  const bool ok = (LentEngine().*write)(value, fileVar, id, attribute);
  if (!WentWell(word)) return ok;
  if (std::string* cached = FindCached(fileVar, id)) *cached = RReplace(*cached, attribute, value);
  return ok;
}

}  // namespace

// --- Terminal input and output ---

void PPrint(std::string_view text, bool lineEnd) { LentEngine().WriteOutput(text, lineEnd); }

void PPrint(std::int64_t number, bool lineEnd) { PPrint(std::to_string(number), lineEnd); }

void IInput(std::string& target) { ReadLine(target, kNoLengthLimit, true); }

void IInput(std::string& target, const InputArgument& a) {
  if (std::holds_alternative<std::int16_t>(a) || std::holds_alternative<std::int32_t>(a) ||
      std::holds_alternative<float>(a)) {
    return ReadLine(target, AsWholeNumber(a), true);
  }
  const auto* text = std::get_if<std::string>(&a);
  if (text != nullptr && Trim(*text) == ":") return ReadLine(target, kNoLengthLimit, false);
  if (text != nullptr && IsNumber(Trim(*text))) return ReadLine(target, AsWholeNumber(a), true);
  ReadLine(target, kNoLengthLimit, AsBoolean(a));
}

void IInput(std::string& target, const InputArgument& a, const InputArgument& b) {
  ReadLine(target, AsWholeNumber(a), AsBoolean(b));
}

std::string CursorAt(std::int32_t column, std::int32_t row) { return LentEngine().CursorString(column, row); }

std::string ErrorDetail() { return LentEngine().GetErrorDetail(); }

void LogLine(std::initializer_list<std::string_view> message) {
  SessionState& session = Session();
  if (!session.DebugLog || !session.LogChannel) return;
  std::array<char, 64> timer{};
  const auto end = std::to_chars(timer.data(), timer.data() + timer.size(), SecondsSinceMidnight(),
                                 std::chars_format::fixed);
  std::string line(timer.data(), end.ptr);
  line += ' ';
  line += Concat(message);
  session.LogChannel(line);
}

void TraceTo(std::function<void(std::string_view line)> channel) {
  SessionState& session = Session();
  session.LogChannel = std::move(channel);
  session.DebugLog = static_cast<bool>(session.LogChannel);
}

// --- Record access ---

bool OOpen(std::string& name, std::string& fileVar) {
  if (!Session().DatastoreKind.starts_with("MV")) MapFileName(name);
  const VariantBool answer = LentEngine().OpenFile(name, fileVar);
  if (answer != kTrue) {
    LogLine({"OOpen ERROR! '", name, "' ", ErrorDetail()});
    return false;
  }
  std::erase(fileVar, ' ');
  return true;
}

bool RREAD(std::string& item, std::string_view fileVar, std::string_view id) {
  if (IsGuarded("RREAD", fileVar, id)) {
    item.clear();
    return false;
  }
  if (fileVar.empty()) {
    LogLine({"RREAD ALERT, FileVariable = '' so exit function."});
    item.clear();
    return false;
  }
  if (const std::string* cached = FindCached(fileVar, id)) {
    item = *cached;
    LogLine({"   RREAD CACHED Item ", std::string_view(item).substr(0, kTracedItemCharacters), " ..."});
    return true;
  }
  const bool ok = LentEngine().ReadItem(item, fileVar, id);
  const std::string detail = ErrorDetail();
  if (!detail.empty()) {
    LogLine({"RREAD ErrorDetail = ", detail, CrLf, "    FV = ", fileVar, ", ID = ", id});
  }
  if (ok && MayBeCached(fileVar, id)) AddToCache(fileVar, id, item);
  return ok;
}

bool RREADU(std::string& item, std::string_view fileVar, std::string_view id) {
  if (IsGuarded("RREADU", fileVar, id)) {
    item.clear();
    return false;
  }
  const bool ok = LentEngine().ReadItemLocked(item, fileVar, id);
  WentWell("RREADU");
  return ok;
}

bool RREADV(std::string& value, std::string_view fileVar, std::string_view id, std::int32_t attribute) {
  if (IsGuarded("RREADV", fileVar, id)) {
    value.clear();
    return false;
  }
  if (const std::string* cached = FindCached(fileVar, id)) {
    value = EExtract(*cached, attribute, 0, 0);
    return true;
  }
  const bool ok = LentEngine().ReadAttribute(value, fileVar, id, attribute);
  WentWell("RREADV");
  return ok;
}

bool RREADVU(std::string& value, std::string_view fileVar, std::string_view id, std::int32_t attribute) {
  if (IsGuarded("RReadVU", fileVar, id)) {
    value.clear();
    return false;
  }
  const bool ok = LentEngine().ReadAttributeLocked(value, fileVar, id, attribute);
  WentWell("RREADVU");
  return ok;
}

bool WWRITE(std::string_view item, std::string_view fileVar, std::string_view id) {
  return WriteWholeItem("WWRITE", &EngineCallBack::WriteItem, item, fileVar, id);
}

bool WWRITEU(std::string_view item, std::string_view fileVar, std::string_view id) {
  return WriteWholeItem("WWRITEU", &EngineCallBack::WriteItemKeepLock, item, fileVar, id);
}

bool WWRITEV(std::string_view value, std::string_view fileVar, std::string_view id, std::int32_t attribute) {
  return WriteOneAttribute("WWRITEV", &EngineCallBack::WriteAttribute, value, fileVar, id, attribute);
}

bool WWRITEVU(std::string_view value, std::string_view fileVar, std::string_view id, std::int32_t attribute) {
  return WriteOneAttribute("WWRITEVU", &EngineCallBack::WriteAttributeKeepLock, value, fileVar, id,
                           attribute);
}

bool DDELETE(std::string_view fileVar, std::string_view id) {
  LogLine({"Delete FV = ", fileVar, ", ID = ", id});
  const bool ok = LentEngine().DeleteItem(fileVar, id);
  const std::string detail = ErrorDetail();
  if (!detail.empty()) {
    LogLine({"Delete ERROR on Delete = ", detail});
  } else {
    RetireCached(fileVar, id);
  }
  LogLine({"   delete end function"});
  return ok;
}

void RRELEASE(std::string_view fileVar, std::string_view id) {
  LentEngine().ReleaseItem(fileVar, id);
  LogLine({"RELEASE FV = ", fileVar, ", ID = ", id});
}

// --- Sentences and select lists ---

std::string EExecute(std::string_view sentence) {
  std::string result = LentEngine().ExecuteSentence(sentence);
  const std::string firstWord = ToUpper(Trim(FField(sentence, " ", 1)));
  if (std::find(kSelectFamily.begin(), kSelectFamily.end(), firstWord) != kSelectFamily.end()) {
    Session().ListPosition = kNoListPosition;
    if (DDCount(result, AttributeMark) >= 2) Session().ListPosition = 0;
  }
  return result;
}

std::string ListItem(std::int32_t column, std::int32_t row) {
  return LentEngine().GetResultCell(column, row);
}

std::int32_t ListCount(std::int32_t dimension) { return LentEngine().GetResultBound(dimension); }

bool RReadNext(std::string& id, std::int32_t& position) {
  std::int32_t& listPosition = Session().ListPosition;
  if (listPosition == std::numeric_limits<std::int32_t>::max()) return false;
  position = ++listPosition;
  try {
    id = ListItem(0, listPosition);
    return true;
  } catch (...) {
    return false;  // the end of a list shows in no other way than a failure of the grid
  }
}

}  // namespace nvadmin
