// Whole sentences over a small account: which keys they find and in which order, what they answer, what they
// refuse.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "engine/ResultGrid.h"
#include "engine/query/RunQuery.h"
#include "mv/EngineHooks.h"
#include "tests/query/MemoryStore.h"

namespace nvadmin::engine {
namespace {

// 19000 is 07 JAN 2020, 19100 16 APR 2020, 19500 21 MAY 2021.
struct Item {
  const char *file, *id, *item;
};
constexpr Item kAccount[] = {
    {"DICT CUSTOMERS", "@ID", "D^0^^Customer^8L"},
    {"DICT CUSTOMERS", "NAME", "A^1^Name^^^^^^L^20"},
    {"DICT CUSTOMERS", "CITY", "A^2^City^^^^^^L^15"},
    {"DICT CUSTOMERS", "BALANCE", "S^3^Balance^^^^MD2^^R^10"},
    {"DICT CUSTOMERS", "SINCE", "D^4^D4/^Since^10L"},
    {"DICT CUSTOMERS", "PHONES", "A^5^Phones^^^^^^L^12"},
    {"DICT CUSTOMERS", "FIRST_SEEN", "D^4^D4/^Seen^10L"},
    {"DICT CUSTOMERS", "KEY", "D^0^^Key^8L"},
    {"DICT CUSTOMERS", "CODE", "A^1^Code^^^^^MCU]T1,2^L^2"},
    {"DICT CUSTOMERS", "NOTE", "X^a stored text, no column"},
    {"CUSTOMERS", "C1", "Smith^Leeds^10000^19000^555-1]555-2"},
    {"CUSTOMERS", "C10", "Anders^York^-250^19100^"},
    {"CUSTOMERS", "C2", "Brown^Leeds^^19500^777-1"},
    {"CUSTOMERS", "C3", "O'Neil^leeds^900^^777-1]"},
    {"CUSTOMERS", "C4", "Sand^Leeds Spa^9000.0^19000^555-9\\777-3"},

    {"DICT ORDERS", "@ID", "D^0^^Order^8R"},
    {"DICT ORDERS", "QTY", "A^1^Qty^^^^^^R^5"},
    {"DICT ORDERS", "PRICE", "A^2^Price^^^^MD2^^R^8"},
    {"DICT ORDERS", "VALUE", "S^0^Value^^^^MD2^A;N(QTY)*N(PRICE)^R^10"},
    {"DICT ORDERS", "TRIPLE", "S^1^Triple^^^^^A;V*\"3\"^R^8"},
    {"DICT ORDERS", "AMOUNT", "S^1^Amount^^^^^A;1*2^R^8"},
    {"DICT ORDERS", "MIXED", "S^0^^^^^^A;IF 5 = \"LD\" THEN 3:\"-\":1 ELSE 2^L^8"},
    {"DICT ORDERS", "SIZE", "S^0^^^^^^A;na^R^8"},
    {"DICT ORDERS", "LENGTH", "S^0^^^^^^F;NL;C15;-^R^8"},
    {"DICT ORDERS", "FAR", "S^0^^^^^^A;IF 101 = \"\" THEN NA ELSE \"0\"^R^8"},
    {"DICT ORDERS", "LOW", "S^5^Low^^^^^MCL^L^8"},
    {"DICT ORDERS", "TOTAL", "A^3^Total^^^^^^R^8"},
    {"DICT ORDERS", "NO", "A^4^No^^^^^^L^8"},
    {"DICT ORDERS", "7", "A^7^^^^^^^L^8"},
    {"DICT ORDERS", "FEE", "A^2^Fee^^^^ML2^^L^8"},
    {"DICT ORDERS", "ITEMS", "A^5^Items^^^^^^L^8"},
    {"DICT ORDERS", "ORDER#", "I^G1-1^^Order^5R"},
    {"DICT ORDERS", "PING", "S^0^^^^^^A;N(PONG)+\"1\"^R^5"},
    {"DICT ORDERS", "PONG", "S^0^^^^^^A;N(PING)+\"1\"^R^5"},
    {"DICT ORDERS", "TOWN", "S^5^^^^^^TTOWNS;X;;1^L^10"},
    {"DICT ORDERS", "REGION", "S^5^^^^^TTOWNS;X;;1^^L^10"},
    {"ORDERS", "9-7", "2]3^100]200^50^N1^LD"},
    {"ORDERS", "10", "1^5000^5^^HX"},
    {"ORDERS", "9", "]4^10]1^^N2^"},
    {"ORDERS", "007", "^^5.0^^LD"},
    {"TOWNS", "LD", "Leeds"},
    {"TOWNS", "HX", "Halifax"},

    {"DICT CUSTOMERS_dict", "TYPE", "A^1^Type^^^^^^L^5"},
    {"DICT EVENTS", "DAY", "D^1^D4/^Day^10L"},
    {"EVENTS", "a", "9999"},
    {"EVENTS", "b", "10000"},
    {"MY FILE", "a b", "one"},
    {"BARE", "x", "1]2^two^3"},
    {"BARE", "y", "^^a"},
};

class QueryTest : public testing::Test {
 protected:
  QueryTest() {
    for (const Item& item : kAccount) store_.Put(item.file, item.id, item.item);
    mv::Hooks().readItem = [this](std::string_view file, std::string_view id, std::string& item) {
      TableHandle table = 0;
      std::string error;
      return store_.OpenTable(file, table, error) && store_.Read(table, id, item);
    };
  }
  ~QueryTest() override { mv::Hooks() = {}; }

