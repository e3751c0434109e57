#include "host/WebFiles.h"

#include <algorithm>

namespace nvadmin::host {

namespace {

void AppendEscaped(std::string& out, std::string_view text) {
  for (const char letter : text) {
    switch (letter) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += letter;
    }
  }
}

std::vector<WebFile> ReadTable() {
  std::vector<WebFile> files;
  for (const EmbeddedFile& file : EmbeddedFiles()) {
    files.push_back({file.name, file.type, {file.begin, static_cast<std::size_t>(file.end - file.begin)}});
  }
  return files;
}

}  // namespace

const WebFile* FindWebFile(std::string_view name) {
  static const std::vector<WebFile> kFiles = ReadTable();
  const auto found =
      std::find_if(kFiles.begin(), kFiles.end(), [name](const WebFile& file) { return file.name == name; });
  return found == kFiles.end() ? nullptr : &*found;
}

std::string FillPage(std::string_view page,
                     const std::vector<std::pair<std::string_view, std::string_view>>& places) {
  std::string filled;
  for (std::size_t open = 0; (open = page.find("{{")) != std::string_view::npos;) {
    const std::size_t close = page.find("}}", open);
    if (close == std::string_view::npos) break;
    filled += page.substr(0, open);
    const std::string_view name = page.substr(open + 2, close - open - 2);
    for (const auto& [place, text] : places) {
      if (place == name) AppendEscaped(filled, text);
    }
    page.remove_prefix(close + 2);
  }
  return filled.append(page);
}

}  // namespace nvadmin::host
