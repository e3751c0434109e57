// Fuzz target of transfer files: the line reader, the decoder and the names. An input is a number of two
// bytes, so many filling bytes before the text, which puts it across the borders of chunks, and the text of
// the file.
//
// The lines are those of the simplest reading of the format; and what the engine writes of a decoded line is
// decoded to the same.
//
// The corpus runs among the tests; QueryFuzz.cpp tells how to search for new inputs.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "bulk/BinaryFileProvider.h"
#include "bulk/TransferBulk.h"
#include "engine/TransferFile.h"

namespace nvadmin {
namespace {

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

// As the format is told: first the block marks, then the escapes.
std::string DecodePlainly(std::string line) {
  for (std::size_t mark; (mark = line.find('\0')) != std::string::npos;) line.erase(mark, 12);
  std::string text;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] != '`') {
      text += line[at];
      continue;
    }
    if (++at == line.size()) break;
    const std::string_view letters = "CRLN0";
    const std::size_t letter = letters.find(line[at]);
    text += letter == std::string_view::npos ? line[at] : "\r\r\n\n\0"[letter];
  }
  return text;
}

// Takes the first line off the text, which is over behind its last CR.
std::string TakeLinePlainly(std::string_view& text, bool& isLast) {
  const std::size_t end = text.find('\r');
  isLast = end == std::string_view::npos;
  std::string line(text.substr(0, end));
  text.remove_prefix(isLast ? text.size() : end + 1);
  if (line.starts_with('\n')) line.erase(0, 1);
  return line;
}

void ExpectNames(std::string_view line) {
  if (KindOfBulkLine(line) != BulkLineKind::kOpensData) return;
  const std::string target = TargetNameOf(NameInOpeningLine(line));
  Expect(target.find('.') == std::string::npos, "a table's name holds a period");
  const engine::TransferSection section = engine::SectionOf(target);
  std::string again = TargetNameOf(section.sourceName);
  if (section.isDictionary) again = DictionaryTargetName(again);
  // The loader joins the dictionary of a name that SQL has taken to the file's new name.
  const bool isRenamed =
      section.isDictionary && (section.sourceName == "table" || section.sourceName == "key");
  Expect(again == target || target.empty() || isRenamed,
         "a table goes elsewhere when it is written and loaded again");
}

}  // namespace
}  // namespace nvadmin

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace nvadmin;
  if (size < 2) return 0;
  static const std::string path =
      (std::filesystem::temp_directory_path() / ("nvadmin-fuzz-" + std::to_string(getpid()))).string();
  std::string text(std::size_t{data[0]} * 256 + data[1], 'x');
  text.append(reinterpret_cast<const char*>(data) + 2, size - 2);
  std::ofstream(path, std::ios::binary) << text;

  BinaryFileProvider file(kCodedBytes);
  file.OOpen(path);
  std::filesystem::remove(path);
  std::string_view rest = text;
  std::string buffer, again;
  for (bool isLast = false; !isLast;) {
    Expect(!file.Eof(), "the file ends too early");
    const std::string_view line = file.LineGet();
    const std::string plain = TakeLinePlainly(rest, isLast);
    Expect(line == plain, "another line");
    const std::string decoded(DecodeBulkLine(file, line, buffer));
    Expect(decoded == DecodePlainly(plain), "another text");
    std::string written;
    engine::AppendLine(written, decoded);
    written.resize(written.size() - 2);
    Expect(written.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos,
           "a written line ends early");
    Expect(DecodeBulkLine(written, again) == decoded, "what is written isn't read as the same");
    ExpectNames(decoded);
  }
  Expect(file.Eof(), "the file has more lines");
  return 0;
}
