// Output conversions, beside the examples of docs/conversions.md, which DocumentTest runs.
#include "mv/EngineHooks.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

// Plain cases, which need no name.
TEST(Oconv, Examples) {
  constexpr const char* kExamples[][3] = {
      {"20000", "D", "03·OCT·2022"},  {"20000", "D0", "03·OCT"},     {"20000", "D/", "10/03/2022"},
      {"20000", "D2/", "10/03/22"},   {"20000", "D2/E", "03/10/22"}, {"20000", "DD", "3"},
      {"20000", "DM", "10"},          {"20000", "DMA", "OCTOBER"},   {"20000", "DY2", "22"},
      {"20000", "D2Y", "22"},         {"20000", "DW", "1"},          {"19999", "DW", "7"},
      {"20000", "DWA", "MONDAY"},     {"20000", "DJ", "276"},        {"20000", "DQ", "4"},
      {"20514", "D2-", "02-29-24"},   {"3·Oct·22", "DI", "20000"},   {"3/10/2022", "DIE", "20000"},
      {"soon", "D2/", "####"},        {"30·FEB·2022", "DI", "####"}, {"20000", "DE", "03·OCT·2022"},
      {"20000", "D2-YM", "22-10"},    {"20000", "DMY", "10·2022"},   {"20000", "D0-YMD", "10-03"},
      {"20000", "d2/e", "03/10/22"},  {"0", "MT", "00:00"},          {"34567", "MT", "09:36"},
      {"34567", "MTS", "09:36:07"},   {"34567", "MTH", "09:36AM"},   {"59", "MTH", "12:00AM"},
      {"34567", "MTS.", "09.36.07"},  {"90061", "MTS", "25:01:01"},  {"90061", "MTH", "01:01AM"},
      {"noon", "MT", "####"},         {"0", "MD2", "0.00"},          {"-1234", "MR2C", "12.34CR"},
      {"1234", "MR2C", "12.34··"},    {"1234", "MR2D", "12.34DB"},   {"-1234", "MR2E", "<12.34>"},
      {"1234", "MR2%9", "000012.34"}, {"abc", "MD2", "####"},        {"123456", "MD0,", "123,456"},
      {"a1]b2", "MCN", "1]2"},        {"255", "MCDX", "FF"},         {"1Fz", "MCX", "31"},
      {"cat", "MX", "####"},          {"12*34*56*78", "G*1", "12"},  {"12*34", "G1*5", "34"},
      {"1234", "G0*1", "1234"},       {"1234", "G1*1", ""},          {"12345", "MD2]G0.1", "123"},
      {"INVOICE", "T9,2", ""},        {"AB", "L2,4", "AB"},          {"AB1x", "P(2A0N);(3N)", ""},
      {"Pfister", "S", "P236"},       {"7", "A;V*\"3\"", "21"},      {"1]2", "D", "####"},
      {"10-3-2022", "DI", "20000"},   {"1.1.29", "DI", "22282"},     {"1.1.30", "DI", "-13878"},
      {"2933629", "D", "####"},       {"-718431", "D", "####"},      {"3·OCT", "DI", "####"},
      {"3]10]2022", "DI", "####"},    {"-15", "MD01", "-2"},         {"-4", "MD01C", "0··"},
      {"0", "MD2D", "0.00DB"},        {"99.995", "MD20", "100.00"},  {"1234", "MD2,8", "···12.34"},
      {"0", "MR2Z#5", "·····"},       {"000123", "MD2", "1.23"},     {"1·2", "MD2", "####"},
      {"a1]b2", "MC/A", "1]2"},       {"aaa", "MCC;a;aa", "aaaaaa"}, {"aA", "MCC;a;x", "xA"},
      {"abc", "MCC;;x", "abc"},       {"26x", "MCD", "1A"},          {"417a", "MCXA", "Az"},
      {"A", "MO0C", "101"},           {"INVOICE", "T0,2", "IN"},     {"3", "R-5,-1/1,5", "3"},
      {"123", "P#(3N)", ""},          {"3N", "P('3N')", "3N"},       {"6^7", "S;2;'none'", "7"},
      {"Tata", "S", "T300"},          {"B-b·c", "S", "B200"},        {"9^4^3", "A1-2-3", "2"},
      {"6^6", "A;1<=2", "1"},         {"1^2", "A;1:2=\"12\"", "1"},  {"-7^2", "A;1/2", "-3"},
      {"2.9", "A;V*\"2\"", "4"},      {"2.9", "AE;I(V)*\"2\"", "4"}, {"0.1^0.2", "AE;1+2", "0.3"},
      {"abc", "A;V+\"1\"", "1"},      {"6^7^8", "A;NA", "3"},        {"6^7", "A;NL", "3"},
      {"6^7", "A;1*-2", "-42"},       {"6^-7", "A;1--2", "-1"},      {"1]2", "A;-V", "-1]-2"},
      {"6^7", "A;-(1+2)", "-13"},     {"2.5", "AE;-V", "-2.5"},      {"x", "FS;C9;C2;/", "4"},
      {"x", "F;C4;C9;[", "1"},        {"x", "F;C4;C9;]", "0"},       {"x", "F;C4;C9;<", "1"},
      {"1]7", "F;1;S", "8"},          {"7.9", "FE;1;I", "7"},        {"x", "F;C1;C0;&", "0"},
      {"x", "F;C1;C0;!", "1"},        {"x", "F;Ca;CB;#", "1"},       {"x", "F;C0;C1;!", "1"},
  };
  constexpr const char* kLongerExamples[][3] = {
      {"20000", "D4-E", "03-10-2022"},      {"20000", "D4-YMD", "2022-10-03"},
      {"20000", "D4YMD", "2022·10·03"},     {"-36524", "D4.E", "31.12.1867"},
      {"2933628", "D", "31·DEC·9999"},      {"-718430", "D/", "01/01/0001"},
      {"43200", "MTHS", "12:00:00PM"},      {"1234567", "MD2,", "12,345.67"},
      {"-1234", "MD22,<10*", "<***12.34>"}, {"-1234", "MD22,10*", "****-12.34"},
      {"1234567", "MD2,3", "12,345.67"},    {"4294967296", "MX", "100000000"},
      {"16777217", "MO", "100000001"},      {"one·two·three", "G1·1", "two"},
      {"AB12", "P(2A0N);(3N)", "AB12"},     {"1^0^0", "A;1 OR 2 AND 3", "1"},
      {"150]3", "A;1(MD2)", "1.50]0.03"},
  };
  const auto check = [](const auto& examples) {
    for (const auto& [value, code, want] : examples) {
      EXPECT_EQ(ShownAsOconv(value, code), want) << value << " under " << code;
    }
  };
  check(kExamples);
  check(kLongerExamples);
}

