// The marks that part a dynamic array, as the engine uses them.
#pragma once

#include "mv/DynamicArray.h"

namespace nvadmin::engine {

using mv::kAttributeMark;
using mv::kSubvalueMark;
using mv::kValueMark;
inline constexpr char kColumnPartMark = '\xFA';

}  // namespace nvadmin::engine
