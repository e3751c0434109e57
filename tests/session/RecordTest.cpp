// Record access: names of files, guards, the item cache, locks, trace lines.
#include <gtest/gtest.h>

#include <ctime>
#include <functional>

#include "session/basNvLibrary.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

using Record = ScriptedSession;

constexpr std::string_view kFile = "t.syscon.1";

TEST_F(Record, FileNameTable) {
  const struct {
    std::string_view datastore, name, want;
  } kRows[] = {
      {"JET", "MY.FILE-1", "my_file_1"},
      {"MSSQL", "DICT CUSTOMERS", "customers_dict"},
      {"MSSQL", "Dict   My.F ", "my_f_dict"},
      {"ORACLE", " DICT F", " dict f"},
      {"MYSQL", "TABLE", "table_nv"},
      {"MYSQL", "DICT TABLE", "table_dict"},
      {"MYSQL", "Key", "key_nv"},
      {"mv", "A-B", "a_b"},  // only capitals make a native store
      {"MV", "TABLE", "TABLE"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    Session().DatastoreKind = row.datastore;
    engine.File(row.want);
    std::string name(row.name);
    std::string fileVar = "old";
    EXPECT_TRUE(OOpen(name, fileVar));
    EXPECT_EQ(name, row.want);
    EXPECT_EQ(fileVar, engine.FileVar(row.want));
  }
}

TEST_F(Record, OpenLosesBlanksOfTheFileVarAndOnlyExactlyTrueIsSuccess) {
  engine.File("f", " acc . f . 1 ");
  std::string name = "F";
  std::string fileVar;
  EXPECT_TRUE(OOpen(name, fileVar));
  EXPECT_EQ(fileVar, "acc.f.1");
  Trace();
  for (VariantBool answer : {VariantBool{1}, kFalse, VariantBool{-2}}) {
    fileVar = "left alone";
    engine.NextCalls("OpenFile", {{.answer = answer, .detail = "no table"}});
    EXPECT_FALSE(OOpen(name, fileVar)) << answer;
    EXPECT_EQ(fileVar, "left alone");
  }
  EXPECT_EQ(trace.substr(0, trace.find('\n') + 1), "OOpen ERROR! 'f' no table\n");
}

// Each wrapper on an item that isn't cached: its call, its answer and trace when the engine says no, its
// guard.
TEST_F(Record, EveryWrapperInCallsAndTraceLines) {
  const auto second = [](auto wrapper) {
    return [wrapper](auto& text, auto file, auto id) { return wrapper(text, file, id, 2); };
  };
  const struct {
    std::string_view guardWord, call;
    std::function<bool(std::string&, std::string_view file, std::string_view id)> run;
    std::string_view detailEnd = "";
  } kRows[] = {
      {"RREAD", "ReadItem(test.f.1, 1)", RREAD, "{CRLF}\n    FV = test.f.1, ID = 1"},
      {"RREADU", "ReadItemLocked(test.f.1, 1)", RREADU},
      {"RREADV", "ReadAttribute(test.f.1, 1, 2)", second(RREADV)},
      {"RReadVU", "ReadAttributeLocked(test.f.1, 1, 2)", second(RREADVU)},
      {"WWRITE", "WriteItem(new, test.f.1, 1)", WWRITE},
      {"WWRITEU", "WriteItemKeepLock(new, test.f.1, 1)", WWRITEU},
      {"WWRITEV", "WriteAttribute(new, test.f.1, 1, 2)", second(WWRITEV)},
      {"WWRITEVU", "WriteAttributeKeepLock(new, test.f.1, 1, 2)", second(WWRITEVU)},
  };
  Trace();
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.call);
    const std::string_view operation = row.call.substr(0, row.call.find('('));
    const std::string word = row.guardWord == "RReadVU" ? "RREADVU" : std::string(row.guardWord);
    engine.File("f")["1"] = Dyn("A^B");
    engine.Forget();
    trace.clear();
    std::string text = "new";
    EXPECT_TRUE(row.run(text, "test.f.1", "1"));
    EXPECT_EQ(engine.Calls(), std::string(row.call) + " true\nGetErrorDetail() ''\n");
    engine.NextCalls(operation, {{.answer = kFalse, .detail = "bad"}});
    EXPECT_FALSE(row.run(text, "test.f.1", "1"));
    EXPECT_EQ(trace, word + " ErrorDetail = bad" + std::string(row.detailEnd) + "\n");

    engine.Forget();
    trace.clear();
    text = "new";
    EXPECT_FALSE(row.run(text, "", "")) << "the ID is looked at before the FileVar";
    EXPECT_EQ(trace, std::string(row.guardWord) + " ALERT, ItemID = '' so exit function (FV = '')\n");
    EXPECT_EQ(text, word[0] == 'R' ? "" : "new");
    EXPECT_EQ(engine.Calls(), "");
  }
}

