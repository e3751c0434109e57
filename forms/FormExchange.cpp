#include "forms/FormExchange.h"

#include <utility>

#include "session/SessionState.h"
#include "session/Text.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr double kFieldWidth = 25;
constexpr double kButtonWidth = 5;
constexpr double kButtonStep = 6;

void TellInvalidFile(std::string_view name, std::string_view wordsBefore, std::string_view advice) {
  PrintWords({wordsBefore, "MSGBOX|'", name, "' is not a valid File/Table.", advice});
}

}  // namespace

std::string TakeTurn(std::string_view lastWords) {
  PPrint(Concat({lastWords, kTxEnd}), /*lineEnd=*/true);
  std::string reply;
  IInput(reply);
  PPrint(kTxStart, /*lineEnd=*/false);
  return reply;
}

void ReadFormReply(std::string_view line, FormReply& reply) {
  const std::size_t bar = line.find('|');
  if (bar == std::string_view::npos) {
    reply.id = ToUpper(line);
    return;
  }
  reply.id = line.substr(0, bar);
  reply.value = line.substr(bar + 1);
}

void PrintWords(std::initializer_list<std::string_view> pieces) { PPrint(Concat(pieces), /*lineEnd=*/false); }

std::string DrawElements(std::span<const FormElement> elements) {
  constexpr double kDefaultHeight = 0;
  std::string markup;
  for (const FormElement& element : elements) {
    element.build(element.column, element.row, element.width, kDefaultHeight, element.text, element.id,
                  element.styleClass, element.extra, markup);
  }
  return markup;
}

void AddHead(std::vector<FormElement>& elements, std::string_view formWord, std::string_view title) {
  elements.push_back({Builder::kLabel, 1, 0, 0, std::string(formWord), "", kTitleClass});
  elements.push_back({Builder::kLabel, 15, 0, 54, std::string(title), "", kTitleClass});
  elements.push_back({Builder::kLabel, 70, 0, 0, EExecute("USER 0"), "", kTitleClass});
}

void AddLabelledField(std::vector<FormElement>& elements, const FieldColumns& columns, double row,
                      std::string_view label, std::string_view text, std::string_view id) {
  elements.push_back({Builder::kLabel, columns.label, row, 0, std::string(label)});
  elements.push_back({Builder::kLabel, columns.colon, row, 0, ":"});
  elements.push_back({Builder::kInput, columns.field, row, kFieldWidth, std::string(text), id});
}

void AddButtons(std::vector<FormElement>& elements, double column, double row, std::string_view fileExtra) {
  elements.push_back(
      {Builder::kInput, column, row, kButtonWidth, "File", kFileButton, kButtonClass, fileExtra});
  elements.push_back(
      {Builder::kInput, column + kButtonStep, row, kButtonWidth, "Exit", kExitButton, kButtonClass});
}

void ChangeAccount(const std::string& account, std::string_view refusalWords) {
  if (EExecute(Concat({"LOGTO ", account})) == "OK") {
    PrintWords({"MSGBOX|You have now changed your login to account '", account, "'"});
    Session().CurrentAccount = account;
  } else {
    PrintWords({refusalWords, "MSGBOX|'", account, "' is not a valid account."});
  }
}

bool OpenFileField(std::string name, std::string& fileName, std::string& fileVar,
                   std::string_view refusalWords) {
  if (!OOpen(name, fileVar)) {
    TellInvalidFile(name, refusalWords, "");
    return false;
  }
  fileName = std::move(name);
  return true;
}

bool FileIsOpenOrReply(std::string& fileName, std::string& fileVar, std::string_view advice) {
  if (!fileVar.empty()) return true;
  if (fileName.empty()) {
    PrintWords({"MSGBOX|You need to enter a valid File/Table."});
  } else if (!OOpen(fileName, fileVar)) {
    TellInvalidFile(fileName, "", advice);
  }
  return false;
}

std::string RefusalOf(std::string_view itemId) { return itemId.empty() ? std::string() : ErrorDetail(); }

void AwaitPageReply() {
  std::string reply;
  IInput(reply);
  PPrint(kTerminal, /*lineEnd=*/true);
}

}  // namespace nvadmin
