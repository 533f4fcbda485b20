// Small pieces of digit text shared by the conversions.
#pragma once

#include <stdint.h>

#include "convert/tables.h"

namespace qal {

// The four digits of n (0..9999): the table gives 8*(n/8), and n%8 is added
// to the last digit, rippling the carry by hand.
inline void __four_digits_quick(unsigned n, char* out) {
  const FourDigits& t = __four_digits_quick_table[n >> 3];
  out[0] = t[0];
  out[1] = t[1];
  out[2] = t[2];
  const unsigned last = static_cast<unsigned>(t[3] - '0') + (n & 7);
  if (last < 10) {
    out[3] = static_cast<char>('0' + last);
    return;
  }
  out[3] = static_cast<char>('0' + last - 10);
  for (int i = 2; i >= 0; --i) {
    if (out[i] != '9') {
      ++out[i];
      return;
    }
    out[i] = '0';
  }
}

// Writes the digits of an integral double y (0 <= y < 2**63) so that they
// end just before `end`; *count is how many, which may include leading
// zeros of the top group of four.
void __double_to_digits(char* end, int* count, double y);

// Digits of v ending just before `end`, none for 0; returns the first.
char* u128_digits_backward(unsigned __int128 v, char* end);

}  // namespace qal
