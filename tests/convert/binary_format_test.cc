// The one description of the binary formats against the compiler's own
// types, and its rounding against the compiler's narrowing of binary128 in
// every direction, flags included.
#include <fenv.h>
#include <gtest/gtest.h>
#include <string.h>

#include <bit>
#include <limits>
#include <random>

extern "C" {
#include <quadmath.h>
}

#include "convert/unpacked.h"
#include "util/binary_format.h"

namespace qal {
namespace {

template <class L, class T>
typename L::Bits image_of(T x) {
  typename L::Bits b = 0;
  memcpy(&b, &x, L::kBytes);
  return b;
}

// What std::numeric_limits would say of __float128.
struct QuadLimits {
  static constexpr int digits = FLT128_MANT_DIG;
  static constexpr int max_exponent = FLT128_MAX_EXP, min_exponent = FLT128_MIN_EXP;
  static __float128 infinity() { return __builtin_infq(); }
  static __float128 quiet_NaN() { return nanq(""); }
  static __float128 denorm_min() { return FLT128_DENORM_MIN; }
  static __float128 max() { return FLT128_MAX; }
};

template <class L, class T, class Limits = std::numeric_limits<T>>
void expect_layout_of() {
  EXPECT_EQ(L::kPrecision, Limits::digits);
  EXPECT_EQ(L::kEmax + 1, Limits::max_exponent);
  EXPECT_EQ(L::kEmin + 1, Limits::min_exponent);
  EXPECT_TRUE(image_of<L>(Limits::infinity()) == L::kInfinity);
  EXPECT_TRUE(image_of<L>(-Limits::infinity()) == (L::kSign | L::kInfinity));
  EXPECT_TRUE(image_of<L>(-T(0)) == L::kSign);
  EXPECT_TRUE(image_of<L>(Limits::denorm_min()) == 1);
  const auto nan = image_of<L>(Limits::quiet_NaN());
  EXPECT_TRUE(L::is_nan(nan) && (nan & L::kQuiet));
  EXPECT_FALSE(L::is_nan(L::kInfinity));
  const auto one = image_of<L>(T(1));
  EXPECT_EQ(L::biased(one), L::kBias);
  EXPECT_TRUE(L::significand(one) == L::kLead);
  const auto max = image_of<L>(Limits::max());
  EXPECT_EQ(L::biased(max), L::kMaxBiased - 1);
  EXPECT_TRUE(L::pack(true, L::biased(max), L::fraction(max)) == (L::kSign | max));
}

TEST(BinaryFormat, LayoutsAreTheCompilers) {
  expect_layout_of<Binary32, float>();
  expect_layout_of<Binary64, double>();
  expect_layout_of<X87Extended, long double>();
  expect_layout_of<Binary128, __float128, QuadLimits>();
}

unsigned flags_of(int raised) {
  return (raised & FE_INEXACT ? FPX_INEXACT : 0) | (raised & FE_UNDERFLOW ? FPX_UNDERFLOW : 0) |
         (raised & FE_OVERFLOW ? FPX_OVERFLOW : 0);
}

// Random 64-bit significands at exponents across the whole range of L,
// subnormals, overflow and the edges included, rounded by round_bits and by
// the compiler's narrowing of the exact binary128 value.
template <class L, class T>
void expect_rounding_as_compiler() {
  const int fenv_modes[4] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
  std::mt19937_64 rng(L::kPrecision);
  for (int i = 0; i < 40000; ++i) {
    uint64_t top = rng() | (uint64_t{1} << 63);
    // Ties and values just off them are where rounding goes wrong.
    constexpr uint64_t kRoundBit = uint64_t{1} << (63 - L::kPrecision);
    if (i % 4 == 1) top = (top & ~(2 * kRoundBit - 1)) | kRoundBit;
    if (i % 4 == 2) top &= ~(kRoundBit - 1);
    const int span = L::kEmax - L::kMinExponent + 8;
    int exponent = L::kMinExponent - 4 + static_cast<int>(rng() % span);
    // Significands that carry out on rounding, at the top of the range and
    // just below the normal one.
    if (i % 16 == 3 || i % 16 == 5) {
      top = ~uint64_t{0};
      exponent = i % 16 == 3 ? L::kEmax : L::kEmin - 1;
    }
    const int sign = static_cast<int>(rng() & 1);
    const int rounding = static_cast<int>(rng() & 3);
    const __float128 exact = scalbnq(static_cast<__float128>(top), exponent - 63);
    fesetround(fenv_modes[rounding]);
    feclearexcept(FE_ALL_EXCEPT);
    const T want = static_cast<T>(sign ? -exact : exact);
    const unsigned want_flags = flags_of(fetestexcept(FE_ALL_EXCEPT));
    fesetround(FE_TONEAREST);
    const Rounded r = round_bits<L>(sign, exponent, top, rounding);
    const auto got = pack_image<L>(FPC_NORMAL, sign, r);
    ASSERT_EQ(got, image_of<L>(want)) << "exponent " << exponent << " direction " << rounding;
    // Tininess: this library looks before rounding, the compiler's runtime
    // after, which differs only when the result is the smallest normal.
    const bool smallest_normal = (got & L::kMagnitude) == (typename L::Bits{1} << L::kFractionBits);
    const unsigned mask = smallest_normal ? ~unsigned{FPX_UNDERFLOW} : ~0u;
    ASSERT_EQ(r.exceptions & mask, want_flags & mask) << "exponent " << exponent;
  }
}

TEST(BinaryFormat, RoundingMatchesTheCompilersNarrowing) {
  expect_rounding_as_compiler<Binary32, float>();
  expect_rounding_as_compiler<Binary64, double>();
}

}  // namespace
}  // namespace qal
