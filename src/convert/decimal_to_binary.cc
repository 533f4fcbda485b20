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
#include "convert/engine.h"
#include "convert/tables.h"
#include "convert/unpacked.h"
#include "qal/convert.h"
#include "qal/quad.h"
#include "util/digit_scan.h"
#include "util/reported_op.h"

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
  // Whether any bit below k is set.
  bool any_below(int k) const {
    for (int i = 0; i < n && 32 * i < k; ++i) {
      const int top = k - 32 * i;
      const uint32_t mask = top >= 32 ? ~0u : (1u << top) - 1;
      if (limb[i] & mask) return true;
    }
    return false;
  }
  // Bits low to low + 31 (zeros outside the number).
  uint32_t word_at(int low) const {
    const int i = low >> 5, shift = low & 31;
    const auto at = [&](int j) -> uint64_t { return j >= 0 && j < n ? limb[j] : 0; };
    return static_cast<uint32_t>(((at(i + 1) << 32) | at(i)) >> shift);
  }
};

// w / 10**k for k at most 27, where 5**k fits in 63 bits, into a format of
// at most 53 bits: one division of the normalised digits, shifted up by 63,
// by 5**k leaves a quotient of at least 64 bits and an exact remainder.
// This settles the values the wide product cannot: those on or next to a
// rounding boundary, such as integers written with a fraction
// ("2621133400200602.0").
Rounded small_quotient(const Format& f, uint64_t w, int k, int sign, int rounding) {
  using u128 = unsigned __int128;
  uint64_t five = 1;
  for (int i = 0; i < k; ++i) five *= 5;
  const int lz = __builtin_clzll(w);
  const u128 n = static_cast<u128>(w << lz) << 63;
  const u128 q = n / five;
  const bool remainder = n % five != 0;
  const uint64_t q_high = static_cast<uint64_t>(q >> 64);
  const int length = q_high ? 128 - __builtin_clzll(q_high) : 64;  // q is at least 2**63
  const int exponent = length - 1 - 63 - lz - k;
  return round_to(f, sign, exponent, (q << (128 - length)) | remainder, rounding);
}

// w * 10**q for q below 20: the product is an exact 128-bit integer, rounded
// once.
[[gnu::always_inline]] inline Rounded exact_product(const Format& f, uint64_t w, int q, int sign,
                                                    int rounding) {
  using u128 = unsigned __int128;
  const u128 p = static_cast<u128>(w) * kPowersOfTen[q];
  const uint64_t high = static_cast<uint64_t>(p >> 64);
  const int length =
      high ? 128 - __builtin_clzll(high) : 64 - __builtin_clzll(static_cast<uint64_t>(p));
  return round_to(f, sign, length - 1, p << (128 - length), rounding);
}

// The fast path: at most 19 digits and a power of five in the wide table.
// The digits, normalised to 64 bits, times the table's 128-bit mantissa of
// 5**q give the value's leading bits with an error below 2**65 in the
// 192-bit product (the mantissa is short of the power by less than two of
// its last units).  Unless that error could carry into the rounding bit,
// the rounding bit and the sticky mark are known: the sticky mark is set
// whenever the power is not exact, as the true product then lies above the
// computed one.  When it could, a short quotient decides if 10**-q is
// small enough, the exact way otherwise.  Subnormal results keep the bits
// they have room for, overflows round as the direction says; values below
// the least subnormal go the exact way.
[[gnu::always_inline]] inline bool fast_path(const Format& f, uint64_t w, int q, int sign,
                                             int rounding, Rounded* out) {
  using u128 = unsigned __int128;
  if (w == 0 || q < -kWidePowerLimit || q > kWidePowerLimit) return false;
  if (q >= 0 && q < 20) {
    *out = exact_product(f, w, q, sign, rounding);
    return true;
  }
  const WidePower& t = wide_power(q);
  const int lz = __builtin_clzll(w);
  const uint64_t wn = w << lz;
  const u128 high = static_cast<u128>(wn) * t.hi;
  const u128 low = static_cast<u128>(wn) * t.lo;
  const u128 z = high + (low >> 64);  // bits 64..191 of the product
  const uint64_t z_low = static_cast<uint64_t>(low);
  const int top = (z >> 127) ? 191 : 190;
  int exponent = top + t.exponent - 127 + q - lz;  // of the leading bit
  // Below the normal range fewer bits are kept; none at all is left to the
  // exact way.
  const bool tiny = exponent < f.emin;
  const int keep = tiny ? f.precision - (f.emin - exponent) : f.precision;
  if (keep < 1) return false;
  const int half = top - keep;  // the rounding bit; at least 77
  const int below = half - 64;  // its place in z
  const u128 rest = z & ((u128{1} << below) - 1);
  if (rest + 3 > (u128{1} << below)) {
    if (f.precision > 53 || q >= 0 || q < -27) return false;
    *out = small_quotient(f, w, -q, sign, rounding);
    return true;
  }
  const bool exact_power = q >= 0 && q <= 55;
  const bool sticky = exact_power ? (rest != 0 || z_low != 0) : true;
  // The top bits of the product, leading bit on top, and the mark.  The
  // bits below the rounding bit in them only add to what the mark says.
  if (f.precision <= 53) {
    const uint64_t sig = static_cast<uint64_t>(z >> (top - 127)) | sticky;
    *out = f.precision == 24 ? round_bits<Binary32>(sign, exponent, sig, rounding)
                             : round_bits<Binary64>(sign, exponent, sig, rounding);
  } else {
    *out = round_to(f, sign, exponent, (z << (191 - top)) | sticky, rounding);
  }
  return true;
}

