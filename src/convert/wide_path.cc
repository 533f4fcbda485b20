// The wide path: mant * 2**e * 10**s through one product with a 128-bit
// power of five, for results of up to 36 digits in any direction.
//
// With 5**s = T * 2**(b-127) + err (0 <= err < 2**(b-127), tables.h):
//
//   mant * 2**e * 10**s = (P + mant * err * 2**(127-b)) / 2**shift,
//   P = mant * T,  shift = 127 - b - e - s,
//
// and the second term is below mant units of 2**-shift.  So with F the low
// `shift` bits of P, the exact remainder lies in [F, F + mant), at F itself
// only when err is 0.  The integer part and the class of the remainder are
// certain unless that interval reaches 1 or straddles one half; those
// cases, about mant / 2**shift of all, go on to the exact path.
#include <array>

#include "convert/digits.h"
#include "convert/engine.h"
#include "convert/tables.h"
#include "util/decimal.h"

namespace qal {

namespace {

using u128 = unsigned __int128;

// The largest digit count served: 10**(n+2) must fit 128 bits.
constexpr int kMaxDigits = 36;

// Five 64-bit limbs, least significant first: a 256-bit product and the
// carry of one addition.
struct Wide {
  uint64_t w[5];

  bool bit(int i) const { return i < 320 && ((w[i >> 6] >> (i & 63)) & 1); }
  // Any bit at position i or above.
  bool any_from(int i) const {
    for (int k = 4; k >= 0; --k) {
      const int lo = k * 64;
      if (i <= lo) {
        if (w[k]) return true;
      } else if (i < lo + 64) {
        return (w[k] >> (i - lo)) != 0;
      }
    }
    return false;
  }
  // Any bit below position i.
  bool any_below(int i) const {
    for (int k = 0; k < 5 && k * 64 < i; ++k) {
      const int bits = i - k * 64;
      const uint64_t mask = bits >= 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
      if (w[k] & mask) return true;
    }
    return false;
  }
  // Bits [i, i+128).
  u128 field(int i) const {
    u128 r = 0;
    for (int k = 0; k < 3; ++k) {
      const int at = i + 64 * k;
      if (at >= 320) break;
      const int limb = at >> 6, off = at & 63;
      uint64_t v = w[limb] >> off;
      if (off && limb + 1 < 5) v |= w[limb + 1] << (64 - off);
      if (k < 2) r |= static_cast<u128>(v) << (64 * k);
    }
    return r;
  }
  void clear_from(int i) {
    for (int k = 0; k < 5; ++k) {
      const int lo = k * 64;
      if (i <= lo)
        w[k] = 0;
      else if (i < lo + 64)
        w[k] &= (uint64_t{1} << (i - lo)) - 1;
    }
  }
  void add(u128 v) {
    u128 carry = v;
    for (int k = 0; k < 5 && carry; ++k) {
      const u128 t = static_cast<u128>(w[k]) + static_cast<uint64_t>(carry);
      w[k] = static_cast<uint64_t>(t);
      carry = (carry >> 64) + (t >> 64);
    }
  }
};

Wide multiply(u128 a, uint64_t bhi, uint64_t blo) {
  const uint64_t ahi = static_cast<uint64_t>(a >> 64), alo = static_cast<uint64_t>(a);
  Wide p{};
  const u128 ll = static_cast<u128>(alo) * blo, lh = static_cast<u128>(alo) * bhi;
  p.w[0] = static_cast<uint64_t>(ll);
  u128 mid = (ll >> 64) + static_cast<uint64_t>(lh);
  u128 top = lh >> 64;
  if (ahi) {
    const u128 hl = static_cast<u128>(ahi) * blo, hh = static_cast<u128>(ahi) * bhi;
    mid += static_cast<uint64_t>(hl);
    top += (hl >> 64) + static_cast<uint64_t>(hh);
    p.w[3] = static_cast<uint64_t>(hh >> 64);
  }
  p.w[1] = static_cast<uint64_t>(mid);
  top += mid >> 64;
  p.w[2] = static_cast<uint64_t>(top);
  p.w[3] += static_cast<uint64_t>(top >> 64);
  return p;
}

int bit_length(u128 v) {
  const uint64_t hi = static_cast<uint64_t>(v >> 64);
  return hi ? 128 - __builtin_clzll(hi) : 64 - __builtin_clzll(static_cast<uint64_t>(v) | 1);
}

// q * 2**k with q exact.
bool dyadic(u128 q, int k, u128* y, Rest* rest) {
  if (k >= 0) {
    if (bit_length(q) + k > 128) return false;
    *y = q << k;
    *rest = Rest::kZero;
    return true;
  }
  const int sh = -k;
  if (sh > 128) {
    *y = 0;
    *rest = q ? Rest::kBelowHalf : Rest::kZero;
    return true;
  }
  const u128 frac = sh == 128 ? q : q & ((u128{1} << sh) - 1);
  const u128 half = u128{1} << (sh - 1);
  *y = sh == 128 ? 0 : q >> sh;
  *rest = frac == 0      ? Rest::kZero
          : frac < half  ? Rest::kBelowHalf
          : frac == half ? Rest::kHalf
                         : Rest::kAboveHalf;
  return true;
}

// One more digit into the rest: y / 10 with the digit dropped.
void drop_digit(u128* y, Rest* rest) {
  unsigned d;
  if (!(*y >> 64)) {  // 64-bit division by a constant is a multiplication
    const uint64_t v = static_cast<uint64_t>(*y);
    d = static_cast<unsigned>(v % 10);
    *y = v / 10;
  } else {
    d = static_cast<unsigned>(*y % 10);
    *y /= 10;
  }
  if (d == 0) {
    *rest = *rest == Rest::kZero ? Rest::kZero : Rest::kBelowHalf;
  } else if (d < 5) {
    *rest = Rest::kBelowHalf;
  } else if (d == 5) {
    *rest = *rest == Rest::kZero ? Rest::kHalf : Rest::kAboveHalf;
  } else {
    *rest = Rest::kAboveHalf;
  }
}

constexpr auto kPow10 = [] {
  std::array<u128, kMaxDigits + 3> t{};
  t[0] = 1;
  for (size_t k = 1; k < t.size(); ++k) t[k] = t[k - 1] * 10;
  return t;
}();

// The digits of v, left-padded with zeros to at least `width`, written in
// place from the last one back.
int store_digits(u128 v, int width, char* out) {
  if (!(v >> 64)) {
    const uint64_t v64 = static_cast<uint64_t>(v);
    const int n = decimal_length(v64);
    const int count = width > n ? width : n;
    char* first = unsigned_to_decimal_backward(v64, out + count);
    while (first > out) *--first = '0';
    return count;
  }
  char buf[48];
  char* end = buf + sizeof buf;
  char* p = u128_digits_backward(v, end);
  int n = static_cast<int>(end - p);
  int pad = width > n ? width - n : 0;
  for (int i = 0; i < pad; ++i) out[i] = '0';
  for (int i = 0; i < n; ++i) out[pad + i] = p[i];
  return pad + n;
}

// The rest of a fraction known exactly: `high` and `low` are its bits
// below the unit, `half` its half in the units of `high`.
Rest exact_rest(u128 high, uint64_t low, u128 half) {
  if (high > half || (high == half && low)) return Rest::kAboveHalf;
  if (high == half) return Rest::kHalf;
  return high || low ? Rest::kBelowHalf : Rest::kZero;
}

// The usual case of a significand of at most 64 bits (every double and
// float), in 128-bit arithmetic without loops:
//
//   - 0 <= s <= 27: 5**s fits 64 bits, so mant * 5**s is one exact
//     128-bit product, and the power of two is a shift;
//   - otherwise one product with the 128-bit power, when the 192-bit
//     result puts the unit between bits 65 and 191, which is where the
//     digit counts of the editors put it.
//
// False hands the case to the general code, which also settles doubts.
bool narrow_scaled(uint64_t mant, int e, int s, u128* y, Rest* rest) {
  if (s >= 0 && s < static_cast<int>(kPow5.size())) {
    const u128 q = static_cast<u128>(mant) * kPow5[s];
    return dyadic(q, e + s, y, rest);
  }
  const WidePower& t = wide_power(s);
  const int shift = 127 - t.exponent - e - s;
  if (shift > 193) {  // the product and its error stay below a quarter
    *y = 0;
    *rest = Rest::kBelowHalf;
    return true;
  }
  if (shift <= 64 || shift >= 192) return false;
  const u128 a = static_cast<u128>(mant) * t.lo, b = static_cast<u128>(mant) * t.hi;
  const uint64_t low = static_cast<uint64_t>(a);
  const u128 high = b + static_cast<uint64_t>(a >> 64);  // cannot carry out: mant * T < 2**192
  const int r = shift - 64;                              // 1..127: the unit's bit in `high`
  const u128 unit = u128{1} << r, half = unit >> 1;
  *y = high >> r;
  u128 fraction = high & (unit - 1);
  if (s >= 0 && s <= 55) {  // the power is exact
    *rest = exact_rest(fraction, low, half);
    return true;
  }
  // The true fraction lies in [F, F + mant): both ends in one half.
  const bool above = fraction >= half;
  const uint64_t end_low = low + mant;
  fraction += end_low < low;
  if (above) {
    if (fraction >= unit) return false;
    *rest = Rest::kAboveHalf;
    return true;
  }
  if (fraction > half || (fraction == half && end_low)) return false;
  *rest = Rest::kBelowHalf;
  return true;
}

}  // namespace

bool wide_scaled(u128 mant, int e, int s, u128* y, Rest* rest) {
  if (s < -kWidePowerLimit || s > kWidePowerLimit) return false;
  if (!(mant >> 64) && narrow_scaled(static_cast<uint64_t>(mant), e, s, y, rest)) return true;
  // A value that is a power of two times an integer: exact in shifts.
  if (s < 0 && -s < static_cast<int>(kPow5.size())) {
    const uint64_t five = kPow5[-s];
    // 64-bit division when the significand allows: 128-bit division is a
    // library call.
    if (!(mant >> 64)) {
      const uint64_t m64 = static_cast<uint64_t>(mant);
      if (m64 % five == 0) return dyadic(m64 / five, e + s, y, rest);
    } else if (mant % five == 0) {
      return dyadic(mant / five, e + s, y, rest);
    }
  }
  const WidePower& t = wide_power(s);
  const int shift = 127 - t.exponent - e - s;
  if (shift <= 0) return false;
  if (shift > 256) {
    *y = 0;
    *rest = Rest::kBelowHalf;
    return true;
  }
  Wide p = multiply(mant, t.hi, t.lo);
  if (p.any_from(shift + 128)) return false;
  *y = p.field(shift);
  const bool exact = s >= 0 && s <= 55;
  p.clear_from(shift);
  if (exact) {
    const bool above = p.bit(shift - 1), low = p.any_below(shift - 1);
    *rest = above ? (low ? Rest::kAboveHalf : Rest::kHalf) : low ? Rest::kBelowHalf : Rest::kZero;
    return true;
  }
  if (p.bit(shift - 1)) {
    // F >= 1/2 and F + mant must stay below 1.
    p.add(mant);
    if (p.any_from(shift)) return false;
    *rest = Rest::kAboveHalf;
    return true;
  }
  p.add(mant);
  if (p.any_from(shift) || (p.bit(shift - 1) && p.any_below(shift - 1))) return false;
  *rest = Rest::kBelowHalf;
  return true;
}

bool wide_to_decimal(const Unpacked& u, const DecimalMode* mode, DecimalRecord* rec,
                     unsigned* exceptions) {
  const int n = mode->ndigits;
  u128 y;
  Rest rest;
  if (mode->form == DECIMAL_FLOATING) {
    if (n < 1 || n > kMaxDigits) return false;
    // floor(log10 v) or one less: the bit length times a value just below
    // log10(2) (661971961083 / 2**41).
    const int bits = bit_length(u.mant) - 1 + u.exponent;
    const int e10 = static_cast<int>((int64_t{bits} * 661971961083LL) >> 41);
    int s = n - 1 - e10;
    if (!wide_scaled(u.mant, u.exponent, s, &y, &rest)) return false;
    const u128 upper = kPow10[n];
    while (y >= upper) {
      drop_digit(&y, &rest);
      --s;
    }
    if (y < kPow10[n - 1]) return false;
    if (rounds_up(mode->rounding, u.sign, rest, y & 1) && ++y == upper) {
      y /= 10;
      --s;
    }
    store_digits(y, n, rec->digits);
    rec->ndigits = n;
    rec->exponent = -s;
  } else {
    if (n < -kWidePowerLimit || n > kWidePowerLimit) return false;
    if (!wide_scaled(u.mant, u.exponent, n, &y, &rest)) return false;
    if (rounds_up(mode->rounding, u.sign, rest, y & 1)) {
      if (y == ~u128{0}) return false;
      ++y;
    }
    if (n >= 0) {
      rec->ndigits = store_digits(y, n > 1 ? n : 1, rec->digits);
      rec->exponent = -n;
    } else if (y == 0) {
      rec->digits[0] = '0';
      rec->ndigits = 1;
      rec->exponent = 0;
    } else {
      int count = store_digits(y, 1, rec->digits);
      for (int i = 0; i < -n; ++i) rec->digits[count++] = '0';
      rec->ndigits = count;
      rec->exponent = 0;
    }
  }
  rec->digits[rec->ndigits] = '\0';
  if (rest != Rest::kZero) *exceptions |= FPX_INEXACT;
  return true;
}

}  // namespace qal
