#include "host/SentenceHistory.h"

#include <fstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace nvadmin::host {

namespace {

constexpr std::size_t kKeptSentences = 1000;

// One write, so that lines of sessions that append at the same time don't mix.
void WriteFile(const std::filesystem::path& file, int mode, std::string_view text) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | mode, 0600);
  if (descriptor < 0) return;
  [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
  close(descriptor);
}

}  // namespace

std::vector<std::string> SentenceHistory::Load() const {
  std::vector<std::string> sentences;
  std::ifstream lines(file_);
  for (std::string line; std::getline(lines, line);) sentences.push_back(std::move(line));
  if (sentences.size() <= kKeptSentences) return sentences;

  const bool cut = sentences.size() >= 2 * kKeptSentences;
  sentences.erase(sentences.begin(), sentences.end() - kKeptSentences);
  if (!cut) return sentences;
  std::string text;
  for (const std::string& sentence : sentences) text.append(sentence).append("\n");
  const std::filesystem::path shorter = file_.string() + ".new";
  WriteFile(shorter, O_TRUNC, text);
  std::error_code ignored;
  std::filesystem::rename(shorter, file_, ignored);
  return sentences;
}

bool SentenceHistory::Append(std::string_view sentence) {
  if (sentence.empty() || sentence == last_) return false;
  last_ = sentence;
  WriteFile(file_, O_APPEND, last_ + '\n');
  return true;
}

}  // namespace nvadmin::host
