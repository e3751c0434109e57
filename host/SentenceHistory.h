// The sentences typed at a terminal, one UTF-8 line each in a file of mode 0600 that all sessions on one home
// share. A convenience: where the file can't be read or written, there is no history and no failure.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace nvadmin::host {

class SentenceHistory {
 public:
  explicit SentenceHistory(std::filesystem::path file) : file_(std::move(file)) {}

  // The last 1000 sentences, oldest first. Cuts the file down to them when it has grown to twice as many.
  std::vector<std::string> Load() const;
  // False, and nothing happens, for an empty sentence and for one equal to the one before.
  bool Append(std::string_view sentence);

 private:
  std::filesystem::path file_;
  std::string last_;
};

}  // namespace nvadmin::host
