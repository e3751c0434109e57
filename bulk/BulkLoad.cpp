#include "bulk/BulkLoad.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bulk/BinaryFileProvider.h"
#include "bulk/TableCreation.h"
#include "bulk/TransferBulk.h"
#include "forms/FormExchange.h"
#include "forms/TransferItem.h"
#include "session/Marks.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::size_t kLongLine = 600;  // not decoded before the statistics
constexpr std::int32_t kLinesAProgress = 20;
constexpr std::string_view kAutoReply = "<AUTORX>";

enum class Reuse { kExistingElseNew, kNewAlways, kExistingElseSkip };
enum class Names { kAutomatic, kInteractiveSameNames, kInteractiveAll, kAutomaticButNames };

// What a select offers: its values are the numbers of the rows, from 1.
constexpr std::array<std::string_view, 3> kReuseWords = {"Use Existing else Create New", "Create New Always",
                                                         "Use Existing else Skip Not Existing"};
constexpr std::array<std::string_view, 4> kNamesWords = {
    "Automatic with Same Names", "Interactive but Auto-Same-Names", "Interactive All Properties",
    "Automatic except for Names"};

struct BulkForm {
  Folder Source;
  std::string BulkFile;
  Reuse ReuseOption = Reuse::kExistingElseNew;
  Names NamesOption = Names::kAutomatic;
};

struct Load {
  explicit Load(const BulkForm& form) : options(form) {}

  const BulkForm& options;
  std::int32_t TotalLines = 0;  // up to and including the start of the statistics
  std::int32_t LineNumber = 0;
  std::string TargetName;  // empty: items are passed over
  std::string TargetVar;
  bool TypeN = false;
  std::int32_t Columns = 0;

  bool AsksForNames() const {
    return options.NamesOption == Names::kInteractiveAll || options.NamesOption == Names::kAutomaticButNames;
  }
  bool IsInteractive() const {
    return options.NamesOption == Names::kInteractiveAll ||
           options.NamesOption == Names::kInteractiveSameNames;
  }
};

// --- The form ---

constexpr std::string_view kSelectEvent = " size=1 class=field1 onchange=\"JSCRIPT:EProcess(this);\">";

std::string FileSelect(const std::vector<std::string>& names) {
  std::string select = Concat({"<select id=fx1", kSelectEvent});
  std::string_view selected = " selected";
  for (const std::string& name : names) {
    select += Concat({"<option value=\"", name, "\"", selected, ">", name, "</option>"});
    selected = {};
  }
  return select + "</select>";
}

template <std::size_t kCount>
std::string WordSelect(std::string_view id, const std::array<std::string_view, kCount>& words) {
  std::string select = Concat({"<select id=", id, kSelectEvent});
  for (std::size_t index = 0; index < words.size(); ++index) {
    select += Concat({"<option value=", std::to_string(index + 1), index == 0 ? " selected" : "", ">",
                      words[index], "</option>"});
  }
  return select + "</select>";
}

std::string Draw(const std::vector<std::string>& names) {
  const bool isJet = Session().DatastoreKind == "JET";
  std::vector<FormElement> elements;
  AddHead(elements, "NVT_LOAD", "IMPORT from TransferBulk to File(s)/Table(s)");
  elements.push_back({Builder::kLabel, 1, 4, 0, "From TransferBulk (PseudoTape) File:"});
  elements.push_back({Builder::kLabel, 1, 5, 40, FileSelect(names)});
  elements.push_back({Builder::kLabel, 49, 4, 0,
                      Concat({"To Account/Database: ", isJet ? "(to change, exit and use 'logto')" : ""})});
  elements.push_back({Builder::kInput, 49, 5, 22, EExecute("ACCOUNT"), "fx2", "", isJet ? "DISABLED" : ""});
  elements.push_back({Builder::kLabel, 1, 8, 0, "Table(s)/File(s), Reuse vs Replace Options:"});
  elements.push_back({Builder::kLabel, 1, 9, 40, WordSelect("fx3", kReuseWords)});
  elements.push_back({Builder::kLabel, 1, 11, 0, "Table(s)/File(s), Automatic vs Manual:"});
  elements.push_back({Builder::kLabel, 1, 12, 40, WordSelect("fx4", kNamesWords)});
  AddButtons(elements, 49, 8, "");
  return DrawElements(elements);
}

void PickFile(BulkForm& form, const std::string& value) {
  form.BulkFile = value;
  PrintWords({"VALID|fx1"});
}

void EnterAccount(BulkForm& /*form*/, const std::string& value) { ChangeAccount(value); }

// The option of the number that `value` is; another value changes nothing.
template <typename Option>
void TakeOption(const std::string& value, std::size_t count, Option& option) {
  for (std::size_t number = 1; number <= count; ++number) {
    if (value == std::to_string(number)) option = static_cast<Option>(number - 1);
  }
}

void PickReuse(BulkForm& form, const std::string& value) {
  TakeOption(value, kReuseWords.size(), form.ReuseOption);
  PrintWords({"VALID|fx3"});
}

