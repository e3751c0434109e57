// What a store may look at before the engine does: conditions that every item wanted meets, so that a store
// can leave others out. They never decide: the criteria are tested on all items that come back, so they may
// be wide, but must not exclude an item that meets the query. Hence they tell only what a text must hold,
// which is true of every stored form of a value (several values in a text, 007 for 7, another letter form of
// a column made by hand). Sort keys are not handed on: the engine's sort costs less than a store's.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "engine/query/Query.h"
#include "engine/stores/Store.h"

namespace nvadmin::engine {

// A text that every value holds that equals `number` under the order of numeric columns, whatever zeros and
// sign it is written with. Requires a numeric text.
std::string_view DigitsOfNumber(std::string_view number);

// The conditions that follow for whole criteria. `ofTests` has one a test, in the numbers that the steps use;
// an empty one: nothing is known of the test. In line with the number of steps.
std::vector<ScanCondition> FindConditions(std::span<const CriteriaStep> steps,
                                          std::span<const ScanCondition> ofTests);

}  // namespace nvadmin::engine
