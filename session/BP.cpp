#include "session/BP.h"

#include <algorithm>
#include <array>

#include "backserver/basNvBacksrv.h"
#include "forms/basMenus.h"
#include "queries/basTCLX.h"
#include "reports/TerminalReport.h"
#include "session/SessionState.h"
#include "session/Text.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

bool ShowsPages() { return LentEngine().GetOutputMode() == "HTML"; }

// A SELECT is SQL when its last character is ";" or when " FROM " stands in it.
bool IsSql(std::string_view sentence) {
  return sentence.ends_with(';') || FindInAnyCase(sentence, " FROM ") != std::string_view::npos;
}

void ServeSelect() {
  if (!IsSql(Session().CmdSentenceText)) return SelectAndSave();
  return ShowsPages() ? QueryPage() : QueryListing();
}

void ServeReport() { return ShowsPages() ? ReportPage() : TerminalReport(); }

struct ServedWord {
  std::string_view word;
  void (*serve)();
};

constexpr std::array<ServedWord, 6> kServedWords = {{
    {"NV.BACKSRV", BackServer},
    {"PSELECT", SelectAndSave},
    {"SSELECT", SelectAndSave},
    {"SELECT", ServeSelect},
    {"SORT", ServeReport},
    {"LIST", ServeReport},
}};

}  // namespace

void BP::CallBack(EngineCallBack* value) {
  SessionState& session = Session();
  session.Engine = value;
  if (value == nullptr) return;

  session.SharedDictionary = value->GetSharedDictionary();
  session.Mv = CreateMvServices();
  session.CurrentAccount = FField(EExecute("WHO"), " ", 2);
  session.DatastoreKind = EExecute("SYSTEM DATASTORE");
  session.Mv->OptionFlag1(true);
  session.Mv->OptionFlag2(true);
}

void BP::CallBackClose() { Session().Engine = nullptr; }

void BP::CmdSentence(std::string_view text) { Session().CmdSentenceText = text; }

void BP::Test() {}

void BP::UMenu() { AdminMenu(); }

void BP::Query() {
  const std::string word = ToUpper(FField(Session().CmdSentenceText, " ", 1));
  const auto served = std::find_if(kServedWords.begin(), kServedWords.end(),
                                   [&word](const ServedWord& row) { return row.word == word; });
  if (served != kServedWords.end()) served->serve();
}

}  // namespace nvadmin