TEST(Oconv, EdgeCases) {
  const Row rows[] = {
      {"empty converted", "", "MT", ""},
      {"half not away from zero", "15", "MD01", "2"},
      {"empty mask swallows the value", "ab", "ML()", "ab"},
      {"plus printed", "+5", "MD0", "5"},
      {"minus in a mask taken for a sign code", "-1234", "MR2##-####", "-1-2.34"},
      {"empty filled", "", "MR2#9", ""},
      {"small letters refused", "-1234", "mr2c", "12.34CR"},
      {"rest of words keeps its case", "jOHN·o'NEIL·3rd", "MCT", "John·O'neil·3rd"},
      {"capitals beyond A-Z", "\xE4z", "MCU", "\xE4Z"},
      {"odd digit read past the end", "417", "MCXA", "A"},
      {"long number overflows", "340282366920938463463374607431768211456", "MCDX",
       "100000000000000000000000000000000"},
      {"long hexadecimal overflows", "100000000000000000000000000000000", "MCX",
       "340282366920938463463374607431768211456"},
      {"value or code letters refused", "Ab", "mcu", "AB"},
      {"zero loses its digit", "0", "MB", "0"},
      {"fraction of a negative not cut", "-0.5", "MX", "0"},
      {"characters not in eight binary digits", "A\xFF", "MB0C", "0100000111111111"},
      {"shorter text passes", "A", "L2,4", ""},
      {"text passes a range", "x", "R1,10", ""},
      {"ranges compared as text", "9", "R1,10", "9"},
      {"greedy class starves the next", "abc1", "P(0X1N)", "abc1"},
      {"fixed run reaches over a misfit", "1a23", "P(0X2N)", "1a23"},
      {"fixed run matched across a misfit", "2a3", "P(0X2N)", ""},
      {"soundex of no letter", "42", "S", ""},
      {"empty value not evaluated", "", "C'x'-*", "x-"},
      {"empty step of a chain fails", "ab", "MCU]", "AB"},
      {"chain applied backwards", "20000", "D2/E]G0/1]MD0,$", "$3"},
      {"failure of a first step forgotten", "x", "D2/]MCU", "####"},
      {"R behind an attribute ignored", "1]7^5", "F;1;2R;+", "6]12"},
      {"semicolon ends a code in parentheses", "a*b", "F;1;(MCC;*;-);\"!\";:", "a-b!"},
      {"code behind the value mark not applied", "150^3", "F;1;2;*{VM}MD2", "4.50"},
  };
  Check(rows, ShownAsOconv);
}

bool ReadTowns(std::string_view file, std::string_view id, std::string& item) {
  if (file == "TOWNS" && id == "LD") item = Bytes("Leeds^North]Mill");
  if (file == "TOWNS" && id == "HX") item = Bytes("^East");
  if (file == "DICT TOWNS" && id == "NAME") item = Bytes("A^1");
  return !item.empty();
}

