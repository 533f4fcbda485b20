// Decimal to binary against glibc's strtof, strtod and strtold and
// libquadmath's strtoflt128, which round correctly in the current
// direction: random digit strings at every exponent of each format, long
// strings with and without digits dropped, exact midpoints between
// neighbours and the same a hair above, the edges of overflow and
// underflow, and the classes that need no arithmetic.
#include <fenv.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <bit>
#include <random>
#include <string>

#include "convert/oracle.h"
#include "gtest/gtest.h"

extern "C" {
#include <quadmath.h>
}

using namespace qal;
using namespace qal::test;

namespace {

// A decimal record of `digits` times 10**exponent.
DecimalRecord record(const std::string& digits, int exponent, bool negative = false,
                     bool more = false) {
  DecimalRecord r{};
  r.fp_class = FPC_NORMAL;
  r.sign = negative;
  r.exponent = exponent;
  const size_t n =
      digits.size() < DECIMAL_RECORD_DIGITS - 1 ? digits.size() : DECIMAL_RECORD_DIGITS - 1;
  memcpy(r.digits, digits.data(), n);
  r.digits[n] = '\0';
  r.ndigits = static_cast<int32_t>(n);
  r.more = more;
  return r;
}

// The same number as text for the libc parsers.  Dropped digits (`more`)
// stand as a 1 far below the last digit, beyond every format's precision.
std::string text_of(const DecimalRecord& r) {
  const int tail = r.more ? 60 : 0;
  return std::string(r.sign ? "-" : "") + r.digits + (r.more ? std::string(59, '0') + "1" : "") +
         "e" + std::to_string(r.exponent - tail);
}

template <class T>
T ours(DecimalRecord r, int rounding, unsigned* exceptions = nullptr) {
  DecimalMode mode{rounding, DECIMAL_FLOATING, 0};
  unsigned x = 0;
  T result{};
  if constexpr (sizeof(T) == 4) decimal_to_single(reinterpret_cast<float*>(&result), &mode, &r, &x);
  if constexpr (sizeof(T) == 8)
    decimal_to_double(reinterpret_cast<double*>(&result), &mode, &r, &x);
  if constexpr (sizeof(T) == 16)
    x86_decimal_to_quadruple(reinterpret_cast<uint32_t*>(&result), &mode, &r, &x);
  if (exceptions) *exceptions = x;
  return result;
}

template <class T>
T theirs(const std::string& text, int rounding) {
  Direction d(rounding);
  T result{};
  if constexpr (sizeof(T) == 4) {
    const float f = strtof(text.c_str(), nullptr);
    memcpy(&result, &f, 4);
  } else if constexpr (sizeof(T) == 8) {
    const double v = strtod(text.c_str(), nullptr);
    memcpy(&result, &v, 8);
  } else {
    const __float128 q = strtoflt128(text.c_str(), nullptr);
    memcpy(&result, &q, 16);
  }
  return result;
}

using Bits4 = uint32_t;
using Bits8 = uint64_t;
using Bits16 = unsigned __int128;

std::string hex(Bits16 v) {
  char text[40];
  snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(v >> 64),
           static_cast<unsigned long long>(v));
  return text;
}

// libquadmath's strtoflt128 overflows to infinity and underflows to zero
// whatever the direction.  Where it does, the result a directed rounding
// must give instead: the largest finite value or the smallest subnormal,
// toward zero or away from it as the direction and the sign say.
Bits16 quad_edge(Bits16 oracle, int rounding, bool negative) {
  const Bits16 sign = static_cast<Bits16>(negative) << 127;
  const Bits16 magnitude = oracle & ~sign;
  const bool toward_zero = rounding == FPR_ZERO || (rounding == FPR_UP && negative) ||
                           (rounding == FPR_DOWN && !negative);
  if (magnitude == static_cast<Bits16>(0x7fff) << 112 && toward_zero)
    return sign | ((static_cast<Bits16>(0x7fff) << 112) - 1);
  if (magnitude == 0 && !toward_zero && rounding != FPR_NEAREST) return sign | 1;
  return oracle;
}