TEST_F(Record, CachedReadMissingFileVarDeleteAndReleaseInTraceAndCalls) {
  engine.File("f")["1"] = "x";
  engine.File("syscon")["1"] = std::string(40, 'x') + "y";
  std::string item;
  RREAD(item, engine.FileVar("syscon"), "1");
  engine.Forget();
  Trace();
  RREAD(item, engine.FileVar("syscon"), "1");
  EXPECT_FALSE(RREAD(item, "", "1"));
  EXPECT_EQ(item, "");
  EXPECT_TRUE(DDELETE("test.f.1", "1"));
  engine.NextCalls("DeleteItem", {{.answer = kFalse, .detail = "bad"}});
  EXPECT_FALSE(DDELETE("test.f.1", ""));
  RRELEASE("test.f.1", "1");
  RRELEASE("", "");
  EXPECT_EQ(engine.Calls(),
            "DeleteItem(test.f.1, 1) true\nGetErrorDetail() ''\n"
            "DeleteItem(test.f.1, ) false\nGetErrorDetail() 'bad'\n"
            "ReleaseItem(test.f.1, 1)\nReleaseItem(, )\n");
  EXPECT_EQ(trace, "   RREAD CACHED Item " + std::string(40, 'x') +
                       " ...\n"
                       "RREAD ALERT, FileVariable = '' so exit function.\n"
                       "Delete FV = test.f.1, ID = 1\n   delete end function\n"
                       "Delete FV = test.f.1, ID = \nDelete ERROR on Delete = bad\n   delete end function\n"
                       "RELEASE FV = test.f.1, ID = 1\nRELEASE FV = , ID = \n");
}

TEST_F(Record, WhichTablesAreCached) {
  const std::pair<std::string_view, bool> rows[] = {
      {"a.table.1", true},    {"a.table_nv.1", true}, {"a.w3html.1", true},    {"a.syscon.1", true},
      {"a.w3syscon.1", true}, {"a.w3guests", true},   {"a.SYSCON.2", true},    {"a.TaBle.2", true},
      {"a.key_nv.1", false},  {"syscon.a.1", false},  {"a.b.syscon", false},   {"syscon", false},
      {"a.syscon2.1", false}, {"a.w3.1", false},      {"a.table_dict", false}, {"a..syscon", false},
  };
  for (const auto& [fileVar, isCached] : rows) {
    SCOPED_TRACE(fileVar);
    engine.File(fileVar, fileVar)["1"] = Dyn("A^B");
    engine.Forget();
    std::string text;
    EXPECT_TRUE(RREAD(text, fileVar, "1") && RREAD(text, fileVar, "1"));
    EXPECT_EQ(text, Dyn("A^B"));
    EXPECT_TRUE(RREADV(text, fileVar, "1", 2));
    EXPECT_EQ(text, "B");
    EXPECT_EQ(engine.CallCount("ReadItem"), isCached ? 1 : 2);
    EXPECT_EQ(engine.CallCount("ReadAttribute"), isCached ? 0 : 1);
  }
}

