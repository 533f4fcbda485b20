// The binary floating-point formats, described once: field widths, bias,
// the images of infinity and NaN, the fields of an image and back, and the
// one rounding that every value the library produces in them passes
// through (the quad arithmetic, the quad-to-double narrowing, and decimal
// input in all four formats).
//
// An image is an unsigned integer: fraction in the low kFractionBits, the
// biased exponent above it, the sign above that.  The x87 extended format
// stores its leading significand bit as the top bit of its 64-bit fraction
// field; the other formats leave it implicit.
#pragma once

#include <stdint.h>

#include <type_traits>

#include "qal/convert.h"

namespace qal {

using u128 = unsigned __int128;

template <class B, int kExp, int kFrac, bool kExplicit = false>
struct BinaryFormat {
  using Bits = B;
  static constexpr int kExponentBits = kExp;
  static constexpr int kFractionBits = kFrac;
  static constexpr bool kExplicitLead = kExplicit;
  static constexpr int kTotalBits = 1 + kExp + kFrac;
  static constexpr int kBytes = (kTotalBits + 7) / 8;
  // Significand bits, the leading one included.
  static constexpr int kPrecision = kExplicit ? kFrac : kFrac + 1;
  static constexpr int kBias = (1 << (kExp - 1)) - 1;
  static constexpr int kMaxBiased = (1 << kExp) - 1;
  // Unbiased exponents of normal numbers.
  static constexpr int kEmin = 1 - kBias, kEmax = kBias;
  // The weight of the lowest significand bit of a subnormal number.
  static constexpr int kMinExponent = kEmin - (kPrecision - 1);

  static constexpr B kSign = B{1} << (kExp + kFrac);
  static constexpr B kMagnitude = kSign - 1;
  static constexpr B kFractionMask = (B{1} << kFrac) - 1;
  static constexpr B kExponentMask = B(kMaxBiased) << kFrac;
  // The leading significand bit: hidden just above the fraction, or the
  // fraction's own top bit.
  static constexpr B kLead = B{1} << (kPrecision - 1);
  static constexpr B kInfinity = kExponentMask | (kExplicit ? kLead : 0);
  static constexpr B kQuiet = kLead >> 1;
  // The NaN with every fraction bit set.
  static constexpr B kDefaultNaN = kMagnitude;