  bool Run(std::string_view sentence, const ResultGrid* activeList = nullptr) {
    return RunQuery(sentence, store_, activeList, grid_, reply_, error_);
  }

  MemoryStore store_;
  ResultGrid grid_;
  std::string reply_;
  std::string error_;
};

struct Case {
  const char *sentence, *want;
};

TEST_F(QueryTest, FindsTheKeysOfASentence) {
  constexpr Case kCases[] = {
      // The file word and what may surround it.
      {"  select   CUSTOMERS  ", "C1 C10 C2 C3 C4"},
      {"PSELECT CUSTOMERS FILE", "C1 C10 C2 C3 C4"},
      {"SELECT DICT CUSTOMERS WITH TYPE 'X'", "NOTE"},
      {"SELECT 'MY FILE' WITH A1 = 'one'", "a b"},
      {"select dict CUSTOMERS with type = 'S' by-dsnd @ID", "BALANCE"},
      // Item IDs: behind the file, and later ones that are no value.
      {"SELECT CUSTOMERS 'C3' \"C1\" \\C2\\", "C3 C1 C2"},
      {"SSELECT CUSTOMERS 'C3' 'C10' 'C2'", "C10 C2 C3"},
      {"LIST CUSTOMERS NAME 'C3' CITY 'C1'", "C3 C1"},
      {"SELECT CUSTOMERS BY NAME 'C3' 'C10'", "C10 C3"},
      {"SELECT CUSTOMERS 'C3' 'NONE' WITH @ID # 'C1'", "C3"},
      {"COUNT CUSTOMERS 'NONE' WITH @ID = 'NONE'", ""},
      {"SELECT CUSTOMERS 'C3' 'NONE' WITH CITY # ''", "C3"},
      // Operators and their words; case counts.
      {"SELECT CUSTOMERS WITH CITY='Leeds'", "C1 C2"},
      {"SELECT CUSTOMERS WITH CITY EQ \"leeds\"", "C3"},
      {"SELECT CUSTOMERS WITH CITY#'Leeds'", "C10 C3 C4"},
      {"SELECT CUSTOMERS WITH CITY <> 'Leeds'", "C10 C3 C4"},
      {"SELECT CUSTOMERS WITH CITY NE 'Leeds' 'York'", "C3 C4"},
      {"SELECT CUSTOMERS WITH BALANCE >= 90.00", "C1 C4"},
      {"SELECT CUSTOMERS WITH BALANCE > 5 AND < 95", "C3 C4"},
      {"SELECT CUSTOMERS WITH SINCE AFTER 01/31/2020", "C10 C2"},
      {"SELECT CUSTOMERS WITH SINCE BEFORE 02/01/2020 AND SINCE", "C1 C4"},
      // Fields without a value, and other words for EVERY.
      {"SELECT CUSTOMERS WITHOUT SINCE", "C3"},
      {"SELECT CUSTOMERS WITH EACH PHONES", "C1 C2 C4"},
      // Wildcards, on stored text and on converted values.
      {"SELECT CUSTOMERS WITH NAME = [n]", "C10 C2 C4"},
      {"SELECT CUSTOMERS WITH SINCE = '[/2020'", "C1 C10 C4"},
      {"SELECT CUSTOMERS WITH BALANCE = '[.00'", "C1 C3 C4"},
      // Patterns, on what a report shows; the whole value, case included.
      {"SELECT CUSTOMERS WITH NAME LIKE '5A'", "C1 C2"},
      {"SELECT CUSTOMERS WITH NAME LIKE ...n", "C2"},
      {"SELECT CUSTOMERS WITH NAME LIKE \"1A'x'0X\" 'B...' '4n'", "C2"},
      {"SELECT CUSTOMERS WITH NAME UNLIKE 'S...' '...d...'", "C2 C3"},
      {"SELECT CUSTOMERS WITH NAME LIKE 's...'", ""},
      {"SELECT CUSTOMERS WITH SINCE LIKE '2N/2N/2020'", "C1 C10 C4"},
      {"SELECT CUSTOMERS WITH PHONES UNLIKE '3N-1N'", "C10 C3"},
      {"SELECT CUSTOMERS WITH NO PHONES MATCHES '777...'", "C1 C10"},
      // Ranges hold their ends.
      {"SELECT CUSTOMERS WITH BALANCE BETWEEN 9 90", "C3 C4"},
      {"SELECT CUSTOMERS WITH NAME BETWEEN Brown NAME", "C2"},
      {"SELECT CUSTOMERS WITH NAME BETWEEN 'A' C 'Sa' \"Sb\"", "C10 C2 C4"},
      {"SELECT CUSTOMERS WITH SINCE BETWEEN 1/1/2020 4/16/2020 AND CITY = York", "C10"},
      {"SELECT CUSTOMERS WITH BALANCE BETWEEN -5 0 OR BETWEEN 95 200", "C1 C10"},
      {"SELECT CUSTOMERS WITH SINCE 05/21/2021 4/16/2020", "C10 C2"},
      {"SELECT CUSTOMERS WITH BALANCE = 100 9 OR 90", "C1 C3 C4"},
      {"SELECT CUSTOMERS WITH SINCE 05/21/2021 OR 4/16/2020 AND 0 = 'C2'", "C2"},
      {"SELECT CUSTOMERS WITH CITY = 'York' OR 'leeds'", "C10 C3"},
      // Several values; AND before OR before a second WITH; brackets.
      {"SELECT CUSTOMERS WITH CITY = 'York' OR WITH CITY = 'Leeds' WITH BALANCE", "C1 C10"},
      {"SELECT CUSTOMERS WITH CITY = 'Leeds' BY-DSND NAME WITH BALANCE", "C1"},
      {"SELECT CUSTOMERS WITH ((CITY = 'York') OR (NAME 'S]' WITH CITY 'Leeds'))", "C1 C10"},
      {"SELECT CUSTOMERS WITH NAME = 'Smith' OR 'Brown' AND SINCE > '1/1/2021'", "C1 C2"},
      // Dictionary words: other spellings, attribute numbers, the item ID, correlatives.
      {"SELECT CUSTOMERS WITH city = 'York'", "C10"},
      {"SELECT CUSTOMERS WITH first.seen = 05/21/2021", "C2"},
      {"SELECT CUSTOMERS WITH A2 = 'York' OR a1 = 'Brown'", "C10 C2"},
      {"SELECT CUSTOMERS WITH A999 = 'York'", ""},
      {"SELECT CUSTOMERS WITH ID = 'C1]'", "C1 C10"},
      {"SELECT CUSTOMERS WITH 0 = 'C4' OR KEY = 'C3'", "C3 C4"},
      {"SELECT CUSTOMERS WITH CODE = 'SM'", "C1"},
      {"SELECT ORDERS WITH VALUE = 6", "9-7"},
      {"SELECT ORDERS WITH MIXED = '50-2' '5.0-'", "007 9-7"},
      {"SELECT ORDERS WITH EVERY TRIPLE > 5", "9-7"},
      {"SELECT ORDERS WITH FEE > 9", "10"},
      {"SELECT ORDERS WITH PING = '####' AND PONG = '####'", "007 10 9 9-7"},
      {"SELECT ORDERS WITH ORDER# = 7", "9-7"},
      {"SELECT ORDERS WITH TOWN = 'Leeds'", "007 9-7"},
      {"SELECT ORDERS WITH REGION = 'Hal]'", "10"},
      // Without a dictionary.
      {"SELECT BARE WITH A1 = 2", "x"},
      {"SSELECT BARE BY-DSND A3", "y x"},
      // Sorting: numbers by size, empty first, other text last; equals by item ID.
      {"SORT CUSTOMERS BY SINCE NAME", "C3 C1 C4 C10 C2"},
      {"SELECT CUSTOMERS BY-DSND SINCE", "C2 C10 C1 C4 C3"},
      {"SSELECT ORDERS", "007 9 10 9-7"},
      {"SSELECT ORDERS BY-DSND TOWN", "007 9-7 10 9"},
      {"SSELECT EVENTS BY-DSND DAY", "b a"},
      {"SELECT EVENTS WITH DAY < 05/18/1995", "a"},
      // A key for each value, the IDs of several columns' values side by side.
      {"SSELECT CUSTOMERS BY-EXP PHONES", "C10 C3 C1 C1 C4 C2 C3 C4"},
      {"SSELECT CUSTOMERS BY-EXP-DSND PHONES WITH PHONES", "C4 C2 C3 C4 C1 C1 C3"},
      {"SELECT ORDERS BY-EXP PRICE", "007 9 9 9-7 9-7 10"},
      {"SELECT ORDERS BY-EXP QTY BY-EXP PRICE", "007 9 10 9-7 9-7 9"},
      {"SORT ORDERS BY LOW BY-EXP-DSND QTY", "9 9 10 9-7 9-7 007"},
      // Values of a column as keys, and the first few.
      {"SSELECT CUSTOMERS BY-DSND NAME SAVING UNIQUE OF CITY", "Leeds Leeds Spa leeds York"},
      {"SELECT CUSTOMERS SAVING PHONES WITH CITY 'Leeds'", "555-1 555-2 777-1"},
      {"SELECT CUSTOMERS SAVING UNIQUE CODE SAMPLE 2", "SM AN"},
      {"SELECT CUSTOMERS BY CITY SAVING PHONES SAMPLE 3", "555-1 555-2 777-1"},
      {"SSELECT ORDERS BY-EXP-DSND PRICE SAVING PRICE SAMPLE 3", "5000 200 100"},
      {"SSELECT CUSTOMERS SAVING UNIQUE @ID", "C1 C10 C2 C3 C4"},
      {"SELECT CUSTOMERS 'C4' 'C2' 'GONE' SAVING CITY", "Leeds Spa Leeds"},
      {"SORT CUSTOMERS BY-DSND NAME SAMPLE 3", "C1 C4 C3"},
      {"SORT CUSTOMERS BY NAME SAMPLE 99999999999999999999999", "C10 C2 C3 C4 C1"},
      {"COUNT CUSTOMERS 'C3' 'C1' SAMPLE 01", "C3"},
      // Words that could be several things.
      {"SELECT CUSTOMERS ITEMS WITH ANY CITY = 'York' FOR THE FILE", "C10"},
      {"SELECT CUSTOMERS WITH BALANCE ARE > 50", "C1 C4"},
      {"SELECT CUSTOMERS WITH NAME = O'Neil", "C3"},
      {"SELECT ORDERS WITH NO = 'N1'", "9-7"},
      {"SELECT ORDERS WITH NO NO = 'N1'", "007 10 9"},
      {"SELECT ORDERS WITH TOTAL = 5", "007 10"},
      {"LIST CUSTOMERS WITH CITY = York NAME", "C10"},
      {"LIST CUSTOMERS WITH CITY = York NAEM SAMPLE 1", "C10"},
      {"LIST CUSTOMERS WITH SINCE NAME", "C1 C10 C2 C4"},
      {"LIST CUSTOMERS WITH CITY York (P", "C10"},
      // Values as keys.
      {"QSELECT ORDERS 9-7", "2 3 100 200 50 N1 LD"},
      {"QSELECT ORDERS '9-7' '9' QTY", "2 3 4"},
      {"QSELECT CUSTOMERS C4 0", "C4"},
      {"QSELECT CUSTOMERS C4 CODE", "SA"},
      {"QSELECT ORDERS 9-7 AMOUNT", "200 600"},
      {"QSELECT DICT CUSTOMERS NAME 1", "A"},
  };
  for (const Case& test : kCases) {
    EXPECT_TRUE(Run(test.sentence)) << test.sentence << "\n" << error_;
    EXPECT_EQ(KeysOf(grid_), test.want) << test.sentence;
    EXPECT_EQ(grid_.HighestColumn(), 0) << test.sentence;
    EXPECT_TRUE(error_.empty()) << test.sentence;
  }
}

TEST_F(QueryTest, AnswersInTheFormOfItsVerb) {
  constexpr Case kCases[] = {
      {"SELECT CUSTOMERS", "5^items selected"},
      {"SSELECT CUSTOMERS WITH NAME = 'Nobody'", "0^items selected"},
      {"COUNT CUSTOMERS WITH CITY = 'Leeds'", "2^items counted"},
      {"QSELECT ORDERS 9-7 1", "2^items selected"},
      {"LIST CUSTOMERS", "1^5^^^^LIST"},
      {"sort CUSTOMERS WITH NAME = 'Nobody'", "1^0^^^^SORT"},
      {"LIST CUSTOMERS NAME city BOGUS A5", "1^5^NAME]city]BOGUS]A5^^^LIST"},
      {"LIST CUSTOMERS the NAME OF CITY", "1^5^NAME]CITY^^^LIST"},
      {"LIST CUSTOMERS TOTAL OF THE BALANCE BY THE NAME", "1^5^BALANCE^^^LIST]TOTAL]BALANCE"},
      {"LIST CUSTOMERS 'C1' NAME TOTAL Balance CITY", "1^1^NAME]Balance]CITY^^^LIST]TOTAL]Balance"},
      {"SORT CUSTOMERS BREAK-ON CITY total BALANCE BREAK-ON NAME \"'V' = sum\"",
       "1^5^CITY]BALANCE]NAME^^^SORT]BREAK-ON]CITY\\]TOTAL]BALANCE]BREAK-ON]NAME\\'V' = sum"},
      {"LIST CUSTOMERS id-supp NAME (PN)", "1^5^NAME^^ID-SUPP PN^LIST"},
      {"LIST CUSTOMERS NAME ( P (x) ", "1^5^NAME^^P (x)^LIST"},
      {"LIST CUSTOMERS (P) NAME ID-SUPP", "1^5^NAME^^P ID-SUPP^LIST"},
      {"LIST CUSTOMERS WITH (NAME = 'Smith') (P) CITY", "1^1^CITY^^P^LIST"},
      {"LIST CUSTOMERS () NAME", "1^5^NAME^^^LIST"},
      {"LIST CUSTOMERS HEADING 'All of them' NAME FOOTING \"end\"",
       "1^5^NAME^^^LIST]HEADING]All of them]FOOTING]end"},
      {"LIST ORDERS ITEMS TOTAL TOTAL TOTAL NO", "1^4^ITEMS]TOTAL]NO^^^LIST]TOTAL]TOTAL]TOTAL]NO"},
      {"LIST CUSTOMERS WITH CITY = 'York' NAME WITH BALANCE CITY", "1^1^NAME]CITY^^^LIST"},
  };
  for (const Case& test : kCases) {
    EXPECT_TRUE(Run(test.sentence)) << test.sentence << "\n" << error_;
    EXPECT_EQ(WithoutMarks(reply_), test.want) << test.sentence;
  }
}

TEST_F(QueryTest, RefusesByNameAndPosition) {
  constexpr Case kCases[] = {
      {"", "the sentence is empty"},
      {"FIND CUSTOMERS", "'FIND' at position 1 is no verb"},
      {"LIST", "'LIST' at position 1 needs a file behind it, but the sentence ends"},
      {"LIST 'C1'", "needs a file behind it, not 'C1' at position 6; the file of a report"},
      {"LIST CUSTMERS", "unknown file 'CUSTMERS' at position 6; LISTF shows"},
      {"LIST CUSTOMERS 'C1", "the quote ' at position 16 has no partner"},
      {"LIST CUSTOMERS ''", "the item ID at position 16 is empty"},
      {"LIST CUSTOMERS WITH  CITTY = 'X'", "'CITTY' in WITH at position 22; LIST DICT CUSTOMERS shows"},
      {"LIST CUSTOMERS WITH NOTE = 'X'", "unknown word 'NOTE' in WITH at position 21"},
      {"LIST CUSTOMERS BY CITTY", "unknown word 'CITTY' in BY at position 19"},
      {"LIST DICT CUSTOMERS WITH CITY", "'CITY' in WITH at position 26; LIST DICT CUSTOMERS_dict"},
      {"LIST CUSTOMERS WITH", "'WITH' at position 16 needs a field behind it, but the sentence ends"},
      {"LIST CUSTOMERS WITH = 'X'", "stray operator '=' at position 21: 'WITH' at position 16"},
      {"LIST CUSTOMERS WITH BY NAME", "needs a field behind it, not 'BY' at position 21"},
      {"LIST CUSTOMERS WITH CITY =", "operator '=' at position 26 has no value behind it"},
      {"LIST CUSTOMERS WITH CITY = AND NAME", "operator '=' at position 26 has no value behind it: 'AND'"},
      {"LIST CUSTOMERS WITH CITY = 'X' = 'Y'", "stray operator '=' at position 32"},
      {"LIST CUSTOMERS = 'X'", "stray operator '=' at position 16"},
      {"LIST CUSTOMERS AND NAME", "'AND' at position 16 joins nothing"},
      {"LIST CUSTOMERS WITH NAME BY NAME OR CITY", "'OR' at position 34 joins nothing"},
      {"SELECT CUSTOMERS WITH CITY = New York", "'York' at position 34 belongs to no WITH or BY"},
      {"LIST CUSTOMERS WITH BALANCE GREATER 5", "'GREATER' at position 29 is no operator; one of several"},
      {"LIST CUSTOMERS WITH CITY STARTING \"Y\"", "'STARTING' at position 26 is no operator"},
      {"LIST CUSTOMERS WITH CITY York leeds", "'York' at position 26 is no operator"},
      {"LIST ORDERS WITH QTY much", "'much' at position 22 is no number for QTY"},
      {"LIST ORDERS WITH TOTAL = 5 OR 7", "'7' at position 31 could be a value or a column"},
      {"LIST CUSTOMERS WITH CITY = York OR Leeds",
       "LIST DICT CUSTOMERS shows the file's words; a value behind AND and OR stands in"},
      {"LIST CUSTOMERS WITH CITY = Leeds A", "'A' at position 34 could be a value or a word without meaning"},
      {"LIST CUSTOMERS WITH (NAME = 'X'", "the bracket ( at position 21 is never closed"},
      {"LIST CUSTOMERS WITH (NAME = 'X' (P)", "can't stand inside the bracket ( of position 21"},
      {"LIST CUSTOMERS WITH NAME = 'X')", "stray bracket ')' at position 31"},
      {"LIST CUSTOMERS WITHOUT (NAME)", "'WITHOUT' at position 16 needs a field behind it, not '('"},
      {"LIST CUSTOMERS WITH NO (NAME)", "'NO' at position 21 needs a field behind it, not '('"},
      {"LIST CUSTOMERS(X) NAME", "'CUSTOMERS' at position 6 needs a blank before '(' at position 15"},
      {"COUNT CUSTOMERS TOTAL CITY", "'TOTAL' at position 17 belongs to LIST and SORT"},
      {"LIST CUSTOMERS WITHOUT EVERY NAME", "'EVERY' at position 24 can't stand behind WITHOUT"},
      {"LIST CUSTOMERS BY", "'BY' at position 16 needs a field behind it"},
      {"LIST CUSTOMERS SAMPLE", "'SAMPLE' at position 16 needs a whole number above 0 behind it"},
      {"LIST CUSTOMERS AFTER 'X'", "stray operator 'AFTER' at position 16"},
      {"LIST CUSTOMERS TOTAL", "'TOTAL' at position 16 needs a column behind it"},
      {"LIST CUSTOMERS HEADING NAME", "'HEADING' at position 16 needs a quoted text behind it"},
      {"LIST CUSTOMERS N\xFDX", "holds a mark"},
      {"LIST CUSTOMERS WITH SINCE AFTER soon", "'soon' at position 33 is no date for SINCE"},
      {"LIST CUSTOMERS WITH BALANCE > much", "'much' at position 31 is no number for BALANCE"},
      {"SELECT CUSTOMERS WITH BALANCE BETWEEN 1 AND 5", "'1' at position 39 is the start of a range"},
      {"SELECT CUSTOMERS SAVING CITY SAVING NAME", "'SAVING' at position 30 stands behind SAVING CITY"},
      {"LIST CUSTOMERS SAVING CITY", "'SAVING' at position 16 belongs to SELECT"},
      {"LIST CUSTOMERS SAMPLE 0", "'SAMPLE' at position 16 needs a whole number above 0 behind it, not '0'"},
      {"SELECT CUSTOMERS NAME", "'NAME' at position 18 belongs to no WITH or BY, and SELECT shows no"},
      {"QSELECT CUSTOMERS", "QSELECT needs an item ID behind the file 'CUSTOMERS'"},
      {"QSELECT CUSTOMERS C9", "item 'C9' is not in CUSTOMERS"},
      {"QSELECT CUSTOMERS C1 PHONY", "unknown word 'PHONY' in QSELECT at position 22"},
      {"QSELECT CUSTOMERS C1 1 2", "'2' at position 24 has no meaning"},
  };
  for (const Case& test : kCases) {
    grid_.Start(1);
    grid_.AppendCell("left over");
    EXPECT_FALSE(Run(test.sentence)) << test.sentence;
    EXPECT_NE(error_.find(test.want), std::string::npos) << test.sentence << "\n" << error_;
    EXPECT_EQ(grid_.HighestColumn(), -1) << test.sentence;
  }
}

TEST_F(QueryTest, AnActiveListRestrictsAndOrders) {
  ResultGrid list;
  list.Start(2);  // as an SQL statement leaves it: the keys are column 0
  for (const char* key : {"C4", "C1", "GONE", "C10"}) {
    list.AppendCell(key);
    list.AppendCell("C3");
  }
  constexpr Case kCases[] = {
      {"SELECT CUSTOMERS", "C4 C1 GONE C10"},
      {"SELECT CUSTOMERS 'GONE' 'C1'", "C1"},
      {"COUNT CUSTOMERS", "C4 C1 C10"},
      {"SORT CUSTOMERS", "C1 C10 C4"},
      {"LIST CUSTOMERS WITH NAME", "C4 C1 C10"},
      {"SSELECT CUSTOMERS", "C1 C10 C4 GONE"},
      {"SELECT CUSTOMERS BY CITY", "C1 C4 C10"},
      {"SELECT CUSTOMERS 'C10' 'C2' 'C4'", "C4 C10"},
      {"QSELECT CUSTOMERS NAME", "Sand Smith Anders"},
      {"QSELECT CUSTOMERS 'C1' NAME", "Smith"},
      {"QSELECT CUSTOMERS",
       "Sand Leeds Spa 9000.0 19000 555-9 777-3 Smith Leeds 10000 19000 555-1 555-2 "
       "Anders York -250 19100"},
  };
  for (const Case& test : kCases) {
    EXPECT_TRUE(Run(test.sentence, &list)) << test.sentence << "\n" << error_;
    EXPECT_EQ(KeysOf(grid_), test.want) << test.sentence;
  }
  EXPECT_TRUE(Run("SELECT CUSTOMERS", &list));
  EXPECT_TRUE(Run("SELECT CUSTOMERS WITH CITY = 'Leeds'", /*activeList=*/&grid_))
      << "the list is the grid itself";
  EXPECT_EQ(KeysOf(grid_), "C1");
  EXPECT_TRUE(Run("QSELECT BARE x 9"));
  EXPECT_TRUE(Run("SELECT CUSTOMERS", /*activeList=*/&grid_)) << "an empty list is no missing one";
  EXPECT_EQ(WithoutMarks(reply_), "0^items selected");
}

TEST_F(QueryTest, ReadsNoMoreThanItNeeds) {
  EXPECT_TRUE(Run("SSELECT CUSTOMERS WITH CITY = 'York' BY NAME BY CITY BY @ID"));
  EXPECT_EQ(store_.lastScan.attributes, (std::vector<std::int32_t>{2, 1}));
  EXPECT_FALSE(store_.lastScan.wholeItem);
  EXPECT_TRUE(Run("SELECT CUSTOMERS WITH CODE = 'SM'"));
  EXPECT_FALSE(store_.lastScan.wholeItem) << "a correlative on the value alone needs the value alone";
  EXPECT_TRUE(Run("SELECT ORDERS WITH VALUE > 1"));
  EXPECT_EQ(store_.lastScan.attributes, (std::vector<std::int32_t>{1, 2})) << "those that it computes with";
  EXPECT_FALSE(store_.lastScan.wholeItem);
  for (const Case& test : {Case{"SIZE", "007 10 9 9-7"}, {"LENGTH", "9-7"}, {"FAR", "007 10 9 9-7"}}) {
    EXPECT_TRUE(Run(std::string("SELECT ORDERS WITH ") + test.sentence + " = 5")) << error_;
    EXPECT_TRUE(store_.lastScan.wholeItem) << test.sentence;
    EXPECT_EQ(KeysOf(grid_), test.want) << test.sentence;
  }
  EXPECT_TRUE(Run("SSELECT CUSTOMERS"));
  EXPECT_TRUE(store_.lastScan.attributes.empty() && !store_.lastScan.wholeItem);

  store_.failAfterRows = 3;
  EXPECT_TRUE(Run("SELECT CUSTOMERS SAMPLE 3")) << "a sample that is complete reads on";
  store_.failAfterRows = 0;

  store_.scans = 0;
  store_.itemsRead = 0;
  EXPECT_TRUE(Run("SSELECT CUSTOMERS 'C1' 'C2' WITH @ID > 'C1'"));
  EXPECT_EQ(store_.itemsRead, 0);
  EXPECT_TRUE(Run("SELECT CUSTOMERS 'C1' 'C2' WITH CITY"));
  EXPECT_EQ(store_.itemsRead, 2);
  EXPECT_EQ(store_.scans, 0);
}

TEST_F(QueryTest, ReadsKnownKeysToTheLastOne) {
  ResultGrid list;
  list.Start(1);
  std::string want;
  for (int number = 1000; number < 2000; ++number) {
    const std::string id = std::to_string(number);
    list.AppendCell(id);
    if (number % 7 == 0) continue;  // missing items, at any place of a batch
    store_.Put("MANY", id, number % 2 == 0 ? "even" : "odd");
    if (number % 2 == 0) want += (want.empty() ? "" : " ") + id;
  }
  EXPECT_TRUE(Run("SELECT MANY WITH A1 = 'even'", &list)) << error_;
  EXPECT_EQ(KeysOf(grid_), want);
}

TEST_F(QueryTest, ALostStoreEmptiesTheGrid) {
  EXPECT_TRUE(Run("SELECT CUSTOMERS"));
  store_.failAfterRows = 2;
  EXPECT_THROW(Run("SELECT CUSTOMERS"), StoreFailure);
  EXPECT_EQ(grid_.HighestColumn(), -1);
}

}  // namespace
}  // namespace nvadmin::engine
