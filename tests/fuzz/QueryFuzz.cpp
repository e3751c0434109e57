// Fuzz target of the query language. An input is a sentence on its first line, and behind it an item a line
// for the file F: its ID, ":" and the attributes, with ^ ] \ as marks.
//
// Every sentence ends with an answer or with an error, never with both; and a store that leaves out what the
// query's conditions let it leave out gives the same answer as one that doesn't.
//
// The corpus runs among the tests. To search for new inputs, with clang and its fuzzer runtime
// (libclang-rt-14-dev):
//   cmake --preset dev -B build/fuzz -DNVADMIN_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++
//     -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined
//   ninja -C build/fuzz fuzz_query
//   build/fuzz/bin/fuzz_query -max_len=2000 -dict=tests/fuzz/query.dict FOLDER tests/fuzz/corpus/query
// New inputs go to FOLDER; one that fails is written beside it, and belongs into the corpus once it is
// mended.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "engine/query/RunQuery.h"
#include "tests/query/MemoryStore.h"

namespace nvadmin::engine {
namespace {

constexpr const char* kWords[][2] = {
    {"@ID", "D^0^^Key^8L"},           {"NAME", "A^1^Name^^^^^^L^9"},      {"QTY", "A^2^Qty^^^^^^R^9"},
    {"DAY", "D^3^D4/^Day^10L"},       {"COST", "A^2^^^^^MD2^^R"},         {"TAGS", "D^4^^^9L"},
    {"CAPS", "S^1^^^^^^MCU^L"},       {"SUM", "S^0^^^^^^A;N(QTY)*2+4^R"}, {"UNIQUE", "A^5^^^^^^^L"},
    {"LOOP", "S^0^^^^^^A;N(LOOP)^R"},
};

struct Result {
  bool ran = false;
  std::string keys;
  std::string reply;
  std::string error;

  bool operator==(const Result&) const = default;
};

Result Run(MemoryStore& store, std::string_view sentence) {
  Result result;
  ResultGrid grid;
  result.ran = RunQuery(sentence, store, nullptr, grid, result.reply, result.error);
  result.keys = KeysOf(grid);
  if (result.ran != result.error.empty() || (!result.ran && grid.HighestColumn() != -1)) std::abort();
  return result;
}

std::string_view TakeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  return line;
}

}  // namespace
}  // namespace nvadmin::engine

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace nvadmin::engine;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  const std::string_view sentence = TakeLine(rest);
  MemoryStore store;
  for (const auto& word : kWords) store.Put("DICT F", word[0], word[1]);
  store.Put("F", "7", "Ann^007^19000^a]b\\c");
  store.Put("F", "x 1", "O'Neil^-1.50^^");
  store.Put("F", "e", "");
  while (!rest.empty()) {
    const std::string_view line = TakeLine(rest);
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) store.Put("F", line.substr(0, colon), line.substr(colon + 1));
  }
  const Result all = Run(store, sentence);
  store.leavesOut = true;
  const Result some = Run(store, sentence);
  if (!(all == some)) {
    std::fprintf(stderr, "all: %s\nsome: %s\n", all.keys.c_str(), some.keys.c_str());
    std::abort();
  }
  return 0;
}
