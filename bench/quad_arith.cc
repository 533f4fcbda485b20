// Binary128 add, subtract, multiply and divide: our _Q routines beside the
// compiler's __float128 operators (calls into libgcc's soft-float code), on
// the same operands in the same run.
//
// Independent: c[i] = a[i] op b[i] over arrays of 1024 random normal
// values, so that calls can overlap and the figure is the cost of one
// operation in a stream.  Chained: x = x op b[i], each operation waiting for
// the one before, so the figure is its latency.  The chained operands keep x
// in range: addends of either sign and size near x's, factors and divisors
// in [1/2, 2).
//
// Each benchmark reports per_op, nanoseconds per operation;
// bench/quad_run.sh runs the pairs repeatedly and prints the medians.
#include <benchmark/benchmark.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "qal/quad.h"

namespace {

using Quad = __float128;
using namespace qal;

constexpr int kN = 1024;

enum class Op { kAdd, kSub, kMul, kDiv };

QuadImage image(Quad v) {
  QuadImage q;
  memcpy(&q, &v, sizeof q);
  return q;
}

// Random normal values: a 113-bit significand of random bits, exponent
// within `spread` binary orders of 1.
Quad random_value(std::mt19937_64& rng, int spread, bool any_sign) {
  Quad v = 1.0Q + Quad(rng() >> 11) * 0x1p-53Q + Quad(rng() >> 11) * 0x1p-106Q +
           Quad(rng() >> 56) * 0x1p-114Q;
  const int e = spread ? int(rng() % uint64_t(2 * spread + 1)) - spread : 0;
  for (int i = 0; i < (e < 0 ? -e : e); ++i) v = e < 0 ? v * 0.5Q : v * 2.0Q;
  return any_sign && (rng() & 1) ? -v : v;
}

// The operands and the result of one operation side by side, so that the
// three streams never sit a multiple of 4 KiB apart (the processor would
// take a load for a read of the store before it and wait).
template <typename T>
struct Row {
  T a, b, c;
};

struct Data {
  std::vector<Row<Quad>> peer;
  std::vector<Row<QuadImage>> ours;
};

Data make_data(Op op, bool chained) {
  std::mt19937_64 rng(uint64_t(op) * 7919 + chained);
  Data d;
  for (int i = 0; i < kN; ++i) {
    Quad a = random_value(rng, 40, true), b;
    if (!chained)
      b = random_value(rng, 40, true);
    else if (op == Op::kMul || op == Op::kDiv)
      b = random_value(rng, 0, false) * ((rng() & 1) ? 0.5Q : 1.0Q);
    else
      b = random_value(rng, 2, true);
    d.peer.push_back({a, b, 0});
    d.ours.push_back({image(a), image(b), {}});
  }
  return d;
}

template <Op kOp>
inline Quad peer(Quad a, Quad b) {
  if constexpr (kOp == Op::kAdd) return a + b;
  if constexpr (kOp == Op::kSub) return a - b;
  if constexpr (kOp == Op::kMul) return a * b;
  if constexpr (kOp == Op::kDiv) return a / b;
}

template <Op kOp>
inline void ours(QuadImage* r, const QuadImage* a, const QuadImage* b) {
  if constexpr (kOp == Op::kAdd) _Qadd(r, a, b);
  if constexpr (kOp == Op::kSub) _Qsub(r, a, b);
  if constexpr (kOp == Op::kMul) _Qmul(r, a, b);
  if constexpr (kOp == Op::kDiv) _Qdiv(r, a, b);
}

void per_op(benchmark::State& state) {
  state.counters["per_op"] = benchmark::Counter(
      kN, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The two sides: our routines on images through pointers, the compiler's
// operators on values.
struct Ours {
  template <Op kOp>
  static void step(QuadImage& r, const QuadImage& a, const QuadImage& b) {
    ours<kOp>(&r, &a, &b);
  }
  static std::vector<Row<QuadImage>>& rows(Data& d) { return d.ours; }
};

struct Peer {
  template <Op kOp>
  static void step(Quad& r, const Quad& a, const Quad& b) {
    r = peer<kOp>(a, b);
  }
  static std::vector<Row<Quad>>& rows(Data& d) { return d.peer; }
};

template <Op kOp, typename Side>
void BM_Independent(benchmark::State& state) {
  Data d = make_data(kOp, false);
  auto& rows = Side::rows(d);
  for (auto _ : state) {
    for (auto& r : rows) Side::template step<kOp>(r.c, r.a, r.b);
    benchmark::DoNotOptimize(rows.data());
    benchmark::ClobberMemory();
  }
  per_op(state);
}

template <Op kOp, typename Side>
void BM_Chained(benchmark::State& state) {
  Data d = make_data(kOp, true);
  auto& rows = Side::rows(d);
  for (auto _ : state) {
    auto x = rows[0].a;
    for (const auto& r : rows) Side::template step<kOp>(x, x, r.b);
    benchmark::DoNotOptimize(x);
  }
  per_op(state);
}

// Ours and the peer one after the other, so that each pair sees the same
// machine.
template <Op kOp>
void register_op(const std::string& name) {
  benchmark::RegisterBenchmark((name + "Independent/ours").c_str(), BM_Independent<kOp, Ours>);
  benchmark::RegisterBenchmark((name + "Independent/peer").c_str(), BM_Independent<kOp, Peer>);
  benchmark::RegisterBenchmark((name + "Chained/ours").c_str(), BM_Chained<kOp, Ours>);
  benchmark::RegisterBenchmark((name + "Chained/peer").c_str(), BM_Chained<kOp, Peer>);
}

}  // namespace

int main(int argc, char** argv) {
  register_op<Op::kAdd>("Add");
  register_op<Op::kSub>("Sub");
  register_op<Op::kMul>("Mul");
  register_op<Op::kDiv>("Div");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
