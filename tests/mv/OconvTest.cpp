
#include "mv/Conversions.h"
#include "mv/EngineHooks.h"
#include "tests/mv/Notation.h"

namespace nvadmin::mv {
namespace {

// `want` is what Oconv gives for `value` under `code`; the name tells the fault that the row catches.
struct Row {
  const char *fault, *value, *code, *want;
};

template <std::size_t kCount>
void Check(const Row (&rows)[kCount], const ConversionContext& context = {}) {
  for (const Row& row : rows) {
    EXPECT_EQ(Notation(Oconv(Bytes(row.value), CodeBytes(row.code), context)), row.want)
        << row.fault << ": '" << row.value << "' under " << row.code;
  }
}

TEST(Oconv, Dates) {
  const Row rows[] = {
      {"day 0 misplaced", "0", "D", "31·DEC·1967"},
      {"negative day counted forward", "-1", "D2", "30·DEC·67"},
      {"day without leading zero", "20000", "D", "03·OCT·2022"},
      {"year 0 leaves its blank", "20000", "D0", "03·OCT"},
      {"day before month", "20000", "D/", "10/03/2022"},
      {"first digits of the year kept", "20000", "D2/", "10/03/22"},
      {"E behind the separator ignored", "20000", "D2/E", "03/10/22"},
      {"separator taken for no separator", "20000", "D4-E", "03-10-2022"},
      {"order letters ignored", "20000", "D4-YMD", "2022-10-03"},
      {"month in letters without separator", "20000", "D4YMD", "2022·10·03"},
      {"leading zero in a part alone", "20000", "DD", "3"},
      {"month part", "20000", "DM", "10"},
      {"month abbreviated", "20000", "DMA", "OCTOBER"},
      {"digits behind Y ignored", "20000", "DY2", "22"},
      {"digits before Y ignored", "20000", "D2Y", "22"},
      {"week begins on Sunday", "20000", "DW", "1"},
      {"Sunday is 0", "19999", "DW", "7"},
      {"weekday abbreviated", "20000", "DWA", "MONDAY"},
      {"day of the year from 0", "20000", "DJ", "276"},
      {"quarter from 0", "20000", "DQ", "4"},
      {"leap day lost", "20514", "D2-", "02-29-24"},
      {"calendar turns Julian", "-36524", "D4.E", "31.12.1867"},
      {"DI doesn't read names", "3·Oct·22", "DI", "20000"},
      {"DIE month first", "3/10/2022", "DIE", "20000"},
      {"text converted", "soon", "D2/", "####"},
      {"impossible date rolled over", "30·FEB·2022", "DI", "####"},
      {"DE not D", "20000", "DE", "03·OCT·2022"},
      {"two order letters refused", "20000", "D2-YM", "22-10"},
      {"month and year taken for a day order", "20000", "DMY", "10·2022"},
      {"year of no digits leaves its separator", "20000", "D0-YMD", "10-03"},
      {"small letters refused", "20000", "d2/e", "03/10/22"},
      {"fraction rounded", "20000.9", "DD", "3"},
      {"value mark split", "1]2", "D", "####"},
      {"empty converted", "", "D2/", ""},
      {"DI month first refused", "10-3-2022", "DI", "20000"},
      {"DI month name first refused", "OCTOBER·3,·2022", "DI", "20000"},
      {"window of short years misplaced", "1.1.29", "DI", "22282"},
      {"window of short years too wide", "1.1.30", "DI", "-13878"},
      {"last day of the calendar refused", "2933628", "D", "31·DEC·9999"},
      {"day beyond the calendar accepted", "2933629", "D", "####"},
      {"first day of the calendar refused", "-718430", "D/", "01/01/0001"},
      {"day before the calendar accepted", "-718431", "D", "####"},
      {"two parts accepted as a date", "3·OCT", "DI", "####"},
      {"marks taken for separators", "3]10]2022", "DI", "####"},
      {"five year digits accepted", "20000", "D5", "####"},
      {"part given twice accepted", "20000", "DDD", "####"},
      {"unknown letter accepted", "20000", "DK", "####"},
      {"second separator accepted", "20000", "D2//", "####"},
  };
  Check(rows);
}

TEST(Oconv, Times) {
  const Row rows[] = {
      {"midnight without zeros", "0", "MT", "00:00"},
      {"minutes rounded", "34567", "MT", "09:36"},
      {"seconds missing", "34567", "MTS", "09:36:07"},
      {"AM in small letters", "34567", "MTH", "09:36AM"},
      {"noon is AM", "43200", "MTHS", "12:00:00PM"},
      {"midnight is 00", "59", "MTH", "12:00AM"},
      {"separator ignored", "34567", "MTS.", "09.36.07"},
      {"hours start again", "90061", "MTS", "25:01:01"},
      {"12-hour clock runs on", "90061", "MTH", "01:01AM"},
      {"afternoon not wrapped", "46800", "MTH", "01:00PM"},
      {"text converted", "noon", "MT", "####"},
      {"negative converted", "-1", "MT", "####"},
      {"fraction rounded", "59.9", "MTS", "00:00:59"},
      {"empty converted", "", "MT", ""},
      {"letter accepted as separator", "0", "MTX", "####"},
  };
  Check(rows);
}

TEST(Oconv, MaskedDecimals) {
  const Row rows[] = {
      {"not scaled by the decimals", "1234567", "MD2", "12345.67"},
      {"commas missing", "1234567", "MD2,", "12,345.67"},
      {"currency missing", "1234567", "MD2,$", "$12,345.67"},
      {"point without decimals", "1234567", "MD0,", "1,234,567"},
      {"second digit taken for a width", "1234567", "MD24", "123.46"},
      {"scale 0 taken as missing", "1234567", "MD20", "1234567.00"},
      {"no zero before the point", "5", "MD2", "0.05"},
      {"currency before the minus", "-5", "MD2$", "-$0.05"},
      {"zero without decimals", "0", "MD2", "0.00"},
      {"Z ignored", "0", "MD2Z", ""},
      {"point not scaled", "12.5", "MD2", "0.13"},
      {"P scales", "12.5", "MD2P", "12.50"},
      {"T rounds", "1299", "MD12T", "12.9"},
      {"minus not behind", "-1234", "MD2-", "12.34-"},
      {"no blank behind positive", "1234", "MD2-", "12.34·"},
      {"brackets missing", "-1234", "MD2<", "<12.34>"},
      {"CR missing", "-1234", "MR2C", "12.34CR"},
      {"no blanks behind positive under C", "1234", "MR2C", "12.34··"},
      {"DB missing", "1234", "MR2D", "12.34DB"},
      {"E not brackets", "-1234", "MR2E", "<12.34>"},
      {"fill before the currency", "1234567", "MD2,$14*", "$****12,345.67"},
      {"MR laid left", "1234", "MR2#9", "····12.34"},
      {"ML laid right", "1234", "ML2#9", "12.34····"},
      {"zero fill missing", "1234", "MR2%9", "000012.34"},
      {"currency not with the number", "1234", "MR2,$*12", "******$12.34"},
      {"mask literals consumed as places", "987654321", "ML(###-##-####)", "987-65-4321"},
      {"letters of a mask taken for options", "1234", "ML(Ref·##/##)", "Ref·12/34"},
      {"text refused by a mask alone", "AB12", "MR#6", "··AB12"},
      {"half not away from zero", "15", "MD01", "2"},
      {"text converted", "abc", "MD2", "####"},
      {"half of a negative toward zero", "-15", "MD01", "-2"},
      {"minus zero", "-4", "MD01", "0"},
      {"sign code on what rounds to zero", "-4", "MD01C", "0··"},
      {"zero under D gets blanks", "0", "MD2D", "0.00DB"},
      {"plus missing", "12", "MD0+", "12+"},
      {"sign printed under N", "-12", "MD0N", "12"},
      {"binary fraction rounded", "1.005", "MD20", "1.01"},
      {"carry lost", "99.995", "MD20", "100.00"},
      {"first group of commas too long", "123456", "MD0,", "123,456"},
      {"bracket not at the far left", "-1234", "MD22,<10*", "<***12.34>"},
      {"minus parted from its number", "-1234", "MD22,10*", "****-12.34"},
      {"width cuts", "1234567", "MD2,3", "12,345.67"},
      {"blank isn't the usual fill", "1234", "MD2,8", "···12.34"},
      {"Z loses the mask", "0", "MR2Z#5", "·····"},
      {"leading zeros printed", "000123", "MD2", "1.23"},
      {"plus printed", "+5", "MD0", "5"},
      {"minus in a mask taken for a sign code", "-1234", "MR2##-####", "-1-2.34"},
      {"empty filled", "", "MR2#9", ""},
      {"text accepted with decimals and mask", "abc", "MR2#9", "####"},
      {"sign code as fill", "1234", "MD2,8C", "####"},
      {"two fills accepted", "1234", "MD2,8**", "####"},
      {"small letters refused", "-1234", "mr2c", "12.34CR"},
      {"blank accepted in a number", "1·2", "MD2", "####"},
  };
  Check(rows);
}

TEST(Oconv, Characters) {
  const Row rows[] = {
      {"capitals", "Ab-3c", "MCU", "AB-3C"},
      {"small letters", "Ab-3C", "MCL", "ab-3c"},
      {"rest of words keeps its case", "jOHN·o'NEIL·3rd", "MCT", "John·O'neil·3rd"},
      {"digits", "Tel.·+44-20", "MCN", "4420"},
      {"letters", "Tel.·+44-20", "MCA", "Tel"},
      {"letters and digits", "Tel.·+44-20", "MCB", "Tel4420"},
      {"all but digits", "Tel.·+44-20", "MC/N", "Tel.·+-"},
      {"all but letters and digits", "Tel.·+44-20", "MC/B", ".·+-"},
      {"all but letters", "a1]b2", "MC/A", "1]2"},
      {"marks dropped", "a1]b2", "MCN", "1]2"},
      {"empty replacement refused", "a,b,c", "MCC;,;", "abc"},
      {"decimal to hexadecimal", "255", "MCDX", "FF"},
      {"tail stops the conversion", "1Fz", "MCX", "31"},
      {"no digit isn't 0", "xyz", "MCXD", "0"},
      {"marks printed", "a]b", "MCP", "a.b"},
      {"substitute ignored", "a]b", "MCP~", "a~b"},
      {"capitals beyond A-Z", "\xE4z", "MCU", "\xE4Z"},
      {"replacement found again", "aaa", "MCC;a;aa", "aaaaaa"},
      {"case ignored in replacement", "aA", "MCC;a;x", "xA"},
      {"empty search changes", "abc", "MCC;;x", "abc"},
      {"short form MCD", "26x", "MCD", "1A"},
      {"characters to digits", "Az", "MCAX", "417A"},
      {"digits to characters", "417a", "MCXA", "Az"},
      {"odd digit read past the end", "417", "MCXA", "A"},
      {"long number overflows", "340282366920938463463374607431768211456", "MCDX",
       "100000000000000000000000000000000"},
      {"long hexadecimal overflows", "100000000000000000000000000000000", "MCX",
       "340282366920938463463374607431768211456"},
      {"value or code letters refused", "Ab", "mcu", "AB"},
      {"unknown letters accepted", "Ab", "MCQ", "####"},
      {"tail accepted", "Ab", "MCUX", "####"},
      {"letters alone accepted", "Ab", "MC", "####"},
  };
  Check(rows);
}

TEST(Oconv, NumberBases) {
  const Row rows[] = {
      {"hexadecimal", "2022", "MX", "7E6"},
      {"octal", "8", "MO", "10"},
      {"binary", "10", "MB", "1010"},
      {"0C reads a number", "Az", "MX0C", "417A"},
      {"negative not in 32 bits", "-1", "MX", "FFFFFFFF"},
      {"text converted", "cat", "MX", "####"},
      {"zero loses its digit", "0", "MB", "0"},
      {"fraction rounded", "9.9", "MX", "9"},
      {"fraction of a negative not cut", "-0.5", "MX", "0"},
      {"characters not in three octal digits", "A", "MO0C", "101"},
      {"characters not in eight binary digits", "A\xFF", "MB0C", "0100000111111111"},
      {"more than 32 bits cut", "4294967296", "MX", "100000000"},
      {"piece in the middle loses its zeros", "16777217", "MO", "100000001"},
      {"tail accepted", "10", "MX1", "####"},
  };
  Check(rows);
}

TEST(Oconv, ExtractionAndFilters) {
  const Row rows[] = {
      {"skip ignored", "12*34*56*78", "G1*1", "34"},
      {"separator between parts lost", "12*34*56*78", "G1*2", "34*56"},
      {"default skip isn't 0", "12*34*56*78", "G*1", "12"},
      {"too few parts give nothing", "12*34", "G1*5", "34"},
      {"absent separator loses the text", "1234", "G0*1", "1234"},
      {"absent separator gives the text for a skip", "1234", "G1*1", ""},
      {"blank separator", "one·two·three", "G1·1", "two"},
      {"chain stops after one code", "12345", "MD2]G0.1", "123"},
      {"group without a count accepted", "1*2", "G1*", "####"},
      {"text from a position", "INVOICE", "T3,4", "VOIC"},
      {"count alone taken from the right", "INVOICE", "T2", "IN"},
      {"count beyond the end", "INVOICE", "T6,9", "CE"},
      {"position beyond the end", "INVOICE", "T9,2", ""},
      {"position 0 isn't 1", "INVOICE", "T0,2", "IN"},
      {"length", "ABCDE", "L", "5"},
      {"length of the empty text", "", "L", "0"},
      {"longest length cut off", "ABCDE", "L5", "ABCDE"},
      {"longer text passes", "ABCDE", "L4", ""},
      {"length range", "AB", "L2,4", "AB"},
      {"shorter text passes", "A", "L2,4", ""},
      {"end of a range excluded", "10", "R1,10", "10"},
      {"second range unread", "-3", "R-5,-1;1,5", "-3"},
      {"between the ranges passes", "0", "R-5,-1;1,5", ""},
      {"slash between ranges refused", "3", "R-5,-1/1,5", "3"},
      {"text passes a range", "x", "R1,10", ""},
      {"ranges compared as text", "9", "R1,10", "9"},
      {"range of one end accepted", "9", "R1", "####"},
      {"pattern with a literal", "123-45", "P(3N-2N)", "123-45"},
      {"any number misread", "AB12", "P(2A0N);(3N)", "AB12"},
      {"part of the value matched", "AB1x", "P(2A0N);(3N)", ""},
      {"second pattern unread", "123", "P(2A0N)/(3N)", "123"},
      {"P# passes what matches", "123", "P#(3N)", ""},
      {"P# drops what doesn't match", "12", "P#(3N)", "12"},
      {"quoted literal taken for a class", "3N", "P('3N')", "3N"},
      {"any number takes none", "12", "P(0A2N)", "12"},
      {"greedy class starves the next", "abc1", "P(0X1N)", "abc1"},
      {"fixed run reaches over a misfit", "1a23", "P(0X2N)", "1a23"},
      {"fixed run matched across a misfit", "2a3", "P(0X2N)", ""},
      {"pattern without parentheses accepted", "123", "P3N", "####"},
  };
  Check(rows);
}

TEST(Oconv, SubstitutionAndConcatenation) {
  const Row rows[] = {
      {"true value replaced", "7", "S;*;'none'", "7"},
      {"zero counts as true", "0.0", "S;*;'none'", "none"},
      {"empty counts as true", "", "S;'some';'none'", "none"},
      {"attribute number ignored", "6^7", "S;2;'none'", "7"},
      {"item ID found without an item", "7", "S;0;*", "####"},
      {"one substitute accepted", "7", "S;*", "####"},
      {"soundex", "ROBERT", "S", "R163"},
      {"first letter's digit repeated", "Pfister", "S", "P236"},
      {"H parts equal digits", "Ashcraft", "S", "A261"},
      {"vowel doesn't part equal digits", "Tata", "S", "T300"},
      {"non-letters part equal digits", "B-b·c", "S", "B200"},
      {"soundex of no letter", "42", "S", ""},
      {"concatenation", "6^7", "C;1;2", "67"},
      {"joiner lost", "6^7", "C;2/1", "7/6"},
      {"blank and value lost", "AB", "C;'No';\"·\";*", "No·AB"},
      {"missing element accepted", "6^7", "C;1;", "####"},
      {"empty value not evaluated", "", "C'x'-*", "x-"},
  };
  Check(rows);
}

bool ReadTowns(std::string_view file, std::string_view id, std::string& item) {
  if (file == "TOWNS" && id == "LD") item = Bytes("Leeds^North]Mill");
  if (file == "TOWNS" && id == "HX") item = Bytes("^East");
  if (file == "DICT TOWNS" && id == "NAME") item = Bytes("A^1");
  return !item.empty();
}

TEST(Oconv, TranslationThroughFile) {
  const Row rows[] = {
      {"attribute not read", "LD", "TTOWNS;X;;1", "Leeds"},
      {"value of the attribute not taken", "LD", "TTOWNS;X2;;2", "Mill"},
      {"marks of all values changed", "LD", "TTOWNS;X;;2", "North]Mill"},
      {"missing record not empty", "ZZ", "TTOWNS;X;;1", ""},
      {"missing record not the value", "ZZ", "TTOWNS;C;;1", "ZZ"},
      {"empty attribute not the value", "HX", "TTOWNS;C;;1", "HX"},
      {"missing record accepted", "ZZ", "TTOWNS;V;;1", "####"},
      {"I isn't C", "ZZ", "TTOWNS;I;;1", "ZZ"},
      {"O isn't V", "ZZ", "TTOWNS;O;;1", "####"},
      {"value changed without an attribute number", "LD", "TTOWNS;X;1;", "LD"},
      {"star isn't the dictionary", "NAME", "T*TOWNS;X;;2", "1"},
      {"dictionary word unread", "NAME", "TDICT TOWNS;X;;2", "1"},
      {"empty ID read", "", "TTOWNS;V;;1", ""},
      {"unknown mode accepted", "LD", "TTOWNS;Q;;1", "####"},
      {"no file accepted", "LD", "T;X;;1", "####"},
      {"step behind a failure", "ZZ", "TTOWNS;V;;1]MCU", "####"},
  };
  Hooks().readItem = ReadTowns;
  Check(rows);
  Hooks().readItem = nullptr;
  EXPECT_EQ(Oconv("LD", "TTOWNS;C;;1"), "LD") << "a record is found without an engine";
}

TEST(Oconv, Algebra) {
  const Row rows[] = {
      {"attributes not resolved", "6^7", "A;1*2", "42"},
      {"addition binds as multiplication", "6^7", "A;1+2*\"10\"", "76"},
      {"parentheses ignored", "6^7", "A;(1+2)*\"10\"", "130"},
      {"division not whole", "7^2", "A;1/2", "3"},
      {"fraction lost under AE", "7^2", "AE;1/2", "3.5"},
      {"division by zero fails", "7^0", "A;1/2", "0"},
      {"concatenation", "6^7", "A;1:\"-\":2", "6-7"},
      {"relation", "6^7", "A;1<2", "1"},
      {"remainder", "17", "A;R(1,\"5\")", "2"},
      {"shorter side repeated", "1]7^5", "A;1+2", "6]7"},
      {"R doesn't repeat", "1]7^5", "A;1+2R", "6]12"},
      {"sum over values", "1]7", "A;S(1)", "8"},
      {"code behind the value mark not applied", "150^3", "A;1*2]MD2", "4.50"},
      {"V isn't the value", "7", "A;V*\"3\"", "21"},
      {"column found without an item", "6", "A;N(QTY)*\"2\"", "####"},
      {"subtraction from the right", "9^4^3", "A1-2-3", "2"},
      {"<= read as <", "6^6", "A;1<=2", "1"},
      {"AND above a relation", "1^2", "A;1=\"1\" AND 2=\"2\"", "1"},
      {"OR above AND", "1^0^0", "A;1 OR 2 AND 3", "1"},
      {"concatenation below a relation", "1^2", "A;1:2=\"12\"", "1"},
      {"choice", "5", "A;IF 1>\"4\" THEN \"big\" ELSE \"small\"", "big"},
      {"choice of values taken as a whole", "5]3", "A;IF V>\"4\" THEN V ELSE \"0\"", "5]0"},
      {"negative cut downwards", "-7^2", "A;1/2", "-3"},
      {"fraction of an operand kept", "2.9", "A;V*\"2\"", "4"},
      {"whole part under AE", "2.9", "AE;I(V)*\"2\"", "4"},
      {"rounded quotient", "2^3", "AE;1/2", "0.666666666666667"},
      {"binary fractions added", "0.1^0.2", "AE;1+2", "0.3"},
      {"text counts", "abc", "A;V+\"1\"", "1"},
      {"operand code unread", "150", "A;1(MD2):\"x\"", "1.50x"},
      {"operand code not for each value", "150]3", "A;1(MD2)", "1.50]0.03"},
      {"constant not repeated", "1]2]3", "A;V*\"2\"", "2]4]6"},
      {"attribute count", "6^7^8", "A;NA", "3"},
      {"length", "6^7", "A;NL", "3"},
      {"counter unknown", "6", "A;NI", "0"},
      {"LPV refused", "6", "A;lpv", "6"},
      {"day number not today's", "", "A;(D-D)+(T<\"86400\")", "1"},
      {"day number far from today", "", "A;D>\"20000\"", "1"},
      {"empty not evaluated", "", "A;\"5\"", "5"},
      {"minus before an operand refused", "6^7", "A;-1*2", "-42"},
      {"minus behind an operator refused", "6^7", "A;1*-2", "-42"},
      {"two minus signs add up wrongly", "6^-7", "A;1--2", "-1"},
      {"minus for the first value only", "1]2", "A;-V", "-1]-2"},
      {"minus before parentheses", "6^7", "A;-(1+2)", "-13"},
      {"fraction lost behind a minus", "2.5", "AE;-V", "-2.5"},
      {"minus before nothing accepted", "6", "A;-", "####"},
      {"two operands side by side accepted", "6^7", "A;1 2", "####"},
      {"open parenthesis accepted", "6", "A;(1", "####"},
      {"open quote accepted", "6", "A;\"1", "####"},
      {"no expression accepted", "6", "A;", "####"},
      {"item ID found without an item", "6", "A;0", "####"},
      {"failing operand code ignored", "x", "A;1(MD2)", "####"},
  };
  Check(rows);
  EXPECT_EQ(Oconv("ABCDEF", "A;1[\"2\",\"3\"]"), "BCD") << "text part";
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
  Check(rows, {true, item, "O-1", column});
}

TEST(Oconv, StackExpressions) {
  const Row rows[] = {
      {"attributes not pushed", "6^7", "F;1;2;*", "42"},
      {"subtraction reversed", "x", "F;C9;C4;-", "5"},
      {"division reversed or not whole", "x", "F;C9;C2;/", "4"},
      {"remainder reversed", "x", "F;C9;C4;R", "1"},
      {"concatenation reversed", "6^7", "F;1;\"-\";:;2;:", "6-7"},
      {"output code unread", "12345", "F;1;(MD2)", "123.45"},
      {"P doesn't push again", "x", "F;C7;P;*", "49"},
      {"too few entries accepted", "x", "F;C1;+", "####"},
      {"fraction lost under FE", "x", "FE;C9;C2;/", "4.5"},
      {"FS refused", "x", "FS;C9;C2;/", "4"},
      {"at most reversed", "x", "F;C4;C9;[", "1"},
      {"at least reversed", "x", "F;C4;C9;]", "0"},
      {"less reversed", "x", "F;C4;C9;<", "1"},
      {"exchange", "x", "F;C9;C4;_;-", "-5"},
      {"drop", "x", "F;C9;C4;^", "9"},
      {"sum of values", "1]7", "F;1;S", "8"},
      {"whole part", "7.9", "FE;1;I", "7"},
      {"and", "x", "F;C1;C0;&", "0"},
      {"or", "x", "F;C1;C0;!", "1"},
      {"unequal", "x", "F;Ca;CB;#", "1"},
      {"R behind an attribute ignored", "1]7^5", "F;1;2R;+", "6]12"},
      {"semicolon ends a code in parentheses", "a*b", "F;1;(MCC;*;-);\"!\";:", "a-b!"},
      {"code behind the value mark not applied", "150^3", "F;1;2;*{VM}MD2", "4.50"},
      {"empty element accepted", "x", "F;C1;;C2", "####"},
      {"empty stack accepted", "x", "F;C1;^", "####"},
      {"unknown word accepted", "x", "F;C1;Q", "####"},
      {"no element accepted", "x", "F", "####"},
  };
  Check(rows);
}

TEST(Oconv, GeneralRules) {
  const Row rows[] = {
      {"empty code changes", "a]b", "", "a]b"},
      {"unknown code accepted", "a", "Q", "####"},
      {"unknown M code accepted", "a", "MQ", "####"},
      {"empty step of a chain fails", "ab", "MCU]", "AB"},
      {"chain applied backwards", "20000", "D2/E]G0/1]MD0,$", "$3"},
      {"failure of a first step forgotten", "x", "D2/]MCU", "####"},
  };
  Check(rows);
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
