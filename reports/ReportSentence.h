// Takes a report sentence apart, after the engine has run it: the file, its dictionary, and what the engine's
// reply says of the columns. LIST and SORT take one path; selection, sort order and grammar are the engine's.
//
// The reply is a dynamic array. Its attribute 3 holds the column words (parted by ValueMark), 5 the options,
// 6 the modifiers. Order of calls: AnalyseReportSentence, then PrepareColumns (reports/Columns.h), then the
// walk of the select list.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin {

struct ReportSentence {
  std::string reply;      // the engine's, whole
  std::string askedName;  // the file as the sentence names it, before OOpen rewrote it
  // The same as OOpen rewrote it: the second word of the sentence, behind "dict" the third with "_dict"
  // behind it.
  std::string fileName;
  std::string dataFile;        // FileVar
  std::string dictionaryFile;  // FileVar; empty when the dictionary can't be opened
  std::string columnWords;     // parted by ValueMark
  std::string modifierList;    // the reply's attribute 6 between two ValueMarks
  bool showsItemId = true;     // false under ID-SUPP
};

// The reply's modifiers with a ValueMark at both ends, as the phrases are looked for in them.
std::string ModifierListOf(std::string_view reply);

// Runs the sentence through the engine and fills `report`. Empty when all went well; else the message that
// tells why the file can't be opened, for the caller to show, and the report is over. A sentence that the
// engine refuses isn't told here: it leaves no list, so the report shows no item.
std::string AnalyseReportSentence(std::string_view sentence, ReportSentence& report);

}  // namespace nvadmin
