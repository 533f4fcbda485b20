// Rounding into the binary formats, shared by the decimal-to-binary entries
// and the packers of UnpackedFloat values.
#pragma once

#include <stdint.h>

#include "qal/convert.h"
#include "util/binary_format.h"

namespace qal {

// A binary format: significand bits (the leading one included) and the
// range of unbiased exponents of normal numbers.
struct Format {
  int precision;
  int emin, emax;
};
template <class L>
inline constexpr Format kFormatOf{L::kPrecision, L::kEmin, L::kEmax};
inline constexpr Format kSingle = kFormatOf<Binary32>;
inline constexpr Format kDouble = kFormatOf<Binary64>;
inline constexpr Format kExtended = kFormatOf<X87Extended>;
inline constexpr Format kQuad = kFormatOf<Binary128>;

// The x87 format as its implicit-lead twin, which the one rounding serves;
// pack_x87 stores the leading bit.
using X87Rounded = BinaryFormat<u128, 15, 63>;

// A rounded result: the image of its magnitude in the format (for x87 in
// X87Rounded), and what the rounding raised.  A quiet NaN's payload is
// carried in `image` too.
struct Rounded {
  u128 image = 0;
  unsigned exceptions = 0;
};

// sig * 2**(exponent - w + 1), sig of w bits with its leading bit on top
// and anything non-zero below the format's rounding bit marked in bit 0,
// rounded once into the format L (its twin for x87) in the direction FPR_*.
template <class L, class U>
[[gnu::always_inline]] inline Rounded round_bits(int sign, int exponent, U sig, int rounding) {
  Rounded r;
  r.image = round_pack_reporting<L, U>(sign, exponent + L::kBias - 1, sig,
                                       static_cast<uint32_t>(rounding), &r.exceptions);
  return r;
}

// The same for a 128-bit sig and a format known by its Format.  Exponents
// must lie within a few hundred thousand.
[[gnu::always_inline]] inline Rounded round_to(const Format& f, int sign, int exponent, u128 sig,
                                               int rounding) {
  switch (f.precision) {
    case Binary32::kPrecision:
      return round_bits<Binary32>(sign, exponent,
                                  static_cast<uint32_t>(sig >> 96) | ((sig << 32) != 0), rounding);
    case Binary64::kPrecision:
      return round_bits<Binary64>(
          sign, exponent, static_cast<uint64_t>(sig >> 64) | (static_cast<uint64_t>(sig) != 0),
          rounding);
    case X87Extended::kPrecision:
      return round_bits<X87Rounded>(sign, exponent, sig, rounding);
    default:
      return round_bits<Binary128>(sign, exponent, sig, rounding);
  }
}

// *u rounded once into f (the sentinels give overflow and underflow).
Rounded round_unpacked(const UnpackedFloat& u, const Format& f, int rounding);

// The image of a value of class fp_class under `sign`: r's for FPC_NORMAL;
// a quiet NaN's fraction from r.image (its quiet bit always set).
template <class L>
typename L::Bits pack_image(int fp_class, int sign, const Rounded& r) {
  using B = typename L::Bits;
  const B s = sign ? L::kSign : 0;
  switch (fp_class) {
    case FPC_NORMAL:
    case FPC_SUBNORMAL:
      return s | static_cast<B>(r.image);
    case FPC_INFINITY:
      return s | L::kInfinity;
    case FPC_QUIET_NAN:
      return s | L::kExponentMask | (static_cast<B>(r.image) & L::kFractionMask) | L::kQuiet;
    case FPC_SIGNALING_NAN:
      return s | L::kExponentMask | (L::kQuiet - 1);
    default:
      return s;
  }
}

// The x87 image (explicit leading bit) as three 32-bit words; a quiet
// NaN's significand from r.image, as above.
void pack_x87(int fp_class, int sign, const Rounded& r, uint32_t result[3]);

}  // namespace qal
