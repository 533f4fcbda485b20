// Decimal to binary, exactly: the value of a decimal record, digits D and
// exponent E (D times 10**E), rounded once into single, double, extended or
// binary128 in the requested direction.
//
// The number is carried as a big integer M and a power of two b, value =
// M * 2**b, with a sticky mark for anything non-zero below M:
//
//   E >= 0:  M = D * 10**E, b = 0
//   E <  0:  M = floor(D * 2**s / 10**-E), b = -s, s large enough to leave
//            the format's precision and two more bits in M
//
// The division goes by 10**9 at a time, the remainders feeding the sticky
// mark; floor(floor(x / a) / b) is floor(x / (a * b)), so nothing is lost.
// A record whose exponent lies far outside every format's range is settled
// by the coarse checks before any arithmetic.
#include <string.h>

#include <type_traits>

#include "convert/decimal_input.h"
#include "convert/tables.h"
#include "qal/convert.h"

namespace qal {

namespace {

// Enough 32-bit limbs for 511 digits times the largest power of ten the
// coarse checks let through (10**12330 and a little), or for the shifted
// numerator of the smallest.
constexpr int kLimbs = 1440;

struct Big {
  int n = 0;  // limbs in use; the top one is not zero
  uint32_t limb[kLimbs];

  void multiply_add(uint32_t m, uint32_t add) {
    uint64_t carry = add;
    for (int i = 0; i < n; ++i) {
      const uint64_t x = uint64_t{limb[i]} * m + carry;
      limb[i] = static_cast<uint32_t>(x);
      carry = x >> 32;
    }
    if (carry) limb[n++] = static_cast<uint32_t>(carry);
  }
  // Divides by d in place; true when a remainder was left.
  bool divide(uint32_t d) {
    uint64_t rest = 0;
    for (int i = n - 1; i >= 0; --i) {
      const uint64_t x = (rest << 32) | limb[i];
      limb[i] = static_cast<uint32_t>(x / d);
      rest = x % d;
    }
    while (n > 0 && limb[n - 1] == 0) --n;
    return rest != 0;
  }
  void shift_left(int bits) {
    const int words = bits / 32, rest = bits % 32;
    if (n == 0) return;
    limb[n] = 0;
    for (int i = n; i >= 0; --i) {
      const uint64_t w =
          (uint64_t{limb[i]} << rest) | (i > 0 && rest ? limb[i - 1] >> (32 - rest) : 0);
      limb[i + words] = static_cast<uint32_t>(w);
    }
    for (int i = 0; i < words; ++i) limb[i] = 0;
    n += words + 1;
    while (n > 0 && limb[n - 1] == 0) --n;
  }
  int bits() const { return n == 0 ? 0 : 32 * (n - 1) + (32 - __builtin_clz(limb[n - 1])); }
  bool bit(int k) const { return k >= 0 && k < 32 * n && ((limb[k / 32] >> (k % 32)) & 1); }
  // Whether any bit below k is set.
  bool any_below(int k) const {
    for (int i = 0; i < n && 32 * i < k; ++i) {
      const int top = k - 32 * i;
      const uint32_t mask = top >= 32 ? ~0u : (1u << top) - 1;
      if (limb[i] & mask) return true;
    }
    return false;
  }
  // The `count` bits from bit `low` up (count at most 128).
  unsigned __int128 field(int low, int count) const {
    unsigned __int128 v = 0;
    for (int k = count - 1; k >= 0; --k) v = (v << 1) | (bit(low + k) ? 1 : 0);
    return v;
  }
};

// A binary format: significand bits (the leading one included) and the
// range of unbiased exponents of normal numbers.
struct Format {
  int precision;
  int emin, emax;
};
constexpr Format kSingle{24, -126, 127};
constexpr Format kDouble{53, -1022, 1023};
constexpr Format kExtended{64, -16382, 16383};
constexpr Format kQuad{113, -16382, 16383};

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

bool away_from_zero(int rounding, int sign, bool half, bool rest, bool odd) {
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

// The largest finite value, or infinity, as the direction asks on overflow.
Rounded overflow(const Format& f, int rounding, int sign) {
  Rounded r;
  r.exceptions = FPX_OVERFLOW | FPX_INEXACT;
  const bool to_infinity =
      rounding == FPR_NEAREST || (rounding == FPR_UP && !sign) || (rounding == FPR_DOWN && sign);
  if (to_infinity) {
    r.infinite = true;
  } else {
    r.significand = (static_cast<unsigned __int128>(1) << f.precision) - 1;
    r.exponent = f.emax;
  }
  return r;
}

// Zero or the smallest subnormal, as the direction asks on underflow.
Rounded underflow(const Format& f, int rounding, int sign) {
  Rounded r;
  r.exceptions = FPX_UNDERFLOW | FPX_INEXACT;
  r.exponent = f.emin;
  if ((rounding == FPR_UP && !sign) || (rounding == FPR_DOWN && sign)) r.significand = 1;
  return r;
}

// Rounds M * 2**b (and the sticky mark) into format f.
Rounded round_into(const Format& f, const Big& m, int b, bool sticky, int rounding, int sign) {
  const int length = m.bits();
  const int e = length - 1 + b;  // the exponent of the leading bit
  // Below the normal range the significand keeps fewer bits.
  const int keep = e >= f.emin ? f.precision : f.precision - (f.emin - e);
  if (keep < 0) return underflow(f, rounding, sign);
  const int low = length - keep;  // the lowest kept bit of M
  Rounded r;
  r.significand = keep > 0 ? m.field(low, keep) : 0;
  const bool half = m.bit(low - 1);
  const bool rest = sticky || m.any_below(low - 1);
  const bool inexact = half || rest;
  if (away_from_zero(rounding, sign, half, rest, r.significand & 1)) ++r.significand;
  r.exponent = e < f.emin ? f.emin : e;
  if (e >= f.emin && r.significand >> f.precision) {
    // Rounded up to the next power of two.
    r.significand >>= 1;
    ++r.exponent;
  } else if (e < f.emin && r.significand >> (f.precision - 1)) {
    // A subnormal rounded up into the normal range keeps its exponent:
    // the significand now has its leading bit.
  }
  if (r.exponent > f.emax) return overflow(f, rounding, sign);
  if (inexact) {
    r.exceptions |= FPX_INEXACT;
    if (e < f.emin) r.exceptions |= FPX_UNDERFLOW;
  }
  return r;
}

// w / 10**k for k at most 27, where 5**k fits in 63 bits, into a format of
// at most 53 bits: one division of the normalised digits, shifted up by 63,
// by 5**k leaves a quotient of at least 64 bits and an exact remainder.
// This settles the values the wide product cannot: those on or next to a
// rounding boundary, such as integers written with a fraction
// ("2621133400200602.0").
bool small_quotient(const Format& f, uint64_t w, int k, int sign, int rounding, Rounded* out) {
  using u128 = unsigned __int128;
  uint64_t five = 1;
  for (int i = 0; i < k; ++i) five *= 5;
  const int lz = __builtin_clzll(w);
  const u128 n = static_cast<u128>(w << lz) << 63;
  const u128 q = n / five;
  const bool remainder = n % five != 0;
  const uint64_t q_high = static_cast<uint64_t>(q >> 64);
  const int length = q_high ? 128 - __builtin_clzll(q_high) : 64;  // q is at least 2**63
  int exponent = length - 1 - 63 - lz - k;
  if (exponent < f.emin || exponent > f.emax) return false;
  const int low = length - f.precision;  // at least 11
  u128 mant = q >> low;
  const bool half = (q >> (low - 1)) & 1;
  const bool rest = remainder || (q & ((u128{1} << (low - 1)) - 1)) != 0;
  if (away_from_zero(rounding, sign, half, rest, mant & 1)) {
    ++mant;
    if (mant >> f.precision) {
      mant >>= 1;
      ++exponent;
    }
  }
  if (exponent > f.emax) return false;
  out->significand = mant;
  out->exponent = exponent;
  out->exceptions = (half || rest) ? FPX_INEXACT : 0;
  return true;
}

// The fast path: at most 19 digits and a power of five in the wide table.
// The digits, normalised to 64 bits, times the table's 128-bit mantissa of
// 5**q give the value's leading bits with an error below 2**65 in the
// 192-bit product (the mantissa is short of the power by less than two of
// its last units).  Unless that error could carry into the rounding bit,
// the rounding bit and the sticky mark are known: the sticky mark is set
// whenever the power is not exact, as the true product then lies above the
// computed one.  When it could, a short quotient decides if 10**-q is
// small enough, the exact way otherwise; results outside the normal range
// go the exact way too.
[[gnu::always_inline]] inline bool fast_path(const Format& f, uint64_t w, int q, int sign,
                                             int rounding, Rounded* out) {
  using u128 = unsigned __int128;
  if (w == 0 || q < -kWidePowerLimit || q > kWidePowerLimit) return false;
  const WidePower& t = wide_power(q);
  const int lz = __builtin_clzll(w);
  const uint64_t wn = w << lz;
  const u128 high = static_cast<u128>(wn) * t.hi;
  const u128 low = static_cast<u128>(wn) * t.lo;
  const u128 z = high + (low >> 64);  // bits 64..191 of the product
  const uint64_t z_low = static_cast<uint64_t>(low);
  const int top = (z >> 127) ? 191 : 190;
  const int half = top - f.precision;  // the rounding bit; at least 77
  const int below = half - 64;         // its place in z
  u128 mant = z >> (below + 1);
  const bool half_bit = (z >> below) & 1;
  const u128 rest = z & ((u128{1} << below) - 1);
  if (rest + 3 > (u128{1} << below))
    return f.precision <= 53 && q < 0 && q >= -27 && small_quotient(f, w, -q, sign, rounding, out);
  const bool exact_power = q >= 0 && q <= 55;
  const bool sticky = exact_power ? (rest != 0 || z_low != 0) : true;
  int exponent = top + t.exponent - 127 + q - lz;
  if (away_from_zero(rounding, sign, half_bit, sticky, mant & 1)) {
    ++mant;
    if (mant >> f.precision) {
      mant >>= 1;
      ++exponent;
    }
  }
  if (exponent < f.emin || exponent > f.emax) return false;
  out->significand = mant;
  out->exponent = exponent;
  out->exceptions = (half_bit || sticky) ? FPX_INEXACT : 0;
  return true;
}

// Upper exponent limits of the coarse checks, by format; the lower limit
// is 512 below the negative of it.
int upper_limit(const Format& f) {
  return f.precision == 24 ? 97 : f.precision == 53 ? 771 : 12330;
}

Rounded convert(const Format& f, const DecimalRecord& rec, int rounding) {
  const int sign = rec.sign != 0;
  const int upper = upper_limit(f);
  const int e10 = rec.exponent;
  int n = rec.ndigits;
  if (n > DECIMAL_RECORD_DIGITS - 1) n = DECIMAL_RECORD_DIGITS - 1;
  while (n > 0 && rec.digits[n - 1] == '0') --n;  // trailing zeros move into the exponent
  const int exponent = e10 + (rec.ndigits - n);
  if (n == 0 && !rec.more) {
    Rounded r;
    r.exponent = f.emin;
    return r;
  }
  if (exponent > upper) return overflow(f, rounding, sign);
  if (exponent <= -upper - 512) return underflow(f, rounding, sign);
  if (exponent < -upper && n < -upper - exponent) return underflow(f, rounding, sign);
  if (!rec.more && rec.ndigits <= 19) {
    uint64_t w = 0;
    for (int i = 0; i < rec.ndigits; ++i) w = w * 10 + static_cast<uint64_t>(rec.digits[i] - '0');
    Rounded fast;
    if (fast_path(f, w, rec.exponent, sign, rounding, &fast)) return fast;
  }
  Big m;
  for (int i = 0; i < n;) {
    // Nine digits at a time.
    uint32_t chunk = 0, scale = 1;
    for (int k = 0; k < 9 && i < n; ++k, ++i) {
      chunk = chunk * 10 + static_cast<uint32_t>(rec.digits[i] - '0');
      scale *= 10;
    }
    m.multiply_add(scale, chunk);
  }
  bool sticky = rec.more != 0;
  if (m.n == 0) {
    // Digits all zero but more beyond: a value too small to matter.
    return underflow(f, rounding, sign);
  }
  int b = 0;
  if (exponent >= 0) {
    for (int k = exponent; k > 0; k -= 9) {
      const int step = k < 9 ? k : 9;
      uint32_t p = 1;
      for (int j = 0; j < step; ++j) p *= 10;
      m.multiply_add(p, 0);
    }
  } else {
    // Enough bits that the quotient keeps precision + 2 of its own:
    // 10**k has fewer than 3.33 k + 1 bits.
    const int k = -exponent;
    const int s = f.precision + 3 + (k * 3322) / 1000 + 1 - m.bits() + 8;
    if (s > 0) {
      m.shift_left(s);
      b = -s;
    }
    for (int left = k; left > 0; left -= 9) {
      const int step = left < 9 ? left : 9;
      uint32_t p = 1;
      for (int j = 0; j < step; ++j) p *= 10;
      sticky |= m.divide(p);
    }
  }
  return round_into(f, m, b, sticky, rounding, sign);
}

uint64_t all_ones(int bits) { return bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1; }

// Packs into an IEEE layout of `bits` total, `fraction` fraction bits and
// exponent bias `bias`: class and sign from the record, the value from r.
unsigned __int128 pack_ieee(const DecimalRecord& rec, const Rounded& r, const Format& f,
                            int total_bits) {
  const int fraction = f.precision - 1;
  const int exponent_bits = total_bits - 1 - fraction;
  const unsigned __int128 sign = static_cast<unsigned __int128>(rec.sign != 0) << (total_bits - 1);
  const unsigned __int128 top = static_cast<unsigned __int128>(all_ones(exponent_bits)) << fraction;
  const unsigned __int128 fraction_mask = (static_cast<unsigned __int128>(1) << fraction) - 1;
  switch (rec.fp_class) {
    case FPC_ZERO:
      return sign;
    case FPC_INFINITY:
      return sign | top;
    case FPC_QUIET_NAN:
      return sign | top | fraction_mask;
    case FPC_SIGNALING_NAN:
      return sign | top | (fraction_mask >> 1);
    default:
      break;
  }
  if (r.infinite) return sign | top;
  if (r.significand >> fraction) {
    const int biased = r.exponent + f.emax;
    return sign | (static_cast<unsigned __int128>(biased) << fraction) |
           (r.significand & fraction_mask);
  }
  return sign | r.significand;  // subnormal or zero
}

template <class Store>
void decimal_to(const Format& f, DecimalMode* mode, DecimalRecord* rec, unsigned* exceptions,
                Store store) {
  Rounded r;
  if (rec->fp_class == FPC_NORMAL || rec->fp_class == FPC_SUBNORMAL)
    r = convert(f, *rec, mode->rounding);
  *exceptions = r.exceptions;
  store(r);
  if (r.exceptions) __base_conversion_set_exception(r.exceptions);
}

}  // namespace

template <int N>
bool fast_decimal_to_real(uint64_t w, int q, bool negative, int rounding, void* out) {
  static_assert(N == 4 || N == 8);
  using Bits = std::conditional_t<N == 4, uint32_t, uint64_t>;
  constexpr const Format& f = N == 4 ? kSingle : kDouble;
  constexpr int fraction = f.precision - 1;
  Rounded r;
  if (!fast_path(f, w, q, negative, rounding, &r)) return false;
  // A normal number: the leading bit of the significand is the exponent's
  // lowest bit's carry.
  const Bits magnitude =
      (static_cast<Bits>(r.exponent + f.emax - 1) << fraction) + static_cast<Bits>(r.significand);
  const Bits bits = (static_cast<Bits>(negative) << (8 * N - 1)) | magnitude;
  memcpy(out, &bits, N);
  if (r.exceptions) __base_conversion_set_exception(r.exceptions);
  return true;
}
template bool fast_decimal_to_real<4>(uint64_t, int, bool, int, void*);
template bool fast_decimal_to_real<8>(uint64_t, int, bool, int, void*);

extern "C" {

QAL_EXPORT void decimal_to_single(float* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  decimal_to(kSingle, mode, rec, exceptions, [&](const Rounded& r) {
    const uint32_t bits = static_cast<uint32_t>(pack_ieee(*rec, r, kSingle, 32));
    memcpy(result, &bits, 4);
  });
}

QAL_EXPORT void decimal_to_double(double* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  decimal_to(kDouble, mode, rec, exceptions, [&](const Rounded& r) {
    const uint64_t bits = static_cast<uint64_t>(pack_ieee(*rec, r, kDouble, 64));
    memcpy(result, &bits, 8);
  });
}

QAL_EXPORT void decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions) {
  decimal_to(kQuad, mode, rec, exceptions, [&](const Rounded& r) {
    const unsigned __int128 bits = pack_ieee(*rec, r, kQuad, 128);
    memcpy(result, &bits, 16);
  });
}

QAL_EXPORT void x86_decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                         unsigned* exceptions) {
  decimal_to_quadruple(result, mode, rec, exceptions);
}

// The x87 layout: an explicit leading bit in a 64-bit significand, then 15
// bits of biased exponent and the sign.
QAL_EXPORT void decimal_to_extended(uint32_t result[3], DecimalMode* mode, DecimalRecord* rec,
                                    unsigned* exceptions) {
  decimal_to(kExtended, mode, rec, exceptions, [&](const Rounded& r) {
    uint64_t significand = 0;
    uint32_t top = rec->sign ? 0x8000u : 0u;
    switch (rec->fp_class) {
      case FPC_ZERO:
        break;
      case FPC_INFINITY:
        top |= 0x7fff;
        significand = uint64_t{1} << 63;
        break;
      case FPC_QUIET_NAN:
        top |= 0x7fff;
        significand = ~uint64_t{0};
        break;
      case FPC_SIGNALING_NAN:
        top |= 0x7fff;
        significand = ~uint64_t{0} >> 1;
        break;
      default:
        if (r.infinite) {
          top |= 0x7fff;
          significand = uint64_t{1} << 63;
        } else {
          significand = static_cast<uint64_t>(r.significand);
          if (significand >> 63) top |= static_cast<uint32_t>(r.exponent + kExtended.emax);
        }
    }
    result[0] = static_cast<uint32_t>(significand);
    result[1] = static_cast<uint32_t>(significand >> 32);
    result[2] = top;
  });
}

}  // extern "C"

}  // namespace qal
