#include "engine/TranslationMemory.h"

#include <utility>

namespace nvadmin::engine {

thread_local std::span<const BatchItem> ItemsToCome::items_;

const TranslationMemory::Target* TranslationMemory::Find(std::string_view file, std::string_view id) const {
  const auto known = targetsByFile_.find(file);
  if (known == targetsByFile_.end()) return nullptr;
  const auto target = known->second.find(id);
  return target == known->second.end() ? nullptr : &target->second;
}

bool TranslationMemory::Read(std::string_view file, std::string_view id, std::string& item) {
  if (const Target* known = Find(file, id)) {
    item = known->item;
    return known->found;
  }
  std::string read;
  const bool found = read_(file, id, read);
  if (!found) read.clear();
  Remember(file, id, found, read);
  item = std::move(read);
  return found;
}

void TranslationMemory::Remember(std::string_view file, std::string_view id, bool found,
                                 std::string_view item) {
  const std::size_t size = id.size() + item.size();
  if (targets_ == kMostTargets || bytes_ + size > kMostBytes) Forget();
  if (size > kMostBytes) return;
  targetsByFile_[std::string(file)].emplace(id, Target{found, std::string(item)});
  ++targets_;
  bytes_ += size;
}

void TranslationMemory::Forget() {
  if (targets_ == 0) return;
  targetsByFile_.clear();
  targets_ = 0;
  bytes_ = 0;
}

}  // namespace nvadmin::engine
