#include "forms/basNvWebM.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <limits>

#include "session/Text.h"
#include "session/basNvFunctions.h"

namespace nvadmin {

namespace {

constexpr double kColumnPixels = 9;
constexpr double kRowPixels = 22;
constexpr std::size_t kDefaultWidth = 12;
constexpr double kDefaultLabelHeight = 0.9;
constexpr double kMostUnits = std::numeric_limits<double>::max() / kRowPixels;  // finite in pixels too

std::string Pixels(double units, double pixelsPerUnit) { return DecimalText(units * pixelsPerUnit) + "px"; }

std::string Left(const FieldArgument& column) { return Pixels(column.Number(), kColumnPixels); }
std::string Top(const FieldArgument& row) { return Pixels(row.Number(), kRowPixels); }

// In columns.
double UsedWidth(const FieldArgument& width, const FieldArgument& text) {
  if (width.Number() != 0) return width.Number();
  return static_cast<double>(text.IsGiven() ? text.Text().size() : kDefaultWidth);
}

void Add(std::string& out, std::initializer_list<std::string_view> pieces) {
  for (std::string_view piece : pieces) out.append(piece);
}

void AddUnquotedId(std::string& out, const FieldArgument& id) {
  if (id.IsGiven()) Add(out, {"id=", id.Text(), " "});
}

void AddClass(std::string& out, const FieldArgument& styleClass, std::string_view defaultClass) {
  Add(out, {"class=\"", styleClass.IsGiven() ? std::string_view(styleClass.Text()) : defaultClass, "\" "});
}

// What a class says of an input. The first row that fits decides.
struct InputKind {
  std::string_view word;   // what Class is, or begins with
  bool isWhole;            // Class is the word, and not only begins with it
  std::string_view type;   // of the element
  std::string_view style;  // what Class becomes; empty: unchanged
};
constexpr std::array<InputKind, 4> kInputKinds = {{
    {"button", false, "button", ""},
    {"<BUTTON>", true, "button", "button1"},
    {"checkbox", false, "checkbox", ""},
    {"<CHECKBOX>", true, "checkbox", "field1"},
}};

const InputKind* FindInputKind(std::string_view styleClass) {
  for (const InputKind& kind : kInputKinds) {
    const std::string_view compared = kind.isWhole ? styleClass : styleClass.substr(0, kind.word.size());
    if (CCompare(compared, "=", kind.word)) return &kind;
  }
  return nullptr;
}

std::string InputType(const InputKind* kind, const std::string& styleClass) {
  if (kind != nullptr) return std::string(kind->type);
  return styleClass.empty() ? "text" : styleClass;
}

}  // namespace

FieldArgument::FieldArgument(double number) : text_(DecimalText(number)) {}

double FieldArgument::Number() const { return std::clamp(LeadingDouble(text_), -kMostUnits, kMostUnits); }

bool FieldArgument::IsGiven() const { return CCompare(text_, ">", ""); }

void FieldInput(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
                const FieldArgument& Height, const FieldArgument& Text, const FieldArgument& Id,
                const FieldArgument& Class, const FieldArgument& Extra, std::string& Out) {
  const InputKind* kind = FindInputKind(Class.Text());
  const std::string type = InputType(kind, Class.Text());
  const FieldArgument styleClass = kind != nullptr && !kind->style.empty() ? kind->style : Class.Text();
  const double height = kind != nullptr || Height.Number() == 0 ? 1 : Height.Number();
  const double width = UsedWidth(Width, Text);

  const bool isArea = height != 1;
  if (isArea) {
    Out += "<textarea ";
    AddUnquotedId(Out, Id);
    Add(Out, {"cols=\"", DecimalText(width), "\" rows=\"", DecimalText(height), "\" wrap=\"physical\" "});
    Add(Out, {" style=\"top:", Top(Row), "; left:", Left(Col), "\" "});
  } else {
    Add(Out, {"<input type=", type, " "});
    AddUnquotedId(Out, Id);
    Add(Out,
        {" style=\"top:", Top(Row), "; left:", Left(Col), "; width:", Pixels(width, kColumnPixels), "\" "});
  }
  AddClass(Out, styleClass, "field1");
  const bool isChecked = type == "checkbox";
  if (Text.IsGiven()) {
    if (isChecked) {
      Add(Out, {"checked=", Text.Text(), " "});
    } else {
      Add(Out, {"value=\"", Text.Text(), "\" "});
    }
  }
  Add(Out, {type == "button" || isChecked ? "onClick" : "onChange", "=\"JSCRIPT:EProcess(this);\""});
  if (Extra.IsGiven()) Add(Out, {" ", Extra.Text()});
  Out += isArea ? "></textarea>" : "></input>";
}

void FieldLabel(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
                const FieldArgument& Height, const FieldArgument& Text, const FieldArgument& Id,
                const FieldArgument& Class, const FieldArgument& Extra, std::string& Out) {
  const double height = Height.Number() == 0 ? kDefaultLabelHeight : Height.Number();
  const double width = UsedWidth(Width, Text);
  Out += "<div ";
  if (Id.IsGiven()) Add(Out, {"id=\"", Id.Text(), "\" "});
  AddClass(Out, Class, "label1");
  if (Extra.IsGiven()) Add(Out, {" ", Extra.Text(), " "});
  Add(Out, {" style=\"top:", Top(Row), "; left:", Left(Col), "; height:", Pixels(height, kRowPixels),
            "; width:", Pixels(width, kColumnPixels), "\">"});
  if (OOConv(Text.Text(), "MCU") != "<CUSTOM>") Add(Out, {Text.Text(), "</div>"});
}

void FieldLink(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
               const FieldArgument& /*Height*/, const FieldArgument& Text, const FieldArgument& Id,
               const FieldArgument& /*Class*/, const FieldArgument& Extra, std::string& Out) {
  Out += "<input ";
  AddUnquotedId(Out, Id);
  Add(Out, {" style=\"top:", Top(Row), "; left:", Left(Col),
            "; width:", Pixels(UsedWidth(Width, Text), kColumnPixels), "\" "});
  Out += "class=\"customlink\" ";
  Add(Out, {"value=\"", Text.Text(), "\" "});
  Out +=
      "onClick=\"JSCRIPT:EProcess(this);\" onMouseover=\"JSCRIPT:HighLink(this);\" "
      "onMouseout=\"JSCRIPT:NormalLink(this);\"";
  if (Extra.IsGiven()) Add(Out, {" ", Extra.Text()});
  Out += "></input>";
}

}  // namespace nvadmin