// Upper exponent limits of the coarse checks, by significand bits; the
// lower limit is 512 below the negative of it.
int upper_limit(int bits) { return bits == 24 ? 97 : bits == 53 ? 771 : 12330; }

void set_sentinel(UnpackedFloat* u, int exponent) {
  u->fp_class = FPC_NORMAL;
  u->exponent = exponent;
  u->significand[0] = 0x80000000u;
  for (int i = 1; i < 5; ++i) u->significand[i] = 0;
}

// The coarse checks on the record's exponent and digit count: true, with
// the sentinel in *u, for a value beyond the range of a format of `bits`.
bool beyond_range(const DecimalRecord& rec, int length, int bits, UnpackedFloat* u) {
  const int upper = upper_limit(bits);
  const int e = rec.exponent;
  if (e > upper) {
    set_sentinel(u, UNPACKED_TOO_LARGE);
  } else if (e <= -upper - 512 || (e < -upper && length < -upper - e)) {
    set_sentinel(u, -UNPACKED_TOO_LARGE);
  } else {
    return false;
  }
  return true;
}

int digit_count(const DecimalRecord& rec) {
  return static_cast<int>(strnlen(rec.digits, DECIMAL_RECORD_DIGITS));
}

// The exact way, within the coarse limits: the digits D (their trailing
// zeros moved into the exponent E) as M * 2**b,
//   E >= 0:  M = D * 10**E, b = 0
//   E <  0:  M = floor(D * 2**s / 10**-E), b = -s, s large enough to leave
//            `bits` and eleven more bits in M,
// then its top 160 bits, everything below (division remainders, dropped
// digits) in the sticky bit.
void exact_unpacked(const DecimalRecord& rec, int length, int bits, UnpackedFloat* u) {
  int n = length;
  while (n > 0 && rec.digits[n - 1] == '0') --n;
  const int exponent = rec.exponent + (length - n);
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
    // Digits all zero: zero, or with more beyond a value too small to
    // matter.
    if (sticky)
      set_sentinel(u, -UNPACKED_TOO_LARGE);
    else
      u->fp_class = FPC_ZERO;
    return;
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
    // 10**k has fewer than 3.33 k + 1 bits.
    const int k = -exponent;
    const int s = bits + 3 + (k * 3322) / 1000 + 1 - m.bits() + 8;
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
  const int length_m = m.bits();
  for (int i = 0; i < 5; ++i) u->significand[i] = m.word_at(length_m - 32 * (i + 1));
  if (length_m > 160 && m.any_below(length_m - 160)) sticky = true;
  u->significand[4] |= sticky;
  u->fp_class = FPC_NORMAL;
  u->exponent = length_m - 1 + b;
}

