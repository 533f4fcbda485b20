// Rounding into the binary formats, shared by the decimal-to-binary entries
// and the packers of UnpackedFloat values.
#pragma once

#include <stdint.h>

#include "qal/convert.h"

namespace qal {

// A binary format: significand bits (the leading one included) and the
// range of unbiased exponents of normal numbers.
struct Format {
  int precision;
  int emin, emax;
};
inline constexpr Format kSingle{24, -126, 127};
inline constexpr Format kDouble{53, -1022, 1023};
inline constexpr Format kExtended{64, -16382, 16383};
inline constexpr Format kQuad{113, -16382, 16383};

// A finite result: value = significand * 2**(exponent - precision + 1),
// significand below 2**precision; a subnormal has significand below
// 2**(precision - 1) and exponent emin.  `infinite` for an overflow that
// rounds to infinity.
struct Rounded {
  unsigned __int128 significand = 0;
  int exponent = 0;
  bool infinite = false;
  unsigned exceptions = 0;
};

// Whether a value whose kept bits end in `odd`, with the first dropped bit
// `half` and anything below it `rest`, rounds away from zero.
inline bool away_from_zero(int rounding, int sign, bool half, bool rest, bool odd) {
  switch (rounding) {
    case FPR_NEAREST:
      return half && (rest || odd);
    case FPR_UP:
      return !sign && (half || rest);
    case FPR_DOWN:
      return sign && (half || rest);
    default:
      return false;
  }
}

// The largest finite value or infinity, as the direction asks on overflow;
// zero or the smallest subnormal on underflow.
Rounded overflow(const Format& f, int rounding, int sign);
Rounded underflow(const Format& f, int rounding, int sign);

// *u rounded once into f (the sentinels give overflow and underflow).
Rounded round_unpacked(const UnpackedFloat& u, const Format& f, int rounding);

// The IEEE image of `total_bits` of a rounded value of class FPC_NORMAL, or
// the image of another class; a quiet NaN's fraction comes from
// r.significand (its quiet bit always set).
unsigned __int128 pack_ieee(int fp_class, int sign, const Rounded& r, const Format& f,
                            int total_bits);

// The x87 image (explicit leading bit) as three 32-bit words; a quiet
// NaN's significand from r.significand, as above.
void pack_x87(int fp_class, int sign, const Rounded& r, uint32_t result[3]);

}  // namespace qal
