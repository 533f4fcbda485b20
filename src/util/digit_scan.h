// Decimal text to integers eight bytes at a time: blanks skipped and digits
// taken by word, each byte classified without carries between bytes.
//
// Every scanner works on [c, end) and may load whole words up to `limit`
// (at or after end): bytes between end and limit are read but never taken.
// Where fewer than eight bytes are left before limit, a byte loop ends the
// job.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "util/decimal.h"

namespace qal {

inline constexpr uint64_t kEveryByte = 0x0101010101010101ULL;

inline uint64_t load_eight(const char* p) {
  uint64_t x;
  memcpy(&x, p, 8);
  return x;  // the first byte lowest: the machine is little-endian
}

// The top bit of every byte of y that is not a digit's value (0 to 9),
// for y a word of text with every byte XORed with '0'.  The test runs on
// seven bits per byte, so no byte carries into the next, and the top bit
// of the byte itself catches what is left.
inline uint64_t non_digit_values(uint64_t y) {
  return (((y & (kEveryByte * 0x7f)) + kEveryByte * 0x76) | y) & (kEveryByte * 0x80);
}

// The top bit of every byte of x that is not a decimal digit.
inline uint64_t non_digit_bytes(uint64_t x) { return non_digit_values(x ^ (kEveryByte * '0')); }

// The value of eight digit values (0 to 9, not characters), the first
// byte the most significant: pairs, then two pairs of pairs at once.
inline uint32_t eight_digit_value(uint64_t d) {
  d = d * 10 + (d >> 8);  // bytes 0, 2, 4, 6: the four pairs
  const uint64_t pairs = 0x000000ff000000ffULL;
  d = ((d & pairs) * (100 + (1000000ULL << 32)) + ((d >> 16) & pairs) * (1 + (10000ULL << 32))) >>
      32;
  return static_cast<uint32_t>(d);
}

// The first byte in [c, end) that is not a blank.
[[gnu::always_inline]] inline const char* skip_blanks(const char* c, const char* end,
                                                      const char* limit) {
  while (c < end && c + 8 <= limit) {
    const uint64_t x = load_eight(c) ^ (kEveryByte * ' ');
    if (x) {
      c += __builtin_ctzll(x) >> 3;
      return c < end ? c : end;
    }
    c += 8;
  }
  while (c < end && *c == ' ') ++c;
  return c < end ? c : end;
}

// Appends the digits at c (up to end) to v, v = v * 10 + digit for each;
// returns the first byte after them.  v wraps silently past 19 digits: the
// caller counts them.
[[gnu::always_inline]] inline const char* append_digits(const char* c, const char* end,
                                                        const char* limit, uint64_t& v) {
  while (c < end && c + 8 <= limit) {
    const uint64_t x = load_eight(c);
    uint64_t stop = non_digit_bytes(x);
    const ptrdiff_t room = end - c;
    if (room < 8) stop |= uint64_t{0x80} << (8 * room);
    // Below the first non-digit byte nothing borrows, so those bytes of
    // the difference are the digits' values.
    const uint64_t d = x - kEveryByte * '0';
    if (stop == 0) {
      v = v * 100000000 + eight_digit_value(d);
      c += 8;
      continue;
    }
    const int n = __builtin_ctzll(stop) >> 3;
    // The n digits move to the top; the bytes below them are zeros.
    if (n) v = v * kPowersOfTen[n] + eight_digit_value(d << (64 - 8 * n));
    return c + n;
  }
  for (unsigned digit; c < end && (digit = static_cast<unsigned char>(*c) - '0') < 10; ++c)
    v = v * 10 + digit;
  return c;
}

}  // namespace qal
