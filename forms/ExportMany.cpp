#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "forms/ExportForms.h"
#include "forms/FormExchange.h"
#include "forms/TransferItem.h"
#include "forms/basIO.h"
#include "session/Marks.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kMostItemsUnasked = 200;
constexpr std::string_view kNo = "ax2|<no>";

struct ExportManyForm {
  std::string SourceName;
  std::string SourceVar;
  std::string Query;
  std::string Subfolder;
};

std::string Draw() {
  std::vector<FormElement> elements;
  AddExportSource(elements);
  elements.push_back({Builder::kLabel, 1, 10, 0, "* = Export-all-items OR Enter a SELECT query  :"});
  elements.push_back({Builder::kInput, 1, 11, 44, "*", "fx4"});
  elements.push_back({Builder::kLabel, 50, 4, 0, "To: TransferItem subfolder"});
  elements.push_back({Builder::kInput, 50, 6, 25, "", "fx5", "", "disabled"});
  AddButtons(elements, 50, 8, kButtonFocus);
  return DrawElements(elements);
}

void EnterAccount(ExportManyForm& /*form*/, const std::string& value) { ChangeAccount(value, "REJECT|fx2^"); }

void EnterSource(ExportManyForm& form, const std::string& value) {
  if (!OpenFileField(value, form.SourceName, form.SourceVar, "REJECT|fx3^")) return;
  form.Subfolder = Concat({EExecute("SYSTEM ACCOUNT"), ".", form.SourceName});
  PPrint(Concat({"VALID|fx3^VALID|fx5=", form.Subfolder}), /*lineEnd=*/true);
}

void EnterQuery(ExportManyForm& form, const std::string& value) {
  form.Query = value;
  PrintWords({"VALID|fx4"});
}

void EnterSubfolder(ExportManyForm& form, const std::string& value) {
  form.Subfolder = value;
  PrintWords({"VALID|fx5"});
}

// Asks within a frame of its own. Any answer but no means yes.
bool UserAgrees(std::int32_t items) {
  PrintWords({"MSGBOX|Number of Items = ", std::to_string(items),
              ".  Warning: Large number so this could be slow.  Do you still wish to proceed? "
              "('Y' or Enter = Yes)\\vbYesNo"});
  PrintWords({kTxEnd});
  std::string answer;
  IInput(answer);
  PrintWords({kTxStart});
  return answer != kNo;
}

// Writes the items of the select list. An item that can't be read becomes its error text.
void WriteItems(const ExportManyForm& form, std::int32_t items) {
  const Folder folder = OpenTransferFolder(kTransferItem).MakeSubfolder(form.Subfolder);
  std::int32_t errors = 0;
  std::string item;
  for (std::int32_t row = 1; row <= items; ++row) {
    const std::string id = ListItem(0, row);
    const bool isRead = RREAD(item, form.SourceVar, id);
    // A read from the item cache leaves the text of the item before.
    if (std::string reason = ErrorDetail(); !isRead && !reason.empty()) {
      item = std::move(reason);
      ++errors;
    }
    folder.WriteFile(id, FileTextOfItem(item));
  }
  PrintWords({"MSGBOX|", std::to_string(items), " Items/Records exported.", CrLf, std::to_string(errors),
              " Errors detected."});
}

void RunExport(ExportManyForm& form) {
  const std::string_view query = Trim(form.Query);
  if (query.empty() || query == "*") form.Query = Concat({"SELECT ", form.SourceName});
  if (EExecute(form.Query) == "ERROR") return TellReadFailed(ErrorDetail());
  const std::int32_t items = ListCount(2);
  if (items > kMostItemsUnasked && !UserAgrees(items)) return PrintWords({"MSGBOX|Export Cancelled"});
  WriteItems(form, items);
}

void ExportFiles(ExportManyForm& form, const std::string& /*value*/) {
  if (!FileIsOpenOrReply(form.SourceName, form.SourceVar, kOtherFileAdvice)) return;
  RunExport(form);
  form.SourceName.clear();
  form.Subfolder.clear();
  form.Query.clear();
  PrintWords({"^VALUE|fx3=^VALUE|fx4=^VALUE|fx5=^FOCUS|fx3"});
}

constexpr std::array<FormAction<ExportManyForm>, 5> kActions = {{
    {"fx5", EnterSubfolder},
    {"fx2", EnterAccount},
    {"fx3", EnterSource},
    {"fx4", EnterQuery},
    {kFileButton, ExportFiles},
}};

}  // namespace

void ExportMany() {
  ExportManyForm form;
  PrintWords({kReplacePage, Draw(), "^FOCUS|fx2"});
  ServeForm<ExportManyForm>(form, kActions);
}

}  // namespace nvadmin
