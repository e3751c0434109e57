#include "engine/TranslationMemory.h"

#include <utility>

namespace nvadmin::engine {

bool TranslationMemory::Read(std::string_view file, std::string_view id, std::string& item) {
  if (const auto known = targetsByFile_.find(file); known != targetsByFile_.end()) {
    if (const auto target = known->second.find(id); target != known->second.end()) {
      item = target->second.item;
      return target->second.found;
    }
  }
  Target target;
  target.found = read_(file, id, target.item);
  if (!target.found) target.item.clear();
  item = target.item;
  const bool found = target.found;

  const std::size_t size = id.size() + target.item.size();
  if (targets_ == kMostTargets || bytes_ + size > kMostBytes) Forget();
  if (size > kMostBytes) return found;
  targetsByFile_[std::string(file)].emplace(id, std::move(target));
  ++targets_;
  bytes_ += size;
  return found;
}

void TranslationMemory::Forget() {
  if (targets_ == 0) return;
  targetsByFile_.clear();
  targets_ = 0;
  bytes_ = 0;
}

}  // namespace nvadmin::engine
