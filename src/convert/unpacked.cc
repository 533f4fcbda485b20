// UnpackedFloat: the shifts that keep its value, the one rounding into each
// binary format, and the packers.
//
// The 160-bit significand is read as a 192-bit number A = significand *
// 2**32 in three 64-bit words, so that the kept bits, the first dropped bit
// and the sticky rest come out of word shifts.
#include "convert/unpacked.h"

#include <string.h>

namespace qal {

extern "C" {
QAL_EXPORT int32_t _fp_current_direction = FPR_NEAREST;
QAL_EXPORT uint32_t _fp_current_exceptions = 0;
}

namespace {

using u128 = unsigned __int128;

struct Wide {
  uint64_t w[3];  // least significant first

  explicit Wide(const uint32_t s[5]) {
    w[2] = (uint64_t{s[0]} << 32) | s[1];
    w[1] = (uint64_t{s[2]} << 32) | s[3];
    w[0] = uint64_t{s[4]} << 32;
  }
  uint64_t word(int i) const { return i >= 0 && i < 3 ? w[i] : 0; }
  // The 128 bits of A >> s.
  u128 shifted(int s) const {
    const int ws = s >> 6, bs = s & 63;
    uint64_t r[2];
    for (int i = 0; i < 2; ++i) {
      const uint64_t low = word(i + ws), high = word(i + ws + 1);
      r[i] = bs ? (low >> bs) | (high << (64 - bs)) : low;
    }
    return (u128{r[1]} << 64) | r[0];
  }
  bool bit(int k) const { return k >= 0 && k < 192 && ((w[k >> 6] >> (k & 63)) & 1); }
  // Whether any bit below k is set.
  bool any_below(int k) const {
    for (int i = 0; i < 3 && 64 * i < k; ++i) {
      const int top = k - 64 * i;
      const uint64_t mask = top >= 64 ? ~uint64_t{0} : (uint64_t{1} << top) - 1;
      if (w[i] & mask) return true;
    }
    return false;
  }
};

bool significand_is_zero(const UnpackedFloat& u) {
  for (uint32_t w : u.significand)
    if (w) return false;
  return true;
}

void shift_right(UnpackedFloat* u, int n) {
  if (n <= 0) return;
  uint32_t* s = u->significand;
  if (n >= 160) {
    const bool any = !significand_is_zero(*u);
    memset(s, 0, sizeof u->significand);
    s[4] = any;
    return;
  }
  const int words = n / 32, bits = n % 32;
  bool sticky = false;
  for (int i = 5 - words; i < 5; ++i) sticky |= s[i] != 0;
  if (bits) sticky |= (s[4 - words] << (32 - bits)) != 0;
  uint32_t out[5];
  for (int i = 4; i >= 0; --i) {
    const int from = i - words;
    const uint32_t low = from >= 0 ? s[from] : 0;
    const uint32_t high = from - 1 >= 0 ? s[from - 1] : 0;
    out[i] = bits ? (low >> bits) | (high << (32 - bits)) : low;
  }
  memcpy(s, out, sizeof out);
  s[4] |= sticky;
}

void shift_left(UnpackedFloat* u, int n) {
  if (n <= 0) return;
  uint32_t* s = u->significand;
  if (n >= 160) {
    memset(s, 0, sizeof u->significand);
    return;
  }
  const int words = n / 32, bits = n % 32;
  uint32_t out[5];
  for (int i = 0; i < 5; ++i) {
    const int from = i + words;
    const uint32_t high = from < 5 ? s[from] : 0;
    const uint32_t low = from + 1 < 5 ? s[from + 1] : 0;
    out[i] = bits ? (high << bits) | (low >> (32 - bits)) : high;
  }
  memcpy(s, out, sizeof out);
}

void normalize(UnpackedFloat* u) {
  if (significand_is_zero(*u)) {
    u->fp_class = FPC_ZERO;
    return;
  }
  int lead = 0;
  while (u->significand[lead / 32] == 0) lead += 32;
  lead += __builtin_clz(u->significand[lead / 32]);
  shift_left(u, lead);
  u->exponent -= lead;
}

// The images of zero, infinity and NaN: a quiet NaN takes the fraction
// bits of `payload` and its quiet bit, a signaling one every fraction bit
// but the quiet bit.
u128 special_image(int fp_class, u128 sign, u128 top, u128 fraction_mask, u128 payload) {
  switch (fp_class) {
    case FPC_INFINITY:
      return sign | top;
    case FPC_QUIET_NAN:
      return sign | top | (payload & fraction_mask) | ((fraction_mask >> 1) + 1);
    case FPC_SIGNALING_NAN:
      return sign | top | (fraction_mask >> 1);
    default:
      return sign;
  }
}

uint64_t all_ones(int bits) { return bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1; }

// The rounding of an entry point's own direction, ORed into the shared
// accumulator as the packers must.
template <class Store>
void pack_shared(UnpackedFloat* u, const Format& f, Store store) {
  const int rounding = __atomic_load_n(&_fp_current_direction, __ATOMIC_RELAXED);
  Rounded r;
  if (u->fp_class == FPC_NORMAL) r = round_unpacked(*u, f, rounding);
  // A NaN's payload: the bits behind the leading one, as many as the
  // format's fraction has.
  if (u->fp_class == FPC_QUIET_NAN) r.significand = Wide(u->significand).shifted(192 - f.precision);
  if (u->fp_class == FPC_NORMAL || u->fp_class == FPC_ZERO || u->fp_class == FPC_INFINITY ||
      u->fp_class == FPC_QUIET_NAN)
    store(r);
  if (r.exceptions) __atomic_fetch_or(&_fp_current_exceptions, r.exceptions, __ATOMIC_RELAXED);
}

}  // namespace

Rounded overflow(const Format& f, int rounding, int sign) {
  Rounded r;
  r.exceptions = FPX_OVERFLOW | FPX_INEXACT;
  const bool to_infinity =
      rounding == FPR_NEAREST || (rounding == FPR_UP && !sign) || (rounding == FPR_DOWN && sign);
  if (to_infinity) {
    r.infinite = true;
  } else {
    r.significand = (u128{1} << f.precision) - 1;
    r.exponent = f.emax;
  }
  return r;
}

Rounded underflow(const Format& f, int rounding, int sign) {
  Rounded r;
  r.exceptions = FPX_UNDERFLOW | FPX_INEXACT;
  r.exponent = f.emin;
  if ((rounding == FPR_UP && !sign) || (rounding == FPR_DOWN && sign)) r.significand = 1;
  return r;
}

Rounded round_unpacked(const UnpackedFloat& in, const Format& f, int rounding) {
  const int sign = in.sign & 1;
  if (in.exponent >= UNPACKED_TOO_LARGE) return overflow(f, rounding, sign);
  if (in.exponent <= -UNPACKED_TOO_LARGE) return underflow(f, rounding, sign);
  UnpackedFloat u = in;
  normalize(&u);
  Rounded r;
  if (u.fp_class == FPC_ZERO) {
    r.exponent = f.emin;
    return r;
  }
  const int e = u.exponent;
  // Below the normal range the significand keeps fewer bits.
  const int keep = e >= f.emin ? f.precision : f.precision - (f.emin - e);
  const Wide a(u.significand);
  const int low = 192 - keep;  // the lowest kept bit of A
  bool half, rest;
  if (keep > 0) {
    r.significand = a.shifted(low);
    half = a.bit(low - 1);
    rest = a.any_below(low - 1);
  } else {
    half = keep == 0;  // the leading bit, when it is the first dropped one
    rest = keep < 0 || a.any_below(191);
  }
  const bool inexact = half || rest;
  if (away_from_zero(rounding, sign, half, rest, r.significand & 1)) ++r.significand;
  r.exponent = e < f.emin ? f.emin : e;
  // Rounded up to the next power of two.  (A subnormal rounded up into the
  // normal range keeps its exponent: the significand now has its leading
  // bit.)
  if (e >= f.emin && r.significand >> f.precision) {
    r.significand >>= 1;
    ++r.exponent;
  }
  if (r.exponent > f.emax) return overflow(f, rounding, sign);
  if (inexact) {
    r.exceptions |= FPX_INEXACT;
    if (e < f.emin) r.exceptions |= FPX_UNDERFLOW;
  }
  return r;
}

u128 pack_ieee(int fp_class, int sign, const Rounded& r, const Format& f, int total_bits) {
  const int fraction = f.precision - 1;
  const int exponent_bits = total_bits - 1 - fraction;
  const u128 sign_bit = u128(sign != 0) << (total_bits - 1);
  const u128 top = u128(all_ones(exponent_bits)) << fraction;
  const u128 fraction_mask = (u128{1} << fraction) - 1;
  if (fp_class != FPC_NORMAL && fp_class != FPC_SUBNORMAL)
    return special_image(fp_class, sign_bit, top, fraction_mask, r.significand);
  if (r.infinite) return sign_bit | top;
  if (r.significand >> fraction) {
    const int biased = r.exponent + f.emax;
    return sign_bit | (u128(biased) << fraction) | (r.significand & fraction_mask);
  }
  return sign_bit | r.significand;  // subnormal or zero
}

void pack_x87(int fp_class, int sign, const Rounded& r, uint32_t result[3]) {
  uint64_t significand = 0;
  uint32_t top = sign ? 0x8000u : 0u;
  switch (fp_class) {
    case FPC_ZERO:
      break;
    case FPC_INFINITY:
      top |= 0x7fff;
      significand = uint64_t{1} << 63;
      break;
    case FPC_QUIET_NAN:
      top |= 0x7fff;
      significand = static_cast<uint64_t>(r.significand) | (uint64_t{3} << 62);
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
}

extern "C" {

QAL_EXPORT void __fp_rightshift(UnpackedFloat* u, int n) {
  if (n >= 160 && significand_is_zero(*u)) {
    u->fp_class = FPC_ZERO;
    return;
  }
  shift_right(u, n);
  u->exponent += n;
}

QAL_EXPORT void __fp_leftshift(UnpackedFloat* u, int n) {
  shift_left(u, n);
  u->exponent -= n;
}

QAL_EXPORT void __fp_normalize(UnpackedFloat* u) { normalize(u); }

QAL_EXPORT void __pack_single(UnpackedFloat* u, float* result) {
  pack_shared(u, kSingle, [&](const Rounded& r) {
    const uint32_t bits =
        static_cast<uint32_t>(pack_ieee(u->fp_class, u->sign & 1, r, kSingle, 32));
    memcpy(result, &bits, 4);
  });
}

QAL_EXPORT void __pack_double(UnpackedFloat* u, double* result) {
  pack_shared(u, kDouble, [&](const Rounded& r) {
    const uint64_t bits =
        static_cast<uint64_t>(pack_ieee(u->fp_class, u->sign & 1, r, kDouble, 64));
    memcpy(result, &bits, 8);
  });
}

QAL_EXPORT void __pack_quadruple(UnpackedFloat* u, uint32_t result[4]) {
  pack_shared(u, kQuad, [&](const Rounded& r) {
    const u128 bits = pack_ieee(u->fp_class, u->sign & 1, r, kQuad, 128);
    memcpy(result, &bits, 16);
  });
}

QAL_EXPORT void __pack_extended(UnpackedFloat* u, uint32_t result[3]) {
  pack_shared(u, kExtended,
              [&](const Rounded& r) { pack_x87(u->fp_class, u->sign & 1, r, result); });
}

}  // extern "C"

}  // namespace qal
