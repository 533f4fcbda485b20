// Random differential tests: every result of the _Q routines must equal,
// bit for bit, what the compiler's __float128 arithmetic gives in the same
// rounding direction.  NaN results need only be NaNs on both sides (which
// NaN is checked by the hand-written cases).  The operands are drawn to
// reach every path: exponents equal, close, around the sticky limit and far
// apart; carries out of the top; total and partial cancellation; subnormal
// operands and results; products and quotients that land in the subnormal
// range, round to the smallest subnormal or to zero, or overflow.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "quad_values.h"

namespace qal::test {
namespace {

// Operations per operation and direction; a sanitised build runs a
// twentieth of them.
constexpr int kCount = QAL_SANITIZED ? 50000 : 1000000;

constexpr int32_t kBias = 16383;
constexpr int32_t kMaxField = 0x7ffe;

class Operands {
 public:
  explicit Operands(uint64_t seed) : rng_(seed) {}

  uint64_t bits() { return rng_(); }
  int below(int n) { return int(rng_() % uint64_t(n)); }
  int32_t between(int32_t lo, int32_t hi) { return lo + int32_t(rng_() % uint64_t(hi - lo + 1)); }

  // 112 fraction bits of a few shapes: random, all ones, a single bit, a
  // random top with a zero tail, a random tail under a zero top, zero.
  u128 fraction() {
    const u128 mask = (u128{1} << 112) - 1;
    const u128 random = ((u128{bits()} << 64) | bits()) & mask;
    switch (below(8)) {
      case 0:
        return mask;
      case 1:
        return u128{1} << below(112);
      case 2:
        return random & ~((u128{1} << below(112)) - 1);
      case 3:
        return random & ((u128{1} << below(112)) - 1);
      case 4:
        return 0;
      default:
        return random;
    }
  }

  // A biased exponent field: near 1, the subnormal field, near the top,
  // near the bias, or anywhere.
  int32_t field() {
    switch (below(8)) {
      case 0:
        return 0;
      case 1:
        return between(1, 4);
      case 2:
        return between(kMaxField - 3, kMaxField);
      case 3:
        return between(kBias - 130, kBias + 130);
      default:
        return between(1, kMaxField);
    }
  }

  QuadImage make(int32_t field, u128 fraction, bool negative) {
    field = std::clamp(field, 0, kMaxField);
    return image((u128{negative} << 127) | (u128(uint32_t(field)) << 112) | fraction);
  }

  QuadImage any() {
    // Now and then an infinity, a NaN or a zero.
    switch (below(64)) {
      case 0:
        return make(0, 0, below(2));
      case 1:
        return image((u128(0x7fff | (below(2) << 15)) << 112));
      case 2:
        return image((u128{0x7fff} << 112) | (fraction() | 1));
      default:
        return make(field(), fraction(), below(2));
    }
  }

  // An addend for a: an unrelated value, or one whose exponent is close to
  // a's (cancellation, carries), near the sticky limit of about 114, or the
  // same magnitude with low bits changed.
  QuadImage addend(const QuadImage& a) {
    const u128 ab = bits_of(a);
    const int32_t fa = int32_t(ab >> 112) & 0x7fff;
    const u128 frac_a = ab & ((u128{1} << 112) - 1);
    const bool sign = below(2);
    switch (below(10)) {
      case 0:
        return any();
      case 1:
        return make(fa, frac_a, sign);
      case 2:
        return make(fa, frac_a ^ (u128(bits()) >> below(64)), sign);
      case 3:
        return make(fa - 1, frac_a ^ (u128{bits()} << 48), sign);
      case 4:
        return make(fa + between(-118, 118), fraction(), sign);
      case 5:
        return make(fa - between(110, 118), fraction(), sign);
      case 6:
        return make(fa + between(-3, 3), ~frac_a & ((u128{1} << 112) - 1), sign);
      default:
        return make(fa + between(-3, 3), fraction(), sign);
    }
  }

  // A second factor or divisor for a, chosen so that the result's exponent
  // lands where asked: anywhere, just below or in the subnormal range, at
  // or beyond the smallest subnormal, or at the top of the range.
  QuadImage partner(const QuadImage& a, bool divisor) {
    const int32_t fa = int32_t(bits_of(a) >> 112) & 0x7fff;
    int32_t target;
    switch (below(8)) {
      case 0:
        return any();
      case 1:
        target = between(-3, 3);
        break;
      case 2:
        target = between(-118, -105);
        break;
      case 3:
        target = between(-113, 1);
        break;
      case 4:
        target = between(kMaxField - 2, kMaxField + 2);
        break;
      default:
        target = between(1, kMaxField);
        break;
    }
    const int32_t fb = divisor ? fa - target + kBias : target - fa + kBias;
    return make(fb, fraction(), below(2));
  }