void PickNames(BulkForm& form, const std::string& value) {
  TakeOption(value, kNamesWords.size(), form.NamesOption);
  PrintWords({"VALID|fx4"});
}

// --- The screen ---

std::string At(std::int32_t column, std::int32_t row, std::initializer_list<std::string_view> pieces) {
  return CursorAt(column, row) + Concat(pieces);
}

std::string ClearedWorkArea() { return CursorAt(0, 6) + CursorAt(-3, -1); }

std::string ReadAnswer() {
  std::string answer;
  IInput(answer);
  return answer;
}

// Shows a line of progress, which the screen answers by itself.
void ShowProgress(std::string_view text) {
  PPrint(Concat({text, kAutoReply}), /*lineEnd=*/true);
  ReadAnswer();
}

std::string AskAtLine6(std::string_view text, std::string_view question) {
  PPrint(ClearedWorkArea(), /*lineEnd=*/false);
  PPrint(At(1, 6, {text}), /*lineEnd=*/false);
  PPrint(At(1, 7, {question}), /*lineEnd=*/false);
  return ReadAnswer();
}

void OpenBulkFile(const Load& load, BinaryFileProvider& file) {
  file.OOpen(load.options.Source.PathOf(load.options.BulkFile));
}

// --- The statistics pass ---

void TellFailed(std::string_view what, std::string_view targetName) {
  const std::string reason = ErrorDetail();
  PPrint(ClearedWorkArea(), /*lineEnd=*/true);
  ShowProgress(At(1, 6, {what, targetName}) + At(1, 8, {"System Error Message (if any) :"}) +
               At(1, 9, {reason}));
}

void TellCreated(const Load& load) {
  PPrint(ClearedWorkArea(), /*lineEnd=*/true);
  PPrint(At(1, 6, {"Successfully created '", load.TargetName, "'"}), /*lineEnd=*/false);
  if (load.TypeN) {
    PPrint(At(1, 7, {" as Type-N."}), /*lineEnd=*/true);
  } else {
    PPrint(At(1, 7, {" as Type-C with ", std::to_string(load.Columns + 1), " fields."}), /*lineEnd=*/true);
  }
  if (load.IsInteractive()) {
    PPrint(At(1, 9, {"Press (CR) to continue :"}), /*lineEnd=*/false);
    ReadAnswer();
  }
  EExecute("LISTF");
  ShowProgress("");
}

// The table's name as the record and, if the options say so, the user give it.
void NameTarget(Load& load, std::string_view record) {
  load.TargetName = TargetNameOf(AttributeView(record, 1));
  if (AttributeView(record, 2) == "1" || load.TargetName == kMasterDictionary) {
    load.TypeN = true;
    load.TargetName = DictionaryTargetName(std::move(load.TargetName));
  }
  if (!load.AsksForNames()) return;
  std::string name =
      AskAtLine6(Concat({"Default Table/Filename to generate or use is '", load.TargetName, "'."}),
                 "You can press (CR) to accept or enter a new name here  :");
  if (!name.empty()) load.TargetName = std::move(name);
}

// Whether the table is to be made; one that is to be made anew is dropped first.
bool IsToBeCreated(Load& load) {
  const bool exists = OOpen(load.TargetName, load.TargetVar);
  if (load.options.ReuseOption != Reuse::kNewAlways) return !exists;
  if (exists && EExecute(Concat({"DROP TABLE ", load.TargetName})) == "ERROR") {
    TellFailed("Failed to delete old '", load.TargetName);
  }
  return true;
}

void ChooseType(Load& load, std::string_view record) {
  const ColumnCounts counts = ReadColumnCounts(record);
  load.Columns = std::max({counts.first, counts.second, counts.third});
  if (load.Columns == 0) load.TypeN = true;
  if (load.TypeN) return;
  if (!load.IsInteractive()) {
    load.TypeN = load.TargetName == "bp";
    return;
  }
  const std::string answer =
      AskAtLine6(Concat({"'", load.TargetName, "' is about to be created as a TYPE-C, with approx ",
                         std::to_string(load.Columns + 1), " fields."}),
                 "You can press (CR) to accept or enter N to change to Type N  :");
  load.TypeN = ToUpper(Trim(answer)) == "N";
}

void ServeRecord(Load& load, std::string_view record) {
  load.TypeN = false;
  NameTarget(load, record);
  if (!IsToBeCreated(load)) return;
  ChooseType(load, record);
  const std::string sentence = BuildCreateTable(load.TargetName, record, load.TypeN, load.Columns);
  if (EExecute(sentence) == "ERROR") {
    TellFailed("Failed to create '", load.TargetName);
  } else {
    TellCreated(load);
  }
}

void RunStatisticsPass(Load& load, BinaryFileProvider& file) {
  ShowProgress(At(1, 4, {"Now scanning TransferBulk File for data properties and gathering statistics."}));
  OpenBulkFile(load, file);
  std::string buffer;
  bool inStatistics = false;
  while (!file.Eof()) {
    const std::string_view line = file.LineGet();
    if (!inStatistics) {
      ++load.TotalLines;
      if (line.size() >= kLongLine) continue;
    }
    const std::string_view decoded = DecodeBulkLine(file, line, buffer);
    if (decoded == kStatisticsEnd) break;
    if (inStatistics) {
      ServeRecord(load, decoded);
    } else {
      inStatistics = decoded == kStatisticsStart;
    }
  }
  file.CClose();
}

