#include "host/ServerLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

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

TEST(ServerLog, AFloodIsToldByItsNumber) {
  testing::internal::CaptureStderr();
  for (int number = 0; number < 1000; ++number) LogEventOfMany("floods", "drop");
  LogEventOfMany("showers", "another kind");
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  LogEvent("later");
  LogEventOfMany("floods", "drop again");
  std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), kMostLinesOfKind + 4);
  std::string texts;  // without the times
  for (std::size_t at = 0; at < log.size(); at = log.find('\n', at) + 1)
    texts += log.substr(at + 21, log.find('\n', at) - at - 20);
  EXPECT_TRUE(texts.ends_with("drop\nanother kind\n990 more floods left out\nlater\ndrop again\n")) << texts;
}

}  // namespace
}  // namespace nvadmin::host
