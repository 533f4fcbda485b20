// Shortest digits.  For v = mant * 2**e2 and the margin m = 2**(e2-1) (half
// a unit of mant's last bit, on both sides even when mant is a power of
// two), the digits are those of the free-format loop that generates digits
// of v until the remainder is within the margin of either neighbour.  That
// loop stops at the first length at which a number of that many digits
// lies in the interval
//
//   (v - m, v + m]        lower end open, upper end closed,
//
// and then emits the neighbour of v inside it, the nearer one when both
// are, the upper one on a tie.  (A narrow margin moves the lower end to
// v - m/2.)  With a = v - m and b = v + m, the numbers
// c * 10**p inside are the integers in (a / 10**p, b / 10**p], and there is
// one exactly when floor(b / 10**p) > floor(a / 10**p).  So with
//
//   A = floor(a / 10**p),  V = floor(v / 10**p),  B = floor(b / 10**p)
//
// at a p small enough for the interval to hold a multiple of 10**p, the
// answer is reached by dividing all three by 10 while floor(B/10) is still
// above floor(A/10); then V is the lower neighbour, inside when V > A, and
// V + 1 the upper one, inside when V + 1 <= B.  Whether v's remainder
// reaches one half is the last digit dropped (or, before any drop, the
// fraction of v / 10**p).  The three floors come from one product with a
// 128-bit power of five each, or, when that leaves a doubt, exactly.
#include <stdint.h>
#include <string.h>

#include "convert/digits.h"
#include "convert/engine.h"
#include "convert/tables.h"
#include "util/decimal.h"

