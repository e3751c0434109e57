// Folders of transfer files: nothing outside them is reached, and whole files only are found.
#include "platform/Folder.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

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
  const std::string names[] = {"../secret",
                               "..",
                               ".",
                               "",
                               "..\\secret",
                               "\\secret",
                               "link\\new",
                               "a\\..\\b",
                               temporary / "secret",
                               std::string("new\0x", 5),
                               std::string(256, 'n'),
                               "no\\new"};
  for (const std::string& name : names) {
    EXPECT_NE(FailureOf([&] { folder.WriteFile(name, "x"); }), "") << name;
    EXPECT_NE(FailureOf([&] { folder.ReadFile(name); }), "") << name;
    if (!name.empty()) {
      EXPECT_NE(FailureOf([&] { folder.MakeSubfolder(name + "\\sub"); }), "") << name;
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
  temporary.Put("sub/\xC5\x82", "no byte for this name");
  fs::create_directory(temporary / "sub/deeper");

  std::vector<std::string> found = root.MakeSubfolder("sub\\").FileNames();
  std::sort(found.begin(), found.end());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(found, names);
  for (const std::string& name : names) EXPECT_EQ(folder.ReadFile(name), bytes);
  EXPECT_EQ(temporary.Text("sub/\xE2\x82\xAC\xC3\xA9\xC2\x81.txt"), bytes) << "UTF-8 on disk";
}

}  // namespace
}  // namespace nvadmin
