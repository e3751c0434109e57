// What the engine's tests work on: a home of their own with an account for every datastore word, and a port
// that a test scripts and watches.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineSession.h"
#include "engine/Home.h"
#include "engine/Port.h"
#include "tests/support/MariaServer.h"
#include "tests/support/TemporaryFolder.h"

namespace nvadmin::engine {

// The last lies on a server.
inline constexpr std::string_view kAccounts[][2] = {{"JETS", "JET"},   {"MS", "MSSQL"},  {"MY", "MYSQL"},
                                                    {"ORA", "ORACLE"}, {"NAT", "MVNAT"}, {"SRV", "MYSQL"}};

// The accounts by kind, as the parameters of tests.
inline const auto kRelational = testing::Values("JETS", "MS", "MY", "ORA", "SRV");
inline const auto kEveryAccount = testing::Values("JETS", "MS", "MY", "ORA", "NAT", "SRV");
inline constexpr std::string_view kNative = "NAT";
inline constexpr std::string_view kOnServer = "SRV";

// A test that runs in an account; on a server it is skipped where there is none.
class InAccount : public testing::TestWithParam<std::string_view> {
 protected:
  void SetUp() override {
    if (GetParam() == kOnServer && !MariaDatabase::IsThere()) GTEST_SKIP() << MariaDatabase::kSkipped;
  }
};

class ScriptedPort final : public Port {
 public:
  std::deque<std::string> input;
  InputResult whenEmpty = InputResult::kEnd;
  bool showsPages = false;
  std::string output;  // lines end in \n
  std::function<void()> beforeText, beforeLine;

  InputResult ReadLine(std::string& line, std::int32_t, bool) override {
    if (beforeLine) beforeLine();
    line.clear();
    if (input.empty()) return whenEmpty;
    line = input.front();
    input.pop_front();
    return InputResult::kLine;
  }
  void Write(std::string_view text, bool lineEnd) override {
    if (beforeText) beforeText();
    output += text;
    if (lineEnd) output += '\n';
  }
  void Flush() override {}
  bool ShowsPages() const override { return showsPages; }
  std::string CursorString(std::int32_t, std::int32_t) override { return ""; }
};

// A home in a folder that is removed with it, and a database on the server if the account used lies there.
struct TestFolder {
  explicit TestFolder(std::string_view used = {}) {
    if (used == kOnServer && MariaDatabase::IsThere()) server = std::make_unique<MariaDatabase>();
    Home::Make(home);
    Home made(home);
    std::string error;
    for (const auto& [account, word] : kAccounts) {
      const std::string address = account == kOnServer && server != nullptr ? server->Address() : "";
      EXPECT_TRUE(made.AddAccount({std::string(account), std::string(word), address}, error)) << error;
    }
  }

  TemporaryFolder folder;
  const std::filesystem::path home = folder / "home";
  std::unique_ptr<MariaDatabase> server;
};

// Runs a sentence as if it was typed.
inline std::string Type(EngineSession& session, std::string_view sentence) {
  session.BeginTypedSentence(sentence);
  const std::string text = session.ExecuteSentence(sentence);
  session.EndTypedSentence();
  return text;
}

// Two sessions on one home: anna's port is scripted, ben looks on.
class TwoSessions {
 public:
  explicit TwoSessions(std::string_view account)
      : folder(account),
        anna(home, annasPort, {std::string(account), "anna", "desk 1"}),
        ben(home, bensPort, {std::string(account), "ben", "desk 2"}) {}

  std::string Open(EngineSession& session, std::string_view name) {
    std::string fileVar;
    EXPECT_EQ(session.OpenFile(name, fileVar), kTrue) << session.GetErrorDetail();
    return fileVar;
  }
  // Anna types the sentence, which must not fail; the answer is its text.
  std::string Do(std::string_view sentence) {
    const std::string text = Type(anna, sentence);
    EXPECT_NE(text, "ERROR") << sentence << ": " << anna.GetErrorDetail();
    return text;
  }
  // Why the sentence that anna types is refused.
  std::string Refusal(std::string_view sentence) {
    EXPECT_EQ(Type(anna, sentence), "ERROR") << sentence;
    return anna.GetErrorDetail();
  }
  // The item as ben finds it now; "(none)" when it isn't there.
  std::string SeenByBen(std::string_view file, std::string_view id) {
    std::string item;
    return ben.ReadItem(item, Open(ben, file), id) ? item : "(none)";
  }

  TestFolder folder;
  Home home{folder.home};
  ScriptedPort annasPort, bensPort;
  EngineSession anna, ben;
};

}  // namespace nvadmin::engine
