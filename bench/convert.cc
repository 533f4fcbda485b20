// Binary to decimal conversion beside its peers, in one run:
//
//   BM_DoubleToDecimal/n   double_to_decimal, n significant digits, nearest
//   BM_SnprintfE/n         glibc snprintf("%.*e") for the same digits
//   BM_QuadToDecimal       x86_quadruple_to_decimal, 34 digits
//   BM_QuadmathSnprintf    libquadmath quadmath_snprintf("%.33Qe")
//   BM_ShortestDigits      __f_cvt_real on doubles
//   BM_ToCharsShortest     std::to_chars(double), shortest form
//
// Each iteration converts the same 1024 values; per_value is the time of
// one.  The values are 10**u for u uniform in [-30, 30], with full random
// significands, and half of them negative: the magnitudes a program prints,
// not random bit patterns (whose exponents are mostly far beyond them).
// Our entries store digits only; the peers also lay out text, which the
// caller of ours does afterwards.
#include <benchmark/benchmark.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <bit>
#include <charconv>
#include <random>
#include <vector>

extern "C" {
#include <quadmath.h>
}

#include "qal/convert.h"

namespace {

using namespace qal;

constexpr int kValues = 1024;

const std::vector<double>& doubles() {
  static const std::vector<double> v = [] {
    std::mt19937_64 rng(2024);
    std::uniform_real_distribution<double> u(-30, 30);
    std::vector<double> out(kValues);
    for (double& x : out) {
      const double m = pow(10.0, u(rng));
      // A full 53-bit significand at that magnitude.
      x = std::bit_cast<double>((std::bit_cast<uint64_t>(m) & ~((uint64_t{1} << 52) - 1)) |
                                (rng() >> 12));
      if (rng() & 1) x = -x;
    }
    return out;
  }();
  return v;
}

const std::vector<__float128>& quads() {
  static const std::vector<__float128> v = [] {
    std::mt19937_64 rng(2025);
    std::vector<__float128> out(kValues);
    const std::vector<double>& d = doubles();
    for (int i = 0; i < kValues; ++i) {
      // Fill the 60 significand bits a double lacks.
      const __float128 low = static_cast<__float128>(rng() >> 4) / 0x1p113Q;
      out[i] = static_cast<__float128>(d[i]) * (1 + low);
    }
    return out;
  }();
  return v;
}

void per_value(benchmark::State& state) {
  state.counters["per_value"] = benchmark::Counter(
      kValues, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_DoubleToDecimal(benchmark::State& state) {
  DecimalMode mode = {FPR_NEAREST, DECIMAL_FLOATING, static_cast<int32_t>(state.range(0))};
  DecimalRecord rec;
  unsigned ex;
  const std::vector<double>& v = doubles();
  for (auto _ : state) {
    for (const double& x : v) {
      double_to_decimal(&x, &mode, &rec, &ex);
      benchmark::DoNotOptimize(rec.digits[0]);
    }
  }
  per_value(state);
}
BENCHMARK(BM_DoubleToDecimal)->DenseRange(1, 17);

void BM_SnprintfE(benchmark::State& state) {
  const int precision = static_cast<int>(state.range(0)) - 1;
  char buf[64];
  const std::vector<double>& v = doubles();
  for (auto _ : state) {
    for (const double x : v) {
      snprintf(buf, sizeof buf, "%.*e", precision, x);
      benchmark::DoNotOptimize(buf[0]);
    }
  }
  per_value(state);
}
BENCHMARK(BM_SnprintfE)->DenseRange(1, 17);

void BM_QuadToDecimal(benchmark::State& state) {
  DecimalMode mode = {FPR_NEAREST, DECIMAL_FLOATING, 34};
  DecimalRecord rec;
  unsigned ex;
  const std::vector<__float128>& v = quads();
  for (auto _ : state) {
    for (const __float128& q : v) {
      x86_quadruple_to_decimal(reinterpret_cast<const uint32_t*>(&q), &mode, &rec, &ex);
      benchmark::DoNotOptimize(rec.digits[0]);
    }
  }
  per_value(state);
}
BENCHMARK(BM_QuadToDecimal);

void BM_QuadmathSnprintf(benchmark::State& state) {
  char buf[64];
  const std::vector<__float128>& v = quads();
  for (auto _ : state) {
    for (const __float128 q : v) {
      quadmath_snprintf(buf, sizeof buf, "%.33Qe", q);
      benchmark::DoNotOptimize(buf[0]);
    }
  }
  per_value(state);
}
BENCHMARK(BM_QuadmathSnprintf);

void BM_ShortestDigits(benchmark::State& state) {
  // The significand as list-directed output hands it over: 16-bit words
  // with the hidden bit, and the power of two of its last bit.
  struct Operand {
    uint16_t mant[4];
    int e2;
  };
  std::vector<Operand> ops;
  for (const double x : doubles()) {
    const uint64_t b = std::bit_cast<uint64_t>(x);
    const uint64_t m = (b & ((uint64_t{1} << 52) - 1)) | uint64_t{1} << 52;
    Operand o;
    for (int i = 0; i < 4; ++i) o.mant[i] = static_cast<uint16_t>(m >> (16 * i));
    o.e2 = static_cast<int>((b >> 52) & 0x7ff) - 1075;
    ops.push_back(o);
  }
  char digits[40];
  int n, k;
  for (auto _ : state) {
    for (const Operand& o : ops) {
      __f_cvt_real(o.mant, 53, o.e2, 0, digits, &n, &k);
      benchmark::DoNotOptimize(digits[0]);
    }
  }
  per_value(state);
}
BENCHMARK(BM_ShortestDigits);

void BM_ToCharsShortest(benchmark::State& state) {
  char buf[64];
  const std::vector<double>& v = doubles();
  for (auto _ : state) {
    for (const double x : v) {
      benchmark::DoNotOptimize(std::to_chars(buf, buf + sizeof buf, x).ptr);
    }
  }
  per_value(state);
}
BENCHMARK(BM_ToCharsShortest);

}  // namespace

BENCHMARK_MAIN();
