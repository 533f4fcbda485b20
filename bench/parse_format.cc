// The run-time format parser on a typical 40-character FORMAT held in a
// character variable, as compiled code calls it ahead of a formatted
// statement: parse, then free the table as the end entry would.  No peer
// parses formats through a separate call, so this one stands alone; the
// figure to watch is the time per parse, which should stay well under a
// microsecond.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include "qal/qal.h"

namespace {

using namespace qal;

constexpr Location kWhere = {LOC_WRITE, 7, "bench.f90"};

// Integers, a repeated group of reals, a string and positioning: 40
// characters.
constexpr char kTypical[] = "(1X,I5,2(F10.3,1X),'x=',ES12.4E2,T60,A8)";
static_assert(sizeof kTypical - 1 == 40, "the benchmark format is 40 characters");

void BM_ParseFormat(benchmark::State& state) {
  for (auto _ : state) {
    int32_t* format = nullptr;
    int32_t* counters = nullptr;
    __f90_parse_format(&format, &counters, 0, &kWhere, kTypical,
                       static_cast<int32_t>(strlen(kTypical)), 0);
    benchmark::DoNotOptimize(format);
    free(format);
  }
}
BENCHMARK(BM_ParseFormat)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
