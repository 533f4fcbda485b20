// Hand-written cases of the binary128 routines: what the random comparison
// with __float128 cannot decide (which NaN comes back, which flags are
// raised) and the corners worth naming one by one.
#include <fenv.h>
#include <float.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdint.h>

#include <bit>
#include <functional>
#include <limits>

#include "quad_values.h"

namespace qal::test {
namespace {

// Images, words most significant first.
const QuadImage kZero = words(0), kNegZero = words(0x80000000);
const QuadImage kOne = words(0x3fff0000), kNegOne = words(0xbfff0000);
const QuadImage kTwo = words(0x40000000), kHalf = words(0x3ffe0000);
const QuadImage kThree = words(0x40008000);
const QuadImage kOneUlpAbove = words(0x3fff0000, 0, 0, 1);  // 1 + 2**-112
const QuadImage kTiny114 = words(0x3f8d0000);               // 2**-114
const QuadImage kMax = words(0x7ffeffff, ~0u, ~0u, ~0u);
const QuadImage kNegMax = words(0xfffeffff, ~0u, ~0u, ~0u);
const QuadImage kInf = words(0x7fff0000), kNegInf = words(0xffff0000);
const QuadImage kMinNormal = words(0x00010000);
const QuadImage kMinSub = words(0, 0, 0, 1), kNegMinSub = words(0x80000000, 0, 0, 1);
const QuadImage kDefaultNaN = words(0x7fffffff, ~0u, ~0u, ~0u);
// NaNs with payloads to tell them apart; "S" ones are signaling.
const QuadImage kQNanA = words(0x7fff8000, 0, 0, 0xa), kQNanB = words(0xffff8000, 0, 0, 0xb);
const QuadImage kSNanA = words(0x7fff0000, 0, 0, 0xa), kSNanB = words(0xffff0000, 0, 0, 0xb);
const QuadImage kQuietedA = words(0x7fff8000, 0, 0, 0xa), kQuietedB = words(0xffff8000, 0, 0, 0xb);

QuadImage neg(QuadImage q) {
  q.word[3] ^= 0x80000000u;
  return q;
}

struct NamedOp {
  const char* name;
  Binary op;
};
// One operation on two operands, described for the failure message.
struct Row {
  const char* what;
  Binary op;
  QuadImage a, b;
};

const NamedOp kAllOps[] = {{"add", _Qadd}, {"sub", _Qsub}, {"mul", _Qmul}, {"div", _Qdiv}};

#define EXPECT_IMAGE(got, want) EXPECT_PRED_FORMAT2(image_eq, got, want)

::testing::AssertionResult image_eq(const char* got_expr, const char*, const QuadImage& got,
                                    const QuadImage& want) {
  if (same(got, want)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << got_expr << " is " << hex(got) << ", expected " << hex(want);
}

// The edge cases that come with the routines' description.
TEST(QuadEdgeCases, OnePlusTwoToMinus114) {
  {
    Direction d(FE_TONEAREST);
    EXPECT_IMAGE(apply(_Qadd, kOne, kTiny114), kOne);
  }
  {
    Direction d(FE_UPWARD);
    EXPECT_IMAGE(apply(_Qadd, kOne, kTiny114), kOneUlpAbove);
  }
  {
    Direction d(FE_DOWNWARD);
    EXPECT_IMAGE(apply(_Qadd, kOne, kTiny114), kOne);
  }
}

TEST(QuadEdgeCases, SmallestSubnormalPlusZeroIsUnchanged) {
  for (int direction : kDirections) {
    Direction d(direction);
    SCOPED_TRACE(direction_name(direction));
    EXPECT_IMAGE(apply(_Qadd, kMinSub, kZero), kMinSub);
    EXPECT_IMAGE(apply(_Qadd, kZero, kMinSub), kMinSub);
    EXPECT_IMAGE(apply(_Qadd, kNegMinSub, kNegZero), kNegMinSub);
    EXPECT_IMAGE(apply(_Qsub, kMinSub, kNegZero), kMinSub);
  }
}

// Exact zero results: +0 in every direction but down, -0 there.
TEST(QuadSignedZero, DifferencesOfEqualValues) {
  const Row rows[] = {{"x - x", _Qsub, kThree, kThree},
                      {"x + (-x)", _Qadd, kThree, neg(kThree)},
                      {"(-x) - (-x)", _Qsub, neg(kThree), neg(kThree)},
                      {"+0 + -0", _Qadd, kZero, kNegZero},
                      {"-0 + +0", _Qadd, kNegZero, kZero},
                      {"+0 - +0", _Qsub, kZero, kZero},
                      {"sub - sub", _Qsub, kMinSub, kMinSub}};
  for (const Row& r : rows) {
    for (int direction : kDirections) {
      Direction d(direction);
      EXPECT_IMAGE(apply(r.op, r.a, r.b), direction == FE_DOWNWARD ? kNegZero : kZero)
          << r.what << " in " << direction_name(direction);
    }
  }
}

TEST(QuadSignedZero, ZeroOperandsKeepTheirSigns) {
  struct Row {
    Binary op;
    QuadImage a, b, want;
  };
  const Row rows[] = {
      {_Qadd, kNegZero, kNegZero, kNegZero}, {_Qsub, kNegZero, kZero, kNegZero},
      {_Qsub, kZero, kNegZero, kZero},       {_Qmul, kZero, kNegOne, kNegZero},
      {_Qmul, kNegZero, kNegOne, kZero},     {_Qdiv, kNegZero, kThree, kNegZero},
      {_Qdiv, kThree, kNegInf, kNegZero},    {_Qdiv, neg(kThree), kNegInf, kZero},
      {_Qmul, kMinSub, kNegZero, kNegZero},
  };
  for (int direction : kDirections) {
    Direction d(direction);
    for (const Row& r : rows) {
      EXPECT_IMAGE(apply(r.op, r.a, r.b), r.want)
          << hex(r.a) << " and " << hex(r.b) << " in " << direction_name(direction);
    }
  }
}

// Of two NaNs the quiet one wins, and of two of one kind the first; the
// result is always quiet, and keeps its sign and payload.
TEST(QuadNaN, PayloadOfTwoNaNs) {
  struct Row {
    QuadImage a, b, want;
  };
  const Row rows[] = {
      {kQNanA, kQNanB, kQNanA}, {kQNanB, kQNanA, kQNanB},           {kSNanA, kQNanB, kQNanB},
      {kQNanA, kSNanB, kQNanA}, {kSNanA, kSNanB, kQuietedA},        {kSNanB, kSNanA, kQuietedB},
      {kSNanB, kQNanA, kQNanA}, {kDefaultNaN, kQNanB, kDefaultNaN},
  };
  for (const NamedOp& op : kAllOps) {
    for (const Row& r : rows) {
      EXPECT_IMAGE(apply(op.op, r.a, r.b), r.want)
          << op.name << " of " << hex(r.a) << " and " << hex(r.b);
    }
  }
}

TEST(QuadNaN, OneNaNIsReturnedQuieted) {
  const QuadImage others[] = {kZero, kNegOne, kMinSub, kMax, kInf, kNegInf};
  for (const NamedOp& op : kAllOps) {
    for (const QuadImage& x : others) {
      EXPECT_IMAGE(apply(op.op, kSNanA, x), kQuietedA) << op.name << " " << hex(x);
      EXPECT_IMAGE(apply(op.op, x, kSNanB), kQuietedB) << op.name << " " << hex(x);
      EXPECT_IMAGE(apply(op.op, kQNanB, x), kQNanB) << op.name << " " << hex(x);
      // A subtrahend NaN comes back as stored, its sign not flipped.
      EXPECT_IMAGE(apply(op.op, x, kQNanA), kQNanA) << op.name << " " << hex(x);
    }
  }
}

TEST(QuadNaN, NegationFlipsEverySign) {
  const QuadImage values[] = {kZero, kOne, kInf, kMinSub, kQNanA, kSNanB, kDefaultNaN};
  for (const QuadImage& x : values) {
    QuadImage r;
    _Qneg(&r, &x);
    EXPECT_IMAGE(r, neg(x));
  }
}

TEST(QuadNaN, InvalidOperationsGiveTheDefaultNaN) {
  const Row rows[] = {
      {"inf + -inf", _Qadd, kInf, kNegInf},    {"-inf + inf", _Qadd, kNegInf, kInf},
      {"inf - inf", _Qsub, kInf, kInf},        {"-inf - -inf", _Qsub, kNegInf, kNegInf},
      {"0 * inf", _Qmul, kZero, kInf},         {"-inf * 0", _Qmul, kNegInf, kZero},
      {"-0 * -inf", _Qmul, kNegZero, kNegInf}, {"0 / 0", _Qdiv, kZero, kNegZero},
      {"inf / -inf", _Qdiv, kInf, kNegInf},    {"-inf / -inf", _Qdiv, kNegInf, kNegInf},
  };
  for (const Row& r : rows) EXPECT_IMAGE(apply(r.op, r.a, r.b), kDefaultNaN) << r.what;
}

TEST(QuadInfinity, InfinitiesThatAreNotInvalid) {
  struct Row {
    const char* what;
    Binary op;
    QuadImage a, b, want;
  };
  const Row rows[] = {
      {"inf + inf", _Qadd, kInf, kInf, kInf},
      {"-inf + -inf", _Qadd, kNegInf, kNegInf, kNegInf},
      {"inf - -inf", _Qsub, kInf, kNegInf, kInf},
      {"1 - inf", _Qsub, kOne, kInf, kNegInf},
      {"max + -inf", _Qadd, kMax, kNegInf, kNegInf},
      {"-inf * -2", _Qmul, kNegInf, neg(kTwo), kInf},
      {"min subnormal * inf", _Qmul, kMinSub, kInf, kInf},
      {"inf / -3", _Qdiv, kInf, neg(kThree), kNegInf},
      {"1 / +0", _Qdiv, kOne, kZero, kInf},
      {"-1 / +0", _Qdiv, kNegOne, kZero, kNegInf},
      {"1 / -0", _Qdiv, kOne, kNegZero, kNegInf},
      {"-1 / -0", _Qdiv, kNegOne, kNegZero, kInf},
      {"inf / 0", _Qdiv, kInf, kZero, kInf},
  };
  for (const Row& r : rows) EXPECT_IMAGE(apply(r.op, r.a, r.b), r.want) << r.what;
}

// Overflow gives an infinity in nearest and in the direction away from
// zero, and the largest finite number in the two others.
TEST(QuadOverflow, InfinityOrLargestFiniteByDirection) {
  const Row rows[] = {{"max + max", _Qadd, kMax, kMax},
                      {"max - -max", _Qsub, kMax, kNegMax},
                      {"max * 2", _Qmul, kMax, kTwo},
                      {"max / 0.5", _Qdiv, kMax, kHalf}};
  for (const Row& r : rows) {
    for (int sign = 0; sign < 2; ++sign) {
      // The negative twin: both operands of the sum negated, one factor.
      const QuadImage a = sign ? neg(r.a) : r.a;
      const QuadImage b = sign && (r.op == _Qadd || r.op == _Qsub) ? neg(r.b) : r.b;
      const QuadImage inf = sign ? kNegInf : kInf, max = sign ? kNegMax : kMax;
      for (int direction : kDirections) {
        Direction d(direction);
        const bool away =
            direction == FE_TONEAREST || direction == (sign ? FE_DOWNWARD : FE_UPWARD);
        EXPECT_IMAGE(apply(r.op, a, b), away ? inf : max)
            << (sign ? "-" : "") << r.what << " in " << direction_name(direction);
      }
    }
  }
}

// Results below the subnormal range: zero, or the smallest subnormal when
// rounding goes away from zero or the value is past half of it.
TEST(QuadUnderflow, SmallestSubnormalOrZero) {
  const QuadImage kThreeQuarters = words(0x3ffe8000);
  struct Row {
    const char* what;
    Binary op;
    QuadImage a, b;
    QuadImage nearest, down, up, toward_zero;
  };
  const Row rows[] = {
      {"min sub * 0.5 (a tie)", _Qmul, kMinSub, kHalf, kZero, kZero, kMinSub, kZero},
      {"min sub * 0.75", _Qmul, kMinSub, kThreeQuarters, kMinSub, kZero, kMinSub, kZero},
      {"-min sub / 2", _Qdiv, kNegMinSub, kTwo, kNegZero, kNegMinSub, kNegZero, kNegZero},
      {"min sub * min sub", _Qmul, kMinSub, kMinSub, kZero, kZero, kMinSub, kZero},
      {"min sub / max", _Qdiv, kMinSub, kMax, kZero, kZero, kMinSub, kZero},
      {"min normal * 0.5 (exact)", _Qmul, kMinNormal, kHalf, words(0x00008000), words(0x00008000),
       words(0x00008000), words(0x00008000)},
  };
  const int directions[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
  for (const Row& r : rows) {
    const QuadImage wants[] = {r.nearest, r.down, r.up, r.toward_zero};
    for (int i = 0; i < 4; ++i) {
      Direction d(directions[i]);
      EXPECT_IMAGE(apply(r.op, r.a, r.b), wants[i])
          << r.what << " in " << direction_name(directions[i]);
    }
  }
}

// The exception flags: only the underflow of _Qmul, _Qdiv and _Qqtod
// raises anything (underflow and inexact), and flags already raised stay.
TEST(QuadFlags, OnlyTheUnderflowPathsRaise) {
  const QuadImage kThird = words(0x3ffd5555, 0x55555555, 0x55555555, 0x55555555);
  const QuadImage kHuge = words(0x7ff00000);
  const QuadImage kDoubleTiny = words(0x3bc00000);  // 2**-1087
  struct Row {
    const char* what;
    std::function<void()> run;
    int flags;
  };
  QuadImage r;
  const Row rows[] = {
      {"inexact add", [&] { r = apply(_Qadd, kOne, kTiny114); }, 0},
      {"overflowing add", [&] { r = apply(_Qadd, kMax, kMax); }, 0},
      {"inf - inf", [&] { r = apply(_Qsub, kInf, kInf); }, 0},
      {"signaling NaN sum", [&] { r = apply(_Qadd, kSNanA, kOne); }, 0},
      {"inexact product", [&] { r = apply(_Qmul, kThird, kThird); }, 0},
      {"overflowing product", [&] { r = apply(_Qmul, kMax, kThree); }, 0},
      {"0 * inf", [&] { r = apply(_Qmul, kZero, kInf); }, 0},
      {"exact subnormal product", [&] { r = apply(_Qmul, kMinNormal, kHalf); }, 0},
      {"underflowing product", [&] { r = apply(_Qmul, kMinSub, kThird); },
       FE_UNDERFLOW | FE_INEXACT},
      {"product rounding to zero", [&] { r = apply(_Qmul, kMinSub, kMinSub); },
       FE_UNDERFLOW | FE_INEXACT},
      {"inexact quotient", [&] { r = apply(_Qdiv, kOne, kThree); }, 0},
      {"1 / 0", [&] { r = apply(_Qdiv, kOne, kZero); }, 0},
      {"0 / 0", [&] { r = apply(_Qdiv, kZero, kZero); }, 0},
      {"underflowing quotient", [&] { r = apply(_Qdiv, kMinNormal, kThree); },
       FE_UNDERFLOW | FE_INEXACT},
      {"inexact narrowing", [&] { (void)_Qqtod(&kThird); }, 0},
      {"overflowing narrowing", [&] { (void)_Qqtod(&kHuge); }, 0},
      {"signaling NaN narrowing", [&] { (void)_Qqtod(&kSNanA); }, 0},
      {"underflowing narrowing", [&] { (void)_Qqtod(&kDoubleTiny); }, FE_UNDERFLOW | FE_INEXACT},
      {"comparison with a signaling NaN", [&] { (void)_Qlt(&kSNanA, &kOne); }, 0},
      {"out-of-range integer", [&] { (void)_Qqtoi(&kHuge); }, 0},
      {"inexact integer", [&] { (void)_Qqtoll(&kThird); }, 0},
  };
  for (int direction : kDirections) {
    Direction d(direction);
    for (const Row& row : rows) {
      feclearexcept(FE_ALL_EXCEPT);
      row.run();
      EXPECT_EQ(fetestexcept(FE_ALL_EXCEPT), row.flags)
          << row.what << " in " << direction_name(direction);
      // Flags raised before stay raised.
      feclearexcept(FE_ALL_EXCEPT);
      feraiseexcept(FE_DIVBYZERO);
      row.run();
      EXPECT_EQ(fetestexcept(FE_ALL_EXCEPT), row.flags | FE_DIVBYZERO) << row.what;
    }
  }
  feclearexcept(FE_ALL_EXCEPT);
}

// __mul_set and __div_set report whether their one operation raised a flag,
// and add its flags to those already raised.
TEST(QuadFlags, MulSetAndDivSet) {
  struct Row {
    const char* what;
    double (*op)(int*, double, double);
    double a, b, want;
    int status, flags;
  };
  const double inf = std::numeric_limits<double>::infinity();
  const double kMinPlus = std::bit_cast<double>(0x0010000000000001ull);
  const Row rows[] = {
      {"2 * 3", __mul_set, 2.0, 3.0, 6.0, 0, 0},
      {"0.1 * 3", __mul_set, 0.1, 3.0, 0.1 * 3.0, 1, FE_INEXACT},
      {"max * 2", __mul_set, DBL_MAX, 2.0, inf, 1, FE_OVERFLOW | FE_INEXACT},
      {"(min + 1 unit) / 2", __mul_set, kMinPlus, 0.5, kMinPlus * 0.5, 1,
       FE_UNDERFLOW | FE_INEXACT},
      {"0 * inf", __mul_set, 0.0, inf, 0.0, 1, FE_INVALID},
      {"6 / 3", __div_set, 6.0, 3.0, 2.0, 0, 0},
      {"1 / 3", __div_set, 1.0, 3.0, 1.0 / 3.0, 1, FE_INEXACT},
      {"1 / 0", __div_set, 1.0, 0.0, inf, 1, FE_DIVBYZERO},
      {"0 / 0", __div_set, 0.0, 0.0, 0.0, 1, FE_INVALID},
  };
  for (const Row& r : rows) {
    for (int before : {0, FE_OVERFLOW | FE_INEXACT}) {
      feclearexcept(FE_ALL_EXCEPT);
      feraiseexcept(before);
      int status = -1;
      const double got = r.op(&status, r.a, r.b);
      EXPECT_EQ(status, r.status) << r.what;
      EXPECT_EQ(fetestexcept(FE_ALL_EXCEPT), r.flags | before) << r.what;
      if (r.want == r.want && r.flags != FE_INVALID) {
        EXPECT_EQ(got, r.want) << r.what;
      } else {
        EXPECT_NE(got, got) << r.what;
      }
    }
  }
  feclearexcept(FE_ALL_EXCEPT);
}

// With a NaN only _Qne holds; +0 and -0 are equal.
TEST(QuadCompare, NaNsAndSignedZeros) {
  struct Row {
    QuadImage a, b;
    int eq, ne, lt, le, gt, ge;
  };
  const Row rows[] = {
      {kQNanA, kOne, 0, 1, 0, 0, 0, 0},       {kOne, kSNanB, 0, 1, 0, 0, 0, 0},
      {kQNanA, kQNanA, 0, 1, 0, 0, 0, 0},     {kDefaultNaN, kInf, 0, 1, 0, 0, 0, 0},
      {kZero, kNegZero, 1, 0, 0, 1, 0, 1},    {kNegZero, kZero, 1, 0, 0, 1, 0, 1},
      {kNegMinSub, kZero, 0, 1, 1, 1, 0, 0},  {kMinSub, kNegZero, 0, 1, 0, 0, 1, 1},
      {kNegOne, kOne, 0, 1, 1, 1, 0, 0},      {neg(kThree), kNegOne, 0, 1, 1, 1, 0, 0},
      {kOneUlpAbove, kOne, 0, 1, 0, 0, 1, 1}, {kNegInf, kNegMax, 0, 1, 1, 1, 0, 0},
      {kInf, kInf, 1, 0, 0, 1, 0, 1},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(hex(r.a) + " and " + hex(r.b));
    EXPECT_EQ(_Qeq(&r.a, &r.b), r.eq);
    EXPECT_EQ(_Qne(&r.a, &r.b), r.ne);
    EXPECT_EQ(_Qlt(&r.a, &r.b), r.lt);
    EXPECT_EQ(_Qle(&r.a, &r.b), r.le);
    EXPECT_EQ(_Qgt(&r.a, &r.b), r.gt);
    EXPECT_EQ(_Qge(&r.a, &r.b), r.ge);
  }
}

TEST(QuadNarrowing, RoundingByDirection) {
  const double kAbove = 1.0 + 0x1p-52, kMinSubD = 0x1p-1074;
  struct Row {
    const char* what;
    QuadImage q;
    double nearest, down, up, toward_zero;
  };
  const Row rows[] = {
      {"1 + 2**-53 (a tie)", words(0x3fff0000, 0, 0x08000000), 1.0, 1.0, kAbove, 1.0},
      {"1 + 2**-53 + 2**-112", words(0x3fff0000, 0, 0x08000000, 1), kAbove, 1.0, kAbove, 1.0},
      {"-(1 + 2**-53 + 2**-112)", words(0xbfff0000, 0, 0x08000000, 1), -kAbove, -kAbove, -1.0,
       -1.0},
      {"2**-1075 (a tie)", words(0x3bcc0000), 0.0, 0.0, kMinSubD, 0.0},
      {"2**-1075 + a little", words(0x3bcc0000, 0, 0, 1), kMinSubD, 0.0, kMinSubD, 0.0},
      {"-2**-1080", words(0xbbc70000), -0.0, -kMinSubD, -0.0, -0.0},
      {"smallest quad subnormal", kMinSub, 0.0, 0.0, kMinSubD, 0.0},
      {"2**1024", words(0x43ff0000), HUGE_VAL, DBL_MAX, HUGE_VAL, DBL_MAX},
      {"-max quad", kNegMax, -HUGE_VAL, -HUGE_VAL, -DBL_MAX, -DBL_MAX},
      {"just below 2**1024", words(0x43feffff, ~0u, ~0u, ~0u), HUGE_VAL, DBL_MAX, HUGE_VAL,
       DBL_MAX},
      {"-0", kNegZero, -0.0, -0.0, -0.0, -0.0},
      {"inf", kInf, HUGE_VAL, HUGE_VAL, HUGE_VAL, HUGE_VAL},
  };
  const int directions[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
  for (const Row& r : rows) {
    const double wants[] = {r.nearest, r.down, r.up, r.toward_zero};
    for (int i = 0; i < 4; ++i) {
      Direction d(directions[i]);
      EXPECT_EQ(std::bit_cast<uint64_t>(_Qqtod(&r.q)), std::bit_cast<uint64_t>(wants[i]))
          << r.what << " in " << direction_name(directions[i]);
    }
  }
}

TEST(QuadNarrowing, NaNsStayNaNsAndBecomeQuiet) {
  const QuadImage payload = words(0xffff0123, 0x45670000);  // signaling
  EXPECT_EQ(std::bit_cast<uint64_t>(_Qqtod(&payload)), 0xfff8123456700000ull);
  EXPECT_EQ(std::bit_cast<uint64_t>(_Qqtod(&kQNanA)), 0x7ff8000000000000ull);
}

TEST(QuadToInteger, TruncationAndRange) {
  struct Row {
    const char* what;
    QuadImage q;
    int32_t i;
    int64_t ll;
    uint64_t ull;
  };
  const uint64_t kTop = uint64_t{1} << 63;
  const Row rows[] = {
      {"-2**31", words(0xc01e0000), INT32_MIN, -(int64_t{1} << 31), uint64_t(-(int64_t{1} << 31))},
      {"-2**31 - 0.5", words(0xc01e0000, 0x00004000), INT32_MIN, -(int64_t{1} << 31),
       uint64_t(-(int64_t{1} << 31))},
      {"2**31", words(0x401e0000), INT32_MIN, int64_t{1} << 31, uint64_t{1} << 31},
      {"2**31 - 1 + 0.75", words(0x401dffff, 0xffff0000), INT32_MAX, INT32_MAX, INT32_MAX},
      {"-2.9", words(0xc0007333, 0x33333333, 0x33333333, 0x33333333), -2, -2, uint64_t(-2)},
      {"0.999", words(0x3ffeff7c, 0xed916872, 0xb020c49b, 0xa5e353f8), 0, 0, 0},
      {"-0.5", words(0xbffe0000), 0, 0, 0},
      {"-0", kNegZero, 0, 0, 0},
      {"smallest subnormal", kMinSub, 0, 0, 0},
      {"2**63", words(0x403e0000), INT32_MIN, INT64_MIN, kTop},
      {"-2**63", words(0xc03e0000), INT32_MIN, INT64_MIN, kTop},
      {"2**63 - 1", words(0x403dffff, 0xffffffff, 0xfffc0000), INT32_MIN, INT64_MAX, INT64_MAX},
      {"2**64 - 1", words(0x403effff, 0xffffffff, 0xfffe0000), INT32_MIN, INT64_MIN, UINT64_MAX},
      {"2**64", words(0x403f0000), INT32_MIN, INT64_MIN, kTop},
      {"inf", kInf, INT32_MIN, INT64_MIN, kTop},
      {"-inf", kNegInf, INT32_MIN, INT64_MIN, kTop},
      {"NaN", kQNanA, INT32_MIN, INT64_MIN, kTop},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(_Qqtoi(&r.q), r.i) << r.what;
    EXPECT_EQ(_Qqtoll(&r.q), r.ll) << r.what;
    EXPECT_EQ(_Qqtoull(&r.q), r.ull) << r.what;
  }
}

TEST(QuadWidening, IntegersAndDoublesAreExact) {
  QuadImage r;
  const int32_t i_min = INT32_MIN, i_zero = 0, i_minus_one = -1;
  _Qitoq(&r, &i_min);
  EXPECT_IMAGE(r, words(0xc01e0000));
  _Qitoq(&r, &i_zero);
  EXPECT_IMAGE(r, kZero);
  _Qitoq(&r, &i_minus_one);
  EXPECT_IMAGE(r, kNegOne);
  const int64_t ll_min = INT64_MIN, ll_max = INT64_MAX;
  _Qlltoq(&r, &ll_min);
  EXPECT_IMAGE(r, words(0xc03e0000));
  _Qlltoq(&r, &ll_max);
  EXPECT_IMAGE(r, words(0x403dffff, 0xffffffff, 0xfffc0000));
  const uint64_t ull_max = UINT64_MAX;
  _Qulltoq(&r, &ull_max);
  EXPECT_IMAGE(r, words(0x403effff, 0xffffffff, 0xfffe0000));

  struct Row {
    double d;
    QuadImage want;
  };
  const Row rows[] = {
      {-0.0, kNegZero},
      {0x1p-1074, words(0x3bcd0000)},
      {-0x1.8p-1073, words(0xbbce8000)},
      {DBL_MAX, words(0x43feffff, 0xffffffff, 0xf0000000)},
      {-HUGE_VAL, kNegInf},
      {1.0, kOne},
      // A signaling NaN keeps its payload and stays signaling.
      {std::bit_cast<double>(0x7ff0000000000001ull), words(0x7fff0000, 0, 0x10000000)},
      {std::bit_cast<double>(0xfff8000000000000ull), words(0xffff8000)},
  };
  for (const Row& row : rows) {
    _Qdtoq(&r, &row.d);
    EXPECT_IMAGE(r, row.want) << row.d;
  }
}

// Operands and results may share storage, as compiled code passes them.
TEST(QuadStorage, ResultMayOverlapAnOperand) {
  for (const NamedOp& op : kAllOps) {
    QuadImage x = kThree;
    const QuadImage want = apply(op.op, kThree, kTwo);
    op.op(&x, &x, &kTwo);
    EXPECT_IMAGE(x, want) << op.name;
    QuadImage y = kTwo;
    op.op(&y, &kThree, &y);
    EXPECT_IMAGE(y, want) << op.name;
  }
}

}  // namespace
}  // namespace qal::test
