// Shared pieces of the binary128 routines.
//
// An image is handled as one unsigned 128-bit integer (the words are stored
// least significant first, so a plain 16-byte load gives the encoding):
//
//   127  126 ........ 112  111 ................................ 0
//   sign  biased exponent  fraction (hidden bit 112 when normal)
//
// Inside an operation a finite non-zero value is a significand `sig` with
// its leading bit at 127 and an exponent `exp`, the biased exponent less
// one: value = sig * 2**(exp + 1 - 16383 - 127).  The 15 bits below the last
// kept bit are the round bits, the lowest of them a sticky mark.  That
// choice makes packing a single addition: sig >> 15 puts the leading bit on
// bit 112, which adds the missing one to the exponent field, and a rounding
// carry out of the fraction moves on into the exponent by itself.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>
#include <type_traits>

#include "qal/quad.h"

namespace qal {

using u128 = unsigned __int128;
using i128 = __int128;

inline constexpr u128 kSign = u128{1} << 127;
inline constexpr u128 kMagnitude = ~kSign;
inline constexpr u128 kHidden = u128{1} << 112;
inline constexpr u128 kFraction = kHidden - 1;
inline constexpr u128 kInfinity = u128{0x7fff} << 112;
inline constexpr u128 kQuiet = u128{1} << 111;
inline constexpr u128 kDefaultNaN = kMagnitude;
inline constexpr int32_t kBias = 16383;

[[gnu::always_inline]] inline u128 load(const QuadImage* p) {
  u128 v;
  memcpy(&v, p, sizeof v);
  return v;
}

[[gnu::always_inline]] inline void store(QuadImage* p, u128 v) { memcpy(p, &v, sizeof v); }

// The rounding direction in MXCSR bits 13 and 14.
enum Rounding : uint32_t { kNearest = 0, kDown = 1, kUp = 2, kTowardZero = 3 };

[[gnu::always_inline]] inline uint32_t rounding_mode() {
  uint32_t csr;
  asm volatile("stmxcsr %0" : "=m"(csr));
  return (csr >> 13) & 3;
}

// What rounding adds to the discarded part of a magnitude (kExtra bits
// below the last kept one) before cutting it off, by direction and sign:
// half a unit in nearest (ties are then made even), all but nothing to
// round away from zero, nothing to round toward it.  Down and up swap for
// negative values.
template <int kExtra>
inline constexpr uint32_t kRoundingAdd[4][2] = {{1u << (kExtra - 1), 1u << (kExtra - 1)},
                                                {0, (1u << kExtra) - 1},
                                                {(1u << kExtra) - 1, 0},
                                                {0, 0}};

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

[[gnu::always_inline]] inline int clz128(u128 x) {
  const uint64_t hi = uint64_t(x >> 64);
  return hi ? std::countl_zero(hi) : 64 + std::countl_zero(uint64_t(x));
}

// Underflow and inexact raised by a real single-precision product: the
// smallest normal number plus one unit, halved.
void raise_underflow();

// Rounds sig (leading bit on top of U) to a format with kExpBits of exponent
// and kFracBits of fraction, and packs it under `sign`.  exp is the biased
// exponent less one.  Below the normal range the significand is shifted to
// the subnormal position first; above it the result is an infinity, or the
// largest finite number when rounding goes toward zero.  kTinyRaises makes
// an inexact result below the normal range raise underflow.
template <typename U, int kExpBits, int kFracBits, bool kTinyRaises>
[[gnu::always_inline]] inline U round_pack(U sign, int32_t exp, U sig, uint32_t mode) {
  constexpr int kExtra = int(sizeof(U)) * 8 - 1 - kFracBits;
  constexpr uint32_t kExtraMask = (uint32_t{1} << kExtra) - 1;
  constexpr uint32_t kHalfUnit = uint32_t{1} << (kExtra - 1);
  constexpr int32_t kExpLimit = (1 << kExpBits) - 2;
  const uint32_t add = kRoundingAdd<kExtra>[mode][sign != 0];
  if (uint32_t(exp) >= uint32_t(kExpLimit)) [[unlikely]] {
    if (exp >= 0) {
      const U infinity = U((U{1} << kExpBits) - 1) << kFracBits;
      return sign | (add == 0 ? infinity - 1 : infinity);
    }
    sig = shift_right_jam(sig, uint32_t(-int64_t{exp}));
    exp = 0;
    if (kTinyRaises && (uint32_t(sig) & kExtraMask) != 0) raise_underflow();
  }
  const uint32_t rest = uint32_t(sig) & kExtraMask;
  U kept = (sig >> kExtra) + ((rest + add) >> kExtra);
  // A tie in nearest goes to the even neighbour.
  kept &= ~U((rest == kHalfUnit) & (add == kHalfUnit));
  return sign | ((U(uint32_t(exp)) << kFracBits) + kept);
}

[[gnu::always_inline]] inline u128 round_pack_quad(u128 sign, int32_t exp, u128 sig,
                                                   uint32_t mode) {
  return round_pack<u128, 15, 112, false>(sign, exp, sig, mode);
}

[[gnu::always_inline]] inline bool is_nan(u128 x) { return (x & kMagnitude) > kInfinity; }

// The NaN that an operation on x and y (x the first operand, one of them a
// NaN) returns, quieted: a quiet NaN before a signaling one, and the first
// operand's when both are of one kind.
[[gnu::always_inline]] inline u128 nan_result(u128 x, u128 y) {
  const bool take_y = !is_nan(x) || (is_nan(y) && !(x & kQuiet) && (y & kQuiet));
  return (take_y ? y : x) | kQuiet;
}

// Significand and exponent of a finite non-zero magnitude, leading bit on
// bit 127.  A subnormal gets an exponent of zero or less.
[[gnu::always_inline]] inline void unpack(u128 m, u128& sig, int32_t& exp) {
  const int32_t field = int32_t(m >> 112);
  if (field != 0) [[likely]] {
    sig = ((m & kFraction) | kHidden) << 15;
    exp = field - 1;
  } else {
    const int lz = clz128(m);
    sig = m << lz;
    exp = 15 - lz;
  }
}

}  // namespace qal
