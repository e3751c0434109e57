#include "engine/query/PushDown.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace nvadmin::engine {
namespace {

// More of either cost a store more than they save.
constexpr std::size_t kMostConditions = 8;
constexpr std::size_t kMostAlternatives = 16;

using Conditions = std::vector<ScanCondition>;

// Both sides must be met: so must all conditions.
Conditions Join(Conditions left, Conditions right) {
  const std::size_t room = kMostConditions - std::min(left.size(), kMostConditions);
  const std::size_t taken = std::min(room, right.size());
  std::move(right.begin(), right.begin() + static_cast<std::ptrdiff_t>(taken), std::back_inserter(left));
  return left;
}

// One side must be met: so must a condition of the one or a condition of the other.
Conditions Alternate(Conditions left, Conditions right) {
  if (left.empty() || right.empty()) return {};
  ScanCondition& either = left.front();
  if (either.size() + right.front().size() > kMostAlternatives) return {};
  std::move(right.front().begin(), right.front().end(), std::back_inserter(either));
  left.resize(1);
  return left;
}

}  // namespace

std::string_view DigitsOfNumber(std::string_view number) {
  if (number.starts_with('-') || number.starts_with('+')) number.remove_prefix(1);
  number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
  if (number.find('.') != std::string_view::npos) {
    number = number.substr(0, number.find_last_not_of('0') + 1);
    if (number.ends_with('.')) number.remove_suffix(1);
  }
  return number.empty() ? std::string_view("0") : number;
}

std::vector<ScanCondition> FindConditions(std::span<const CriteriaStep> steps,
                                          std::span<const ScanCondition> ofTests) {
  // A skip stands between the operands of AND or OR and leads behind the second one.
  std::vector<Conditions> operands;
  std::vector<const CriteriaStep*> waiting;
  for (std::size_t at = 0; at <= steps.size(); ++at) {
    for (; !waiting.empty() && waiting.back()->target == at; waiting.pop_back()) {
      Conditions right = std::move(operands.back());
      operands.pop_back();
      const auto combine = waiting.back()->kind == CriteriaStep::Kind::kSkipIfFalse ? Join : Alternate;
      operands.back() = combine(std::move(operands.back()), std::move(right));
    }
    if (at == steps.size()) break;
    if (steps[at].kind != CriteriaStep::Kind::kTest) {
      waiting.push_back(&steps[at]);
      continue;
    }
    const ScanCondition& known = ofTests[steps[at].target];
    operands.push_back(known.empty() || known.size() > kMostAlternatives ? Conditions() : Conditions{known});
  }
  return operands.empty() ? Conditions() : std::move(operands.front());
}

}  // namespace nvadmin::engine
