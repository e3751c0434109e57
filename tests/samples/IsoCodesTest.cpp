#include "samples/IsoCodes.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "session/EngineCallBack.h"

namespace nvadmin::samples {
namespace {

const std::filesystem::path kFolder = "/usr/share/iso-codes/json";

// A folder of its own with copies of the real lists, to damage.
class DamagedCopy {
 public:
  DamagedCopy()
      : folder_(std::filesystem::temp_directory_path() / ("nvadmin-iso-" + std::to_string(getpid()))) {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    for (const char* standard : {"3166-1", "3166-2", "639-3", "4217"}) {
      const std::string name = std::string("iso_") + standard + ".json";
      std::filesystem::copy_file(kFolder / name, folder_ / name);
    }
  }
  ~DamagedCopy() { std::filesystem::remove_all(folder_); }
  const std::filesystem::path& Folder() const { return folder_; }
  void Rewrite(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
  }

 private:
  std::filesystem::path folder_;
};

std::string FailureOf(const std::filesystem::path& folder) {
  try {
    ReadIsoCodes(folder);
  } catch (const EngineFailure& failure) {
    return failure.what();
  }
  return "no failure";
}

void ExpectFolded(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0xFA && byte >= 0x20 && c != '?') continue;
    ADD_FAILURE() << "byte " << int{byte} << " in " << text;
    return;
  }
  EXPECT_EQ(text.find("{U+"), std::string::npos) << text;
}

TEST(IsoCodes, LeavesNoMarkAndNoUnknownLetterInAnyName) {
  const IsoCodes codes = ReadIsoCodes(kFolder);
  EXPECT_GE(codes.countries.size(), 240u);
  EXPECT_GE(codes.subdivisions.size(), 5000u);
  EXPECT_GE(codes.languages.size(), 7800u);
  EXPECT_GE(codes.currencies.size(), 170u);
  for (const Country& country : codes.countries) {
    for (const std::string& text : {country.name, country.officialName, country.commonName})
      ExpectFolded(text);
  }
  for (const Subdivision& subdivision : codes.subdivisions) {
    for (const std::string& text : {subdivision.name, subdivision.type}) ExpectFolded(text);
  }
  for (const Language& language : codes.languages) {
    for (const std::string& text : {language.name, language.invertedName}) ExpectFolded(text);
    EXPECT_GT(language.scope.size(), 1u) << language.code << " has no word for its scope";
    EXPECT_GT(language.type.size(), 1u) << language.code << " has no word for its type";
  }
  for (const Currency& currency : codes.currencies) ExpectFolded(currency.name);
}

TEST(IsoCodes, TiesSubdivisionsToTheirCountryAndParent) {
  const IsoCodes codes = ReadIsoCodes(kFolder);
  std::set<std::string> countries;
  std::set<std::string> subdivisions;
  for (const Country& country : codes.countries) countries.insert(country.code);
  for (const Subdivision& subdivision : codes.subdivisions) subdivisions.insert(subdivision.code);
  std::size_t withParent = 0;
  for (const Subdivision& subdivision : codes.subdivisions) {
    EXPECT_EQ(countries.count(subdivision.country), 1u) << subdivision.code;
    if (subdivision.parent.empty()) continue;
    ++withParent;
    EXPECT_EQ(subdivisions.count(subdivision.parent), 1u) << subdivision.code << " in " << subdivision.parent;
  }
  EXPECT_GE(withParent, 1000u);
}

TEST(IsoCodes, NamesTheFileThatIsMissingOrDamagedAndTheWayOut) {
  const DamagedCopy copy;
  EXPECT_EQ(FailureOf(copy.Folder()), "no failure");

  const struct {
    const char* name;
    const char* text;
  } damages[] = {
      {"cut short", "{\"4217\": [{\"alpha_3\": \"AED\""},
      {"another list", "{\"3166-1\": []}"},
      {"an entry without its name", "{\"4217\": [{\"alpha_3\": \"AED\", \"numeric\": \"784\"}]}"},
      {"a number where a text belongs",
       "{\"4217\": [{\"alpha_3\": \"AED\", \"name\": 1, \"numeric\": \"784\"}]}"},
      {"broken UTF-8", "{\"4217\": [{\"alpha_3\": \"AED\", \"name\": \"D\xC3\", \"numeric\": \"784\"}]}"},
  };
  for (const auto& damage : damages) {
    copy.Rewrite("iso_4217.json", damage.text);
    const std::string failure = FailureOf(copy.Folder());
    EXPECT_NE(failure.find((copy.Folder() / "iso_4217.json").string()), std::string::npos)
        << damage.name << failure;
    EXPECT_NE(failure.find("apt-get install"), std::string::npos) << damage.name << failure;
  }

  std::filesystem::remove(copy.Folder() / "iso_639-3.json");
  const std::string failure = FailureOf(copy.Folder());
  EXPECT_NE(failure.find((copy.Folder() / "iso_639-3.json").string()), std::string::npos) << failure;
  EXPECT_NE(failure.find("apt-get install iso-codes"), std::string::npos) << failure;
}

}  // namespace
}  // namespace nvadmin::samples
