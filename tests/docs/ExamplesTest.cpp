// The examples of docs/*.md against the demo account. An example is a block fenced by ```tcl; each line that
// begins with ":" is a sentence, and what follows it is what it prints, without blanks at the ends of lines
// and without the prompt that a report leaves. The sentences of a block are one session.
//
// NVADMIN_REMAKE_DOCS=1 writes what is printed into the documents; read the difference before it is
// committed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/StreamPort.h"
#include "host/TclSession.h"
#include "samples/Demo.h"
#include "tests/support/TemporaryFolder.h"

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

  // All that a session prints that runs the sentences.
  std::string Run(std::vector<std::string> sentences, ExitCode& code) {
    TclSettings settings;
    settings.account = samples::kDemoAccount;
    settings.user = "tester";
    settings.sentences = std::move(sentences);
    const int in = open("/dev/null", O_RDONLY);
    const int out = open((folder_.Path() / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    StreamPort port(in, out);
    TclSession session(*home_, port, std::move(settings));
    std::thread([&] { code = session.Run(); }).join();
    close(in);
    close(out);
    return folder_.Text("out");
  }

  // A block as it should be: its sentences, each with what it prints.
  std::vector<std::string> Perform(const std::vector<std::string>& block) {
    std::vector<std::string> performed;
    std::vector<std::string> sentences;
    std::size_t printed = 0;
    for (const std::string& line : block) {
      if (!line.starts_with(':')) continue;
      sentences.push_back(line.substr(1));
      ExitCode code = ExitCode::kFine;
      const std::string output = Run(sentences, code);
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
  int examples = 0;
  for (const auto& entry : std::filesystem::directory_iterator(NVADMIN_SOURCE_DIR "/docs")) {
    if (entry.path().extension() != ".md") continue;
    std::ostringstream text;
    text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    const std::vector<std::string> lines = Lines(text.str());
    std::string remade;
    for (std::size_t at = 0; at < lines.size(); ++at) {
      remade += lines[at] + "\n";
      if (lines[at] != kFence) continue;
      const std::size_t first = at + 1;
      while (at + 1 < lines.size() && lines[at + 1] != kFenceEnd) ++at;
      const std::vector<std::string> block(lines.begin() + static_cast<std::ptrdiff_t>(first),
                                           lines.begin() + static_cast<std::ptrdiff_t>(at + 1));
      const std::vector<std::string> performed = Perform(block);
      if (std::getenv("NVADMIN_REMAKE_DOCS") == nullptr) {
        EXPECT_EQ(block, performed) << entry.path().filename() << ", line " << first + 1;
      }
      for (const std::string& line : performed) remade += line + "\n";
      ++examples;
    }
    if (std::getenv("NVADMIN_REMAKE_DOCS") != nullptr) {
      std::ofstream(entry.path(), std::ios::binary) << remade;
    }
  }
  EXPECT_GT(examples, 0);
}

TEST_F(Examples, OfHelpRun) {
  ExitCode code = ExitCode::kFine;
  int examples = 0;
  for (const std::string& line : Lines(Run({"HELP QUERY"}, code))) {
    EXPECT_LE(line.size(), 79U) << line;  // with its CR
    if (!line.starts_with("  :")) continue;
    const std::string output = Run({line.substr(3)}, code);
    EXPECT_EQ(code, ExitCode::kFine) << line << "\n" << output;
    EXPECT_EQ(output.find(" 0 Items"), std::string::npos) << line << "\n" << output;
    ++examples;
  }
  EXPECT_GT(examples, 3);
}

}  // namespace
}  // namespace nvadmin::host
