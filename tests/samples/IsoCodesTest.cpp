#include "samples/IsoCodes.h"

#include <set>

#include "tests/support/TemporaryFolder.h"

namespace nvadmin::samples {
namespace {

const std::filesystem::path kFolder = "/usr/share/iso-codes/json";

void ExpectFolded(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0xFA && byte >= 0x20 && c != '?') continue;
    ADD_FAILURE() << "byte " << int{byte} << " in " << text;
    return;
  }
  EXPECT_EQ(text.find("{U+"), std::string::npos) << text;
}

TEST(IsoCodes, AreWholeWithKnownLettersAndTies) {
  const IsoCodes codes = ReadIsoCodes(kFolder);
  EXPECT_GE(codes.countries.size(), 240u);
  EXPECT_GE(codes.subdivisions.size(), 5000u);
  EXPECT_GE(codes.languages.size(), 7800u);
  EXPECT_GE(codes.currencies.size(), 170u);
  std::set<std::string> countries, subdivisions;
  for (const Country& country : codes.countries) {
    for (const std::string& text : {country.name, country.officialName, country.commonName})
      ExpectFolded(text);
    countries.insert(country.code);
  }
  for (const Subdivision& subdivision : codes.subdivisions) subdivisions.insert(subdivision.code);
  int withParent = 0;
  for (const Subdivision& subdivision : codes.subdivisions) {
    for (const std::string& text : {subdivision.name, subdivision.type}) ExpectFolded(text);
    EXPECT_TRUE(countries.contains(subdivision.country)) << subdivision.code;
    if (subdivision.parent.empty()) continue;
    ++withParent;
    EXPECT_TRUE(subdivisions.contains(subdivision.parent))
        << subdivision.code << " in " << subdivision.parent;
  }
  EXPECT_GE(withParent, 1000);
  for (const Language& language : codes.languages) {
    for (const std::string& text : {language.name, language.invertedName}) ExpectFolded(text);
    EXPECT_GT(language.scope.size(), 1u) << language.code << " has no word for its scope";
    EXPECT_GT(language.type.size(), 1u) << language.code << " has no word for its type";
  }
  for (const Currency& currency : codes.currencies) ExpectFolded(currency.name);
}

TEST(IsoCodes, NamesTheFileThatIsMissingOrDamagedAndTheWayOut) {
  const struct {
    const char *name, *file;
    std::string text;  // empty: the file is missing
  } kDamages[] = {
      {"cut short", "iso_4217.json", "{\"4217\": [{\"alpha_3\": \"AED\""},
      {"another list", "iso_4217.json", "{\"3166-1\": []}"},
      {"an entry without its name", "iso_4217.json",
       "{\"4217\": [{\"alpha_3\": \"AED\", \"numeric\": \"784\"}]}"},
      {"a number where a text belongs", "iso_4217.json",
       "{\"4217\": [{\"alpha_3\": \"AED\", \"name\": 1, \"numeric\": \"784\"}]}"},
      {"broken UTF-8", "iso_4217.json",
       "{\"4217\": [{\"alpha_3\": \"AED\", \"name\": \"D\xC3\", \"numeric\": \"784\"}]}"},
      {"missing", "iso_639-3.json", ""},
  };
  const TemporaryFolder folder;
  std::filesystem::copy(kFolder, folder.Path());
  EXPECT_EQ(FailureOf([&] { ReadIsoCodes(folder.Path()); }), "");
  for (const auto& row : kDamages) {
    std::filesystem::remove(folder / row.file);
    if (!row.text.empty()) folder.Put(row.file, row.text);
    const std::string failure = FailureOf([&] { ReadIsoCodes(folder.Path()); });
    EXPECT_NE(failure.find((folder / row.file).string()), std::string::npos) << row.name << failure;
    EXPECT_NE(failure.find("apt-get install"), std::string::npos) << row.name << failure;
    std::filesystem::copy(kFolder / row.file, folder.Path(),
                          std::filesystem::copy_options::overwrite_existing);
  }
}

}  // namespace
}  // namespace nvadmin::samples