template <class T>
void expect_same(const DecimalRecord& r, int rounding) {
  const std::string text = text_of(r);
  const T a = ours<T>(r, rounding);
  T b = theirs<T>(text, rounding);
  if constexpr (sizeof(T) == 16) b = quad_edge(b, rounding, r.sign);
  ASSERT_EQ(hex(a), hex(b)) << text << " direction " << rounding;
}

// The x87 format against strtold: ten bytes, as the layout holds them.
void expect_same_extended(DecimalRecord r, int rounding) {
  const std::string text = text_of(r);
  DecimalMode mode{rounding, DECIMAL_FLOATING, 0};
  unsigned x = 0;
  uint32_t words[3];
  decimal_to_extended(words, &mode, &r, &x);
  long double v;
  {
    Direction d(rounding);
    v = strtold(text.c_str(), nullptr);
  }
  unsigned char want[16] = {}, got[16] = {};
  memcpy(want, &v, 10);
  memcpy(got, words, 10);
  ASSERT_EQ(memcmp(got, want, 10), 0) << text << " direction " << rounding;
}

std::string random_digits(std::mt19937_64& rng, int n) {
  std::string s;
  s += static_cast<char>('1' + rng() % 9);
  for (int k = 1; k < n; ++k) s += static_cast<char>('0' + rng() % 10);
  return s;
}

}  // namespace

class DecimalToBinary : public ::testing::TestWithParam<int> {};

TEST_P(DecimalToBinary, RandomDigitsAtEveryExponent) {
  const int rounding = GetParam();
  std::mt19937_64 rng(1234 + rounding);
  for (int k = 0; k < scaled_count(20000); ++k) {
    const int n = 1 + static_cast<int>(rng() % 20);
    const std::string digits = random_digits(rng, n);
    const bool negative = rng() & 1;
    expect_same<Bits4>(record(digits, static_cast<int>(rng() % 100) - 65 - n, negative), rounding);
    expect_same<Bits8>(record(digits, static_cast<int>(rng() % 680) - 345 - n, negative), rounding);
    expect_same<Bits16>(record(digits, static_cast<int>(rng() % 9900) - 4965 - n, negative),
                        rounding);
    expect_same_extended(record(digits, static_cast<int>(rng() % 9900) - 4965 - n, negative),
                         rounding);
  }
}

TEST_P(DecimalToBinary, LongStringsWithAndWithoutDroppedDigits) {
  const int rounding = GetParam();
  std::mt19937_64 rng(99 + rounding);
  for (int k = 0; k < scaled_count(600); ++k) {
    const int n = 40 + static_cast<int>(rng() % 472);
    const std::string digits = random_digits(rng, n);
    const bool more = rng() & 1;
    expect_same<Bits4>(record(digits, static_cast<int>(rng() % 90) - 50 - n, true, more), rounding);
    expect_same<Bits8>(record(digits, static_cast<int>(rng() % 600) - 300 - n, false, more),
                       rounding);
    expect_same<Bits16>(record(digits, static_cast<int>(rng() % 9000) - 4500 - n, true, more),
                        rounding);
  }
}

TEST_P(DecimalToBinary, MidpointsBetweenNeighboursAndJustAbove) {
  const int rounding = GetParam();
  std::mt19937_64 rng(7 + rounding);
  for (int k = 0; k < scaled_count(3000); ++k) {
    // A double and the next one up; their midpoint is exact in the x87
    // format, and printf writes it out to its last digit.
    uint64_t bits = rng() & 0x7fefffffffffffffULL;
    double x;
    memcpy(&x, &bits, 8);
    const long double mid = (static_cast<long double>(x) + nextafter(x, INFINITY)) / 2;
    char text[1200];
    snprintf(text, sizeof text, "%.1100Le", mid);
    // Into digits and an exponent.
    std::string s(text);
    const size_t e = s.find('e');
    int exponent = atoi(s.c_str() + e + 1);
    std::string digits = s.substr(0, 1) + s.substr(2, e - 2);
    while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
    exponent -= static_cast<int>(digits.size()) - 1;
    if (digits.size() > 500) continue;
    expect_same<Bits8>(record(digits, exponent), rounding);
    expect_same<Bits8>(record(digits + "0000000001", exponent - 10), rounding);
    expect_same<Bits8>(record(digits, exponent, false, true), rounding);
  }
}

