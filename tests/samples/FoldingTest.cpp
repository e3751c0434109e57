#include "samples/Folding.h"

#include <gtest/gtest.h>

namespace nvadmin::samples {
namespace {

struct Case {
  const char* name;
  const char* utf8;
  const char* want;
};

TEST(Folding, GivesEveryNameItsNearestLetters) {
  const Case cases[] = {
      {"plain text stays", "Saint Kitts & Nevis (2)", "Saint Kitts & Nevis (2)"},
      {"letters of the page stay", "\u00e9t\u00e9 \u00f8re \u00e6r \u00df", "\xE9t\xE9 \xF8re \xE6r \xDF"},
      {"the page's characters from 128 on stay", "\u0160irak \u2020 \u2018Kufr \u017d",
       "\x8Airak \x86 \x91Kufr \x8E"},
      {"the last byte below the marks stays", "H\u00f9", "H\xF9"},
      {"letters on the bytes of the marks", "\u00fa\u00fb\u00fc\u00fd\u00fe\u00ff", "uuuythy"},
      {"their capitals are no marks", "\u00da\u00dc\u00dd\u00de", "\xDA\xDC\xDD\xDE"},
      {"macron, ogonek, caron, breve, double acute", "\u0101\u0173\u010d\u0103\u0151", "aucao"},
      {"dotless and dotted i", "\u0130m\u0131", "Imi"},
      {"strokes", "\u0141\u0142\u0110\u0111\u0126\u0127", "LlDdHh"},
      {"comma below", "\u0218oldane\u0219ti, B\u0103l\u021bi", "Soldanesti, Balti"},
      {"stacked accents", "Th\u1eeba Thi\u00ean-Hu\u1ebf, \u0110\u1eafk N\u00f4ng",
       "Thua Thi\xEAn-Hue, Dak N\xF4ng"},
      {"an accent by itself goes, its letter stays", "Abu Z\u0327aby, Ca\u0331hungwa", "Abu Zaby, Cahungwa"},
      {"turned e, schwa and open e", "K\u01ddng\u0259rli K\u025bl\u025bnga", "Kengerli Kelenga"},
      {"eng, ij and clicks have two letters", "Yol\u014bu \u0132 \u01c1Gana \u01c3X", "Yolngu IJ ||Gana !X"},
      {"apostrophes that are letters", "Daats\u02bciin \u02bbUman", "Daats\x92iin \x91Uman"},
      {"both ends of the runs", "\u0100\u017f\u01a0\u01b0\u01cd\u01dc\u021b\u1e00\u1eff", "AsOuAutAy"},
      {"what has no letter is told by number", "\u4e2d \U0001F1E6 \u0180", "{U+4E2D} {U+1F1E6} {U+0180}"},
      {"empty", "", ""},
  };
  for (const Case& row : cases) EXPECT_EQ(FoldName(row.utf8), row.want) << row.name;
}

}  // namespace
}  // namespace nvadmin::samples
