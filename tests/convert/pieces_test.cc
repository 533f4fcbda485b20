// The pieces under the digit engine: the fast path's grading and digit
// writer, the exact path's powers, the scaled floors of both quicker and
// exact arithmetic, and the raising of exception flags.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "convert/big_float.h"
#include "convert/digits.h"
#include "convert/oracle.h"

namespace qal::test {
namespace {

TEST(FastPathPieces, FourDigitsFromTheTableOfEights) {
  for (unsigned n = 0; n < 10000; ++n) {
    char out[4], want[5];
    __four_digits_quick(n, out);
    snprintf(want, sizeof want, "%04u", n);
    ASSERT_EQ(std::string(out, 4), want);
  }
}

// Each split of __double_to_digits: one part, an 8-digit and a 9-digit
// lower part.  Only the top group of four may bring leading zeros.
TEST(FastPathPieces, DoubleToDigitsSplitsLargeIntegers) {
  const double values[] = {0,
                           7,
                           12345,
                           2147483647.0,
                           2147483648.0,
                           100000001.0,
                           9999999999999998.0,
                           1e16,
                           10000000000000002.0,
                           123456789012345680.0,
                           2147483647999999744.0};
  for (double y : values) {
    char buf[32];
    int count = 0;
    __double_to_digits(buf + sizeof buf, &count, y);
    const std::string s(buf + sizeof buf - count, static_cast<size_t>(count));
    EXPECT_EQ(s.find_first_not_of("0123456789"), std::string::npos) << s;
    EXPECT_EQ(std::stod(s), y) << s;
    const size_t zeros = s.find_first_not_of('0');
    EXPECT_LT(y == 0 ? s.size() - 1 : zeros, 4u) << s;
  }
}

TEST(FastPathPieces, ArintGradesTheRounding) {
  struct Row {
    int status;
    double y;
    double r;
    int grade;
  } rows[] = {
      {0, 12.0, 12.0, 0},        // exact integer
      {0, 12.25, 12.0, 1},       // exact value, rounded
      {0, 12.5, 12.0, 1},        // exact tie: to even
      {0, 13.5, 14.0, 1},        //
      {1, 12.25, 12.0, 1},       // far from the half: safe
      {1, 1e15 + 0.5, 1e15, 2},  // an ulp of 0.125 cannot be told from the half
      {1, 4503599627370495.5, 4503599627370496.0, 2},
      {2, 12.49, 12.0, 1},
      {2, 12.499999999999998, 12.0, 2},  // within two ulps of the half
      {1, 1e17, 1e17, 2},                // ulp 16: nothing is safe
  };
  for (const Row& r : rows) {
    int grade = -1;
    EXPECT_EQ(__arint_set_n(r.status, &grade, r.y), r.r) << r.y;
    EXPECT_EQ(grade, r.grade) << r.status << " " << r.y;
  }
}

// 100.0 at three digits lands exactly on the lower power on both tries, so
// the fast path declines and the exact path answers "100".
TEST(FastPathPieces, LowerPowerIsNotAccepted) {
  DecimalMode mode = {FPR_NEAREST, DECIMAL_FLOATING, 3};
  DecimalRecord rec;
  unsigned ex = 0;
  EXPECT_FALSE(__k_double_to_decimal(100.0, &mode, &rec, &ex));
  const double x = 100.0;
  double_to_decimal(&x, &mode, &rec, &ex);
  EXPECT_EQ(record_digits(rec), (Digits{"100", 0}));
  EXPECT_EQ(ex, 0u);
  // Other directions never take the fast path; negative counts neither.
  mode.rounding = FPR_UP;
  EXPECT_FALSE(__k_double_to_decimal(1.5, &mode, &rec, &ex));
  mode = {FPR_NEAREST, DECIMAL_FIXED, -1};
  EXPECT_FALSE(__k_double_to_decimal(1.5, &mode, &rec, &ex));
}

// One operation's own flags, whatever was raised before.
TEST(FastPathPieces, MulSetAndDivSetReportTheirOperation) {
  struct Row {
    bool divide;
    double a, b, result;
    int status;
  } rows[] = {
      {false, 3.0, 5.0, 15.0, 0},
      {false, 0.1, 3.0, 0.1 * 3.0, 1},
      {false, 1e300, 1e300, __builtin_inf(), 1},
      {true, 1.0, 4.0, 0.25, 0},
      {true, 1.0, 3.0, 1.0 / 3.0, 1},
      {true, 1.0, 0.0, __builtin_inf(), 1},
  };
  for (const Row& r : rows) {
    feclearexcept(FE_ALL_EXCEPT);
    feraiseexcept(FE_INEXACT);  // raised before: neither reported nor lost
    int status = -1;
    const double got = r.divide ? __div_set(&status, r.a, r.b) : __mul_set(&status, r.a, r.b);
    EXPECT_EQ(got, r.result);
    EXPECT_EQ(status, r.status) << r.a << (r.divide ? " / " : " * ") << r.b;
    EXPECT_TRUE(fetestexcept(FE_INEXACT));
  }
  feclearexcept(FE_ALL_EXCEPT);
}

TEST(ExactPathPieces, TimesPowerKeepsSmallResultsOnTheStack) {
  LocalBigFloat<> x;
  big_float_from_bits(x.get(), 3, 0);
  BigFloat* out = nullptr;
  __big_float_times_power(x.get(), 10, 20, 1000, &out);
  ASSERT_EQ(out, x.get());
  // 3e20 = 3 * 5**20 * 2**20
  LocalBigFloat<> dec;
  const int e = out->exponent;
  out->exponent = 0;
  __big_binary_to_big_decimal(out, dec.get());
  char text[64];
  const int n = big_decimal_text(dec.get(), text);
  EXPECT_EQ(e, 20);
  EXPECT_EQ(std::string(text, static_cast<size_t>(n)), "286102294921875");  // 3 * 5**20
}

TEST(ExactPathPieces, TimesPowerGrowsIntoTheHeapAndOverflowsBeyondTheTables) {
  // 10**5000 in full: 5**5000 needs 726 words, more than a stack number.
  LocalBigFloat<> x;
  big_float_from_bits(x.get(), 1, 0);
  BigFloat* out = nullptr;
  __big_float_times_power(x.get(), 10, 5000, 1 << 20, &out);
  ASSERT_NE(out, x.get());
  ASSERT_NE(out, nullptr);
  EXPECT_GT(out->length, kStackWords);
  EXPECT_EQ(out->exponent, 5000);
  // Decimal side: 2**16000 in full, from 1 in base 10000.
  LocalBigFloat<> d;
  big_float_from_bits(d.get(), 1, 0);
  BigFloat* dout = nullptr;
  __big_float_times_power(d.get(), 2, 16000, 1 << 20, &dout);
  ASSERT_NE(dout, d.get());
  char* text = static_cast<char*>(malloc(6000));
  const int n = big_decimal_text(dout, text);
  EXPECT_EQ(n, 4817);  // 16000 log10(2) = 4816.5
  EXPECT_EQ(std::string(text, 6), "301946");
  free(text);
  __free_big_float(dout);
  __free_big_float(out);

  BigFloat* over = nullptr;
  __big_float_times_power(x.get(), 10, 5120, 100, &over);
  EXPECT_EQ(over, kPowerOverflow);
  __big_float_times_power(d.get(), 2, 16896, 100, &over);
  EXPECT_EQ(over, kPowerOverflow);
}

// Truncated products keep their top words exact and mark what went: each
// is compared with the same power taken in full.
TEST(ExactPathPieces, TruncatedPowersAreExactAboveTheStickyBit) {
  Operands ops(21);
  const int count = scaled_count(3000);
  for (int i = 0; i < count; ++i) {
    const bool binary = ops.below(2);
    const int p = binary ? 1 + ops.below(5119) : 1 + ops.below(16895);
    const int precision = 1 + ops.below(binary ? 400 : 120);
    const unsigned __int128 v = static_cast<unsigned __int128>(ops.bits()) << 64 | ops.bits();
    LocalBigFloat<> a, b;
    big_float_from_bits(a.get(), v, 0);
    big_float_from_bits(b.get(), v, 0);
    if (!binary) {
      // A decimal operand: four-digit words.
      for (BigFloat* x : {a.get(), b.get()}) {
        x->length = 8;
        for (int w = 0; w < 8; ++w) x->words[w] = static_cast<uint16_t>((v >> (16 * w)) % 10000);
        while (x->length && !x->words[x->length - 1]) --x->length;
      }
    }
    BigFloat *cut = nullptr, *full = nullptr;
    __big_float_times_power(a.get(), binary ? 10 : 2, p, precision, &cut);
    __big_float_times_power(b.get(), binary ? 10 : 2, p, 1 << 24, &full);
    const int unit = binary ? 16 : 4;
    const int drop = (cut->exponent - full->exponent) / unit;
    ASSERT_GE(drop, 0);
    ASSERT_EQ(cut->length + drop, full->length);
    bool lost = false;
    for (int w = 0; w < drop; ++w) lost = lost || full->words[w] != 0;
    for (int w = 1; w < cut->length; ++w) ASSERT_EQ(cut->words[w], full->words[w + drop]);
    ASSERT_EQ(cut->words[0], full->words[drop] | (lost ? 1 : 0));
    if (cut != a.get()) __free_big_float(cut);
    if (full != b.get()) __free_big_float(full);
  }
}

// floor(mant * 2**e * 10**s) by the 128-bit powers and by exact arithmetic.
TEST(ScaledFloors, WideAndExactAgree) {
  Operands ops(22);
  const int count = scaled_count(50000);
  int wide = 0;
  for (int i = 0; i < count; ++i) {
    const unsigned __int128 mant =
        ops.below(2) ? ops.bits() >> ops.below(64)
                     : (static_cast<unsigned __int128>(ops.bits()) << 64 | ops.bits()) >> 15;
    if (mant == 0) continue;
    const int s = ops.below(600) - 300;
    // An exponent that keeps the result within 128 bits most of the time.
    const int e = -static_cast<int>(s * 3.3219) - ops.below(60) - 4;
    unsigned __int128 y1, y2;
    Rest r1, r2;
    const bool ok = exact_scaled(mant, e, s, &y1, &r1);
    if (wide_scaled(mant, e, s, &y2, &r2)) {
      ++wide;
      ASSERT_TRUE(ok);
      ASSERT_TRUE(y1 == y2) << "s " << s << " e " << e;
      ASSERT_EQ(r1, r2) << "s " << s << " e " << e;
    }
  }
  EXPECT_GT(wide, count / 2);
}

TEST(Exceptions, SetExceptionRaisesTheFlags) {
  struct Row {
    unsigned word;
    int flags;
  } rows[] = {
      {FPX_INEXACT, FE_INEXACT},
      {FPX_OVERFLOW, FE_OVERFLOW | FE_INEXACT},
      {FPX_OVERFLOW | FPX_INEXACT, FE_OVERFLOW | FE_INEXACT},
      {FPX_UNDERFLOW | FPX_INEXACT, FE_UNDERFLOW | FE_INEXACT},
      {FPX_INVALID, FE_INVALID},
  };
  for (const Row& r : rows) {
    feclearexcept(FE_ALL_EXCEPT);
    __base_conversion_set_exception(r.word);
    EXPECT_EQ(fetestexcept(FE_ALL_EXCEPT), r.flags) << r.word;
  }
  // A conversion raises its own word.
  feclearexcept(FE_ALL_EXCEPT);
  const double third = 1.0 / 3;
  DecimalMode mode = {FPR_NEAREST, DECIMAL_FLOATING, 5};
  DecimalRecord rec;
  unsigned ex;
  feclearexcept(FE_ALL_EXCEPT);
  double_to_decimal(&third, &mode, &rec, &ex);
  EXPECT_EQ(ex, static_cast<unsigned>(FPX_INEXACT));
  EXPECT_TRUE(fetestexcept(FE_INEXACT));
  feclearexcept(FE_ALL_EXCEPT);
}

}  // namespace
}  // namespace qal::test
