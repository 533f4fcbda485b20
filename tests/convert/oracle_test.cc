// Digits of every format against glibc's printf and libquadmath, in all
// four rounding directions, through the entries and through each path on
// its own (the double fast path and the wide path where they accept the
// request, the exact path always).
#include "convert/oracle.h"

#include <gtest/gtest.h>

namespace qal::test {
namespace {

struct PathUse {
  int fast = 0, wide = 0;
};

// What each path gives for one request; each must match `want`.
void check_paths(const Unpacked& u, const DecimalMode& mode, const Digits& want, bool fast_ok,
                 double magnitude, PathUse* use, const std::string& what) {
  DecimalRecord rec;
  unsigned ex = 0;
  rec.sign = u.sign;
  _unpacked_to_decimal_two(u, &mode, &rec, &ex);
  ASSERT_EQ(record_digits(rec), want) << "exact path: " << what;
  ex = 0;
  if (wide_to_decimal(u, &mode, &rec, &ex)) {
    ++use->wide;
    ASSERT_EQ(record_digits(rec), want) << "wide path: " << what;
  }
  if (fast_ok && __k_double_to_decimal(magnitude, &mode, &rec, &ex)) {
    ++use->fast;
    ASSERT_EQ(record_digits(rec), want) << "fast path: " << what;
  }
}

std::string describe(double x, const DecimalMode& m) {
  char buf[96];
  snprintf(buf, sizeof buf, "%a rounding %d form %d ndigits %d", x, m.rounding, m.form, m.ndigits);
  return buf;
}

TEST(DecimalOracle, DoubleFloatingFormInEveryDirection) {
  Operands ops(1);
  PathUse use;
  const int count = scaled_count(300000);
  for (int i = 0; i < count; ++i) {
    const double x = ops.next_double();
    DecimalMode mode = {ops.below(4), DECIMAL_FLOATING, ops.next_count()};
    const Digits want = printf_e(mode.rounding, x, mode.ndigits);
    DecimalRecord rec;
    unsigned ex;
    double_to_decimal(&x, &mode, &rec, &ex);
    ASSERT_EQ(record_digits(rec), want) << describe(x, mode);
    ASSERT_EQ(rec.ndigits, mode.ndigits);
    ASSERT_EQ(rec.digits[rec.ndigits], '\0');
    check_paths(unpack_double(x), mode, want, true, __builtin_fabs(x), &use, describe(x, mode));
  }
  // Both quicker paths really served part of the requests.
  EXPECT_GT(use.fast, count / 50);
  EXPECT_GT(use.wide, count / 4);
}

TEST(DecimalOracle, DoubleFixedFormInEveryDirection) {
  Operands ops(2);
  PathUse use;
  const int count = scaled_count(150000);
  for (int i = 0; i < count; ++i) {
    const double x = ops.next_double();
    const int n = ops.below(3) == 0 ? ops.below(360) : ops.below(25);
    DecimalMode mode = {ops.below(4), DECIMAL_FIXED, n};
    const Digits want = printf_f(mode.rounding, x, n);
    DecimalRecord rec;
    unsigned ex;
    double_to_decimal(&x, &mode, &rec, &ex);
    if (want.digits.size() >= DECIMAL_RECORD_DIGITS) {
      ASSERT_EQ(ex, static_cast<unsigned>(FPX_OVERFLOW)) << describe(x, mode);
      continue;
    }
    ASSERT_EQ(ex & FPX_OVERFLOW, 0u) << describe(x, mode);
    ASSERT_EQ(record_digits(rec), want) << describe(x, mode);
    check_paths(unpack_double(x), mode, want, true, __builtin_fabs(x), &use, describe(x, mode));
  }
  EXPECT_GT(use.fast, count / 50);
  EXPECT_GT(use.wide, count / 4);
}

// Rounding to the left of the point has no printf form: %.*e with as many
// significant digits as stay left of position m gives the same rounding.
TEST(DecimalOracle, DoubleFixedFormLeftOfThePoint) {
  Operands ops(3);
  const int count = scaled_count(20000);
  for (int i = 0; i < count; ++i) {
    const double x = ops.next_double();
    const int m = 1 + ops.below(40);
    DecimalMode mode = {ops.below(4), DECIMAL_FIXED, -m};
    DecimalRecord rec;
    unsigned ex;
    double_to_decimal(&x, &mode, &rec, &ex);
    ASSERT_EQ(rec.exponent, 0);
    char buf[512];
    {
      Direction truncate(FPR_ZERO);
      snprintf(buf, sizeof buf, "%.0f", __builtin_fabs(x));
    }
    const int integer_digits = x >= 1 || x <= -1 ? static_cast<int>(strlen(buf)) : 0;
    std::string want;
    if (integer_digits > m) {
      const Digits e = printf_e(mode.rounding, x, integer_digits - m);
      want = e.digits;
      want.append(static_cast<size_t>(e.exponent), '0');
    } else {
      // Nothing stays: 0, or one unit of 10**m when the direction or a
      // value above half of it says so.
      const double unit = __builtin_powi(10.0, m);
      const bool positive = x > 0;
      const bool up = mode.rounding == FPR_NEAREST ? __builtin_fabs(x) > unit / 2
                      : mode.rounding == FPR_UP    ? positive
                      : mode.rounding == FPR_DOWN  ? !positive
                                                   : false;
      if (mode.rounding == FPR_NEAREST && m > 22) continue;  // unit/2 is not exact there
      want = up ? std::string("1").append(static_cast<size_t>(m), '0') : std::string("0");
    }
    ASSERT_EQ(std::string(rec.digits), want) << describe(x, mode);
    if (integer_digits <= m) {
      ASSERT_EQ(ex, static_cast<unsigned>(FPX_INEXACT));
    }
    DecimalRecord exact;
    unsigned ex2 = 0;
    exact.sign = x < 0;
    _unpacked_to_decimal_two(unpack_double(x), &mode, &exact, &ex2);
    ASSERT_EQ(std::string(exact.digits), want) << "exact path: " << describe(x, mode);
    ASSERT_EQ(ex2, ex);
  }
}

// The inexact bit says whether the digits are the value itself: they are
// exactly when rounding down and up give the same digits.
TEST(DecimalOracle, InexactBitTellsExactness) {
  Operands ops(4);
  const int count = scaled_count(20000);
  int exact_seen = 0;
  for (int i = 0; i < count; ++i) {
    const double x = ops.below(2) ? ops.next_double()
                                  : static_cast<double>(ops.below(1 << 20)) / (1 << ops.below(12));
    if (x == 0) continue;
    const bool floating = ops.below(2);
    const int n = floating ? ops.next_count() : ops.below(30);
    DecimalMode mode = {ops.below(4), floating ? DECIMAL_FLOATING : DECIMAL_FIXED, n};
    const double m = __builtin_fabs(x);
    const bool exact = floating ? printf_e(FPR_DOWN, m, n) == printf_e(FPR_UP, m, n)
                                : printf_f(FPR_DOWN, m, n) == printf_f(FPR_UP, m, n);
    exact_seen += exact;
    DecimalRecord rec;
    unsigned ex;
    double_to_decimal(&x, &mode, &rec, &ex);
    if (ex & FPX_OVERFLOW) continue;
    ASSERT_EQ(ex, exact ? 0u : static_cast<unsigned>(FPX_INEXACT)) << describe(x, mode);
  }
  EXPECT_GT(exact_seen, count / 20);
}

TEST(DecimalOracle, SingleInBothForms) {
  Operands ops(5);
  const int count = scaled_count(30000);
  for (int i = 0; i < count; ++i) {
    const float f = ops.next_float();
    const double x = f;
    const bool floating = ops.below(2);
    const int n = floating ? ops.next_count() : ops.below(60);
    DecimalMode mode = {ops.below(4), floating ? DECIMAL_FLOATING : DECIMAL_FIXED, n};
    const Digits want = floating ? printf_e(mode.rounding, x, n) : printf_f(mode.rounding, x, n);
    DecimalRecord rec;
    unsigned ex;
    single_to_decimal(&f, &mode, &rec, &ex);
    ASSERT_EQ(record_digits(rec), want) << describe(x, mode);
    const uint32_t biased = (std::bit_cast<uint32_t>(f) >> 23) & 0xff;
    ASSERT_EQ(rec.fp_class, biased ? FPC_NORMAL : FPC_SUBNORMAL);
  }
}

TEST(DecimalOracle, ExtendedInEveryDirection) {
  Operands ops(6);
  const int count = scaled_count(40000);
  for (int i = 0; i < count; ++i) {
    const long double x = ops.next_extended();
    DecimalMode mode = {ops.below(4), DECIMAL_FLOATING, ops.next_count()};
    const Digits want = printf_le(mode.rounding, x, mode.ndigits);
    uint32_t w[3] = {};
    memcpy(w, &x, 10);
    DecimalRecord rec;
    unsigned ex;
    extended_to_decimal(w, &mode, &rec, &ex);
    ASSERT_EQ(record_digits(rec), want) << static_cast<double>(x) << " n " << mode.ndigits;
  }
}

TEST(DecimalOracle, QuadFloatingFormInEveryDirection) {
  Operands ops(7);
  const int count = scaled_count(40000);
  int wide = 0;
  for (int i = 0; i < count; ++i) {
    const __float128 q = ops.next_quad();
    DecimalMode mode = {ops.below(4), DECIMAL_FLOATING, ops.next_count()};
    const Digits want = quad_e(mode.rounding, q, mode.ndigits);
    uint32_t w[4];
    quad_words(q, w);
    DecimalRecord rec;
    unsigned ex;
    x86_quadruple_to_decimal(w, &mode, &rec, &ex);
    ASSERT_EQ(record_digits(rec), want) << static_cast<double>(q) << " n " << mode.ndigits;
    const uint32_t reversed[4] = {w[3], w[2], w[1], w[0]};
    quadruple_to_decimal(reversed, &mode, &rec, &ex);
    ASSERT_EQ(record_digits(rec), want);
    PathUse use;
    check_paths(unpack_quad(q), mode, want, false, 0, &use, std::to_string(mode.ndigits));
    wide += use.wide;
  }
  EXPECT_GT(wide, count / 10);
}

TEST(DecimalOracle, QuadFixedFormInEveryDirection) {
  Operands ops(8);
  const int count = scaled_count(8000);
  for (int i = 0; i < count; ++i) {
    __float128 q = ops.next_quad();
    if (ops.below(2)) q = static_cast<__float128>(ops.next_double());
    const int n = ops.below(3) == 0 ? ops.below(400) : ops.below(40);
    DecimalMode mode = {ops.below(4), DECIMAL_FIXED, n};
    const int magnitude = ilogbq(q);
    if (magnitude > 1800) continue;  // 8 for sure; keeps the printf text small
    const Digits want = quad_f(mode.rounding, q, n);
    uint32_t w[4];
    quad_words(q, w);
    DecimalRecord rec;
    unsigned ex;
    x86_quadruple_to_decimal(w, &mode, &rec, &ex);
    if (want.digits.size() >= DECIMAL_RECORD_DIGITS) {
      ASSERT_EQ(ex, static_cast<unsigned>(FPX_OVERFLOW));
      continue;
    }
    ASSERT_EQ(record_digits(rec), want) << static_cast<double>(q) << " n " << n;
  }
}

// The smallest quads need more than 5120 powers of ten to bring 511
// significant digits above the point: two multiplications of the exact path.
TEST(DecimalOracle, SmallestQuadsToTheLastDigit) {
  const __float128 values[] = {nextafterq(0, 1), scalbnq(1, -16400) / 3, scalbnq(1, -16450) / 7,
                               scalbnq(0.75Q, -16382)};
  for (const __float128 q : values) {
    for (int rounding = 0; rounding < 4; ++rounding) {
      for (const int n : {1, 34, 160, 511}) {
        DecimalMode mode = {rounding, DECIMAL_FLOATING, n};
        uint32_t w[4];
        quad_words(q, w);
        DecimalRecord rec;
        unsigned ex;
        x86_quadruple_to_decimal(w, &mode, &rec, &ex);
        ASSERT_EQ(record_digits(rec), quad_e(rounding, q, n)) << n << " " << rounding;
        ASSERT_EQ(ex, static_cast<unsigned>(FPX_INEXACT));
        ASSERT_EQ(rec.fp_class, FPC_SUBNORMAL);
      }
    }
  }
}

// Requests of 512 digits or more cannot be met: the word says 8 and
// nothing else.
TEST(DecimalOracle, TooManyDigitsSetOverflow) {
  struct Row {
    double value;
    int form, ndigits;
    unsigned want;
  } rows[] = {
      {1.0, DECIMAL_FLOATING, 512, FPX_OVERFLOW},
      {1.0, DECIMAL_FLOATING, 0, FPX_OVERFLOW},
      {1e-300, DECIMAL_FLOATING, 511, FPX_INEXACT},  // about 750 significant digits
      {0.1, DECIMAL_FLOATING, 511, 0},               // 55 significant digits
      {1.0, DECIMAL_FIXED, 512, FPX_OVERFLOW},
      {1.0, DECIMAL_FIXED, 510, 0},
      {10.0, DECIMAL_FIXED, 510, FPX_OVERFLOW},  // 2 + 510 digits
      {1e300, DECIMAL_FIXED, 211, FPX_OVERFLOW},
      {1e300, DECIMAL_FIXED, 210, 0},
      {1e300, DECIMAL_FIXED, -512, FPX_OVERFLOW},
      {1e300, DECIMAL_FIXED, -300, FPX_INEXACT},
  };
  for (const Row& r : rows) {
    DecimalMode mode = {FPR_NEAREST, r.form, r.ndigits};
    DecimalRecord rec;
    unsigned ex;
    double_to_decimal(&r.value, &mode, &rec, &ex);
    EXPECT_EQ(ex, r.want) << r.value << " form " << r.form << " ndigits " << r.ndigits;
  }
  uint32_t huge[4];
  quad_words(static_cast<__float128>(1e300) * static_cast<__float128>(1e300), huge);
  DecimalMode mode = {FPR_NEAREST, DECIMAL_FIXED, -1};
  DecimalRecord rec;
  unsigned ex;
  x86_quadruple_to_decimal(huge, &mode, &rec, &ex);
  EXPECT_EQ(ex, static_cast<unsigned>(FPX_OVERFLOW));  // 601 integer digits
}

}  // namespace
}  // namespace qal::test
