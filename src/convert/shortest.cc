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
// are, the upper one on a tie.  With a = v - m and b = v + m, the numbers
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

#include "convert/digits.h"
#include "convert/engine.h"

namespace qal {

namespace {

using u128 = unsigned __int128;

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
  (void)narrow;
  u128 m = 0;
  for (int i = (nbits + 15) / 16 - 1; i >= 0; --i) m = m << 16 | mant[i];
  // In units of 2**(e2-2): a = 4m - 2, v = 4m, b = 4m + 2.
  const int e = e2 - 2;
  // 10**q <= 2**e2, so the interval of width 2**e2 holds a multiple of
  // 10**q.  661971961083 / 2**41 is just below log10(2); should the
  // estimate come out one too high the check below lowers it.
  int q = static_cast<int>((int64_t{e2} * 661971961083LL) >> 41);
  u128 a, v, b;
  Rest ra, rv, rb;
  for (;;) {
    floor_scaled(4 * m - 2, e, q, &a, &ra);
    floor_scaled(4 * m + 2, e, q, &b, &rb);
    if (b > a) break;
    --q;
  }
  floor_scaled(4 * m, e, q, &v, &rv);
  bool half = rv == Rest::kHalf || rv == Rest::kAboveHalf;
  int p = q;
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
  char buf[48];
  char* end = buf + sizeof buf;
  const char* first = u128_digits_backward(c, end);
  *ndigits = static_cast<int>(end - first);
  for (int i = 0; i < *ndigits; ++i) digits[i] = first[i];
  *k = p;
}

}  // namespace qal
