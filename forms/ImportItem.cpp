#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "forms/FormExchange.h"
#include "forms/TransferItem.h"
#include "forms/basIO.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

struct ImportForm {
  std::string FromFile;
  std::string TargetName;
  std::string TargetVar;
  std::string ItemId;
};

// The values aren't quoted: what a browser sends for a name with a blank is its affair.
std::string FileSelect(const std::vector<std::string>& names) {
  std::string select = "<select id=fx1 size=1 class=field1 onchange=\"JSCRIPT:EProcess(this);\">";
  std::string_view selected = " SELECTED";
  for (const std::string& name : names) {
    select += Concat({"<option value=", name, selected, ">", name});
    selected = {};
  }
  return select + "</select>";
}

std::string Draw(const std::vector<std::string>& names) {
  constexpr FieldColumns kTo = {32, 47, 49};
  std::vector<FormElement> elements;
  AddHead(elements, kItemFormWord, "IMPORT from TransferItem to Item/Record");
  elements.push_back({Builder::kLabel, 1, 4, 0, "From  TransferItem:"});
  elements.push_back({Builder::kLabel, 1, 6, 25, FileSelect(names)});
  elements.push_back({Builder::kLabel, 32, 4, 0, "To:"});
  AddLabelledField(elements, kTo, 6, "Account/Database", EExecute("ACCOUNT"), "fx2");
  AddLabelledField(elements, kTo, 8, "File/Table", "", "fx3");
  AddLabelledField(elements, kTo, 10, "Item/Record", "", "fx4");
  AddButtons(elements, 49, 13, kButtonFocus);
  return DrawElements(elements);
}

void PickFile(ImportForm& form, const std::string& value) {
  form.FromFile = value;
  if (form.ItemId.empty()) {
    form.ItemId = form.FromFile;
    PrintWords({"VALUE|fx4=", form.ItemId, "^VALID|fx1"});
  } else {
    PrintWords({"VALID|fx1"});
  }
}

void EnterAccount(ImportForm& /*form*/, const std::string& value) { ChangeAccount(value); }

void EnterTarget(ImportForm& form, const std::string& value) {
  if (OpenFileField(value, form.TargetName, form.TargetVar)) PrintWords({"VALID|fx3=", form.TargetName});
}

void EnterItemId(ImportForm& form, const std::string& value) {
  form.ItemId = value;
  PrintWords({"VALID|fx4=", value});
}

void TellWriteFailed(const ImportForm& form) {
  // Asked for first: the sentence below, a success, empties it.
  const std::string reason = RefusalOf(form.ItemId);
  PrintWords(
      {"MSGBOX|Write failed.  This is usually because the TransferItem has data attributes which "
       "mismatch, eg are too long for, the defined columns we are trying to write into.  '",
       EExecute("SYSTEM DATASTORE"),
       "' databases have much tighter column definition rules than the PICK-etc databases this data "
       "may have come from.  Check that this kind of data normally belongs in file/table '",
       form.TargetName, "'.   System Message(if any):  ", reason});
}

void ImportFile(ImportForm& form, const std::string& /*value*/) {
  if (!FileIsOpenOrReply(form.TargetName, form.TargetVar)) return;
  const std::string item = ItemOfFileText(OpenTransferFolder(kTransferItem).ReadFile(form.FromFile));
  if (!WWRITE(item, form.TargetVar, form.ItemId)) return TellWriteFailed(form);
  PrintWords({"MSGBOX|Item/Record '", form.ItemId, "' imported."});
  form.FromFile.clear();
  form.TargetName.clear();
  form.ItemId.clear();
  PrintWords({"^VALUE|fx1=^VALUE|fx3=^VALUE|fx4=^FOCUS|fx1"});
}

constexpr std::array<FormAction<ImportForm>, 5> kActions = {{
    {"fx1", PickFile},
    {"fx2", EnterAccount},
    {"fx3", EnterTarget},
    {"fx4", EnterItemId},
    {kFileButton, ImportFile},
}};

}  // namespace

void ImportItem() {
  const std::vector<std::string> names = OpenTransferFolder(kTransferItem).FileNames();
  if (names.empty()) {
    TakeTurn(
        "MSGBOX|There are no available Item-as-Files to import.  Put something in the folder "
        "'TransferItem', then try again!");
    return;
  }
  ImportForm form;
  form.FromFile = names.front();
  PrintWords({kReplacePage, Draw(names), "^FOCUS|fx1"});
  ServeForm<ImportForm>(form, kActions);
}

}  // namespace nvadmin
