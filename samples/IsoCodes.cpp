#include "samples/IsoCodes.h"

#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_set>

#include "samples/Folding.h"
#include "session/EngineCallBack.h"

namespace nvadmin::samples {
namespace {

using nlohmann::json;

struct Letter {
  char letter;
  std::string_view word;
};

constexpr Letter kScopes[] = {{'I', "Individual"}, {'M', "Macrolanguage"}, {'S', "Special"}};
constexpr Letter kTypes[] = {{'A', "Ancient"},    {'C', "Constructed"}, {'E', "Extinct"},
                             {'H', "Historical"}, {'L', "Living"},      {'S', "Special"}};

// The word of a one-letter code; a letter without one stands for itself.
template <std::size_t kCount>
std::string WordOf(const Letter (&letters)[kCount], const std::string& code) {
  for (const Letter& row : letters) {
    if (code.size() == 1 && row.letter == code[0]) return std::string(row.word);
  }
  return code;
}

std::string Text(const json& entry, const char* key) {
  const auto found = entry.find(key);
  return found == entry.end() ? std::string() : FoldName(found->get_ref<const std::string&>());
}

// A text that every entry has; its absence is a failure of the reader.
std::string Required(const json& entry, const char* key) {
  return FoldName(entry.at(key).get_ref<const std::string&>());
}

// The package writes a parent as a whole code or without its country.
void CompleteParents(std::vector<Subdivision>& subdivisions) {
  std::unordered_set<std::string> codes;
  for (const Subdivision& subdivision : subdivisions) codes.insert(subdivision.code);
  for (Subdivision& subdivision : subdivisions) {
    if (subdivision.parent.empty() || codes.count(subdivision.parent) != 0) continue;
    subdivision.parent = subdivision.country + "-" + subdivision.parent;
  }
}

// The list named `standard` of the file iso_STANDARD.json, each entry through `make`.
template <typename Make>
auto ReadList(const std::filesystem::path& folder, const std::string& standard, Make make) {
  const std::filesystem::path file = folder / ("iso_" + standard + ".json");
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw EngineFailure(
        fmt::format("{} can't be read. The demo account takes its data from Debian's package iso-codes: "
                    "apt-get install iso-codes, or name its json folder in NVADMIN_ISO_CODES",
                    file.string()));
  }
  try {
    const json document = json::parse(stream);
    const json& list = document.at(standard);
    std::vector<decltype(make(list))> entries;
    entries.reserve(list.size());
    for (const json& entry : list) entries.push_back(make(entry));
    return entries;
  } catch (const json::exception& error) {
    throw EngineFailure(
        fmt::format("{} isn't a list of ISO {} as the package iso-codes holds it ({}): "
                    "apt-get install --reinstall iso-codes",
                    file.string(), standard, error.what()));
  }
}

Country MakeCountry(const json& entry) {
  return {Required(entry, "alpha_2"), Required(entry, "name"),    Text(entry, "official_name"),
          Text(entry, "common_name"), Required(entry, "alpha_3"), Required(entry, "numeric")};
}

Subdivision MakeSubdivision(const json& entry) {
  std::string code = Required(entry, "code");
  std::string country = code.substr(0, code.find('-'));
  return {std::move(code), Required(entry, "name"), Required(entry, "type"), std::move(country),
          Text(entry, "parent")};
}

Language MakeLanguage(const json& entry) {
  return {Required(entry, "alpha_3"),
          Required(entry, "name"),
          Text(entry, "alpha_2"),
          WordOf(kScopes, Required(entry, "scope")),
          WordOf(kTypes, Required(entry, "type")),
          Text(entry, "inverted_name"),
          Text(entry, "bibliographic")};
}

Currency MakeCurrency(const json& entry) {
  return {Required(entry, "alpha_3"), Required(entry, "name"), Required(entry, "numeric")};
}

}  // namespace

IsoCodes ReadIsoCodes(const std::filesystem::path& folder) {
  IsoCodes codes;
  codes.countries = ReadList(folder, "3166-1", MakeCountry);
  codes.subdivisions = ReadList(folder, "3166-2", MakeSubdivision);
  CompleteParents(codes.subdivisions);
  codes.languages = ReadList(folder, "639-3", MakeLanguage);
  codes.currencies = ReadList(folder, "4217", MakeCurrency);
  return codes;
}

}  // namespace nvadmin::samples
