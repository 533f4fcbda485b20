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
#include "util/binary_format.h"

namespace qal {

using i128 = __int128;

inline constexpr u128 kSign = Binary128::kSign;
inline constexpr u128 kMagnitude = Binary128::kMagnitude;
inline constexpr u128 kHidden = Binary128::kLead;
inline constexpr u128 kFraction = Binary128::kFractionMask;
inline constexpr u128 kInfinity = Binary128::kInfinity;
inline constexpr u128 kQuiet = Binary128::kQuiet;
inline constexpr u128 kDefaultNaN = Binary128::kDefaultNaN;
inline constexpr int32_t kBias = Binary128::kBias;

[[gnu::always_inline]] inline u128 load(const QuadImage* p) {
  u128 v;
  memcpy(&v, p, sizeof v);
  return v;
}

[[gnu::always_inline]] inline void store(QuadImage* p, u128 v) { memcpy(p, &v, sizeof v); }

// The rounding direction in MXCSR bits 13 and 14.
[[gnu::always_inline]] inline uint32_t rounding_mode() {
  uint32_t csr;
  asm volatile("stmxcsr %0" : "=m"(csr));
  return (csr >> 13) & 3;
}

[[gnu::always_inline]] inline int clz128(u128 x) {
  const uint64_t hi = uint64_t(x >> 64);
  return hi ? std::countl_zero(hi) : 64 + std::countl_zero(uint64_t(x));
}

[[gnu::always_inline]] inline u128 round_pack_quad(u128 sign, int32_t exp, u128 sig,
                                                   uint32_t mode) {
  return round_pack<Binary128>(sign, exp, sig, mode);
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
