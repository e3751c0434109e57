#include "engine/query/PushDown.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace nvadmin::engine {
namespace {

// More cost a store more than they save.
constexpr std::size_t kMostConditions = 8;

// Both sides must be met: so must all conditions.
PushedConditions Join(PushedConditions left, PushedConditions right) {
  const std::size_t room = kMostConditions - std::min(left.all.size(), kMostConditions);
  const std::size_t taken = std::min(room, right.all.size());
  left.decide = left.decide && right.decide && taken == right.all.size();
  std::move(right.all.begin(), right.all.begin() + static_cast<std::ptrdiff_t>(taken),
            std::back_inserter(left.all));
  return left;
}

// One side must be met: so must a condition of the one or a condition of the other.
PushedConditions Alternate(PushedConditions left, PushedConditions right) {
  if (left.all.empty() || right.all.empty()) return {};
  ScanCondition& either = left.all.front();
  ScanCondition& other = right.all.front();
  if (either.size() + other.size() > kMostAlternatives) return {};
  left.decide = left.decide && right.decide && left.all.size() == 1 && right.all.size() == 1;
  std::move(other.begin(), other.end(), std::back_inserter(either));
  left.all.resize(1);
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

PushedConditions FindConditions(std::span<const CriteriaStep> steps,
                                std::span<const PushedConditions> ofTests) {
  // A skip stands between the operands of AND or OR and leads behind the second one.
  std::vector<PushedConditions> operands;
  std::vector<const CriteriaStep*> waiting;
  for (std::size_t at = 0; at <= steps.size(); ++at) {
    for (; !waiting.empty() && waiting.back()->target == at; waiting.pop_back()) {
      PushedConditions right = std::move(operands.back());
      operands.pop_back();
      const auto combine = waiting.back()->kind == CriteriaStep::Kind::kSkipIfFalse ? Join : Alternate;
      operands.back() = combine(std::move(operands.back()), std::move(right));
    }
    if (at == steps.size()) break;
    if (steps[at].kind == CriteriaStep::Kind::kTest) {
      operands.push_back(ofTests[steps[at].target]);
    } else {
      waiting.push_back(&steps[at]);
    }
  }
  return operands.empty() ? PushedConditions{{}, /*decide=*/true} : std::move(operands.front());
}

}  // namespace nvadmin::engine
