// The direction of the house: which folder may include which, read from the sources themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Includes = std::map<std::string, std::vector<std::string>>;  // file, what it includes as written

// Rows of one file stand above those of its folder: the first row that fits a file holds. A folder may always
// include itself; "folder/" is all of a folder, anything else one header.
struct Rule {
  std::string_view from;
  std::vector<std::string_view> mayInclude;
};

const std::vector<Rule> kRules = {
    {"session/BP.cpp", {"platform/", "reports/", "queries/", "forms/", "bulk/", "backserver/"}},
    {"session/", {"platform/"}},
    {"platform/", {"session/"}},
    {"reports/", {"session/", "platform/"}},
    {"queries/", {"session/", "platform/", "reports/", "forms/"}},
    {"forms/basMenus.cpp", {"session/", "platform/", "bulk/"}},
    {"forms/", {"session/", "platform/"}},
    {"bulk/", {"session/", "platform/", "forms/"}},
    {"backserver/", {"session/", "platform/", "reports/"}},
    {"mv/", {"session/MvServices.h"}},
    {"engine/",
     {"mv/", "session/EngineCallBack.h", "session/MvServices.h", "session/BP.h", "session/CodePage.h"}},
    {"samples/", {"engine/", "mv/", "session/EngineCallBack.h"}},
    {"host/", {"engine/", "session/", "samples/", "platform/TransferObserver.h"}},
};

constexpr std::string_view kAddInFolders[] = {"session/", "reports/",    "queries/", "forms/",
                                              "bulk/",    "backserver/", "platform/"};
// Folders that do with the standard library.
constexpr std::string_view kStandardOnly[] = {"session/", "reports/",    "queries/", "forms/",
                                              "bulk/",    "backserver/", "mv/"};

std::string FolderOf(std::string_view file) { return std::string(file.substr(0, file.find('/') + 1)); }

template <typename Folders>
bool IsIn(const Folders& folders, std::string_view file) {
  return std::any_of(std::begin(folders), std::end(folders),
                     [file](std::string_view f) { return file.starts_with(f); });
}

// The includes of every source file, headers of the system with their "<". A folder without a rule may
// include nothing of ours but itself.
Includes ReadIncludes() {
  constexpr std::string_view kNotRead[] = {"tests", "bench", "build"};
  Includes includes;
  const fs::path root = NVADMIN_SOURCE_DIR;
  for (const fs::directory_entry& folder : fs::directory_iterator(root)) {
    const std::string name = folder.path().filename().string();
    if (!folder.is_directory() || name.starts_with('.') || IsIn(kNotRead, name)) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
      const fs::path extension = entry.path().extension();
      if (extension != ".h" && extension != ".cpp") continue;
      std::vector<std::string>& found = includes[fs::relative(entry.path(), root).generic_string()];
      std::ifstream stream(entry.path());
      for (std::string line; std::getline(stream, line);) {
        if (!line.starts_with("#include ")) continue;
        const bool ours = line[9] == '"';
        const std::size_t start = ours ? 10 : 9;
        found.push_back(line.substr(start, line.find(ours ? '"' : '>', start) - start));
      }
    }
  }
  return includes;
}

bool MayInclude(std::string_view file, std::string_view included) {
  const auto rule = std::find_if(kRules.begin(), kRules.end(),
                                 [file](const Rule& row) { return file.starts_with(row.from); });
  const bool ruled = rule != kRules.end();
  return (ruled && IsIn(rule->mayInclude, included)) || included.starts_with(FolderOf(file));
}

std::string Stem(std::string_view file) { return std::string(file.substr(0, file.rfind('.'))); }

TEST(House, IncludesRunOneWay) {
  const Includes includes = ReadIncludes();
  ASSERT_TRUE(includes.contains("session/BP.cpp")) << "no sources below " << NVADMIN_SOURCE_DIR;
  for (const auto& [file, found] : includes) {
    for (const std::string& included : found) {
      if (included.starts_with('<')) {
        // A header of the standard library has neither a folder nor an extension.
        EXPECT_TRUE(!IsIn(kStandardOnly, file) || included.find_first_of("./") == included.npos)
            << file << " does with the standard library, and includes " << included;
        continue;
      }
      EXPECT_TRUE(fs::exists(fs::path(NVADMIN_SOURCE_DIR) / included))
          << file << ": paths begin at the root: " << included;
      EXPECT_TRUE(MayInclude(file, included)) << file << " may not include " << included;
    }
  }
}

// A header and its source count as one file: a source that reaches back to its own header over others is a
// circle.
TEST(House, NoCircleBetweenFilesOfTheAddIn) {
  std::map<std::string, std::set<std::string>> edges;
  for (const auto& [file, found] : ReadIncludes()) {
    if (!IsIn(kAddInFolders, file)) continue;
    for (const std::string& included : found) {
      if (!included.starts_with('<') && Stem(included) != Stem(file))
        edges[Stem(file)].insert(Stem(included));
    }
  }
  // Whoever includes nobody that is left can go; what can't go is on a circle or leads to one.
  std::set<std::string> left;
  for (const auto& [file, next] : edges) left.insert(file);
  for (std::size_t before = 0; before != left.size();) {
    before = left.size();
    std::erase_if(left, [&](const std::string& file) {
      return std::none_of(edges[file].begin(), edges[file].end(),
                          [&](auto& next) { return left.contains(next); });
    });
  }
  for (const std::string& file : left) ADD_FAILURE() << file << " is on a circle, or leads to one";
}

}  // namespace