// Few digits after the point and a value on a boundary or exactly
// representable: integers written with zeros after the point, and the
// dyadic values a / 2**j (exact in decimal as a * 5**j / 10**j) whose
// sizes put them on the rounding boundary of a float or a double, with
// their neighbours one unit of the last digit away.
TEST_P(DecimalToBinary, ExactValuesWithFewDecimals) {
  const int rounding = GetParam();
  std::mt19937_64 rng(4242 + rounding);
  char text[32];
  for (int k = 0; k < scaled_count(4000); ++k) {
    const int zeros = 1 + static_cast<int>(rng() % 3);
    const uint64_t integer = (rng() >> (11 + rng() % 40)) | 1;
    snprintf(text, sizeof text, "%llu%.*s", static_cast<unsigned long long>(integer), zeros, "000");
    if (strlen(text) <= 19) {
      expect_same<Bits8>(record(text, -zeros), rounding);
      expect_same<Bits4>(record(text, -zeros), rounding);
    }
    const int j = 1 + static_cast<int>(rng() % 12);
    uint64_t five = 1;
    for (int i = 0; i < j; ++i) five *= 5;
    for (int bits : {25, 26, 54, 55}) {
      const uint64_t a = ((rng() >> (64 - bits)) | (uint64_t{1} << (bits - 1))) | 1;
      if (a > UINT64_MAX / five / 10) continue;
      const uint64_t digits = a * five;
      for (uint64_t d : {digits - 1, digits, digits + 1}) {
        snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(d));
        const bool negative = rng() & 1;
        expect_same<Bits8>(record(text, -j, negative), rounding);
        expect_same<Bits4>(record(text, -j, negative), rounding);
      }
    }
  }
}

// Integers of 114 to 126 bits, odd ones being ties between two quads, and
// their neighbours, written as integers and with a zero after the point:
// the 128-bit path for the wide formats must decide them or step aside.
TEST_P(DecimalToBinary, WideIntegersOnAndNearQuadTies) {
  const int rounding = GetParam();
  std::mt19937_64 rng(114 + rounding);
  for (int k = 0; k < scaled_count(3000); ++k) {
    const int bits = 114 + static_cast<int>(rng() % 13);
    Bits16 v = (static_cast<Bits16>(rng()) << 64) | rng();
    v >>= 128 - bits;
    v |= static_cast<Bits16>(1) << (bits - 1);
    for (Bits16 x : {v | 1, v & ~static_cast<Bits16>(1), (v | 1) + 2}) {
      char text[48];
      char* end = text + sizeof text - 1;
      *end = '\0';
      char* p = end;
      for (Bits16 y = x; y; y /= 10) *--p = static_cast<char>('0' + static_cast<int>(y % 10));
      expect_same<Bits16>(record(p, 0), rounding);
      expect_same<Bits16>(record(std::string(p) + "0", -1, true), rounding);
      expect_same_extended(record(p, 0), rounding);
    }
  }
}

TEST_P(DecimalToBinary, EdgesOfTheRange) {
  const int rounding = GetParam();
  const struct {
    const char* digits;
    int exponent;
  } rows[] = {
      {"17976931348623157", 292},
      {"17976931348623159", 292},
      {"2", 308},
      {"1", 309},
      {"22250738585072014", -324},
      {"22250738585072011", -324},
      {"49406564584124654", -340},
      {"24703282292062327", -340},
      {"24703282292062328", -340},
      {"1", -400},
      {"1", 400},
      {"34028235", 31},
      {"34028236", 31},
      {"14012984", -52},
      {"7006492", -52},
      {"11897314953572317650857593266280070162", 4894},
      {"1", 4933},
      {"1", -4966},
      {"6475175119438025110924438958227646552", -4988},
  };
  for (const auto& r : rows) {
    for (bool negative : {false, true}) {
      expect_same<Bits4>(record(r.digits, r.exponent, negative), rounding);
      expect_same<Bits8>(record(r.digits, r.exponent, negative), rounding);
      expect_same<Bits16>(record(r.digits, r.exponent, negative), rounding);
    }
  }
  // Far outside every range: the coarse checks, no arithmetic.
  expect_same<Bits16>(record("1", 100000), rounding);
  expect_same<Bits16>(record("1", -100000, true), rounding);
  expect_same<Bits8>(record("9", 2000000000), rounding);
}

