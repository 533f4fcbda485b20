// The list-directed text of a real: the fewest digits that read back as
// the same value, in fixed form for a decimal point between one place left
// of the first digit and nine places right of it, in E form otherwise.
//
//   1.0E+9   100000000.0   0.01   1.0E-3   -Inf   NaN   0.0E+0
#pragma once

#include <stdint.h>
#include <string.h>

#include "qal/convert.h"
#include "util/binary_format.h"

namespace qal {

// A REAL item of N bytes (4, 8 or 16), by the address of its image.
template <int N>
struct ListReal {
  const void* bits;
};

// One half of a COMPLEX item: the real part opens with "(" and closes
// with the separator, the imaginary part closes with ")".
template <int N>
struct ListComplexPart {
  const void* bits;
  bool real_part;
};

// Room for the longest real text: a sign, 36 digits, the point, an
// exponent of five digits with its letter and sign, and a parenthesis and
// separator of a complex part.
inline constexpr int kMaxRealText = 56;

// Writes the text of the real at `bits` to `out`; returns its length.
template <int N>
int real_text(const void* bits, bool decimal_comma, char* out) {
  using u128 = unsigned __int128;
  using L = RealFormat<N>;
  constexpr int kFractionBits = L::kFractionBits;
  constexpr int kBias = L::kBias;
  constexpr int kMaxBiased = L::kMaxBiased;
  u128 image = 0;
  memcpy(&image, bits, N);
  const bool negative = (image >> (8 * N - 1)) & 1;
  const int biased = static_cast<int>((image >> kFractionBits) & kMaxBiased);
  u128 mant = image & ((u128{1} << kFractionBits) - 1);
  const char point = decimal_comma ? ',' : '.';
  char* p = out;
  if (biased == 0 && mant == 0) {
    memcpy(p, "0.0E+0", 6);
    p[1] = point;
    return 6;
  }
  if (negative) *p++ = '-';
  if (biased == kMaxBiased) {
    memcpy(p, mant == 0 ? "Inf" : "NaN", 3);
    return static_cast<int>(p + 3 - out);
  }
  // The significand with its leading bit at the top of nbits, times 2**e2.
  int e2 = (biased == 0 ? 1 : biased) - kBias - kFractionBits;
  if (biased != 0) {
    mant |= u128{1} << kFractionBits;
  } else {
    while (!(mant >> kFractionBits)) {
      mant <<= 1;
      --e2;
    }
  }
  uint16_t words[8];
  for (int i = 0; i < 8; ++i) words[i] = static_cast<uint16_t>(mant >> (16 * i));
  char digits[48];
  int n = 0, k = 0;
  __f_cvt_real(words, kFractionBits + 1, e2, 0, digits, &n, &k);
  const int dp = k + n;  // the point stands dp digits into the digits
  if (biased != 0 && static_cast<unsigned>(dp + 1) <= 10) {
    if (dp <= 0) {
      *p++ = '0';
      *p++ = point;
      memset(p, '0', static_cast<size_t>(-dp));
      p += -dp;
      memcpy(p, digits, static_cast<size_t>(n));
      return static_cast<int>(p + n - out);
    }
    for (int i = 0; i < dp; ++i) *p++ = i < n ? digits[i] : '0';
    *p++ = point;
    if (n > dp) {
      memcpy(p, digits + dp, static_cast<size_t>(n - dp));
      p += n - dp;
    } else {
      *p++ = '0';
    }
    return static_cast<int>(p - out);
  }
  *p++ = digits[0];
  *p++ = point;
  if (n > 1) {
    memcpy(p, digits + 1, static_cast<size_t>(n - 1));
    p += n - 1;
  } else {
    *p++ = '0';
  }
  *p++ = 'E';
  const int x = dp - 1;
  *p++ = x < 0 ? '-' : '+';
  unsigned m = x < 0 ? 0u - static_cast<unsigned>(x) : static_cast<unsigned>(x);
  char exponent[8];
  int len = 0;
  do {
    exponent[len++] = static_cast<char>('0' + m % 10);
    m /= 10;
  } while (m);
  while (len) *p++ = exponent[--len];
  return static_cast<int>(p - out);
}

template <int N>
int complex_part_text(const ListComplexPart<N>& part, bool decimal_comma, char* out) {
  char* p = out;
  if (part.real_part) *p++ = '(';
  p += real_text<N>(part.bits, decimal_comma, p);
  *p++ = part.real_part ? (decimal_comma ? ';' : ',') : ')';
  return static_cast<int>(p - out);
}

}  // namespace qal
