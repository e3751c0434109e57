// The examples of docs/*.md against the demo account. An example is a block fenced by ```tcl; each line that
// begins with ":" is a sentence, and what follows it is what it prints, without blanks at the ends of lines
// and without the prompt that a report leaves. The sentences of a block are one session.
//
// NVADMIN_REMAKE_DOCS=1 writes what is printed into the documents; read the difference before it is
// committed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "samples/Demo.h"
#include "tests/host/FilePort.h"

namespace nvadmin::host {
namespace {

constexpr std::string_view kFence = "```tcl";
constexpr std::string_view kFenceEnd = "```";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// As a reader sees it.
std::vector<std::string> Tidy(const std::string& output) {
  std::vector<std::string> lines = Lines(output);
  for (std::string& line : lines) line.resize(line.find_last_not_of(" \r") + 1);
  while (!lines.empty() && (lines.back().empty() || lines.back() == ":")) lines.pop_back();
  lines.erase(lines.begin(), std::find_if(lines.begin(), lines.end(),
                                          [](const std::string& line) { return !line.empty(); }));
  return lines;
}

class Examples : public testing::Test {
 protected:
  void SetUp() override {
    engine::Home::Make(folder_.Path() / "home");
    home_.emplace(folder_.Path() / "home");
    std::ostringstream progress;
    samples::MakeDemoAccounts(*home_, progress);
  }

  SessionRun Run(std::vector<std::string> sentences) {
    return RunSession(*home_, samples::kDemoAccount, Given(std::move(sentences)));
  }

  // A block as it should be: its sentences, each with what it prints.
  std::vector<std::string> Perform(const std::vector<std::string>& block) {
    std::vector<std::string> performed;
    std::vector<std::string> sentences;
    std::size_t printed = 0;
    for (const std::string& line : block) {
      if (!line.starts_with(':')) continue;
      sentences.push_back(line.substr(1));
      const std::string output = Run(sentences).output;
      performed.push_back(line);
      for (std::string& shown : Tidy(output.substr(printed))) performed.push_back(std::move(shown));
      printed = output.size();
    }
    return performed;
  }

  TemporaryFolder folder_;
  std::optional<engine::Home> home_;
};

TEST_F(Examples, PrintWhatTheDocumentsShow) {
  const bool remake = std::getenv("NVADMIN_REMAKE_DOCS") != nullptr;
  int examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(NVADMIN_SOURCE_DIR "/docs")) {
    if (entry.path().extension() != ".md") continue;
    std::ostringstream text;
    text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    std::vector<std::string> lines = Lines(text.str());
    for (auto start = lines.begin(); (start = std::find(start, lines.end(), kFence)) != lines.end();) {
      const auto end = std::find(++start, lines.end(), kFenceEnd);
      const std::vector<std::string> block(start, end);
      const std::vector<std::string> performed = Perform(block);
      if (!remake) {
        EXPECT_EQ(block, performed) << entry.path().filename() << ", line " << start - lines.begin() + 1;
      }
      start = lines.insert(lines.erase(start, end), performed.begin(), performed.end());
      ++examples;
    }
    if (!remake) continue;
    std::ofstream document(entry.path(), std::ios::binary);
    for (const std::string& line : lines) document << line << "\n";
  }
  EXPECT_GT(examples, 0);
}

TEST_F(Examples, OfHelpRun) {
  int examples = 0;
  for (const std::string& line : Lines(Run({"HELP QUERY"}).output)) {
    EXPECT_LE(line.size(), 79U) << line;  // with its CR
    if (!line.starts_with("  :")) continue;
    const SessionRun run = Run({line.substr(3)});
    EXPECT_EQ(run.exitCode, ExitCode::kFine) << line << "\n" << run.output;
    EXPECT_EQ(run.output.find(" 0 Items"), std::string::npos) << line << "\n" << run.output;
    ++examples;
  }
  EXPECT_GT(examples, 3);
}

}  // namespace
}  // namespace nvadmin::host
