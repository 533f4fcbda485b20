// List-directed output to a file unit, called exactly as compiled code calls
// it: a zeroed control block on the stack with the unit and location filled,
// a start call, one call per item, an end call.  No IOSTAT=, so the flag word
// is 0 and a failure would be fatal.
//
// Unit 10 is never opened: the first statement connects it to fort.10 in the
// working directory, so run this in a scratch directory (bench/run.sh does).
// That first statement runs before the timed loop, as the gfortran peers
// write one untimed record before starting their clock.
//
// The iteration counts are fixed so that the file stays small and both sides
// write the same number of items; bench/run.sh passes the same counts to the
// peers in peers/.
#include <benchmark/benchmark.h>
#include <stdint.h>

#include <array>

#include "qal/qal.h"

namespace {

using namespace qal;

constexpr int kItemsPerStatement = 1000;
constexpr int64_t kStatementsOfItems = 4000;  // 4,000,000 items
constexpr int64_t kSingleItemStatements = 1000000;

constexpr Location kWhere = {LOC_WRITE, 7, "bench.f90"};

// mod(i*7919, 10**9) for i = 1..1000: four to seven digits, never the same
// text twice in a row.  peers/list_items.f90 writes the same values.
std::array<int32_t, kItemsPerStatement> item_values() {
  std::array<int32_t, kItemsPerStatement> a{};
  for (int i = 1; i <= kItemsPerStatement; ++i) a[i - 1] = (i * 7919) % 1000000000;
  return a;
}

// WRITE(10,*) (A(I), I = 1, 1000)
inline void write_items(const int32_t* a) {
  IoStatementSlw io = {};
  io.location = &kWhere;
  io.unit = 10;
  __f90_sslw(&io);
  for (int i = 0; i < kItemsPerStatement; ++i) __f90_slw_i4(&io, a[i]);
  __f90_eslw(&io);
}

// WRITE(10,*) I
inline void write_one(int32_t value) {
  IoStatementSlw io = {};
  io.location = &kWhere;
  io.unit = 10;
  __f90_sslw(&io);
  __f90_slw_i4(&io, value);
  __f90_eslw(&io);
}

// Cost per item of a long list: per_item is the time of one item.
void BM_ListItems(benchmark::State& state) {
  const auto a = item_values();
  write_items(a.data());
  for (auto _ : state) write_items(a.data());
  state.counters["items_per_iteration"] = kItemsPerStatement;
  state.counters["per_item"] =
      benchmark::Counter(kItemsPerStatement, benchmark::Counter::kIsIterationInvariantRate |
                                                 benchmark::Counter::kInvert);
}
BENCHMARK(BM_ListItems)->Iterations(kStatementsOfItems)->Unit(benchmark::kNanosecond);

constexpr int64_t kTenItemStatements = 400000;

// WRITE(10,*) A(K+1), ..., A(K+10): ten scalar items, each its own call.
void BM_TenItems(benchmark::State& state) {
  const auto a = item_values();
  write_one(0);
  int k = 0;
  for (auto _ : state) {
    IoStatementSlw io = {};
    io.location = &kWhere;
    io.unit = 10;
    __f90_sslw(&io);
    for (int i = 0; i < 10; ++i) __f90_slw_i4(&io, a[k + i]);
    __f90_eslw(&io);
    k = (k + 10) % kItemsPerStatement;
  }
  state.counters["items_per_iteration"] = 10;
}
BENCHMARK(BM_TenItems)->Iterations(kTenItemStatements)->Unit(benchmark::kNanosecond);

// Cost of a whole one-item statement: DO I = 1, N; WRITE(10,*) I; END DO.
void BM_OneItemStatement(benchmark::State& state) {
  write_one(0);
  int32_t i = 0;
  for (auto _ : state) write_one(++i);
  state.counters["items_per_iteration"] = 1;
}
BENCHMARK(BM_OneItemStatement)->Iterations(kSingleItemStatements)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