INSTANTIATE_TEST_SUITE_P(AllDirections, DecimalToBinary,
                         ::testing::Values(FPR_NEAREST, FPR_DOWN, FPR_UP, FPR_ZERO));

TEST(DecimalToBinaryClasses, FixedImagesAndExceptionWords) {
  DecimalRecord r = record("", 0, true);
  r.fp_class = FPC_ZERO;
  EXPECT_EQ(ours<Bits8>(r, FPR_NEAREST), uint64_t{1} << 63);
  r.fp_class = FPC_INFINITY;
  EXPECT_EQ(ours<Bits4>(r, FPR_NEAREST), 0xff800000u);
  r.sign = 0;
  r.fp_class = FPC_QUIET_NAN;
  EXPECT_EQ(ours<Bits4>(r, FPR_NEAREST), 0x7fffffffu);
  EXPECT_EQ(ours<Bits8>(r, FPR_NEAREST), 0x7fffffffffffffffu);
  r.fp_class = FPC_SIGNALING_NAN;
  EXPECT_EQ(ours<Bits4>(r, FPR_NEAREST), 0x7fbfffffu);
  EXPECT_EQ(ours<Bits8>(r, FPR_NEAREST), 0x7ff7ffffffffffffu);
  // Overflow and underflow words: see TheBookCases.
  unsigned x = 0;
  ours<Bits8>(record("5", -1), FPR_NEAREST, &x);
  EXPECT_EQ(x, 0u);
  ours<Bits8>(record("1", -1), FPR_NEAREST, &x);
  EXPECT_EQ(x, unsigned{FPX_INEXACT});
  ours<Bits8>(record("5", 0, false, true), FPR_NEAREST, &x);
  EXPECT_EQ(x, unsigned{FPX_INEXACT});  // `more` is a digit behind the last
}

// The exact way's pieces on their own: every record through
// __decimal_to_unpacked and the packer of its format, in the direction of
// the shared word, against the libc parsers; the accumulator against the
// entry's own word.
TEST_P(DecimalToBinary, UnpackedThenPackedAsTheOraclesRound) {
  const int rounding = GetParam();
  std::mt19937_64 rng(31 + rounding);
  for (int k = 0; k < scaled_count(4000); ++k) {
    const int n = 1 + static_cast<int>(rng() % 40);
    const std::string digits = random_digits(rng, n);
    const bool negative = rng() & 1;
    const DecimalRecord r4 = record(digits, static_cast<int>(rng() % 110) - 70 - n, negative);
    const DecimalRecord r8 = record(digits, static_cast<int>(rng() % 700) - 350 - n, negative);
    const DecimalRecord r16 = record(digits, static_cast<int>(rng() % 9950) - 4990 - n, negative);
    _fp_current_direction = rounding;
    UnpackedFloat u;
    Bits4 f4;
    Bits8 f8;
    Bits16 f16;
    unsigned word;
    __decimal_to_unpacked(&u, const_cast<DecimalRecord*>(&r4), 24);
    _fp_current_exceptions = 0;
    __pack_single(&u, reinterpret_cast<float*>(&f4));
    ASSERT_EQ(f4, theirs<Bits4>(text_of(r4), rounding)) << text_of(r4);
    ours<Bits4>(r4, rounding, &word);
    ASSERT_EQ(_fp_current_exceptions, word) << text_of(r4);
    __decimal_to_unpacked(&u, const_cast<DecimalRecord*>(&r8), 53);
    _fp_current_exceptions = 0;
    __pack_double(&u, reinterpret_cast<double*>(&f8));
    ASSERT_EQ(f8, theirs<Bits8>(text_of(r8), rounding)) << text_of(r8);
    ours<Bits8>(r8, rounding, &word);
    ASSERT_EQ(_fp_current_exceptions, word) << text_of(r8);
    __decimal_to_unpacked(&u, const_cast<DecimalRecord*>(&r16), 113);
    __pack_quadruple(&u, reinterpret_cast<uint32_t*>(&f16));
    ASSERT_EQ(hex(f16), hex(quad_edge(theirs<Bits16>(text_of(r16), rounding), rounding, negative)))
        << text_of(r16);
  }
  _fp_current_direction = FPR_NEAREST;
}