TEST(Oconv, TranslationThroughFile) {
  const Row rows[] = {
      {"I isn't C", "ZZ", "TTOWNS;I;;1", "ZZ"},
      {"O isn't V", "ZZ", "TTOWNS;O;;1", "####"},
      {"value changed without an attribute number", "LD", "TTOWNS;X;1;", "LD"},
      {"star isn't the dictionary", "NAME", "T*TOWNS;X;;2", "1"},
      {"dictionary word unread", "NAME", "TDICT TOWNS;X;;2", "1"},
      {"empty ID read", "", "TTOWNS;V;;1", ""},
      {"step behind a failure", "ZZ", "TTOWNS;V;;1]MCU", "####"},
  };
  Hooks().readItem = ReadTowns;
  Check(rows, ShownAsOconv);
  Hooks().readItem = nullptr;
  EXPECT_EQ(Oconv("LD", "TTOWNS;C;;1"), "LD") << "a record is found without an engine";
}

TEST(Oconv, Algebra) {
  const Row rows[] = {
      {"AND above a relation", "1^2", "A;1=\"1\" AND 2=\"2\"", "1"},
      {"choice", "5", "A;IF 1>\"4\" THEN \"big\" ELSE \"small\"", "big"},
      {"choice of values taken as a whole", "5]3", "A;IF V>\"4\" THEN V ELSE \"0\"", "5]0"},
      {"rounded quotient", "2^3", "AE;1/2", "0.666666666666667"},
      {"counter unknown", "6", "A;NI", "0"},
      {"LPV refused", "6", "A;lpv", "6"},
      {"R behind V read as one word", "6", "A;VR+lpvR", "12"},
      {"day number not today's", "", "A;(D-D)+(T<\"86400\")", "1"},
      {"day number far from today", "", "A;D>\"20000\"", "1"},
      {"empty not evaluated", "", "A;\"5\"", "5"},
      {"failing operand code ignored", "x", "A;1(MD2)", "####"},
  };
  Check(rows, ShownAsOconv);
  EXPECT_EQ(Oconv("ABCDEF", "A;1[\"2\",\"3\"]"), "BCD") << "brackets aren't marks here";
  EXPECT_EQ(Oconv(Bytes("ABC]DEF"), "A;1[\"2\",\"9\"]"), Bytes("BC]EF")) << "text part not of each value";
}

TEST(Oconv, AlgebraOverAnItem) {
  const std::string item = Bytes("6^7]9");
  const Row rows[] = {
      {"attribute of the value taken", "x", "A;1*2", "42]0"},
      {"item ID", "x", "A;0", "O-1"},
      {"column not asked for", "x", "A;N(PRICE)*\"2\"", "40"},
      {"unknown column accepted", "x", "A;N(NOPE)", "####"},
      {"V isn't the value", "x", "A;V", "x"},
      {"stack takes the value's attributes", "x", "F;1R;2;+", "13]15"},
      {"concatenation takes the value's attributes", "x", "C;0-1", "O-1-6"},
      {"attribute count of the value", "x", "A;NA", "2"},
  };
  const auto column = [](std::string_view name, std::string& value) {
    if (name == "PRICE") value = "20";
    return name == "PRICE";
  };
  Check(rows, [&](std::string_view value, std::string_view code) {
    return Notation(Oconv(value, code, {true, item, "O-1", column}));
  });
}

TEST(Oconv, MalformedCodesFail) {
  for (const char* code :
       {"D5",  "DDD",   "DK",   "D2//",  "MTX", "MD2,8C", "MD2,8**",  "MCQ",    "MCUX",        "MC",
        "MX1", "MQ",    "G1*",  "R1",    "P1N", "S;*",    "S;0;*",    "C;1;",   "TTOWNS;Q;;1", "T;X;;1",
        "A;-", "A;1 2", "A;(1", "A;\"1", "A;",  "A;0",    "F;C1;;C2", "F;C1;^", "F;C1;Q",      "F"}) {
    EXPECT_EQ(ShownAsOconv("1", code), "####") << code;
  }
}

TEST(Oconv, SendsToClient) {
  std::string sent;
  Hooks().sendToClient = [&](std::string_view text) { sent.append(text).append("|"); };
  EXPECT_EQ(Oconv("<TXA>a</TXA>", "u017e"), "<TXA>a</TXA>");
  EXPECT_EQ(Oconv("b", "U017E"), "b");
  EXPECT_EQ(Oconv("c", "u017"), "####");
  EXPECT_EQ(sent, "<TXA>a</TXA>|b|");
  Hooks().sendToClient = nullptr;
  EXPECT_EQ(Oconv("a", "u017e"), "a") << "fails without an engine";
}

}  // namespace
}  // namespace nvadmin::mv
