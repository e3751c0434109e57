// What all forms share: the turn, the reply, the head, the account field, the page frame.
//
// A frame is the text between "<TX>" and "</TX>" and holds words parted by "^". A form routine is entered
// with a frame open and returns with one open; its handlers answer by printing words without a line end, and
// the next turn sends them. A handler that prints nothing sends an empty frame.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "forms/basNvWebM.h"

namespace nvadmin {

inline constexpr std::string_view kTxStart = "<TX>";
inline constexpr std::string_view kTxEnd = "</TX>";
inline constexpr std::string_view kReplacePage = "IREPLACE|doc1=";
inline constexpr std::string_view kTerminal = "<TERMINAL>";  // ends form mode

// --- Turns ---

// Sends the open frame, ended by `lastWords`, waits for the reply, and opens the next frame before anybody
// looks at the reply.
std::string TakeTurn(std::string_view lastWords = {});

// What the browser told. A reply without a bar is an id in capitals, which no field has, and leaves the value
// of the reply before.
struct FormReply {
  std::string id;
  std::string value;
};
void ReadFormReply(std::string_view line, FormReply& reply);

// What a form does on a reply for an id. `Form` is the form's state.
template <typename Form>
struct FormAction {
  std::string_view id;
  void (*act)(Form& form, const std::string& value);
  bool endsForm = false;
};

inline constexpr std::string_view kFileButton = "bx1";
inline constexpr std::string_view kExitButton = "bx2";

// Turns until the user leaves the form. A reply for an id without a row is ignored.
template <typename Form>
void ServeForm(Form& form, std::span<const FormAction<Form>> actions) {
  FormReply reply;
  while (true) {
    ReadFormReply(TakeTurn(), reply);
    if (reply.id == kExitButton) return;
    for (const FormAction<Form>& action : actions) {
      if (reply.id == action.id) {
        action.act(form, reply.value);
        if (action.endsForm) return;
        break;
      }
    }
  }
}

// Prints words into the open frame.
void PrintWords(std::initializer_list<std::string_view> pieces);

// --- Drawing ---

using BuilderRoutine = decltype(&FieldInput);
struct Builder {
  static constexpr BuilderRoutine kInput = FieldInput;
  static constexpr BuilderRoutine kLabel = FieldLabel;
  static constexpr BuilderRoutine kLink = FieldLink;
};

inline constexpr std::string_view kTitleClass = "title1";
inline constexpr std::string_view kButtonClass = "<button>";

// One element of a form: the builder and its arguments; those left out are 0 or empty.
struct FormElement {
  BuilderRoutine build;
  double column;
  double row;
  double width = 0;
  std::string text = {};
  std::string_view id = {};
  std::string_view styleClass = {};
  std::string_view extra = {};
};

// The markup of the elements, in their order.
std::string DrawElements(std::span<const FormElement> elements);

inline constexpr std::string_view kItemFormWord = "Vantero";
// The three titles of row 0. `formWord` stands first.
void AddHead(std::vector<FormElement>& elements, std::string_view formWord, std::string_view title);
// Where a label, its colon and its field stand in a row.
struct FieldColumns {
  double label;
  double colon;
  double field;
};
void AddLabelledField(std::vector<FormElement>& elements, const FieldColumns& columns, double row,
                      std::string_view label, std::string_view text, std::string_view id);
// The buttons that a form ends with: "File", with further attribute text, and "Exit" six columns to the
// right.
void AddButtons(std::vector<FormElement>& elements, double column, double row, std::string_view fileExtra);
inline constexpr std::string_view kButtonFocus = "onmouseover=JSCRIPT:XFocus(this);";

// --- Fields that several forms have ---

// The account field: logs on to the account of that name, and tells how it went. `refusalWords` go before the
// refusal.
void ChangeAccount(const std::string& account, std::string_view refusalWords = {});

// The file field. False: the file can't be opened, and the user was told, with `refusalWords` before it; then
// `fileName` and `fileVar` are as they were. Else they are those of the new file; the name as OOpen rewrote
// it.
bool OpenFileField(std::string name, std::string& fileName, std::string& fileVar,
                   std::string_view refusalWords = {});

// Whether a form's button may go on: its file is open. Else the user was told, or the file was opened just
// now and the button wants to be pressed again. `advice` ends the message about a file that doesn't open.
bool FileIsOpenOrReply(std::string& fileName, std::string& fileVar, std::string_view advice = {});

// The engine's reason why an item can't be read or written, right after the attempt. An empty ID is refused
// without asking the engine, and has none.
std::string RefusalOf(std::string_view itemId);

// --- Pages ---

// Waits for any reply to the page that was printed, and gives the terminal back. A user may leave a page open
// for hours: what it was made of should be gone by then.
void AwaitPageReply();

}  // namespace nvadmin