TEST(UnpackedFloat, ShiftsKeepTheValueAndFoldWhatFallsOff) {
  UnpackedFloat u{0, FPC_NORMAL, 10, {0x80000000u, 0, 0, 0, 0x00000003u}};
  __fp_rightshift(&u, 1);
  EXPECT_EQ(u.exponent, 11);
  EXPECT_EQ(u.significand[0], 0x40000000u);
  EXPECT_EQ(u.significand[4], 0x00000001u);  // 3 >> 1, and the 1 that fell off
  __fp_rightshift(&u, 33);
  EXPECT_EQ(u.significand[0], 0u);
  EXPECT_EQ(u.significand[1], 0x20000000u);
  EXPECT_EQ(u.significand[4], 1u);
  __fp_normalize(&u);
  EXPECT_EQ(u.exponent, 10);
  EXPECT_EQ(u.significand[0], 0x80000000u);
  EXPECT_EQ(u.significand[3], 0x00000004u);  // the sticky bit moved up with the rest
  EXPECT_EQ(u.significand[4], 0u);
  __fp_leftshift(&u, 1);
  EXPECT_EQ(u.exponent, 9);
  EXPECT_EQ(u.significand[0], 0u);  // the leading bit went out at the top
  EXPECT_EQ(u.significand[3], 0x00000008u);
  __fp_rightshift(&u, 200);
  EXPECT_EQ(u.fp_class, FPC_NORMAL);
  EXPECT_EQ(u.significand[0], 0u);
  EXPECT_EQ(u.significand[4], 1u);  // only the sticky 1 is left
  UnpackedFloat zero{1, FPC_NORMAL, 0, {0, 0, 0, 0, 0}};
  __fp_rightshift(&zero, 160);
  EXPECT_EQ(zero.fp_class, FPC_ZERO);
  zero.fp_class = FPC_NORMAL;
  __fp_normalize(&zero);
  EXPECT_EQ(zero.fp_class, FPC_ZERO);
}

TEST(UnpackedFloat, PackersGiveClassImagesAndSentinelResults) {
  double d = 1.5;
  float f = 2.5f;
  UnpackedFloat u{1, FPC_ZERO, 0, {}};
  __pack_double(&u, &d);
  EXPECT_EQ(std::bit_cast<uint64_t>(d), uint64_t{1} << 63);
  u = {0, FPC_INFINITY, 0, {}};
  __pack_single(&u, &f);
  EXPECT_EQ(std::bit_cast<uint32_t>(f), 0x7f800000u);
  // A quiet NaN keeps the bits behind the leading one and gets its quiet
  // bit; a signaling one leaves the result as it was.
  u = {0, FPC_QUIET_NAN, 0, {0x80000001u, 0x80000000u, 0, 0, 0}};
  __pack_double(&u, &d);
  EXPECT_EQ(std::bit_cast<uint64_t>(d), 0x7ff8000000300000u);
  u.fp_class = FPC_SIGNALING_NAN;
  f = 2.5f;
  __pack_single(&u, &f);
  EXPECT_EQ(f, 2.5f);
  // Beyond every range: the direction decides, and the flags are added to
  // what the accumulator holds.
  UnpackedFloat large{1, FPC_NORMAL, UNPACKED_TOO_LARGE, {0x80000000u, 0, 0, 0, 0}};
  UnpackedFloat small = large;
  small.exponent = -UNPACKED_TOO_LARGE;
  _fp_current_direction = FPR_NEAREST;
  _fp_current_exceptions = FPX_INVALID;
  __pack_double(&large, &d);
  EXPECT_EQ(std::bit_cast<uint64_t>(d), 0xfff0000000000000u);
  EXPECT_EQ(_fp_current_exceptions, unsigned{FPX_INVALID | FPX_OVERFLOW | FPX_INEXACT});
  _fp_current_direction = FPR_ZERO;
  __pack_double(&large, &d);
  EXPECT_EQ(std::bit_cast<uint64_t>(d), 0xffefffffffffffffu);
  _fp_current_direction = FPR_DOWN;
  _fp_current_exceptions = 0;
  __pack_double(&small, &d);
  EXPECT_EQ(std::bit_cast<uint64_t>(d), 0x8000000000000001u);  // the smallest, away from zero
  EXPECT_EQ(_fp_current_exceptions, unsigned{FPX_UNDERFLOW | FPX_INEXACT});
  uint32_t x87[3];
  __pack_extended(&small, x87);
  EXPECT_EQ(x87[0], 1u);
  EXPECT_EQ(x87[2], 0x8000u);
  _fp_current_direction = FPR_NEAREST;
  _fp_current_exceptions = 0;
}

