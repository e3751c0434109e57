// The line reader of transfer files: line ends, chunk borders, long lines.
#include "bulk/BinaryFileProvider.h"

#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin {
namespace {

using Lines = std::vector<std::string>;

Lines LinesOf(BinaryFileProvider& file, const std::string& path) {
  Lines lines;
  file.OOpen(path);
  while (!file.Eof()) lines.emplace_back(file.LineGet());
  file.CClose();
  return lines;
}

TEST(BulkReader, LinesTable) {
  const TemporaryFolder folder;
  const std::string nul("a\0b", 3);
  struct Row {
    std::string_view name;
    std::string text;
    Lines lines;
  };
  const Row rows[] = {
      {"a line end at the end", "a\r\nb\r\n", {"a", "b", ""}},
      {"none at the end", "a\rb", {"a", "b"}},
      {"LF alone is text", "\n\na\nb", {"\na\nb"}},
      {"one LF goes, at a line's start alone", "a\r\n\nb\r", {"a", "\nb", ""}},
      {"empty", "", {""}},
      {"every byte else is text", nul + "\xFE\xFF\r\x1A", {nul + "\xFE\xFF", "\x1A"}},
  };
  BinaryFileProvider file;
  for (const Row& row : rows) {
    const std::string path = folder.Put("lines", row.text).string();
    EXPECT_EQ(LinesOf(file, path), row.lines) << row.name;
    EXPECT_EQ(LinesOf(file, path), row.lines) << row.name << ", read again";
    EXPECT_NE(FailureOf([&] { file.LineGet(); }), "") << row.name;
  }
}

// A CR LF and a long line at every place around the borders of chunks.
TEST(BulkReader, ChunkBorders) {
  const TemporaryFolder folder;
  BinaryFileProvider file;
  for (const std::size_t border : {std::size_t{65'536}, std::size_t{131'072}}) {
    for (std::size_t length = border - 3; length <= border + 1; ++length) {
      const std::string first(length, 'x');
      EXPECT_EQ(LinesOf(file, folder.Put("f", first).string()), Lines{first}) << length;
      EXPECT_EQ(LinesOf(file, folder.Put("f", first + "\r\n" + first + "\r\n").string()),
                (Lines{first, first, ""}))
          << length;
    }
  }
}

// A line of many chunks, in a file of NULs that takes no room on disk.
TEST(BulkReader, HugeLine) {
  constexpr std::size_t kLength = 20'000'000;
  const TemporaryFolder folder;
  const std::filesystem::path path = folder.Put("f", "");
  std::filesystem::resize_file(path, kLength);
  BinaryFileProvider file;
  for (const bool hasEnd : {false, true}) {
    if (hasEnd) std::ofstream(path, std::ios::binary | std::ios::app) << '\r';
    const Lines lines = LinesOf(file, path.string());
    ASSERT_EQ(lines.size(), hasEnd ? 2U : 1U);
    EXPECT_EQ(lines.front().size(), kLength);
    EXPECT_EQ(lines.front().find_first_not_of('\0'), std::string::npos);
    EXPECT_EQ(lines.back().empty(), hasEnd);
  }
}

// Which lines may hold a noted byte: all of a chunk that holds one, and a line of which one chunk does.
TEST(BulkReader, NotedBytes) {
  const TemporaryFolder folder;
  const std::string plain(70'000, 'x');
  const struct {
    std::string_view name;
    std::string text;
    std::vector<bool> may;
  } rows[] = {
      {"nowhere", "a\rb\r", {false, false, false}},
      {"one", "a\rb`\r", {true, true, true}},
      {"the other", std::string("a\0\r", 3), {true, true}},
      {"in the first chunk alone", "`\r" + plain + "\rb", {true, true, false}},
      {"in a long line's first chunk",
       "`" + plain + plain + "\rb\r" + plain + "\rc",
       {true, false, false, false}},
      {"in its middle", plain + "`" + plain + "\rb", {true, false}},
      {"in the last chunk alone", plain + "\r`", {true, true}},
  };
  BinaryFileProvider noting(std::string_view("\0`", 2)), notNoting;
  for (const auto& row : rows) {
    const std::string path = folder.Put("f", row.text).string();
    std::vector<bool> may;
    for (noting.OOpen(path); !noting.Eof(); may.push_back(noting.MayHoldNoted())) noting.LineGet();
    EXPECT_EQ(may, row.may) << row.name;
    notNoting.OOpen(path);
    notNoting.LineGet();
    EXPECT_TRUE(notNoting.MayHoldNoted()) << row.name;
  }
}

TEST(BulkReader, FailuresNameTheFile) {
  const TemporaryFolder folder;
  BinaryFileProvider file;
  EXPECT_NE(FailureOf([&] { file.OOpen((folder / "nosuch").string()); }).find("nosuch"), std::string::npos);
  EXPECT_NE(FailureOf([&] { file.OOpen(folder.Path().string()); }).find("no plain file"), std::string::npos);
  const std::filesystem::path cut = folder.Put("cut", std::string(200'000, 'x'));
  file.OOpen(cut.string());
  std::filesystem::resize_file(cut, 100'000);
  EXPECT_NE(FailureOf([&] { file.LineGet(); }).find("byte 100000"), std::string::npos);
}

}  // namespace
}  // namespace nvadmin
