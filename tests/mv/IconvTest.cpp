// What users type, beside the examples of docs/conversions.md, which DocumentTest runs.
#include <vector>

#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(Iconv, WhatUsersType) {
  const Row rows[] = {
      {"month name", "3·OCT·2022", "D2/", "20000"},
      {"month first by default", "10/3/22", "D2/", "20000"},
      {"day first ignored", "3.10.2022", "D4.E", "20000"},
      {"order letters ignored", "22-10-03", "D2-YMD", "20000"},
      {"year typed first refused", "2022-10-03", "D", "20000"},
      {"month name inside year, month, day", "2022·Oct·3", "D4-YMD", "20000"},
      {"name without separators", "3oct22", "D", "20000"},
      {"year first outweighs the code's own order", "2022-03-10", "D-YDM", "20000"},
      {"separators beyond ASCII refused",
       "3\x96"
       "10\xA0"
       "2022",
       "D/E", "20000"},
      {"afternoon", "1:05·PM", "MTH", "47100"},
      {"morning", "09:36AM", "MTH", "34560"},
      {"seconds", "09:36:07", "MTS", "34567"},
      {"own separator", "9.36", "MT.", "34560"},
      {"minus before the currency", "-$0.05", "MD2$", "-5"},
      {"debit", "12.34DB", "MR2D", "1234"},
      {"minus zero", "-0.00", "MD2", "0"},
      {"blanks around", "·5·", "MD2", "500"},
      {"literals at other places taken out", "98-765-4321", "ML(###-##-####)", "98-765-4321"},
      {"part of a mask not read", "987-6", "ML(###-##-####)", "9876"},
      {"text longer than the mask cut", "1987-65-4321", "MR(###-##-####)", "1987-65-4321"},
      {"beginning of the literals lost", "Ref", "ML(Ref·##/##)", "Ref"},
      {"fill of a mask stored", "···-·1-2345", "MR###-##-####", "12345"},
      {"other code changes text", "Ab", "MCU", "Ab"},
      {"empty refused", "", "D2/", ""},
      {"chain not undone", "1,250.00", "MD2,]MCU", "125000"},
  };
  Check(rows, StoredByIconv);
  constexpr const char* kRefused[][2] = {
      {"soon", "D"},  {"13/1/2022", "D"}, {"257/10/2022", "D"}, {"12/283/2024", "D2/"}, {"3]10]2022", "D/E"},
      {"0-5", "MD2"}, {"**5", "MD2"},     {"3·OCT·2022", "DK"}, {"9:60", "MT"},         {"noon", "MT"},
      {"--5", "MD2"}, {"-+5", "MD2"},     {"abc", "MD2"}};
  for (const auto& [typed, code] : kRefused) {
    EXPECT_EQ(StoredByIconv(typed, code), "*refused*") << typed << " under " << code;
  }
}

TEST(Iconv, UndoesOconv) {
  const struct {
    std::vector<const char*> codes, values;
  } rows[] = {
      {{"D", "D2/", "D4/E", "D4-YMD", "D2.DMY"}, {"-13000", "-1", "0", "59", "11016", "20000"}},
      {{"MD2", "MD2,", "MD2,$", "MD2-", "MD2<", "MD2C", "MD0,", "MD2+", "MR2D"}, {"0", "5", "123456789"}},
      {{"MD2", "MD2,$", "MD2-", "MD2<", "MD2C", "MD2+"}, {"-123456"}},
      {{"MD2,$14*", "MD2,$14", "MD2,140", "MD22,<14*", "MD2,14.", "MR2(Ref #9)", "MR2<%14", "MR2$*14",
        "ML2C*14"},
       {"0", "5", "-123456", "1234567"}},
  };
  for (const auto& row : rows) {
    for (const char* code : row.codes) {
      for (const char* value : row.values) EXPECT_EQ(StoredByIconv(Oconv(value, code), code), value) << code;
    }
  }
}

TEST(SplitDecimalCode, ItsTwoStepsShowWhatTheCodeDoes) {
  std::string plain, shown;
  for (const char* code : {"MD2", "MD2,$", "MD24", "MD0,", "MD2210", "MD2,$14*", "MR2,$#12", "ML2<#12",
                           "MD2C", "MD12T", "MD2P", "md2-", "MR,#9"}) {
    ASSERT_TRUE(SplitDecimalCode(code, plain, shown)) << code;
    for (const char* value : {"0", "5", "-123456", "1234567", "12.5"}) {
      const std::string added = Oconv(value, plain);
      EXPECT_EQ(added.find_first_not_of("-.0123456789"), std::string::npos) << code;
      EXPECT_EQ(Oconv(added, shown), Oconv(value, code)) << value << " under " << code;
    }
  }
  for (const char* code : {"D2/", "MR#6",
                           "MR2\xFD"
                           "MCU",
                           "MCU", "MD2,8**"}) {
    EXPECT_FALSE(SplitDecimalCode(code, plain, shown)) << code;
  }
}

}  // namespace
}  // namespace nvadmin::mv