// A double y, exact, as the Rounded value of a wider format.
Rounded widen_exact(double y, const Format& f) {
  using L = Binary64;
  uint64_t bits;
  memcpy(&bits, &y, 8);
  const uint64_t significand = L::significand(bits);
  if (significand == 0) return Rounded{};
  const int lz = __builtin_clzll(significand);
  const int biased = L::biased(bits);
  const int exponent = (biased ? biased : 1) - L::kBias - (L::kPrecision - 1) + (63 - lz);
  return round_to(f, L::negative(bits), exponent,
                  static_cast<unsigned __int128>(significand << lz) << 64, FPR_NEAREST);
}

// The floating-point fast paths, for round to nearest and no dropped
// digits.  A double product or quotient of exact operands is rounded once,
// correctly.
//
// __inrange_double: fewer than 19 digits that make an exact double, and
// 10**|E| in the table's exact range.
bool __inrange_double(const DecimalRecord& rec, int length, double* out, unsigned* exceptions) {
  const int e = rec.exponent;
  if (length >= 19 || e < -22 || e > 22) return false;
  FloatingStatus quiet;
  int status;
  const double x = __digits_to_double(rec.digits, length, &status);
  if (status) return false;
  int inexact = 0;
  double y = x;
  if (e > 0) y = __mul_set(&inexact, x, __tbl_tens[e]);
  if (e < 0) y = __div_set(&inexact, x, __tbl_tens[-e]);
  *out = y;
  *exceptions = inexact ? FPX_INEXACT : 0;
  return true;
}

// __inrange_quadex: the same when the double result is exact, then widened
// to the extended or quad format.
bool __inrange_quadex(const DecimalRecord& rec, int length, const Format& f, Rounded* out) {
  double y;
  unsigned exceptions;
  if (!__inrange_double(rec, length, &y, &exceptions) || exceptions) return false;
  *out = widen_exact(y, f);
  return true;
}

// Spacing of the doubles at |y|.
double ulp_of(double y) {
  uint64_t b;
  memcpy(&b, &y, 8);
  b &= ~(uint64_t{1} << 63);
  double r, next;
  memcpy(&r, &b, 8);
  ++b;
  memcpy(&next, &b, 8);
  return next - r;
}

// __inrange_single: a double near the value, with a bound on its error in
// units of its last place, decides the float when the band of four of
// them around it rounds to one float and (for an inexact double) holds no
// float that could be the value itself.
bool __inrange_single(const DecimalRecord& rec, int length, float* out, unsigned* exceptions) {
  int n = length, e = rec.exponent, inaccuracies = 0;
  if (n >= 19) {
    e += n - 18;
    n = 18;
    inaccuracies = 1;
  }
  FloatingStatus quiet;
  int status;
  const double x = __digits_to_double(rec.digits, n, &status);
  inaccuracies += status != 0;
  double y;
  bool exact = false;
  if (e == 0) {
    if (inaccuracies) return false;
    y = x;
    exact = true;
  } else if (e > 0) {
    if (e > 38 - n) return false;
    inaccuracies += e >= 23;
    if (inaccuracies == 0) {
      int inexact;
      y = __mul_set(&inexact, x, __tbl_tens[e]);
      exact = !inexact;
    } else {
      y = opaque(opaque(x) * __tbl_tens[e]);
    }
  } else {
    if (n < 13 ? e < -36 - n : e < -49) return false;
    const int k = -e;
    inaccuracies += k >= 23;
    if (inaccuracies == 0) {
      int inexact;
      y = __div_set(&inexact, x, __tbl_tens[k]);
      exact = !inexact;
    } else {
      y = opaque(opaque(x) * __tbl_ntens[k]);
    }
  }
  const double w = 4 * ulp_of(y);
  const float above = static_cast<float>(opaque(y + w)), below = static_cast<float>(opaque(y - w));
  if (above != below) return false;
  const float result = static_cast<float>(opaque(y));
  if (exact) {
    *exceptions = static_cast<double>(result) == y ? 0 : FPX_INEXACT;
  } else {
    const double back = result;
    if (back > y - w && back < y + w) return false;
    *exceptions = FPX_INEXACT;
  }
  *out = result;
  return true;
}

// The decimal fast path of 64-bit digits and a 128-bit power of five.
// A 256-bit product, least significant limb first.
struct Product256 {
  uint64_t limb[4];

