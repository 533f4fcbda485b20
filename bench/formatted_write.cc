// Formatted output to a file unit, called as compiled code calls it for
// WRITE(10,'(4I12)') A(K+1), A(K+2), A(K+3), A(K+4): a zeroed control block
// on the stack, the format as a table the compiler laid down (parsed once
// here, before any timing, and never freed by the statement), a start call,
// one call per item, an end call.  No IOSTAT=, so a failure would be fatal.
//
// Unit 10 is never opened: the first statement connects it to fort.10 in the
// working directory, so run this in a scratch directory (bench/run.sh does).
// The counts are fixed so that both sides write the same records; the peer
// is peers/formatted_items.f90.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdlib.h>

#include <array>

#include "qal/qal.h"

namespace {

using namespace qal;

constexpr int64_t kStatements = 1000000;  // 4,000,000 items
constexpr int kValues = 1000;

constexpr Location kWhere = {LOC_WRITE, 7, "bench.f90"};

// mod(i*7919, 10**9) for i = 1..1000, as in the peer.
std::array<int32_t, kValues> item_values() {
  std::array<int32_t, kValues> a{};
  for (int i = 1; i <= kValues; ++i) a[i - 1] = (i * 7919) % 1000000000;
  return a;
}

struct Format {
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  explicit Format(const char* text) {
    if (__f90_parse_format(&table, &counters, 1, &kWhere, text,
                           static_cast<int32_t>(__builtin_strlen(text)), 0) != 0)
      abort();
  }
  ~Format() { free(table); }
  // The head of WRITE(10,fmt) as compiled code fills it.
  IoStatementSfw statement() const {
    IoStatementSfw io = {};
    io.location = &kWhere;
    io.unit = 10;
    io.format = table;
    io.format_counters = counters;
    return io;
  }
};

inline void write_four(const Format& f, const int32_t* a) {
  IoStatementSfw io = f.statement();
  __f90_ssfw(&io);
  __f90_sfw_i4(&io, a[0]);
  __f90_sfw_i4(&io, a[1]);
  __f90_sfw_i4(&io, a[2]);
  __f90_sfw_i4(&io, a[3]);
  __f90_esfw(&io);
}

void BM_FormattedFourItems(benchmark::State& state) {
  const auto a = item_values();
  const Format f("(4I12)");
  write_four(f, a.data());
  int k = 0;
  for (auto _ : state) {
    write_four(f, a.data() + k);
    k = (k + 4) % kValues;
  }
  state.counters["per_item"] = benchmark::Counter(
      4, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_FormattedFourItems)->Iterations(kStatements)->Unit(benchmark::kNanosecond);

// Doubles of every magnitude, as in the peer: v(i) = (i*7919 mod 10**9)
// times 10**(i mod 41 - 20) divided by 997.
std::array<double, kValues> real_values() {
  std::array<double, kValues> a{};
  for (int i = 1; i <= kValues; ++i)
    a[i - 1] =
        static_cast<double>((i * 7919) % 1000000000) * __builtin_pow(10.0, i % 41 - 20) / 997;
  return a;
}

constexpr int64_t kRealStatements = 400000;

// WRITE(10,fmt) V(K): one double per statement.
void write_real(const Format& f, double v) {
  IoStatementSfw io = f.statement();
  __f90_ssfw(&io);
  __f90_sfw_r8(&io, v);
  __f90_esfw(&io);
}

void formatted_reals(benchmark::State& state, const char* text) {
  const auto a = real_values();
  const Format f(text);
  write_real(f, a[0]);
  int k = 0;
  for (auto _ : state) {
    write_real(f, a[k]);
    k = (k + 1) % kValues;
  }
}
void BM_ES25_16E3(benchmark::State& state) { formatted_reals(state, "(ES25.16E3)"); }
void BM_F25_10(benchmark::State& state) { formatted_reals(state, "(F25.10)"); }
void BM_G25_16(benchmark::State& state) { formatted_reals(state, "(G25.16)"); }
void BM_E15_7(benchmark::State& state) { formatted_reals(state, "(E15.7)"); }
BENCHMARK(BM_ES25_16E3)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_F25_10)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_G25_16)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_E15_7)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);

// WRITE(10,*) V(K)
void BM_ListReal(benchmark::State& state) {
  const auto a = real_values();
  const auto one = [](double v) {
    IoStatementSlw io = {};
    io.location = &kWhere;
    io.unit = 10;
    __f90_sslw(&io);
    __f90_slw_r8(&io, v);
    __f90_eslw(&io);
  };
  one(a[0]);
  int k = 0;
  for (auto _ : state) {
    one(a[k]);
    k = (k + 1) % kValues;
  }
}
BENCHMARK(BM_ListReal)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