 private:
  std::mt19937_64 rng_;
};

enum class Op { kAdd, kSub, kMul, kDiv };

struct OpCase {
  Op op;
  const char* name;
  Binary ours;
};

const OpCase kOps[] = {{Op::kAdd, "add", _Qadd},
                       {Op::kSub, "sub", _Qsub},
                       {Op::kMul, "mul", _Qmul},
                       {Op::kDiv, "div", _Qdiv}};

void PrintTo(const OpCase& c, std::ostream* os) { *os << c.name; }

Quad peer(Op op, Quad a, Quad b) {
  switch (op) {
    case Op::kAdd:
      return a + b;
    case Op::kSub:
      return a - b;
    case Op::kMul:
      return a * b;
    default:
      return a / b;
  }
}

class QuadDifferential : public ::testing::TestWithParam<std::tuple<OpCase, int>> {};

TEST_P(QuadDifferential, MatchesFloat128BitForBit) {
  const auto& [op, direction] = GetParam();
  Operands gen(0x9e3779b97f4a7c15ull * (uint64_t(op.op) + 1) + uint64_t(direction));
  Direction scope(direction);
  int failures = 0;
  for (int i = 0; i < kCount && failures < 10; ++i) {
    const QuadImage a = gen.any();
    const QuadImage b =
        op.op == Op::kAdd || op.op == Op::kSub ? gen.addend(a) : gen.partner(a, op.op == Op::kDiv);
    const QuadImage ours = apply(op.ours, a, b);
    const QuadImage want = image(peer(op.op, value_of(a), value_of(b)));
    const bool ok = is_nan(want) ? is_nan(ours) : same(ours, want);
    if (!ok) {
      ++failures;
      ADD_FAILURE() << op.name << " in direction " << direction_name(direction) << "\n  a    "
                    << hex(a) << "\n  b    " << hex(b) << "\n  ours " << hex(ours) << "\n  want "
                    << hex(want);
    }
  }
}

std::string direction_tag(int direction) {
  switch (direction) {
    case FE_TONEAREST:
      return "Nearest";
    case FE_DOWNWARD:
      return "Down";
    case FE_UPWARD:
      return "Up";
    default:
      return "TowardZero";
  }
}

std::string op_case_name(const ::testing::TestParamInfo<std::tuple<OpCase, int>>& info) {
  return std::string(std::get<0>(info.param).name) + direction_tag(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(AllDirections, QuadDifferential,
                         ::testing::Combine(::testing::ValuesIn(kOps),
                                            ::testing::ValuesIn(kDirections)),
                         op_case_name);

// Narrowing, widening and the integer conversions beside the compiler's
// casts; the integer casts only where C defines them.
class QuadConversionDifferential : public ::testing::TestWithParam<int> {};

TEST_P(QuadConversionDifferential, MatchesCompilerCasts) {
  const int direction = GetParam();
  Operands gen(0x243f6a8885a308d3ull + uint64_t(direction));
  Direction scope(direction);
  int failures = 0;
  for (int i = 0; i < kCount / 4 && failures < 10; ++i) {
    // Exponents around the double range's two ends and the integers'.
    int32_t field;
    switch (gen.below(5)) {
      case 0:
        field = gen.between(kBias - 1022 - 60, kBias - 1022 + 2);
        break;
      case 1:
        field = gen.between(kBias + 1020, kBias + 1025);
        break;
      case 2:
        field = gen.between(kBias - 2, kBias + 66);
        break;
      default:
        field = gen.field();
        break;
    }
    const QuadImage q = gen.make(field, gen.fraction(), gen.below(2));
    const Quad v = value_of(q);
    const double ours = _Qqtod(&q), want = double(v);
    if (!(want != want ? ours != ours
                       : std::bit_cast<uint64_t>(ours) == std::bit_cast<uint64_t>(want))) {
      ++failures;
      ADD_FAILURE() << "qtod " << hex(q) << " in " << direction_name(direction) << ": " << ours
                    << " want " << want;
    }
    if (v > -2147483649.0Q && v < 2147483648.0Q) {
      EXPECT_EQ(_Qqtoi(&q), int32_t(v)) << hex(q);
    }
    if (v > -9223372036854775809.0Q && v < 9223372036854775808.0Q) {
      EXPECT_EQ(_Qqtoll(&q), int64_t(v)) << hex(q);
    }
    if (v > -1.0Q && v < 18446744073709551616.0Q) {
      EXPECT_EQ(_Qqtoull(&q), uint64_t(v)) << hex(q);
    }

    const double d = std::bit_cast<double>(gen.bits() >> gen.below(12));
    QuadImage wide;
    _Qdtoq(&wide, &d);
    if (d == d) {
      EXPECT_TRUE(same(wide, image(Quad(d)))) << d;
    }
    const int64_t n = int64_t(gen.bits()) >> gen.below(64);
    _Qlltoq(&wide, &n);
    EXPECT_TRUE(same(wide, image(Quad(n)))) << n;
    const uint64_t u = gen.bits() >> gen.below(64);
    _Qulltoq(&wide, &u);
    EXPECT_TRUE(same(wide, image(Quad(u)))) << u;
    const int32_t k = int32_t(n);
    _Qitoq(&wide, &k);
    EXPECT_TRUE(same(wide, image(Quad(k)))) << k;
    if (HasFailure()) break;
  }
}

std::string direction_case_name(const ::testing::TestParamInfo<int>& info) {
  return direction_tag(info.param);
}

INSTANTIATE_TEST_SUITE_P(AllDirections, QuadConversionDifferential,
                         ::testing::ValuesIn(kDirections), direction_case_name);

// The six relations beside the compiler's, NaNs and signed zeros included.
TEST(QuadCompareDifferential, MatchesCompilerRelations) {
  Operands gen(7);
  for (int i = 0; i < kCount / 4; ++i) {
    const QuadImage a = gen.any();
    const QuadImage b = gen.below(4) == 0 ? a : gen.addend(a);
    const Quad x = value_of(a), y = value_of(b);
    ASSERT_EQ(_Qeq(&a, &b), x == y) << hex(a) << " " << hex(b);
    ASSERT_EQ(_Qne(&a, &b), x != y) << hex(a) << " " << hex(b);
    ASSERT_EQ(_Qlt(&a, &b), x < y) << hex(a) << " " << hex(b);
    ASSERT_EQ(_Qle(&a, &b), x <= y) << hex(a) << " " << hex(b);
    ASSERT_EQ(_Qgt(&a, &b), x > y) << hex(a) << " " << hex(b);
    ASSERT_EQ(_Qge(&a, &b), x >= y) << hex(a) << " " << hex(b);
  }
}

}  // namespace
}  // namespace qal::test