  Product256(unsigned __int128 a, uint64_t b1, uint64_t b0) {
    using u128 = unsigned __int128;
    const uint64_t a1 = static_cast<uint64_t>(a >> 64), a0 = static_cast<uint64_t>(a);
    const u128 p00 = u128{a0} * b0, p01 = u128{a0} * b1, p10 = u128{a1} * b0, p11 = u128{a1} * b1;
    const u128 mid = (p00 >> 64) + static_cast<uint64_t>(p01) + static_cast<uint64_t>(p10);
    const u128 high = p11 + (p01 >> 64) + (p10 >> 64) + (mid >> 64);
    limb[0] = static_cast<uint64_t>(p00);
    limb[1] = static_cast<uint64_t>(mid);
    limb[2] = static_cast<uint64_t>(high);
    limb[3] = static_cast<uint64_t>(high >> 64);
  }
  uint64_t at(int i) const { return i >= 0 && i < 4 ? limb[i] : 0; }
  // The 128 bits from bit s up.
  unsigned __int128 from(int s) const {
    const int ws = s >> 6, bs = s & 63;
    uint64_t r[2];
    for (int i = 0; i < 2; ++i)
      r[i] = bs ? (at(i + ws) >> bs) | (at(i + ws + 1) << (64 - bs)) : at(i + ws);
    return (static_cast<unsigned __int128>(r[1]) << 64) | r[0];
  }
  bool bit(int k) const { return (limb[k >> 6] >> (k & 63)) & 1; }
  // Bits low to high - 1 (high - low at most 128) as a number.
  unsigned __int128 field(int low, int high) const {
    const unsigned __int128 v = from(low);
    const int n = high - low;
    return n >= 128 ? v : v & ((static_cast<unsigned __int128>(1) << n) - 1);
  }
};

// The fast path for the wide formats: up to 38 digits (below 2**127) times
// the table's 128-bit mantissa of 5**q.  The product's error is below
// 2**129 (the mantissa is short of the power by less than two units), far
// below the rounding bit of a 113-bit result at bit 141 or higher: unless
// bits 129 up to the rounding bit are all ones, a carry cannot reach it.
bool fast_path_128(const Format& f, unsigned __int128 w, int q, int sign, int rounding,
                   Rounded* out) {
  using u128 = unsigned __int128;
  if (w == 0 || q < -kWidePowerLimit || q > kWidePowerLimit) return false;
  const WidePower& t = wide_power(q);
  const uint64_t w1 = static_cast<uint64_t>(w >> 64);
  const int lz = w1 ? __builtin_clzll(w1) : 64 + __builtin_clzll(static_cast<uint64_t>(w));
  const Product256 p(w << lz, t.hi, t.lo);
  const int top = p.bit(255) ? 255 : 254;
  int exponent = top + t.exponent - 127 + q - lz;
  const bool tiny = exponent < f.emin;
  const int keep = tiny ? f.precision - (f.emin - exponent) : f.precision;
  if (keep < 1) return false;
  const int half = top - keep;  // at least 141
  if (p.field(129, half) == (u128{1} << (half - 129)) - 1) return false;
  const bool exact_power = q >= 0 && q <= 55;
  const bool sticky = !exact_power || p.field(0, 128) != 0 || p.field(128, half) != 0;
  // The kept bits and the rounding bit, leading bit on top, and the mark.
  const u128 sig = (p.from(half) << (127 - (top - half))) | sticky;
  *out = round_to(f, sign, exponent, sig, rounding);
  return true;
}

// The quad and the x87 entries: the 128-bit path, else an exact double.
bool wide_fast_quadex(const Format& f, const DecimalRecord& r, int length, int rounding,
                      Rounded* fast) {
  if (!r.more && length <= 38) {
    // Two halves of at most 19 digits, taken a word at a time.
    const char* const digits = r.digits;
    const char* const limit = digits + DECIMAL_RECORD_DIGITS;
    const int split = length > 19 ? length - 19 : 0;
    uint64_t high = 0, low = 0;
    append_digits(digits, digits + split, limit, high);
    append_digits(digits + split, digits + length, limit, low);
    const unsigned __int128 w =
        static_cast<unsigned __int128>(high) * kPowersOfTen[length - split] + low;
    if (fast_path_128(f, w, r.exponent, r.sign & 1, rounding, fast)) return true;
  }
  return rounding == FPR_NEAREST && !r.more && __inrange_quadex(r, length, f, fast);
}