namespace qal {

namespace {

using u128 = unsigned __int128;

// A 256-bit number as two halves.
struct U256 {
  u128 hi, lo;
};

U256 shift_left(U256 x, int k) {  // k in [0, 128)
  if (k) {
    x.hi = x.hi << k | x.lo >> (128 - k);
    x.lo <<= k;
  }
  return x;
}

U256 add(U256 a, U256 b) {
  a.lo += b.lo;
  a.hi += b.hi + (a.lo < b.lo);
  return a;
}

U256 sub(U256 a, U256 b) {
  const u128 lo = a.lo - b.lo;
  a.hi -= b.hi + (lo > a.lo);
  a.lo = lo;
  return a;
}

constexpr u128 kLow64 = ~uint64_t{0};

// The three floors of a significand below 2**56 from one product: with
// the binary point of x * T moved to bit 192 (the top 64 bits are then the
// floor, the low 192 the remainder), v's numerator is 4m T and a's and b's
// differ from it by 2T.  False when a remainder is too near a boundary
// for the table's error (below x units, x the multiplier, moved alike).
bool narrow_floors(uint64_t m, int lower, int e, int q, u128* a, u128* v, u128* b, bool* half,
                   bool* b_exact) {
  const int s = -q;
  if (s < -kWidePowerLimit || s > kWidePowerLimit) return false;
  const WidePower& t = wide_power(s);
  const int point = 127 - t.exponent - e - s;  // of x * T
  const int move = 192 - point;
  if (move < 0 || move >= 126) return false;
  const bool exact = s >= 0 && s <= 55;
  const u128 lo = static_cast<u128>(m) * t.lo, hi = static_cast<u128>(m) * t.hi;
  // m T, 184 bits at most.
  const u128 upper = hi + (lo >> 64);
  const U256 mt = {upper >> 64, upper << 64 | (lo & kLow64)};
  const U256 nv = shift_left(mt, move + 2);
  const U256 t_moved = shift_left(U256{0, static_cast<u128>(t.hi) << 64 | t.lo}, move);
  const U256 d = add(t_moved, t_moved);
  const U256 numerators[3] = {sub(nv, lower == 2 ? d : t_moved), nv, add(nv, d)};
  u128* floors[3] = {a, v, b};
  *b_exact = false;
  for (int i = 0; i < 3; ++i) {
    const U256& n = numerators[i];
    *floors[i] = n.hi >> 64;
    if (exact) {
      if (i == 2) *b_exact = (n.hi & kLow64) == 0 && n.lo == 0;
      continue;
    }
    // The exact remainder lies in [F, F + x), x = 4m - 2, 4m or 4m + 2.
    const u128 multiplier = 4 * static_cast<u128>(m) + (i == 0 ? -lower : 2 * i - 2);
    const U256 x = shift_left(U256{0, multiplier}, move);
    const U256 f = {n.hi & kLow64, n.lo};
    const U256 top = add(f, x);
    if (top.hi >> 64) return false;                                                // may reach 1
    if (i == 1 && !(f.hi >> 63) && (sub(top, U256{0, 1}).hi >> 63)) return false;  // straddles 1/2
  }
  *half = (numerators[1].hi >> 63) & 1;
  return true;
}

// Exactly eight digits of block.
void eight_digits(uint32_t block, char* out) {
  const uint32_t hi = block / 10000, lo = block % 10000;
  memcpy(out, kDigitPairs + 2 * (hi / 100), 2);
  memcpy(out + 2, kDigitPairs + 2 * (hi % 100), 2);
  memcpy(out + 4, kDigitPairs + 2 * (lo / 100), 2);
  memcpy(out + 6, kDigitPairs + 2 * (lo % 100), 2);
}

// Digits of c without a terminator; returns how many.
int write_digits(u128 c, char* out) {
  char buf[48];
  char* end = buf + sizeof buf;
  char* p = end;
  if (c >> 64) {
    p = u128_digits_backward(c, end);
  } else {
    // Eight-digit blocks from the bottom, each its own short chain.
    uint64_t v = static_cast<uint64_t>(c);
    while (v >= 100000000) {
      p -= 8;
      eight_digits(static_cast<uint32_t>(v % 100000000), p);
      v /= 100000000;
    }
    p = unsigned_to_decimal_backward(static_cast<uint32_t>(v), p);
  }
  const int n = static_cast<int>(end - p);
  memcpy(out, p, static_cast<size_t>(n));
  return n;
}

// floor(x * 2**e / 10**q) and the class of the rest.
void floor_scaled(u128 x, int e, int q, u128* y, Rest* rest) {
  if (!wide_scaled(x, e, -q, y, rest)) exact_scaled(x, e, -q, y, rest);
}

// The search for the last length, in the narrowest integers that hold B.
template <class T>
void shorten(T* a, T* v, T* b, int* p, bool* half) {
  // Four digits at a time while that keeps an interval member.
  while (*b / 10000 > *a / 10000) {
    const T low = *v % 10000;
    *a /= 10000;
    *v /= 10000;
    *b /= 10000;
    *p += 4;
    *half = low >= 5000;
  }
  while (*b / 10 > *a / 10) {
    const T low = *v % 10;
    *a /= 10;
    *v /= 10;
    *b /= 10;
    *p += 1;
    *half = low >= 5;
  }
}

}  // namespace

extern "C" QAL_EXPORT void __f_cvt_real(const uint16_t* mant, int nbits, int e2, int narrow,
                                        char* digits, int* ndigits, int* k) {
  u128 m = 0;
  for (int i = (nbits + 15) / 16 - 1; i >= 0; --i) m = m << 16 | mant[i];
  // The digits must read back to the value under ties to even: the upper
  // end of the interval belongs to it when its significand is even (in its
  // own format: a subnormal comes normalised, so its stored significand is
  // m shifted back), and a power of two above the smallest normal has its
  // lower neighbour half as far away, so the lower end is v - m/2.
  const int smallest_e2 = nbits == 24 ? -149 : nbits == 53 ? -1074 : -16494;
  const u128 stored = e2 < smallest_e2 ? m >> (smallest_e2 - e2) : m;
  const bool power_of_two = m == u128{1} << (nbits - 1) && e2 > smallest_e2;
  const int lower = narrow || power_of_two ? 1 : 2;
  const bool upper_closed = (stored & 1) == 0;
  // In units of 2**(e2-2): a = 4m - 2, v = 4m, b = 4m + 2.
  const int e = e2 - 2;
  // 10**q <= 2**e2, so the interval of width 2**e2 holds a multiple of
  // 10**q.  661971961083 / 2**41 is just below log10(2); should the
  // estimate come out one too high the check below lowers it.
  int q = static_cast<int>((int64_t{e2} * 661971961083LL) >> 41);
  u128 a, v, b;
  bool half, b_exact;
  for (;;) {
    if (!((m >> 56) == 0 &&
          narrow_floors(static_cast<uint64_t>(m), lower, e, q, &a, &v, &b, &half, &b_exact))) {
      Rest ra, rv, rb;
      floor_scaled(4 * m - lower, e, q, &a, &ra);
      floor_scaled(4 * m, e, q, &v, &rv);
      floor_scaled(4 * m + 2, e, q, &b, &rb);
      half = rv == Rest::kHalf || rv == Rest::kAboveHalf;
      b_exact = rb == Rest::kZero;
    }
    // An open upper end: a multiple of 10**q right on it is out.
    if (!upper_closed && b_exact) --b;
    if (b > a) break;
    --q;
  }
  int p = q;
  // From here on, B only shrinks by whole tens: the open end cannot bind
  // again, as a B exactly on it was lowered above and dividing moves it
  // below any other multiple.
  if (b >> 64) {
    shorten(&a, &v, &b, &p, &half);
  } else {
    uint64_t a64 = static_cast<uint64_t>(a), v64 = static_cast<uint64_t>(v),
             b64 = static_cast<uint64_t>(b);
    shorten(&a64, &v64, &b64, &p, &half);
    a = a64, v = v64, b = b64;
  }
  const bool low = v > a, high = v + 1 <= b;
  const u128 c = high && (!low || half) ? v + 1 : v;
  *ndigits = write_digits(c, digits);
  *k = p;
}

}  // namespace qal
