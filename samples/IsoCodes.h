// Public reference data as Debian's package iso-codes holds it: countries and their subdivisions (ISO 3166),
// languages (ISO 639-3) and currencies (ISO 4217). Read when the demo account is made, never copied into the
// program. Names come folded (see Folding.h); codes are plain ASCII. A text that the package leaves out is
// empty.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace nvadmin::samples {

struct Country {
  std::string code;  // alpha-2
  std::string name;
  std::string officialName;
  std::string commonName;
  std::string alpha3;
  std::string numeric;  // three digits, leading zeros kept
};

struct Subdivision {
  std::string code;  // country, "-", the subdivision's own part
  std::string name;
  std::string type;
  std::string country;  // alpha-2
  std::string parent;   // code of the subdivision that it is part of
};

struct Language {
  std::string code;  // alpha-3
  std::string name;
  std::string alpha2;
  std::string scope;  // a word: Individual, Macrolanguage, Special
  std::string type;   // a word: Living, Extinct ...
  std::string invertedName;
  std::string bibliographicCode;
};

struct Currency {
  std::string code;  // alpha-3
  std::string name;
  std::string numeric;  // three digits, leading zeros kept
};

struct IsoCodes {
  std::vector<Country> countries;
  std::vector<Subdivision> subdivisions;
  std::vector<Language> languages;
  std::vector<Currency> currencies;
};

// Reads the iso_*.json files of `folder`. A file that is missing or isn't such a list is an EngineFailure
// that names it and the way out.
IsoCodes ReadIsoCodes(const std::filesystem::path& folder);

}  // namespace nvadmin::samples
