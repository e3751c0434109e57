// File translation through a session: what is remembered of it, and for how long.
#include <map>

#include "engine/TranslationMemory.h"
#include "mv/Conversions.h"
#include "mv/EngineHooks.h"
#include "tests/engine/Workshop.h"

namespace nvadmin::engine {
namespace {

// A file of items that counts how often each is read.
struct CountingFile {
  std::map<std::string, int> reads;
  std::string body;
  bool fails = false;
  TranslationMemory memory{[this](std::string_view file, std::string_view id, std::string& item) {
    if (fails) throw StoreFailure("lost");
    ++reads[std::string(file) + ' ' + std::string(id)];
    item = id.starts_with("none") ? "left over" : std::string(id) + body;
    return !id.starts_with("none");
  }};
};

TEST(TranslationMemory, ReadsEachTargetOnce) {
  CountingFile file;
  std::string item;
  for (int row = 0; row < 100'000; ++row) {
    const std::string id = std::to_string(row % 250);
    ASSERT_TRUE(file.memory.Read("COUNTRIES", id, item));
    ASSERT_EQ(item, id);
    ASSERT_FALSE(file.memory.Read("COUNTRIES", "none" + id, item = "old"));
    ASSERT_EQ(item, "");
  }
  for (const auto& [target, times] : file.reads) EXPECT_EQ(times, 1) << target;
  EXPECT_TRUE(file.memory.Read("LANGUAGES", "7", item));
  EXPECT_EQ(file.reads["LANGUAGES 7"], 1) << "the same ID in another file is another item";
  file.memory.Forget();
  EXPECT_TRUE(file.memory.Read("COUNTRIES", "7", item));
  EXPECT_EQ(file.reads["COUNTRIES 7"], 2);
  file.fails = true;
  EXPECT_THROW(file.memory.Read("LANGUAGES", "8", item), StoreFailure);
  file.fails = false;
  EXPECT_TRUE(file.memory.Read("LANGUAGES", "8", item)) << "a failure is remembered";
}

TEST(TranslationMemory, BeginsAnewAtItsLimits) {
  constexpr auto kLimit = static_cast<int>(TranslationMemory::kMostTargets);
  CountingFile file;
  std::string item;
  const auto read = [&](int id) { file.memory.Read("F", std::to_string(id), item); };
  for (int id = 0; id < kLimit; ++id) read(id);
  read(0);
  EXPECT_EQ(file.reads["F 0"], 1) << "begins anew too early";
  read(kLimit);
  read(0);
  EXPECT_EQ(file.reads["F 0"], 2) << "grows without end";

  file.memory.Forget();
  file.body.assign(TranslationMemory::kMostBytes / 4, 'x');
  for (int id = 1; id <= 8; ++id) read(id), read(id);
  EXPECT_EQ(file.reads["F 4"], 2) << "large items are read at each use";
  read(1);
  EXPECT_EQ(file.reads["F 1"], 3) << "large items gather";

  file.body.assign(TranslationMemory::kMostBytes, 'x');
  EXPECT_TRUE(file.memory.Read("F", "huge", item));
  EXPECT_EQ(item.size(), file.body.size() + 4) << "an item over the limit gets lost";
  read(1);
  EXPECT_EQ(file.reads["F 1"], 4);
}

// The conversions of this thread read through ben's session, which was made last; anna changes the target.
class Translation : public InAccount, public TwoSessions {
 public:
  Translation() : TwoSessions(GetParam()) {
    Do("CREATE-FILE TOWNS 4");
    towns = Open(anna, "TOWNS");
    Change("Leeds");
  }
  void Change(std::string_view name) {
    EXPECT_TRUE(anna.WriteItem(name, towns, "1")) << anna.GetErrorDetail();
    anna.WriteOutput("", true);
  }
  std::string towns;
};

INSTANTIATE_TEST_SUITE_P(Stores, Translation, testing::Values("MY", "NAT", "SRV"));

TEST_P(Translation, SeesForeignChangesBehindAWait) {
  std::string item;
  const auto wait = [&] {
    bensPort.input.push_back("x");
    ben.ReadInput(item, -1, true, -1.0F);
  };
  const struct {
    const char* name;
    std::function<void()> happen;
    bool forgets;
  } events[] = {
      {"output", [&] { ben.WriteOutput("line", true); }, false},
      {"a read", [&] { ben.ReadItem(item, Open(ben, "TOWNS"), "1"); }, false},
      {"a wait", [&] { wait(); }, true},
      {"the end of input", [&] { ben.ReadInput(item, -1, true, -1.0F); }, false},
      {"a sentence", [&] { ben.ExecuteSentence("ACCOUNT"); }, true},
      {"a write", [&] { EXPECT_TRUE(ben.WriteItem("x", Open(ben, "TOWNS"), "other")); }, true},
      {"a delete", [&] { EXPECT_TRUE(ben.DeleteItem(Open(ben, "TOWNS"), "other")); }, true},
  };
  for (const auto& event : events) {
    Change("Leeds");
    wait();
    EXPECT_EQ(mv::Oconv("1", "TTOWNS;X;;1"), "Leeds") << event.name;
    EXPECT_EQ(mv::Oconv("new", "TTOWNS;C;;1"), "new") << event.name;
    Change("York");
    EXPECT_TRUE(anna.WriteItem("Hull", towns, "new"));
    anna.WriteOutput("", true);
    event.happen();
    EXPECT_EQ(mv::Oconv("1", "TTOWNS;X;;1"), event.forgets ? "York" : "Leeds") << event.name;
    EXPECT_EQ(mv::Oconv("new", "TTOWNS;C;;1"), event.forgets ? "Hull" : "new") << event.name;
    ben.WriteOutput("", true);
    EXPECT_TRUE(anna.DeleteItem(towns, "new"));
    anna.WriteOutput("", true);
  }
}

}  // namespace
}  // namespace nvadmin::engine
