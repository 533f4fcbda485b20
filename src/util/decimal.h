// Integer to decimal text without any library call: pairs of digits from a
// 200-byte table, written backwards into a small stack buffer.
#pragma once

#include <stdint.h>
#include <string.h>

namespace qal {

inline constexpr char kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Longest text of a 64-bit value with its sign.
inline constexpr int kMaxDecimalDigits = 20;

// Writes the digits of `v` so that they end just before `end`; returns the
// first digit's address.
inline char* unsigned_to_decimal_backward(uint64_t v, char* end) {
  char* p = end;
  while (v >= 100) {
    const unsigned pair = static_cast<unsigned>(v % 100) * 2;
    v /= 100;
    p -= 2;
    memcpy(p, kDigitPairs + pair, 2);
  }
  if (v >= 10) {
    p -= 2;
    memcpy(p, kDigitPairs + v * 2, 2);
  } else {
    *--p = static_cast<char>('0' + v);
  }
  return p;
}

inline char* signed_to_decimal_backward(int64_t v, char* end) {
  // Negate in unsigned arithmetic so that the most negative value is exact.
  const uint64_t magnitude = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
  char* p = unsigned_to_decimal_backward(magnitude, end);
  if (v < 0) *--p = '-';
  return p;
}

// Text of `v` at `out` (no terminator); returns its length.
inline int signed_to_decimal(int64_t v, char* out) {
  char buf[kMaxDecimalDigits + 1];
  char* end = buf + sizeof buf;
  char* p = signed_to_decimal_backward(v, end);
  const int n = static_cast<int>(end - p);
  memcpy(out, p, static_cast<size_t>(n));
  return n;
}

inline int unsigned_to_decimal(uint64_t v, char* out) {
  char buf[kMaxDecimalDigits];
  char* end = buf + sizeof buf;
  char* p = unsigned_to_decimal_backward(v, end);
  const int n = static_cast<int>(end - p);
  memcpy(out, p, static_cast<size_t>(n));
  return n;
}

}  // namespace qal
