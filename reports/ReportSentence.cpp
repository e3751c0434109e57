#include "reports/ReportSentence.h"

#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kColumnWordsAttribute = 3;
constexpr std::int32_t kOptionsAttribute = 5;
constexpr std::int32_t kModifiersAttribute = 6;

// Trimmed, with one blank where several stood.
std::string Normalise(std::string_view sentence) {
  std::string result;
  result.reserve(sentence.size());
  for (char c : Trim(sentence)) {
    if (c != ' ' || result.empty() || result.back() != ' ') result += c;
  }
  return result;
}

// The file word of a normalised sentence. "LIST DICT F" reads the table F_dict; F keeps its letter case.
std::string ReportFileName(std::string_view normalised) {
  std::string copy(normalised);
  std::string name = FField(copy, " ", 2);
  if (ToLower(name) != "dict") return name;
  const std::string file = FField(copy, " ", 3);
  const std::string phrase = Concat({" dict ", file});
  const std::size_t at = FindInAnyCase(copy, phrase);
  if (at != std::string::npos) copy.replace(at, phrase.size(), Concat({" ", file, "_dict"}));
  return FField(copy, " ", 2);
}

}  // namespace

std::string ModifierListOf(std::string_view reply) {
  return Concat({ValueMark, EExtract(reply, kModifiersAttribute, 0, 0), ValueMark});
}

std::string AnalyseReportSentence(std::string_view sentence, ReportSentence& report) {
  report.reply = EExecute(sentence);
  report.columnWords = EExtract(report.reply, kColumnWordsAttribute, 0, 0);
  report.modifierList = ModifierListOf(report.reply);

  report.askedName = ReportFileName(Normalise(sentence));
  report.fileName = report.askedName;
  if (!OOpen(report.fileName, report.dataFile)) {
    return Concat(
        {"Can not open file/table '", report.fileName, "', System message(if any) = '", ErrorDetail(), "'"});
  }
  std::string dictionaryName = Concat({"DICT ", report.fileName});
  OOpen(dictionaryName, report.dictionaryFile);

  const std::string options = EExtract(report.reply, kOptionsAttribute, 0, 0);
  report.showsItemId = FindInAnyCase(options, "ID-SUPP") == std::string::npos;
  return {};
}

}  // namespace nvadmin