TEST(UnpackedFloat, DigitsToDoubleSaysWhenTheSumRounded) {
  int status = -1;
  EXPECT_EQ(__digits_to_double("123456789", 9, &status), 123456789.0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(__digits_to_double("9007199254740993", 16, &status), 9007199254740992.0);
  EXPECT_EQ(status, 1);  // 2**53 + 1 is between two doubles
  EXPECT_EQ(__digits_to_double("900719925474099", 15, &status), 900719925474099.0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(__digits_to_double("123456789012345678", 18, &status), 123456789012345678.0);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(__digits_to_double("1234567890123456789", 19, &status), 0.0);
  EXPECT_EQ(status, 2);
}

TEST(DecimalToBinaryClasses, TheBookCases) {
  unsigned x = 0;
  // 1e23 lies between two doubles and goes to the one below.
  EXPECT_EQ(ours<Bits8>(record("1", 23), FPR_NEAREST), 0x44b52d02c7e14af6u);
  // Just past the coarse limit: infinity or the largest value.
  EXPECT_EQ(ours<Bits8>(record("1", 772), FPR_NEAREST, &x), 0x7ff0000000000000u);
  EXPECT_EQ(x, unsigned{FPX_OVERFLOW | FPX_INEXACT});
  EXPECT_EQ(ours<Bits8>(record("1", 772), FPR_ZERO, &x), 0x7fefffffffffffffu);
  EXPECT_EQ(ours<Bits8>(record("1", -1283), FPR_NEAREST, &x), 0u);
  EXPECT_EQ(x, unsigned{FPX_UNDERFLOW | FPX_INEXACT});
  // Halfway between 1 and the next double goes to the even one, and up
  // with a dropped digit behind.
  const std::string half = "100000000000000011102230246251565404236316680908203125";
  const int e = -static_cast<int>(half.size()) + 1;
  EXPECT_EQ(ours<Bits8>(record(half, e), FPR_NEAREST), 0x3ff0000000000000u);
  EXPECT_EQ(ours<Bits8>(record(half, e, false, true), FPR_NEAREST), 0x3ff0000000000001u);
  // No digits at all is zero, with its sign.
  EXPECT_EQ(ours<Bits8>(record("", 5, true), FPR_NEAREST, &x), uint64_t{1} << 63);
  EXPECT_EQ(x, 0u);
  // A long value read as a float far from a tie, and one on a tie.
  EXPECT_EQ(ours<Bits4>(record("1234567890123456789012345", -24), FPR_NEAREST), 0x3f9e0652u);
  EXPECT_EQ(ours<Bits4>(record("1000000059604644775390625", -24), FPR_NEAREST), 0x3f800000u);
  EXPECT_EQ(ours<Bits4>(record("1000000059604644775390626", -24), FPR_NEAREST), 0x3f800001u);
}
