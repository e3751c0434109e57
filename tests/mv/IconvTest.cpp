#include "mv/Conversions.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

TEST(Iconv, WhatUsersType) {
  constexpr const char* kRefused = "(refused)";
  const struct {
    const char *fault, *typed, *code, *want;
  } rows[] = {
      {"month name", "3 OCT 2022", "D2/", "20000"},
      {"month first by default", "10/3/22", "D2/", "20000"},
      {"day first ignored", "3.10.2022", "D4.E", "20000"},
      {"order letters ignored", "22-10-03", "D2-YMD", "20000"},
      {"year typed first refused", "2022-10-03", "D", "20000"},
      {"month name inside year, month, day", "2022 Oct 3", "D4-YMD", "20000"},
      {"name without separators", "3oct22", "D", "20000"},
      {"no date accepted", "soon", "D", kRefused},
      {"month 13 accepted", "13/1/2022", "D", kRefused},
      {"malformed code accepted", "3 OCT 2022", "DK", kRefused},
      {"afternoon", "1:05 PM", "MTH", "47100"},
      {"morning", "09:36AM", "MTH", "34560"},
      {"midnight is noon", "12:00am", "MTH", "0"},
      {"seconds", "09:36:07", "MTS", "34567"},
      {"own separator", "9.36", "MT.", "34560"},
      {"hours alone", "9", "MT", "32400"},
      {"minute 60 accepted", "9:60", "MT", kRefused},
      {"hour 13 with PM accepted", "13:00PM", "MTH", kRefused},
      {"text accepted as time", "noon", "MT", kRefused},
      {"commas", "1,250.00", "MD2", "125000"},
      {"too few decimals", "12.5", "MD2", "1250"},
      {"fraction below the scale lost", "12.345", "MD2", "1234.5"},
      {"currency", "$1,250", "MD2,$", "125000"},
      {"minus before the currency", "-$0.05", "MD2$", "-5"},
      {"brackets", "<12.34>", "MD2<", "-1234"},
      {"credit", "12.34CR", "MR2C#12", "-1234"},
      {"debit", "12.34DB", "MR2D", "1234"},
      {"minus behind", "12.34-", "MD2-", "-1234"},
      {"no scale", "7.25", "MD20", "7.25"},
      {"comma in a wrong place accepted", "12,50", "MD2", kRefused},
      {"two signs accepted", "--5", "MD2", kRefused},
      {"plus behind a minus accepted", "-+5", "MD2", kRefused},
      {"text accepted as number", "abc", "MD2", kRefused},
      {"minus zero", "-0.00", "MD2", "0"},
      {"blanks around", " 5 ", "MD2", "500"},
      {"mask alone changes text", "AB12", "MR#6", "AB12"},
      {"literals of a mask stored", "987-65-4321", "ML(###-##-####)", "987654321"},
      {"text without the literals changed", "987654321", "ML(###-##-####)", "987654321"},
      {"literals at other places taken out", "98-765-4321", "ML(###-##-####)", "98-765-4321"},
      {"part of a mask not read", "987-6", "ML(###-##-####)", "9876"},
      {"mask not read from its right end", "1-2345", "MR(###-##-####)", "12345"},
      {"text longer than the mask cut", "1987-65-4321", "MR(###-##-####)", "1987-65-4321"},
      {"words of a mask stored", "Ref 12/34", "ML(Ref ##/##)", "1234"},
      {"beginning of the literals lost", "Ref", "ML(Ref ##/##)", "Ref"},
      {"fill of a mask stored", "   - 1-2345", "MR###-##-####", "12345"},
      {"other code changes text", "Ab", "MCU", "Ab"},
      {"empty refused", "", "D2/", ""},
      {"chain not undone", "1,250.00", "MD2,]MCU", "125000"},
  };
  for (const auto& row : rows) {
    std::string stored = "untouched";
    const bool accepted = Iconv(row.typed, Bytes(row.code), stored);
    EXPECT_EQ(accepted ? stored : kRefused, row.want)
        << row.fault << ": '" << row.typed << "' under " << row.code;
    EXPECT_EQ(stored == "untouched", !accepted) << row.fault;
  }
}

TEST(Iconv, UndoesOconv) {
  for (const char* code : {"D", "D2/", "D4/E", "D4-YMD", "D2.DMY"}) {
    for (int day = -13000; day < 20000; day += 997) {
      std::string stored;
      ASSERT_TRUE(Iconv(Oconv(std::to_string(day), code), code, stored)) << code << " " << day;
      EXPECT_EQ(stored, std::to_string(day)) << code;
    }
  }
  for (const char* code : {"MD2", "MD2,", "MD2,$", "MD2-", "MD2<", "MD2C", "MD0,", "MD2+", "MR2D"}) {
    for (const char* number : {"0", "5", "123456789"}) {
      std::string stored;
      const std::string shown = Oconv(number, code);
      ASSERT_TRUE(Iconv(shown, code, stored)) << code << " " << shown;
      EXPECT_EQ(stored, number) << code << " " << shown;
    }
  }
  for (const char* code : {"MD2", "MD2,$", "MD2-", "MD2<", "MD2C", "MD2+"}) {
    std::string stored;
    ASSERT_TRUE(Iconv(Oconv("-123456", code), code, stored)) << code;
    EXPECT_EQ(stored, "-123456") << code;
  }
}

}  // namespace
}  // namespace nvadmin::mv