  static constexpr bool negative(B x) { return (x >> (kExp + kFrac)) & 1; }
  static constexpr int biased(B x) { return static_cast<int>((x >> kFrac) & kMaxBiased); }
  // The stored fraction (with the x87 integer bit).
  static constexpr B fraction(B x) { return x & kFractionMask; }
  // The significand as an integer: the stored fraction and, for normal
  // numbers of an implicit format, the hidden bit.
  static constexpr B significand(B x) {
    if constexpr (kExplicit) return fraction(x);
    const int b = biased(x);
    return fraction(x) | (b != 0 && b != kMaxBiased ? kLead : 0);
  }
  // The fraction bits that make a NaN (and not an infinity).
  static constexpr B payload(B x) { return x & (kExplicit ? kFractionMask >> 1 : kFractionMask); }
  static constexpr bool is_zero(B x) { return (x & kMagnitude) == 0; }
  static constexpr bool is_infinity(B x) { return biased(x) == kMaxBiased && payload(x) == 0; }
  static constexpr bool is_nan(B x) { return biased(x) == kMaxBiased && payload(x) != 0; }
  static constexpr B pack(bool negative, int biased, B fraction) {
    return (negative ? kSign : 0) | (B(biased) << kFrac) | fraction;
  }
};

using Binary32 = BinaryFormat<uint32_t, 8, 23>;
using Binary64 = BinaryFormat<uint64_t, 11, 52>;
using X87Extended = BinaryFormat<u128, 15, 64, true>;
using Binary128 = BinaryFormat<u128, 15, 112>;

// The format of a REAL of N bytes (10: the x87 format).
template <int N>
using RealFormat = std::conditional_t<
    N == 4, Binary32,
    std::conditional_t<N == 8, Binary64, std::conditional_t<N == 10, X87Extended, Binary128>>>;

// The rounding directions, in the order of FPR_* and of the SSE control
// register's rounding field.
enum Rounding : uint32_t { kNearest = 0, kDown = 1, kUp = 2, kTowardZero = 3 };

// What rounding adds to the discarded part of a magnitude (kExtra bits
// below the last kept one) before cutting it off, by direction and sign:
// half a unit in nearest (ties are then made even), all but nothing to
// round away from zero, nothing to round toward it.  Down and up swap for
// negative values.
template <int kExtra, class R>
[[gnu::always_inline]] inline R rounding_add(uint32_t mode, bool negative) {
  constexpr R kHalf = R{1} << (kExtra - 1), kAll = (R{1} << kExtra) - 1;
  static constexpr R kAdd[4][2] = {{kHalf, kHalf}, {0, kAll}, {kAll, 0}, {0, 0}};
  return kAdd[mode & 3][negative];
}

// x >> n with every bit shifted out ORed into bit 0, for any n.  Without
// branches (the shift counts of random operands defeat prediction): a count
// past the width is cut to width - 1, where the top bit and the sticky
// bit together still say whether x was non-zero.
template <typename U>
[[gnu::always_inline]] inline U shift_right_jam(U x, uint32_t n) {
  constexpr uint32_t kLast = sizeof(U) * 8 - 1;
  const uint32_t m = n < kLast ? n : kLast;
  return (x >> m) | U((x & ((U{1} << m) - 1)) != 0);
}

// Underflow and inexact raised by a real single-precision product: the
// smallest normal number plus one unit, halved.
void raise_underflow();

// Rounds sig into the implicit-lead format L and packs it under `sign` (an
// image with at most the sign bit set).  sig has its leading bit on top of
// U and the bits below the last kept one are the round bits, the lowest of
// them a sticky mark; exp is the biased exponent less one, so that the
// leading bit, landing just above the fraction, adds the missing one to the
// exponent field and a rounding carry moves on into it by itself.  Below
// the normal range the significand is shifted to the subnormal position
// first (a subnormal may also come with exp 0 and its leading bit lower
// down); above it the result is an infinity, or the largest finite number
// when rounding goes toward zero.  *dropped gets the round bits as they
// were cut off (zero when the result is exact), or all ones on overflow.
// kTinyRaises makes an inexact result below the normal range raise
// underflow, as the arithmetic must.
template <class L, bool kTinyRaises, class U, class R>
[[gnu::always_inline]] inline U round_pack_core(U sign, int32_t exp, U sig, uint32_t mode,
                                                R* dropped) {
  static_assert(!L::kExplicitLead && sizeof(U) * 8 > L::kFractionBits + 1);
  constexpr int kExtra = int(sizeof(U)) * 8 - 1 - L::kFractionBits;
  constexpr R kExtraMask = (R{1} << kExtra) - 1;
  constexpr R kHalfUnit = R{1} << (kExtra - 1);
  constexpr int32_t kExpLimit = L::kMaxBiased - 1;
  const R add = rounding_add<kExtra, R>(mode, sign != 0);
  if (uint32_t(exp) >= uint32_t(kExpLimit)) [[unlikely]] {
    if (exp >= 0) {
      *dropped = kExtraMask;
      const U infinity = U(L::kMaxBiased) << L::kFractionBits;
      return sign | (add == 0 ? infinity - 1 : infinity);
    }
    sig = shift_right_jam(sig, uint32_t(-int64_t{exp}));
    exp = 0;
    if (kTinyRaises && (R(sig) & kExtraMask) != 0) raise_underflow();
  }
  const R rest = R(sig) & kExtraMask;
  *dropped = rest;
  U kept = (sig >> kExtra) + U((rest + add) >> kExtra);
  // A tie in nearest goes to the even neighbour.
  kept &= ~U((rest == kHalfUnit) & (add == kHalfUnit));
  return sign | ((U(uint32_t(exp)) << L::kFractionBits) + kept);
}

template <class L, class U>
using RoundBits = std::conditional_t<(int(sizeof(U)) * 8 - 1 - L::kFractionBits < 32), uint32_t, U>;

// The rounding of the arithmetic, which raises what it must itself.
template <class L, bool kTinyRaises = false, class U = typename L::Bits>
[[gnu::always_inline]] inline U round_pack(U sign, int32_t exp, U sig, uint32_t mode) {
  RoundBits<L, U> dropped;
  return round_pack_core<L, kTinyRaises>(sign, exp, sig, mode, &dropped);
}

// The same rounding for conversions, which report what happened instead of
// raising it: the magnitude's image, with inexact, underflow (tiny before
// rounding, and inexact) and overflow ORed into *exceptions.
template <class L, class U = typename L::Bits>
[[gnu::always_inline]] inline U round_pack_reporting(bool negative, int32_t exp, U sig,
                                                     uint32_t mode, unsigned* exceptions) {
  constexpr int kTop = int(sizeof(U)) * 8 - 1;
  RoundBits<L, U> dropped;
  const U image = round_pack_core<L, false>(U(negative) << kTop, exp, sig, mode, &dropped);
  const U magnitude = image & ~(U{1} << kTop);
  if (dropped != 0) [[likely]] {
    unsigned x = FPX_INEXACT;
    if (exp < 0 || (exp == 0 && !(sig >> kTop))) x |= FPX_UNDERFLOW;
    if (exp >= L::kMaxBiased - 1 || (magnitude >> L::kFractionBits) == U(L::kMaxBiased))
      x |= FPX_OVERFLOW;
    *exceptions |= x;
  }
  return magnitude;
}

}  // namespace qal
