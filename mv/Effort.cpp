#include "mv/Effort.h"

namespace nvadmin::mv {

namespace {

struct Account {
  int depth = 0;
  std::size_t left = 0;
};

thread_local Account account;

}  // namespace

NestingLevel::NestingLevel() {
  if (account.depth == 0) account.left = kMaxEffort;
  if (++account.depth > kMaxNesting) account.left = 0;
}

NestingLevel::~NestingLevel() { --account.depth; }

bool NestingLevel::IsAllowed() const { return account.left > 0; }

bool Spend(std::size_t units) {
  if (units >= account.left) {
    account.left = 0;
    return false;
  }
  account.left -= units;
  return true;
}

}  // namespace nvadmin::mv
