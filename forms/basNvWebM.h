// The field builders: each appends the markup of one element, placed on a character grid, to a text that the
// caller holds. They know nothing of the exchange with the browser, and print nothing.
//
// One column is 9 pixels wide, one row 22 pixels high; both may be fractions. Nothing is escaped: what a
// caller gives goes into the markup as it stands, so a label can hold a whole select element. Style classes
// and script functions that the markup names are the page's to supply.
#pragma once

#include <string>
#include <string_view>

namespace nvadmin {

// An argument of a builder: a finite number or a text. A text counts as the number that it begins with, and 0
// without one; numbers that aren't finite in pixels are held at the last one that is.
class FieldArgument {
 public:
  FieldArgument(double number);
  FieldArgument(int number) : FieldArgument(static_cast<double>(number)) {}
  FieldArgument(std::string_view text) : text_(text) {}
  FieldArgument(const std::string& text) : text_(text) {}
  FieldArgument(const char* text) : text_(text) {}

  const std::string& Text() const { return text_; }
  double Number() const;
  // Whether it says anything: it compares above the empty text.
  bool IsGiven() const;

 private:
  std::string text_;
};

// All three: left edge in columns, top edge in rows, width in columns and height in rows (0: the default),
// the text, the element's id, the style class, further attribute text; empty: none, or the default.

// An input, a button, a checkbox or, with a Height that is neither 0 nor 1, a text area. Class "<button>"
// and "<checkbox>", in any letter case, and classes that begin with "button" or "checkbox" tell the kind; any
// other class is the input's type as well as its style class. Width: that of the text, or 12.
void FieldInput(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
                const FieldArgument& Height, const FieldArgument& Text, const FieldArgument& Id,
                const FieldArgument& Class, const FieldArgument& Extra, std::string& Out);
// A block of text, 0.9 rows high by default. The text "<CUSTOM>", in any letter case, leaves the block open:
// the caller appends its content and the closing </div>.
void FieldLabel(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
                const FieldArgument& Height, const FieldArgument& Text, const FieldArgument& Id,
                const FieldArgument& Class, const FieldArgument& Extra, std::string& Out);
// A link of a menu. Reads neither Class nor Height.
void FieldLink(const FieldArgument& Col, const FieldArgument& Row, const FieldArgument& Width,
               const FieldArgument& Height, const FieldArgument& Text, const FieldArgument& Id,
               const FieldArgument& Class, const FieldArgument& Extra, std::string& Out);

}  // namespace nvadmin
