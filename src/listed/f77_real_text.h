// The old dialect's list-directed text of a real: a right-justified field
// of a fixed width whose leading blanks are the item's separator.  A real
// keeps 6, 14 or 35 significant digits (REAL*4, *8, *16), in F form while
// the decimal exponent lies in -1 .. digits-1 and in E form outside.  The
// choice reads a rough estimate of the exponent off the bits, so a value
// at a decade's edge may go either way; the F layout adapts to where the
// point really falls, so the field keeps its width.
//
//   REAL*4:  "    1.00000"  "   0.500000"  "   -2.50000"  "   1000000."
//            "    1.00000E-05"  "  0."  " -Inf          "
#pragma once

#include <stdint.h>
#include <string.h>

#include "qal/convert.h"
#include "qal/listed.h"
#include "util/binary_format.h"

namespace qal {

// The layout of one precision's texts.
struct F77RealLayout {
  int significant;      // digits in every F and E form
  int field_f;          // width of the F forms, blanks included
  int field_e;          // width of the E forms at the fewest exponent digits, and of Inf and NaN
  int wrap_width;       // what the wrap test adds to the column
  int exponent_digits;  // at least
  const char* infinity;
};

// What tells the three precisions apart: the layout, the estimate of the
// decimal exponent, and the conversion that gives the digits of the value
// for `ndigit` digits after the point (`fixed`) or `ndigit` significant
// digits, without leading zeros, with the position of the point among them.
template <int N>
struct F77RealShape;

template <>
struct F77RealShape<4> {
  static constexpr F77RealLayout kLayout = {6, 11, 15, 7, 2, "Inf"};
  static int estimate(const void* bits) { return __f90_silog(static_cast<const float*>(bits)); }
  static void digits(const void* bits, bool fixed, int ndigit, int* decpt, char* buf) {
    int sign;
    (fixed ? sfconvert : seconvert)(static_cast<const float*>(bits), ndigit, decpt, &sign, buf);
  }
};

template <>
struct F77RealShape<8> {
  static constexpr F77RealLayout kLayout = {14, 19, 23, 15, 2, "Infinity"};
  static double value(const void* bits) {
    double x;
    memcpy(&x, bits, 8);
    return x;
  }
  static int estimate(const void* bits) { return __f90_ilog(value(bits)); }
  static void digits(const void* bits, bool fixed, int ndigit, int* decpt, char* buf) {
    int sign;
    (fixed ? fconvert : econvert)(value(bits), ndigit, decpt, &sign, buf);
  }
};

template <>
struct F77RealShape<16> {
  static constexpr F77RealLayout kLayout = {35, 40, 45, 36, 3, "Infinity"};
  static int estimate(const void* bits) { return __f90_qilog(bits); }
  static void digits(const void* bits, bool fixed, int ndigit, int* decpt, char* buf) {
    uint32_t words[4];
    memcpy(words, bits, 16);
    int sign;
    (fixed ? x86_qfconvert : x86_qeconvert)(words, ndigit, decpt, &sign, buf);
  }
};

// The longest text: an E field of REAL*16 with a four-digit exponent.
inline constexpr int kMaxF77RealText = F77RealShape<16>::kLayout.field_e + 1;

struct F77RealClass {
  bool negative;
  bool zero;
  bool special;  // infinity or NaN
  bool nan;
};

template <int N>
F77RealClass f77_real_class(const void* bits) {
  using L = RealFormat<N>;
  typename L::Bits image;
  memcpy(&image, bits, N);
  return {L::negative(image), L::is_zero(image), L::biased(image) == L::kMaxBiased,
          L::is_nan(image)};
}

// F form from the estimate alone: the fixed conversion is then asked for
// digits after the point that make `significant` in all when the estimate
// is right, and the F layout absorbs an estimate one off.
inline bool f77_takes_f_form(int estimate, int significant) {
  return estimate >= -1 && estimate < significant;
}

// The width the namelist writer reserves for a real: the F width (less
// the leading blank) for zero and for an estimate from 0 to `significant`,
// the E width otherwise.  The test is one unsigned comparison, and at the
// estimates -1 and `significant` it disagrees with the form the text
// takes; the namelist writer relies on these widths as they stand.
template <int N>
int32_t f77_real_width(const void* bits) {
  using Shape = F77RealShape<N>;
  constexpr F77RealLayout L = Shape::kLayout;
  if (f77_real_class<N>(bits).zero) return L.field_f - 1;
  const uint32_t estimate = static_cast<uint32_t>(Shape::estimate(bits));
  return estimate < static_cast<uint32_t>(L.significant + 1) ? L.field_f - 1 : L.field_e - 1;
}

// The width the wrap test adds to the column before the real is written:
// not the text's length.
template <int N>
int f77_wrap_width(const void* bits) {
  return f77_real_class<N>(bits).zero ? 4 : F77RealShape<N>::kLayout.wrap_width;
}

namespace f77_detail {

inline char* blanks(char* p, int n) {
  if (n > 0) {
    memset(p, ' ', static_cast<size_t>(n));
    p += n;
  }
  return p;
}

// `count` digits from the conversion's `n`, with zeros for any it lacks.
inline char* digits(char* p, const char* from, int n, int count) {
  for (int i = 0; i < count; ++i) *p++ = i < n ? from[i] : '0';
  return p;
}

}  // namespace f77_detail

// Writes the text of the real at `bits` to `out` (kMaxF77RealText bytes);
// returns its length.
template <int N>
int f77_real_text(const void* bits, bool decimal_comma, char* out) {
  using Shape = F77RealShape<N>;
  using f77_detail::blanks;
  constexpr F77RealLayout L = Shape::kLayout;
  constexpr int S = L.significant;
  const char point = decimal_comma ? ',' : '.';
  const F77RealClass c = f77_real_class<N>(bits);
  char* p = out;
  if (c.zero) {
    memcpy(out, "  0.", 4);
    out[3] = point;
    return 4;
  }
  const int sign = c.negative ? 1 : 0;
  if (c.special) {
    *p++ = ' ';
    if (sign) *p++ = '-';
    const char* word = c.nan ? "NaN" : L.infinity;
    const size_t length = strlen(word);
    memcpy(p, word, length);
    p = blanks(p + length, static_cast<int>(out + L.field_e - (p + length)));
    return static_cast<int>(p - out);
  }

  // Room for the F form's digits: S when the estimate is right, one more
  // when it is a decade low (it is never lower for a value in F range),
  // and one more for a carry out of the rounding.
  char digits[S + 3];
  int decpt;
  const int estimate = Shape::estimate(bits);
  if (!f77_takes_f_form(estimate, S)) {
    Shape::digits(bits, false, S, &decpt, digits);
    p = blanks(p, 4 - sign);
    if (sign) *p++ = '-';
    *p++ = digits[0];
    *p++ = point;
    memcpy(p, digits + 1, S - 1);
    p += S - 1;
    *p++ = 'E';
    const int x = decpt - 1;
    *p++ = x < 0 ? '-' : '+';
    unsigned m = static_cast<unsigned>(x < 0 ? -x : x);
    char exponent[8];
    int length = 0;
    do {
      exponent[length++] = static_cast<char>('0' + m % 10);
      m /= 10;
    } while (m || length < L.exponent_digits);
    while (length) *p++ = exponent[--length];
    return static_cast<int>(p - out);
  }

  // Digits after the point: S in all while the value lies below one, one
  // fewer for each integer digit the estimate promises beyond the first.
  const int ndigit = estimate + 1 <= 0 ? S : S - 1 - estimate;
  Shape::digits(bits, true, ndigit, &decpt, digits);
  const int n = static_cast<int>(strlen(digits));
  if (decpt <= 0) {
    //   blanks [-] 0 . zeros digits      the zeros are the -decpt the conversion leaves out
    p = blanks(p, S + 3 - (sign + ndigit));
    if (sign) *p++ = '-';
    *p++ = '0';
    *p++ = point;
    const int zeros = -decpt < ndigit ? -decpt : ndigit;
    memset(p, '0', static_cast<size_t>(zeros));
    p = f77_detail::digits(p + zeros, digits, n, ndigit - zeros);
  } else {
    //   blanks [-] decpt digits . ndigit digits
    p = blanks(p, S + 4 - ndigit - (decpt + sign));
    if (sign) *p++ = '-';
    p = f77_detail::digits(p, digits, n, decpt);
    *p++ = point;
    p = f77_detail::digits(p, digits + decpt, n - decpt, ndigit);
  }
  return static_cast<int>(p - out);
}

}  // namespace qal
