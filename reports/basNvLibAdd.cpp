#include "reports/basNvLibAdd.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "session/Marks.h"
#include "session/Text.h"
#include "session/Values.h"
#include "session/basNvFunctions.h"
#include "session/basNvLibrary.h"

namespace nvadmin {

namespace {

constexpr std::int32_t kLocationAttribute = 2;
constexpr std::int32_t kConversionAttribute = 7;
constexpr std::int32_t kCorrelativeAttribute = 8;
constexpr std::string_view kOutOfRange = "####";

// The operators that a compiled list may hold.
constexpr std::array<std::string_view, 6> kListOperators = {":", "+", "-", "/", "*", "^"};

bool IsListOperator(std::string_view entry) {
  return std::find(kListOperators.begin(), kListOperators.end(), entry) != kListOperators.end();
}

void ReplaceEach(std::string& text, std::string_view part, std::string_view by) {
  std::string result;
  std::size_t from = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, from)) {
    result.append(text, from, at - from).append(by);
    from = at + part.size();
  }
  text = result.append(text, from);
}

std::vector<std::string_view> Split(std::string_view text, std::string_view delimiter) {
  std::vector<std::string_view> parts;
  PartWalk walk(text, delimiter);
  while (!walk.AtEnd()) parts.push_back(walk.Next());
  return parts;
}

// The attribute number of a plain stored column; nothing when the name is unknown or its column is more than
// that.
std::optional<std::string> PlainLocation(std::string_view name, std::string_view dictionary) {
  std::string column;
  if (!RREAD(column, dictionary, name)) return std::nullopt;
  std::string location = EExtract(column, kLocationAttribute, 0, 0);
  const bool plain = Trim(EExtract(column, kCorrelativeAttribute, 0, 0)).empty() &&
                     Trim(EExtract(column, kConversionAttribute, 0, 0)).empty() && IsNumber(Trim(location));
  if (!plain) return std::nullopt;
  return location;
}

// --- The fold of a compiled list ---

double Add(double left, double right) { return left + right; }
double Subtract(double left, double right) { return left - right; }
double Multiply(double left, double right) { return left * right; }
double Divide(double left, double right) { return right == 0 ? 0 : left / right; }
double Power(double left, double right) { return std::pow(left, right); }

struct Operator {
  std::string_view sign;
  double (*combine)(double left, double right);
};

constexpr std::array<Operator, 5> kOperators = {
    {{"+", Add}, {"-", Subtract}, {"*", Multiply}, {"/", Divide}, {"^", Power}}};

// One operand of a list: the values of its attribute, walked beside those of the cell; operand "0" is the
// item ID at every position.
struct Operand {
  PartWalk values;
  std::string_view itemId;
  bool isItemId = false;

  std::string_view Next() { return isItemId ? itemId : values.Next(); }
};

class CompiledList {
 public:
  CompiledList(std::string_view list, std::string_view dataItem, std::string_view itemId)
      : entries_(Split(list, ";")) {
    for (std::size_t entry = 1; entry < entries_.size(); entry += 2) {
      const std::string_view attribute = AttributeView(dataItem, LeadingWholeNumber(entries_[entry]));
      operands_.push_back({PartWalk(attribute, ValueMark), itemId, entries_[entry] == "0"});
    }
  }

  // The result at the next value position.
  std::string Next() {
    std::string result(operands_[0].Next());
    bool inRange = true;
    for (std::size_t entry = 3; entry < entries_.size(); entry += 2) {
      inRange = Combine(result, entries_[entry - 1], operands_[entry / 2].Next()) && inRange;
    }
    return inRange ? result : std::string(kOutOfRange);
  }

 private:
  // False when the result is no number that there is.
  static bool Combine(std::string& result, std::string_view sign, std::string_view operand) {
    const auto found = std::find_if(kOperators.begin(), kOperators.end(),
                                    [sign](const Operator& row) { return row.sign == sign; });
    if (found == kOperators.end()) {
      result.append(ValueMark).append(operand);
      return true;
    }
    const double number = found->combine(LeadingDouble(result), LeadingDouble(operand));
    if (!std::isfinite(number)) return false;
    result = DecimalText(number);
    return true;
  }

  std::vector<std::string_view> entries_;  // entry 0 is "CUSTOMA"; operands stand at odd places
  std::vector<Operand> operands_;
};

std::string ApplyCompiledList(std::string_view value, std::string_view list, std::string_view dataItem,
                              std::string_view itemId) {
  CompiledList compiled(list, dataItem, itemId);
  ValueJoin result;
  PartWalk values(value, ValueMark);
  while (!values.AtEnd()) {
    values.Next();
    result.Add(compiled.Next());
  }
  return result.Take();
}

std::string ApplyCode(std::string_view value, std::string_view code) {
  ValueJoin result;
  PartWalk values(value, ValueMark);
  while (!values.AtEnd()) result.Add(OOConv(values.Next(), code));
  return result.Take();
}

}  // namespace

void CompileCorrelative(std::string& item, std::string_view dictionary) {
  std::string list = ToUpper(EExtract(item, kCorrelativeAttribute, 0, 0));
  if (!list.starts_with('A') || list.find("N(") == std::string::npos) return;
  std::erase(list, ';');
  ReplaceEach(list, "N(", ";");
  std::replace(list.begin(), list.end(), ')', ';');
  if (list.ends_with(';')) list.pop_back();

  const std::vector<std::string_view> entries = Split(list, ";");
  std::string compiled = "CUSTOMA";
  for (std::size_t entry = 1; entry < entries.size(); ++entry) {
    compiled += ';';
    if (IsListOperator(entries[entry])) {
      compiled += entries[entry];
      continue;
    }
    const std::optional<std::string> location = PlainLocation(entries[entry], dictionary);
    if (!location) return;
    compiled += *location;
  }
  item = RReplace(item, kCorrelativeAttribute, compiled);
}

std::string ApplyCorrelative(std::string_view value, std::string_view correlative, std::string_view dataItem,
                             std::string_view itemId, std::string_view file) {
  if (correlative.find(ValueMark) == std::string_view::npos) {
    return correlative.starts_with(kCompiledPrefix) ? ApplyCompiledList(value, correlative, dataItem, itemId)
                                                    : ApplyCode(value, correlative);
  }
  std::string result(value);
  PartWalk codes(correlative, ValueMark);
  while (!codes.AtEnd()) result = ApplyCorrelative(result, codes.Next(), dataItem, itemId, file);
  return result;
}

}  // namespace nvadmin