// What every entry shares: the class table, the coarse checks, the fast
// paths in `fast` (which may settle the value, stored and with its
// exception word), then the exact way and the packer.  The shared
// direction and accumulator are set for the packer as it expects; the
// word returned is the entry's own.
template <class Fast, class Store>
void decimal_to(const Format& f, DecimalMode* mode, DecimalRecord* rec, unsigned* exceptions,
                Fast fast, Store store) {
  const int rounding = mode->rounding;
  const int sign = rec->sign & 1;
  Rounded r;
  int fp_class = rec->fp_class;
  if (fp_class == FPC_QUIET_NAN) r.image = ~static_cast<unsigned __int128>(0);
  if (fp_class == FPC_NORMAL || fp_class == FPC_SUBNORMAL) {
    fp_class = FPC_NORMAL;
    const int length = digit_count(*rec);
    UnpackedFloat u{};
    u.sign = sign;
    if (length == 0) {
      fp_class = FPC_ZERO;
    } else if (!beyond_range(*rec, length, f.precision, &u)) {
      if (fast(*rec, length, rounding, exceptions)) {
        if (*exceptions) __base_conversion_set_exception(*exceptions);
        return;
      }
      exact_unpacked(*rec, length, f.precision, &u);
      fp_class = u.fp_class;
    }
    if (fp_class == FPC_NORMAL) {
      __atomic_store_n(&_fp_current_direction, rounding, __ATOMIC_RELAXED);
      __atomic_store_n(&_fp_current_exceptions, 0u, __ATOMIC_RELAXED);
      r = round_unpacked(u, f, rounding);
      __atomic_fetch_or(&_fp_current_exceptions, r.exceptions, __ATOMIC_RELAXED);
    }
  }
  *exceptions = r.exceptions;
  store(fp_class, sign, r);
  if (r.exceptions) __base_conversion_set_exception(r.exceptions);
}

// The fast path's result as a REAL*4 or REAL*8.
template <int N>
[[gnu::always_inline]] inline void store_fast(const Rounded& r, bool negative, void* out) {
  const auto bits = pack_image<RealFormat<N>>(FPC_NORMAL, negative, r);
  memcpy(out, &bits, N);
}

// Single and double: the wide path on digits read a word at a time, then,
// for round to nearest, the floating-point one, then the exact way.
template <class T>
void decimal_to_binary32_64(T* result, DecimalMode* mode, DecimalRecord* rec,
                            unsigned* exceptions) {
  using Bits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>;
  constexpr const Format& f = sizeof(T) == 4 ? kSingle : kDouble;
  if ((rec->fp_class == FPC_NORMAL || rec->fp_class == FPC_SUBNORMAL) && !rec->more) {
    const char* const digits = rec->digits;
    uint64_t w = 0;
    const char* end = append_digits(digits, digits + 20, digits + DECIMAL_RECORD_DIGITS, w);
    Rounded r;
    if (*end == '\0' && end - digits <= 19 &&
        fast_path(f, w, rec->exponent, rec->sign & 1, mode->rounding, &r)) {
      store_fast<sizeof(T)>(r, rec->sign & 1, result);
      *exceptions = r.exceptions;
      if (r.exceptions) __base_conversion_set_exception(r.exceptions);
      return;
    }
  }
  const auto store = [&](int fp_class, int sign, const Rounded& r) {
    const Bits bits = pack_image<RealFormat<sizeof(T)>>(fp_class, sign, r);
    memcpy(result, &bits, sizeof(T));
  };
  decimal_to(
      f, mode, rec, exceptions,
      [&](const DecimalRecord& r, int length, int rounding, unsigned* x) {
        bool settled;
        if constexpr (sizeof(T) == 4)
          settled = rounding == FPR_NEAREST && !r.more && __inrange_single(r, length, result, x);
        else
          settled = rounding == FPR_NEAREST && !r.more && __inrange_double(r, length, result, x);
        if (settled && (r.sign & 1)) *result = -*result;
        return settled;
      },
      store);
}

}  // namespace

