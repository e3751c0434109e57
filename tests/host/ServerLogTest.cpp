#include "host/ServerLog.h"

#include <gtest/gtest.h>

#include <string>

namespace nvadmin::host {
namespace {

TEST(ServerLog, AnEventIsOneLineWhateverItHolds) {
  testing::internal::CaptureStderr();
  LogEvent("refused write: item 'a\r\n2026-01-01T00:00:00Z forged\x1B[31m\xE9'");
  LogEvent(std::string(5000, 'x'));
  const std::string log = testing::internal::GetCapturedStderr();
  const std::string first = log.substr(0, log.find('\n'));
  EXPECT_EQ(first.substr(20),
            " refused write: item 'a\u240D\u240A2026-01-01T00:00:00Z forged\u241B[31m\u00E9'");
  EXPECT_EQ(first[10], 'T');
  EXPECT_EQ(log.size() - first.size() - 1, 21 + 1000 + 4U);
}

}  // namespace
}  // namespace nvadmin::host
