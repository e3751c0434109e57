// What a store may look at before the engine does: conditions that every item wanted meets, so that a store
// can leave others out. The criteria are tested on all items that come back, so conditions may be wide, but
// must not exclude an item that meets the query. They tell in which range a value must lie, or what a text
// must hold, which is true of every stored form of a value (several values in a text, 007 for 7).
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "engine/query/Query.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// A condition should have no more alternatives: more cost a store more than they save.
inline constexpr std::size_t kMostAlternatives = 16;

// A text that every value holds that equals `number` under the order of numeric columns, whatever zeros and
// sign it is written with. Requires a numeric text.
std::string_view DigitsOfNumber(std::string_view number);

struct PushedConditions {
  std::vector<ScanCondition> all;  // each must be met; none: nothing is known
  bool decide = false;             // what meets them all by their ranges is wanted
};

// The conditions that follow for whole criteria. `ofTests` has those of each test, one at most, in the
// numbers that the steps use. In line with the number of steps.
PushedConditions FindConditions(std::span<const CriteriaStep> steps,
                                std::span<const PushedConditions> ofTests);

}  // namespace nvadmin::engine