template <int N>
bool fast_decimal_to_real(uint64_t w, int q, bool negative, int rounding, void* out) {
  static_assert(N == 4 || N == 8);
  Rounded r;
  if (!fast_path(N == 4 ? kSingle : kDouble, w, q, negative, rounding, &r)) return false;
  // An overflow goes the caller's full way, which reports it.
  if (r.exceptions & FPX_OVERFLOW) return false;
  store_fast<N>(r, negative, out);
  if (r.exceptions) __base_conversion_set_exception(r.exceptions);
  return true;
}
template bool fast_decimal_to_real<4>(uint64_t, int, bool, int, void*);
template bool fast_decimal_to_real<8>(uint64_t, int, bool, int, void*);

extern "C" {

QAL_EXPORT void __decimal_to_unpacked(UnpackedFloat* out, DecimalRecord* rec, int bits) {
  out->sign = rec->sign & 1;
  out->fp_class = rec->fp_class;
  if (rec->fp_class != FPC_NORMAL && rec->fp_class != FPC_SUBNORMAL) return;
  const int length = digit_count(*rec);
  if (length == 0) {
    out->fp_class = FPC_ZERO;
    return;
  }
  if (!beyond_range(*rec, length, bits, out)) exact_unpacked(*rec, length, bits, out);
}

// The sum, as __mul_set reports a product; the conversions' own.
double __add_set(int* status, double a, double b) {
  return operate_and_report<DoubleOp::kAdd>(status, a, b);
}

QAL_EXPORT double __digits_to_double(const char* digits, int n, int* status) {
  if (n >= 19) {
    *status = 2;
    return 0.0;
  }
  *status = 0;
  if (n < 10) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = v * 10 + static_cast<uint32_t>(digits[i] - '0');
    return v;
  }
  // The leading digits times 10**9 are exact (below 10**9 * 5**9 * 2**9);
  // the last nine are summed as characters and lose their nine biases of
  // '0' at once.
  uint64_t high = 0;
  for (int i = 0; i < n - 9; ++i) high = high * 10 + static_cast<uint64_t>(digits[i] - '0');
  int64_t low = 0;
  for (int i = n - 9; i < n; ++i) low = low * 10 + digits[i];
  low -= 48LL * 111111111LL;
  return __add_set(status, static_cast<double>(high) * 1e9, static_cast<double>(low));
}

QAL_EXPORT void decimal_to_single(float* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  decimal_to_binary32_64(result, mode, rec, exceptions);
}

QAL_EXPORT void decimal_to_double(double* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  decimal_to_binary32_64(result, mode, rec, exceptions);
}

QAL_EXPORT void decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions) {
  const auto store = [&](int fp_class, int sign, const Rounded& r) {
    const unsigned __int128 bits = pack_image<Binary128>(fp_class, sign, r);
    memcpy(result, &bits, 16);
  };
  decimal_to(
      kQuad, mode, rec, exceptions,
      [&](const DecimalRecord& r, int length, int rounding, unsigned* x) {
        Rounded fast;
        if (!wide_fast_quadex(kQuad, r, length, rounding, &fast)) return false;
        store(FPC_NORMAL, r.sign & 1, fast);
        *x = fast.exceptions;
        return true;
      },
      store);
}

// The same conversion: the twins are one algorithm.
QAL_EXPORT void x86_decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                         unsigned* exceptions) {
  decimal_to_quadruple(result, mode, rec, exceptions);
}

QAL_EXPORT void decimal_to_extended(uint32_t result[3], DecimalMode* mode, DecimalRecord* rec,
                                    unsigned* exceptions) {
  const auto store = [&](int fp_class, int sign, const Rounded& r) {
    pack_x87(fp_class, sign, r, result);
  };
  decimal_to(
      kExtended, mode, rec, exceptions,
      [&](const DecimalRecord& r, int length, int rounding, unsigned* x) {
        Rounded fast;
        if (!wide_fast_quadex(kExtended, r, length, rounding, &fast)) return false;
        store(FPC_NORMAL, r.sign & 1, fast);
        *x = fast.exceptions;
        return true;
      },
      store);
}

}  // extern "C"

}  // namespace qal
