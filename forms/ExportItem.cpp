#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "forms/ExportForms.h"
#include "forms/FormExchange.h"
#include "forms/TransferItem.h"
#include "forms/basIO.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

struct ExportForm {
  std::string SourceName;
  std::string SourceVar;
  std::string ItemId;
  std::string ToFile;
};

std::string Draw() {
  std::vector<FormElement> elements;
  AddExportSource(elements);
  AddLabelledField(elements, kExportFrom, 10, "Item/Record", "", "fx4");
  elements.push_back({Builder::kLabel, 50, 4, 0, "To: TransferItem file name"});
  elements.push_back({Builder::kInput, 50, 6, 25, "", "fx5"});
  AddButtons(elements, 50, 8, kButtonFocus);
  return DrawElements(elements);
}

void EnterAccount(ExportForm& /*form*/, const std::string& value) { ChangeAccount(value); }

void EnterSource(ExportForm& form, const std::string& value) {
  if (OpenFileField(value, form.SourceName, form.SourceVar)) PrintWords({"VALID|fx3"});
}

// The file's name follows the item ID: at once where there is none yet, else when the user says so.
void EnterItemId(ExportForm& form, const std::string& value) {
  form.ItemId = value;
  if (form.ToFile.empty()) {
    form.ToFile = form.ItemId;
    return PrintWords({"FOCUS|fx5"});
  }
  PPrint(Concat({"MSGBOX|Change TransferItem file name to '", value, "' ?\\vbYesNo"}), /*lineEnd=*/true);
  std::string answer;
  IInput(answer);
  if (answer != "Y") return PrintWords({"VALUE|fx5"});
  form.ToFile = form.ItemId;
  PrintWords({"VALID|fx5=", form.ToFile});
}

void EnterFileName(ExportForm& form, const std::string& value) {
  form.ToFile = value;
  PrintWords({"VALID|fx5"});
}

void ExportFile(ExportForm& form, const std::string& /*value*/) {
  if (!FileIsOpenOrReply(form.SourceName, form.SourceVar, kOtherFileAdvice)) return;
  std::string item;
  if (!RREAD(item, form.SourceVar, form.ItemId)) return TellReadFailed(RefusalOf(form.ItemId));
  OpenTransferFolder(kTransferItem).WriteFile(form.ToFile, FileTextOfItem(item));
  PrintWords({"MSGBOX|Item/Record '", form.ItemId, "' exported."});
  form.ToFile.clear();
  form.ItemId.clear();
  PrintWords({"^VALUE|fx4=^FOCUS|fx5="});
}

constexpr std::array<FormAction<ExportForm>, 5> kActions = {{
    {"fx5", EnterFileName},
    {"fx2", EnterAccount},
    {"fx3", EnterSource},
    {"fx4", EnterItemId},
    {kFileButton, ExportFile},
}};

}  // namespace

void ExportItem() {
  ExportForm form;
  PrintWords({kReplacePage, Draw(), "^FOCUS|fx2"});
  ServeForm<ExportForm>(form, kActions);
}

}  // namespace nvadmin