// --- The load pass ---

void OpenSection(Load& load, std::string_view line, bool isDictionary) {
  load.TargetName = TargetNameOf(NameInOpeningLine(line));
  if (isDictionary) load.TargetName = DictionaryTargetName(std::move(load.TargetName));
  ShowProgress(At(15, 6, {load.TargetName, std::string(16, ' ')}));
}

// A target that isn't there: the rest of its section is passed over. False: the user leaves the load.
bool UserSkipsTarget(Load& load) {
  PPrint(At(1, 24, {"Cannot find target '", load.TargetName, "' so skip. (CR)=continue, X+(CR)=exit :"}),
         /*lineEnd=*/false);
  if (ReadAnswer().find_first_of("Xx") != std::string::npos) return false;
  PPrint(At(1, 24, {std::string(50, ' ')}), /*lineEnd=*/false);
  load.TargetName.clear();
  return true;
}

bool WriteItemLine(Load& load, std::string_view line) {
  if (load.TargetName.empty()) return true;
  if (!OOpen(load.TargetName, load.TargetVar)) return UserSkipsTarget(load);
  const std::size_t mark = line.find(AttributeMark);
  if (mark != std::string_view::npos) {
    WWRITE(line.substr(mark + 1), load.TargetVar, line.substr(0, mark));
  } else if (!line.empty()) {
    WWRITE("", load.TargetVar, line);
  }
  return true;
}

std::string Counter(const Load& load) {
  return Concat({std::to_string(load.LineNumber), " / ", std::to_string(load.TotalLines)});
}

// False: the user left the load.
bool LoadLines(Load& load, BinaryFileProvider& file) {
  std::string buffer;
  while (!file.Eof()) {
    const std::string_view line = DecodeBulkLine(file, file.LineGet(), buffer);
    ++load.LineNumber;
    if (load.LineNumber % kLinesAProgress == 0) ShowProgress(At(15, 9, {Counter(load), "    "}));
    switch (const BulkLineKind kind = KindOfBulkLine(line)) {
      case BulkLineKind::kOpensDictionary:
      case BulkLineKind::kOpensData:
        OpenSection(load, line, kind == BulkLineKind::kOpensDictionary);
        break;
      case BulkLineKind::kCloses:
        load.TargetName.clear();
        break;
      case BulkLineKind::kEndsSections:
        return true;
      case BulkLineKind::kItem:
        if (!WriteItemLine(load, line)) return false;
        break;
    }
  }
  return true;
}

void RunLoadPass(Load& load, BinaryFileProvider& file) {
  OpenBulkFile(load, file);
  load.TargetName.clear();
  load.LineNumber = 0;
  PPrint(CursorAt(-1, -1), /*lineEnd=*/true);
  PPrint(At(1, 4, {"File properties analysed, now starting data load."}), /*lineEnd=*/true);
  PPrint(At(1, 6, {"Current File:"}), /*lineEnd=*/true);
  ShowProgress(At(1, 9, {"Counter     :"}) + At(15, 9, {Counter(load)}));
  const bool complete = LoadLines(load, file);
  file.CClose();
  if (!complete) return;
  PPrint(At(15, 9, {Counter(load), "      "}), /*lineEnd=*/true);
  PPrint(At(1, 11, {"PROCESS COMPLETE, press (CR) to return to Admin Menu :"}), /*lineEnd=*/true);
  ReadAnswer();
}

void RunLoad(BulkForm& form, const std::string& /*value*/) {
  PPrint(Concat({kTerminal, CursorAt(-1, -1)}), /*lineEnd=*/true);
  Load load(form);
  BinaryFileProvider file(kCodedBytes);
  if (form.ReuseOption != Reuse::kExistingElseSkip) RunStatisticsPass(load, file);
  RunLoadPass(load, file);
  PPrint(kTxStart, /*lineEnd=*/false);
}

constexpr std::array<FormAction<BulkForm>, 5> kActions = {{
    {"fx1", PickFile},
    {"fx2", EnterAccount},
    {"fx3", PickReuse},
    {"fx4", PickNames},
    {kFileButton, RunLoad, /*endsForm=*/true},
}};

}  // namespace

void BulkLoad() {
  Folder folder = OpenTransferFolder(kTransferBulk);
  const std::vector<std::string> names = folder.FileNames();
  if (names.empty()) {
    PrintWords(
        {"MSGBOX|There are no available TransferBulk Files to import from.  Place a Norvo TransferBulk "
         "(PseudoTape) file in the folder 'TransferBulk', then try again.",
         kTxEnd});
    PrintWords({kTxStart});
    return;
  }
  BulkForm form{std::move(folder), names.front()};
  PrintWords({kReplacePage, Draw(names)});
  ServeForm<BulkForm>(form, kActions);
}

}  // namespace nvadmin
