// Folders of transfer files: nothing outside them is reached, and whole files only are found.
#include "platform/Folder.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin {
namespace {

namespace fs = std::filesystem;

TEST(Folder, ReachesNothingOutside) {
  const TemporaryFolder temporary;
  fs::create_directory(temporary / "in");
  fs::create_directory(temporary / "out");
  temporary.Put("secret", "s");
  fs::create_symlink(temporary / "out", temporary / "in/link");
  fs::create_symlink(temporary / "secret", temporary / "in/file-link");
  ASSERT_EQ(mkfifo((temporary / "in/pipe").c_str(), 0600), 0);
  const Folder folder((temporary / "in\\").string());
  struct Row {
    std::string name, told;  // without a text of its own, the failure holds the name
  };
  const Row rows[] = {
      {"../secret", ""},
      {"..", ""},
      {".", ""},
      {"", "''"},
      {"..\\secret", ""},
      {"\\secret", ""},
      {"link\\new", "in\\link'"},
      {"a\\..\\b", ""},
      {temporary / "secret", ""},
      {std::string("new\0x", 5), "'new<NUL>x': it must stay in the folder"},
      {"no\\new", "in\\no'"},
      {"</TX>", ""},
      {std::string(256, 'n'), ""},
      {std::string(128, '\xE9'), ""},
      {std::string(1'000'000, '/'), std::string(200, '/') + "...' (1000000 characters): it must"},
      {std::string(1'000'000, 'n'), "nnn...' (10000"}};
  for (const Row& row : rows) {
    const std::string told = row.told.empty() ? row.name : row.told;
    const auto tells = [&](const std::string& failure) { return failure.find(told) != std::string::npos; };
    EXPECT_TRUE(tells(FailureOf([&] { folder.WriteFile(row.name, "x"); }))) << told.substr(0, 100);
    EXPECT_TRUE(tells(FailureOf([&] { folder.ReadFile(row.name); }))) << told.substr(0, 100);
    if (!row.name.empty()) {
      EXPECT_NE(FailureOf([&] { folder.MakeSubfolder(row.name + "\\sub"); }), "") << told.substr(0, 100);
    }
  }
  for (const std::string name : {"file-link", "pipe", "missing"}) {
    EXPECT_NE(FailureOf([&] { folder.ReadFile(name); }).find(name), std::string::npos);
  }
  folder.WriteFile("file-link", "mine");
  EXPECT_EQ(temporary.Text("secret"), "s") << "a link is replaced, not followed";
  EXPECT_TRUE(fs::is_empty(temporary / "out"));
  EXPECT_NE(FailureOf([&] { Folder((temporary / "nosuch").string()); }).find("nosuch"), std::string::npos);
}

TEST(Folder, ListsWhatItWroteUnderTheSameName) {
  const TemporaryFolder temporary;
  const Folder root(temporary.Path().string());
  const Folder folder = root.MakeSubfolder("sub").MakeSubfolder("");
  std::vector<std::string> names = {"a b'\"<>", "\x80\xE9\x81.txt", std::string(255, 'n')};
  for (const std::string& name : names) folder.WriteFile(name, "old, and longer");
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  for (const std::string& name : names) folder.WriteFile(name, bytes);
  temporary.Put("sub/.hidden", "x");
  // No byte of the code page, no UTF-8 (cut, too long, too short a form), and no name that could be asked
  // for.
  for (const std::string_view name : {"\xC5\x82", "\xE2\x82", "\xC1\x81", "\xF0\x90\x80\x80", "\xE9", "a\\b"})
    temporary.Put(fs::path("sub") / name, "x");
  fs::create_directory(temporary / "sub/deeper");

  std::vector<std::string> found = root.MakeSubfolder("sub\\").FileNames();
  std::sort(found.begin(), found.end());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(found, names);
  for (const std::string& name : names) EXPECT_EQ(folder.ReadFile(name), bytes);
  EXPECT_EQ(temporary.Text("sub/\xE2\x82\xAC\xC3\xA9\xC2\x81.txt"), bytes) << "UTF-8 on disk";
  EXPECT_EQ(fs::status(temporary / "sub").permissions(), fs::perms(0700));
  EXPECT_EQ(fs::status(temporary / "sub" / names.front()).permissions(), fs::perms(0600));
}

// The names in a folder, hidden ones included.
std::set<std::string> NamesIn(const fs::path& folder) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

TEST(Folder, TroubleIsNamedAndLeavesWholeFilesOnly) {
  const TemporaryFolder temporary;
  const Folder root(temporary.Path().string());
  const Folder folder = root.MakeSubfolder("sub");
  folder.WriteFile("old", "as it was");
  fs::create_symlink("nowhere", temporary / "dangling");
  std::ofstream(temporary / "sub/large");
  fs::resize_file(temporary / "sub/large", 1'000'000'001);
  ASSERT_EQ(mkfifo((temporary / "pipe").c_str(), 0600), 0);
  const std::set<std::string> names = NamesIn(temporary / "sub");
  const auto fullDisk = [&] {
    return RunInChild([&] {
      signal(SIGXFSZ, SIG_IGN);
      const rlimit most{10'000, 10'000};
      setrlimit(RLIMIT_FSIZE, &most);
      folder.WriteFile("fits", std::string(10'000, 'x'));
      folder.WriteFile("old", std::string(10'001, 'x'));
      return "no failure";
    });
  };
  struct Row {
    std::string failure, told;
  };
  const Row rows[] = {
      {FailureOf([&] { folder.ReadFile("large"); }), "sub\\large': it is 1000000001 bytes long"},
      {FailureOf([&] { root.MakeSubfolder("dangling"); }), "\\dangling': "},
      {FailureOf([&] { Folder((temporary / "dangling").string()); }), "dangling': No such file"},
      {FailureOf([&] { Folder((temporary / "pipe").string()); }), "pipe': Not a directory"},
      {fullDisk(), "sub\\old': File too large"},
  };
  for (const Row& row : rows) EXPECT_NE(row.failure.find(row.told), std::string::npos) << row.failure;
  EXPECT_EQ(folder.ReadFile("old"), "as it was");
  EXPECT_EQ(folder.ReadFile("fits").size(), 10'000U);
  fs::remove(temporary / "sub/fits");
  EXPECT_EQ(NamesIn(temporary / "sub"), names);

  fs::rename(temporary / "sub", temporary / "moved");
  folder.WriteFile("new", "x");
  EXPECT_EQ(temporary.Text("moved/new"), "x") << "an open folder may be moved";
  fs::remove_all(temporary / "moved");
  EXPECT_NE(FailureOf([&] { folder.WriteFile("new", "x"); }).find("sub\\new': No such file"),
            std::string::npos);
}

TEST(Folder, KilledWritersLeaveWholeFilesUnderTheirNames) {
  const TemporaryFolder temporary;
  const Folder folder(temporary.Path().string());
  constexpr std::size_t kBytes = 3'000'000;
  for (int round = 0; round < 8; ++round) {
    ChildProgram writer([&](auto&& tellStep) {
      for (char letter = 'a';; letter = letter == 'a' ? 'b' : 'a') {
        folder.WriteFile("whole", std::string(kBytes, letter));
        if (!tellStep()) return;
      }
    });
    writer.Await(1 + round);
    writer.Kill();
    const std::string text = folder.ReadFile("whole");
    ASSERT_TRUE(text == std::string(kBytes, 'a') || text == std::string(kBytes, 'b')) << text.size();
  }
  // What a killed program of the same number has left, a pipe in the worst case, stops nobody.
  for (int count = 0; count < 100; ++count) {
    const std::string name = ".nvadmin-" + std::to_string(getpid()) + "-" + std::to_string(count);
    ASSERT_EQ(mkfifo((temporary / name).c_str(), 0600), 0);
  }
  folder.WriteFile("whole", "x");
  EXPECT_EQ(folder.ReadFile("whole"), "x");
  EXPECT_EQ(folder.FileNames(), std::vector<std::string>{"whole"});
}

}  // namespace
}  // namespace nvadmin
