// Sentences on single items. They go through the session's record access, so locks and limits hold for them
// as for a program.
#include <fmt/format.h>

#include <array>

#include "engine/Marks.h"
#include "engine/query/Words.h"
#include "engine/sentences/Arguments.h"
#include "engine/sentences/Printout.h"
#include "engine/sentences/VerbGroups.h"

namespace nvadmin::engine {

namespace {

constexpr int kHighestAttribute = 99999;

SentenceResult LastRefusal(EngineSession& session) { return {false, session.GetErrorDetail()}; }

SentenceResult ShowItem(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, fileVar, item;
  std::string_view id;
  if (!arguments.TakeFile(file) || !arguments.Take("item ID", id) || !arguments.End())
    return arguments.Refusal();
  if (session.OpenFile(file, fileVar) != kTrue || !session.ReadItem(item, fileVar, id))
    return LastRefusal(session);

  Printout printout(session);
  printout.Line(id);
  if (item.empty()) return printout.Done();
  int number = 1;
  for (std::size_t start = 0; start <= item.size(); ++number) {
    const std::size_t end = std::min(item.find(kAttributeMark, start), item.size());
    printout.Line(fmt::format("{:03} {}", number, std::string_view(item).substr(start, end - start)));
    start = end + 1;
  }
  return printout.Done();
}

SentenceResult PutAttribute(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, fileVar;
  std::string_view id, value;
  int attribute = 0;
  const bool read = arguments.TakeFile(file) && arguments.Take("item ID", id) &&
                    arguments.TakeNumber("attribute", 1, kHighestAttribute, attribute) &&
                    arguments.TakeRest("value", value);
  if (!read) return arguments.Refusal();
  if (session.OpenFile(file, fileVar) != kTrue) return LastRefusal(session);
  if (!session.WriteAttribute(value, fileVar, id, attribute)) return LastRefusal(session);
  Printout printout(session);
  printout.Line(fmt::format("attribute {} of item {} written", attribute, Quoted(id)));
  return printout.Done();
}

// Writes an item that must not be there yet. The lock keeps two sessions from making the same one; a lock
// that the session held before stays when nothing is written.
bool WriteNewItem(EngineSession& session, std::string_view item, std::string_view fileVar,
                  std::string_view id, SentenceResult& result) {
  const bool held = session.HoldsItem(fileVar, id);
  std::string existing;
  const bool exists = session.ReadItemLocked(existing, fileVar, id);
  result = LastRefusal(session);
  if (!result.text.empty()) return false;
  if (!exists && session.WriteItem(item, fileVar, id)) return true;

  result =
      exists
          ? SentenceResult{false,
                           fmt::format("item {} is there already; delete it first (DELETE-ITEM), or copy to "
                                       "another ID",
                                       Quoted(id))}
          : LastRefusal(session);
  if (!held) session.ReleaseItem(fileVar, id);
  return false;
}

SentenceResult CopyItem(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, targetFile;
  std::string_view id, newId;
  if (!arguments.TakeFile(file) || !arguments.Take("item ID", id)) return arguments.Refusal();
  targetFile = file;
  const bool toFile = arguments.TakeIf("TO");
  if (toFile && !arguments.TakeFile(targetFile)) return arguments.Refusal();
  newId = id;
  const bool sameId = toFile && arguments.AtEnd();
  if (!sameId && !arguments.Take("new item ID", newId)) return arguments.Refusal();
  if (!arguments.End()) return arguments.Refusal();

  std::string source, target, item;
  const bool opened =
      session.OpenFile(file, source) == kTrue && session.OpenFile(targetFile, target) == kTrue;
  if (!opened || !session.ReadItem(item, source, id)) return LastRefusal(session);
  SentenceResult result;
  if (!WriteNewItem(session, item, target, newId, result)) return result;
  Printout printout(session);
  printout.Line(fmt::format("item {} copied to item {} of {}", Quoted(id), Quoted(newId), targetFile));
  return printout.Done();
}

SentenceResult DeleteItems(EngineSession& session, std::string_view sentence) {
  Arguments arguments(sentence);
  std::string file, fileVar;
  if (!arguments.TakeFile(file)) return arguments.Refusal();
  // All words are read before the first item goes.
  std::vector<std::string_view> ids;
  do {
    std::string_view id;
    if (!arguments.Take("item ID", id)) return arguments.Refusal();
    ids.push_back(id);
  } while (!arguments.AtEnd());
  if (session.OpenFile(file, fileVar) != kTrue) return LastRefusal(session);

  std::string refusals;
  std::size_t deleted = 0;
  for (const std::string_view id : ids) {
    if (session.DeleteItem(fileVar, id)) {
      ++deleted;
    } else {
      refusals += "; " + session.GetErrorDetail();
    }
  }
  if (deleted < ids.size())
    return {false, fmt::format("{} of {} deleted{}", deleted, Counted(ids.size(), "item"), refusals)};
  Printout printout(session);
  printout.Line(Counted(deleted, "item") + " deleted");
  return printout.Done();
}

constexpr std::array<Verb, 4> kVerbs = {{
    {"CT", VerbKind::kPrints, ShowItem, "CT [DICT] file item", "Show an item, an attribute a line."},
    {"PUT", VerbKind::kPrints, PutAttribute, "PUT [DICT] file item attribute value",
     "Write an attribute: the rest of the line. Makes a missing item."},
    {"COPY-ITEM", VerbKind::kPrints, CopyItem, "COPY-ITEM [DICT] file item [TO [DICT] file] newitem",
     "Copy an item to a new ID, in this file or another."},
    {"DELETE-ITEM", VerbKind::kPrints, DeleteItems, "DELETE-ITEM [DICT] file item ...", "Delete items."},
}};

}  // namespace

std::span<const Verb> ItemVerbs() { return kVerbs; }

}  // namespace nvadmin::engine
