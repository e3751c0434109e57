#include "forms/ExportForms.h"

#include "session/basNvLibrary.h"

namespace nvadmin {

void AddExportSource(std::vector<FormElement>& elements) {
  AddHead(elements, kItemFormWord, "EXPORT from Item/Record to TransferItem");
  elements.push_back({Builder::kLabel, 1, 4, 0, "From:"});
  AddLabelledField(elements, kExportFrom, 6, "Account/Database", EExecute("SYSTEM ACCOUNT"), "fx2");
  AddLabelledField(elements, kExportFrom, 8, "File/Table", "", "fx3");
}

void TellReadFailed(std::string_view reason) {
  PrintWords({"MSGBOX|Item Read from database fails.  System message(if any): '", reason, "'"});
}

}  // namespace nvadmin
