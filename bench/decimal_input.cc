// Decimal to binary beside its peers, in one run, on the same numbers:
//
//   BM_Double17/ours      decimal_to_double, 17 digits, exponents over the
//                         whole double range, round to nearest
//   BM_Double17/from_chars  std::from_chars on the same text
//   BM_Double17/strtod    glibc strtod on the same text
//   BM_DoubleShort/...    up to 9 digits, exponents within 10**+-22
//   BM_Quad34/ours        x86_decimal_to_quadruple, 34 digits, exponents
//                         within 10**+-300
//   BM_Quad34/strtoflt128 libquadmath on the same text
//
// Each iteration converts the same 1024 numbers; per_value is the time of
// one.  Our entries take the digits as a DecimalRecord (what the input
// scanners hand over); the peers parse the text of the same number.  The
// sums of all results must agree, or the run stops.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <charconv>
#include <random>
#include <string>
#include <vector>

extern "C" {
#include <quadmath.h>
}

#include "qal/convert.h"

namespace {

using namespace qal;

constexpr int kValues = 1024;

struct Number {
  DecimalRecord record;
  std::string text;
};

std::vector<Number> make(uint64_t seed, int digits, int low, int high) {
  std::mt19937_64 rng(seed);
  std::vector<Number> out(kValues);
  for (Number& n : out) {
    std::string d;
    d += static_cast<char>('1' + rng() % 9);
    const int count = digits > 0 ? digits : 1 + static_cast<int>(rng() % -digits);
    for (int i = 1; i < count; ++i) d += static_cast<char>('0' + rng() % 10);
    const int exponent = low + static_cast<int>(rng() % static_cast<uint64_t>(high - low + 1));
    DecimalRecord& r = n.record;
    memset(&r, 0, sizeof r);
    r.fp_class = FPC_NORMAL;
    r.exponent = exponent;
    memcpy(r.digits, d.data(), d.size());
    r.ndigits = static_cast<int32_t>(d.size());
    n.text = d + "e" + std::to_string(exponent);
  }
  return out;
}

const std::vector<Number>& double17() {
  static const std::vector<Number> v = make(17, 17, -340, 290);
  return v;
}
const std::vector<Number>& double_short() {
  static const std::vector<Number> v = make(9, -9, -22, 22);
  return v;
}
const std::vector<Number>& quad34() {
  static const std::vector<Number> v = make(34, 34, -333, 266);
  return v;
}

void per_value(benchmark::State& s) {
  s.counters["per_value"] =
      benchmark::Counter(static_cast<double>(s.iterations()) * kValues,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// The sum of what each side read, compared at the end.
double sums[8];

template <int kSet>
const std::vector<Number>& set() {
  if constexpr (kSet == 0) return double17();
  if constexpr (kSet == 1) return double_short();
  return quad34();
}

// Converts every record of `v` with `convert` and keeps the sum in *sum.
template <class T, class Convert>
void ours(benchmark::State& s, const std::vector<Number>& v, Convert convert, T* total) {
  T sum = 0;
  for (auto _ : s) {
    sum = 0;
    for (const Number& n : v) sum += convert(const_cast<DecimalRecord*>(&n.record));
    benchmark::DoNotOptimize(sum);
  }
  *total = sum;
  per_value(s);
}

template <int kSet>
void ours_double(benchmark::State& s) {
  auto convert = [](DecimalRecord* r) {
    DecimalMode mode{FPR_NEAREST, 1, 0};
    double x;
    unsigned e;
    decimal_to_double(&x, &mode, r, &e);
    return x;
  };
  ours(s, set<kSet>(), convert, &sums[2 * kSet]);
}

// Reads every value of `v` with `read` and checks the sum against ours.
template <class T, class Read>
void peer(benchmark::State& s, const std::vector<Number>& v, Read read, T expected,
          const char* name) {
  T sum = 0;
  for (auto _ : s) {
    sum = 0;
    for (const Number& n : v) sum += read(n.text);
    benchmark::DoNotOptimize(sum);
  }
  if (sum != expected) {
    fprintf(stderr, "decimal_input: %s read other values\n", name);
    exit(1);
  }
  per_value(s);
}

template <int kSet>
void from_chars_double(benchmark::State& s) {
  auto read = [](const std::string& t) {
    double x;
    std::from_chars(t.data(), t.data() + t.size(), x);
    return x;
  };
  peer(s, set<kSet>(), read, sums[2 * kSet], "from_chars");
}

template <int kSet>
void strtod_double(benchmark::State& s) {
  auto read = [](const std::string& t) { return strtod(t.c_str(), nullptr); };
  peer(s, set<kSet>(), read, sums[2 * kSet], "strtod");
}

__float128 quad_sum;

void ours_quad(benchmark::State& s) {
  auto convert = [](DecimalRecord* r) {
    DecimalMode mode{FPR_NEAREST, 1, 0};
    __float128 x;
    unsigned e;
    x86_decimal_to_quadruple(reinterpret_cast<uint32_t*>(&x), &mode, r, &e);
    return x;
  };
  ours(s, quad34(), convert, &quad_sum);
}

void strtoflt128_quad(benchmark::State& s) {
  auto read = [](const std::string& t) { return strtoflt128(t.c_str(), nullptr); };
  peer(s, quad34(), read, quad_sum, "strtoflt128");
}

BENCHMARK(ours_double<0>)->Name("BM_Double17/ours");
BENCHMARK(from_chars_double<0>)->Name("BM_Double17/from_chars");
BENCHMARK(strtod_double<0>)->Name("BM_Double17/strtod");
BENCHMARK(ours_double<1>)->Name("BM_DoubleShort/ours");
BENCHMARK(from_chars_double<1>)->Name("BM_DoubleShort/from_chars");
BENCHMARK(strtod_double<1>)->Name("BM_DoubleShort/strtod");
BENCHMARK(ours_quad)->Name("BM_Quad34/ours");
BENCHMARK(strtoflt128_quad)->Name("BM_Quad34/strtoflt128");

}  // namespace

BENCHMARK_MAIN();