// Each row does one thing, under a planned outcome, to an item that is cached as "A^B" and is "E^F" at the
// engine. `want` is what a read gives then; all but the deleted item come from the cache.
TEST_F(Record, WhatChangesACachedItem) {
  std::string text;
  const struct {
    std::string_view name;
    std::function<void()> act;
    std::string_view want, operation = "";
    Outcome outcome = {};
  } kRows[] = {
      {"nothing: writes of others don't show", [] {}, "A^B"},
      {"write", [] { WWRITE("new", kFile, "1"); }, "new"},
      {"write that keeps the lock", [] { WWRITEU("new", kFile, "1"); }, "new"},
      {"attribute changes in the cached body", [] { WWRITEV("x", kFile, "1", 2); }, "A^x"},
      {"attribute beyond the end", [] { WWRITEVU("x", kFile, "1", 4); }, "A^B^^x"},
      {"write with an error", [] { WWRITE("new", kFile, "1"); }, "A^B", "WriteItem", {.detail = "half"}},
      {"attribute with error", [] { WWRITEV("x", kFile, "1", 2); }, "A^B", "WriteAttribute", {kFalse, "no"}},
      {"false without a reason", [] { WWRITE("new", kFile, "1"); }, "new", "WriteItem", {kFalse}},
      {"locked read", [&] { RREADU(text, kFile, "1"); }, "A^B"},
      {"delete retires", [] { DDELETE(kFile, "1"); }, ""},
      {"refused delete", [] { DDELETE(kFile, "1"); }, "A^B", "DeleteItem", {kFalse, "no"}},
      {"same ID through another FileVar", [] { WWRITE("new", "u.syscon.1", "1"); }, "A^B"},
      {"an older error detail", [&] { RREAD(text, kFile, "missing"); }, "A^B"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    LogOn("JET");
    engine.File("f", kFile) = {{"1", Dyn("A^B")}, {"11", "other"}};
    engine.File("g", "u.syscon.1");
    RREAD(text, kFile, "1");
    engine.File("f")["1"] = Dyn("E^F");
    engine.NextCalls(row.operation, {row.outcome});
    row.act();
    engine.Forget();
    std::string item;
    EXPECT_EQ(RREAD(item, kFile, "1"), !row.want.empty());
    EXPECT_EQ(item, Dyn(row.want));
    EXPECT_EQ(engine.CallCount("ReadItem"), row.want.empty() ? 1 : 0);
  }
}

TEST_F(Record, OnlyFoundItemsEnterAtTheEndAndNoEntryEverMoves) {
  engine.File("syscon") = {{"1", "one"}, {"2", "two"}, {"3", ""}, {"##Deleted##", "odd"}};
  const std::string file = engine.FileVar("syscon");
  std::string item;
  EXPECT_FALSE(RREAD(item, file, "new") || RREAD(item, file, "new")) << "must not become an empty one";
  EXPECT_TRUE(WWRITE("a", file, "new") && RREADV(item, file, "new", 1) && RREADU(item, file, "new"));
  for (std::string_view id : {"1", "2", "3", "##Deleted##"}) EXPECT_TRUE(RREAD(item, file, id));
  DDELETE(file, "2");
  WWRITE("again", file, "2");
  engine.Forget();
  std::string read;
  for (std::string_view id : {"1", "2", "3", "2", "##Deleted##", "new", "new"}) {
    EXPECT_TRUE(RREAD(item, file, id));
    read += item + " ";
  }
  EXPECT_EQ(read, "one again  again odd a a ");
  EXPECT_EQ(engine.CallCount("ReadItem"), 2) << "of 2 and new, which were written and never read";
  const std::vector<std::string> values = {"", "one", "two", "", "odd", "again", "a"};
  EXPECT_EQ(Session().ItemCacheValues, values) << "index 0, four entries, one of them retired, and two more";
}

TEST_F(Record, LockedReadsOfACachedItemGoToTheEngine) {
  engine.File("f", kFile) = {{"1", Dyn("A^B")}, {"2", "x"}};
  std::string text;
  for (std::string_view id : {"1", "2"}) RREAD(text, kFile, id);
  engine.File("f")["1"] = Dyn("E^F");
  engine.LockByOther("f", "2");
  EXPECT_TRUE(RREADU(text, kFile, "1"));
  EXPECT_EQ(text, Dyn("E^F"));
  EXPECT_TRUE(RREADVU(text, kFile, "1", 2));
  EXPECT_EQ(text, "F");
  EXPECT_FALSE(RREADU(text, kFile, "2"));
  EXPECT_EQ(ErrorDetail().substr(0, 5), "[920]");
}

// In this thread's processor time, which other programs don't lengthen. A look-up that reads all keys costs
// a thousand times more in the large cache than in the small one.
TEST_F(Record, ALookUpCostsHardlyMoreInALargeCache) {
  engine.File("syscon");
  const std::string file = engine.FileVar("syscon");
  int entries = 0;
  const auto costOfReads = [&](int wantedEntries) {
    std::string item;
    while (entries < wantedEntries) {
      const std::string id = std::to_string(++entries);
      engine.File("syscon")[id] = "x";
      RREAD(item, file, id);
    }
    engine.Forget();
    timespec start{}, end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    for (int read = 0; read < 2000; ++read) RREAD(item, file, std::to_string(read * 49 % entries + 1));
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    EXPECT_EQ(engine.CallCount("ReadItem"), 0);
    return static_cast<double>(end.tv_sec - start.tv_sec) * 1e9 +
           static_cast<double>(end.tv_nsec - start.tv_nsec);
  };
  const double small = costOfReads(100);
  EXPECT_LT(costOfReads(100'000), 100 * small);
}

}  // namespace
}  // namespace nvadmin::test
