// The hot routines, one by one, through the wrappers that the add-in calls; beside them what the C library
// needs for a like result.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "session/MvServices.h"
#include "session/SessionState.h"
#include "session/basNvFunctions.h"

namespace nvadmin {
namespace {

void GiveHelper() {
  if (!Session().Mv) Session().Mv = CreateMvServices();
}

std::string ItemOf(int attributes) {
  std::string item;
  for (int number = 0; number < attributes; ++number)
    item.append(number == 0 ? "" : "\xFE").append("attribute text");
  return item;
}

void Extract(benchmark::State& state) {
  GiveHelper();
  const auto attributes = static_cast<std::int32_t>(state.range(0));
  const std::string item = ItemOf(attributes);
  for (auto _ : state) benchmark::DoNotOptimize(EExtract(item, attributes, 0, 0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(item.size()));
}
BENCHMARK(Extract)->Arg(8)->Arg(1000)->Arg(70'000);

// The same marks counted off by memchr alone.
void ExtractByMemchr(benchmark::State& state) {
  const std::string item = ItemOf(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    const char* at = item.data();
    const char* end = at + item.size();
    while (const void* mark = std::memchr(at, 0xFE, static_cast<std::size_t>(end - at))) {
      at = static_cast<const char*>(mark) + 1;
    }
    benchmark::DoNotOptimize(at);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(item.size()));
}
BENCHMARK(ExtractByMemchr)->Arg(8)->Arg(1000)->Arg(70'000);

void Replace(benchmark::State& state) {
  GiveHelper();
  const std::string item = ItemOf(static_cast<int>(state.range(0)));
  const auto middle = static_cast<std::int32_t>(state.range(0) / 2);
  for (auto _ : state) benchmark::DoNotOptimize(RReplace(item, middle, "new text"));
}
BENCHMARK(Replace)->Arg(8)->Arg(1000);

void FormatRight(benchmark::State& state) {
  GiveHelper();
  for (auto _ : state) benchmark::DoNotOptimize(FFmt("12345.67", "R#12"));
}
BENCHMARK(FormatRight);

void FormatRightByPrintf(benchmark::State& state) {
  for (auto _ : state) {
    char text[32];
    std::snprintf(text, sizeof text, "%12s", "12345.67");
    benchmark::DoNotOptimize(std::string(text));
  }
}
BENCHMARK(FormatRightByPrintf);

void ConvertDate(benchmark::State& state) {
  GiveHelper();
  for (auto _ : state) benchmark::DoNotOptimize(OOConv("20000", "D2/"));
}
BENCHMARK(ConvertDate);

void ConvertDateByPrintf(benchmark::State& state) {
  for (auto _ : state) {
    int month = 10;
    int day = 3;
    int year = 22;
    benchmark::DoNotOptimize(month);
    benchmark::DoNotOptimize(day);
    benchmark::DoNotOptimize(year);
    char text[40];
    std::snprintf(text, sizeof text, "%02d/%02d/%02d", month, day, year);
    benchmark::DoNotOptimize(std::string(text));
  }
}
BENCHMARK(ConvertDateByPrintf);

void ConvertDecimal(benchmark::State& state) {
  GiveHelper();
  for (auto _ : state) benchmark::DoNotOptimize(OOConv("1234567", "MD2,"));
}
BENCHMARK(ConvertDecimal);

void ConvertDecimalByPrintf(benchmark::State& state) {
  for (auto _ : state) {
    volatile double number = 12345.67;
    char text[40];
    std::snprintf(text, sizeof text, "%.2f", number);
    benchmark::DoNotOptimize(std::string(text));
  }
}
BENCHMARK(ConvertDecimalByPrintf);

}  // namespace
}  // namespace nvadmin
