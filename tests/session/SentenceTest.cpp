// Sentences and the walk of the select list that they leave.
#include <gtest/gtest.h>

#include "session/basNvLibrary.h"
#include "tests/support/ScriptedSession.h"

namespace nvadmin::test {
namespace {

using Sentence = ScriptedSession;

TEST_F(Sentence, WhatASentenceDoesToTheListPosition) {
  constexpr std::int32_t kBefore = 5;
  const struct {
    std::string_view name, sentence, reply;
    std::int32_t want;
  } kRows[] = {
      {"select with two attributes", "SELECT F", "a^b", 0},
      {"one attribute is no list", "SELECT F", "a", -2},
      {"error in a longer reply", "PSELECT F", "ERROR^x", 0},
      {"small letters", "qselect F", "a^b^c", 0},
      {"sort", "SORT F", "^", 0},
      {"leading blank hides the verb", " SELECT F", "a^b", kBefore},
      {"a verb that only begins so", "SELECTED F", "a^b", kBefore},
      {"other sentence with a long reply", "WHO", "a^b", kBefore},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    Session().ListPosition = kBefore;
    engine.Answer(row.sentence, Dyn(row.reply));
    EXPECT_EQ(EExecute(row.sentence), Dyn(row.reply));
    EXPECT_EQ(Session().ListPosition, row.want);
  }
}

TEST_F(Sentence, TheWalkEndsBehindTheLastRowAndStaysEnded) {
  engine.Answer("SELECT F", Dyn("a^b"), Keys({"x", "", "z"}));
  EExecute("SELECT F");
  std::string id;
  std::string walked;
  std::int32_t position = 0;
  while (RReadNext(id, position)) walked += std::to_string(position) + id + " ";
  EXPECT_EQ(walked, "1x 2 3z ");
  EXPECT_EQ(id, "z");
  EXPECT_EQ(position, 4);
  EXPECT_FALSE(RReadNext(id, position));
  EXPECT_EQ(Session().ListPosition, 5);
}

TEST_F(Sentence, WithoutAListTheFirstStepAsksForRowMinusOneAndEnds) {
  engine.Answer("SELECT F", "a", Keys({"left over"}));
  EExecute("SELECT F");
  std::string id = "unchanged";
  std::int32_t position = 0;
  engine.Forget();
  EXPECT_FALSE(RReadNext(id, position));
  EXPECT_EQ(engine.Calls(), "GetResultCell(0, -1) outside the grid\n");
  EXPECT_EQ(id, "unchanged");
  EXPECT_EQ(position, -1);
  EXPECT_EQ(Session().ListPosition, -1);
}

TEST_F(Sentence, OnlyTheStepToTheNextRowSwallowsFailures) {
  engine.Answer("SELECT F", Dyn("a^b"), Grid{{"k", "one"}});
  EExecute("SELECT F");
  EXPECT_EQ(ListItem(1, 1), "one");
  EXPECT_EQ(ListCount(1), 1);
  EXPECT_EQ(ListCount(2), 1);
  EXPECT_EQ(Session().ListPosition, 0);
  EXPECT_THROW(ListItem(2, 1), EngineFailure);
  EXPECT_THROW(ListItem(0, 2), EngineFailure);
  std::string id;
  std::int32_t position = 0;
  engine.NextCalls("GetResultCell", {{.detail = "store lost", .fails = true}});
  EXPECT_FALSE(RReadNext(id, position));
  Session().Engine = nullptr;
  EXPECT_FALSE(RReadNext(id, position));
  EXPECT_THROW(ListCount(2), EngineFailure);
}

}  // namespace
}  // namespace nvadmin::test
