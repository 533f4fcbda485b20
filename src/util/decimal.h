// Integer to decimal text without any library call: pairs of digits from a
// 200-byte table, written backwards.  32-bit values divide in 32-bit
// arithmetic, which is markedly cheaper than the 64-bit path.
#pragma once

#include <stdint.h>
#include <string.h>

#include <bit>
#include <type_traits>

namespace qal {

inline constexpr char kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Longest text of a 64-bit value with its sign.
inline constexpr int kMaxDecimalDigits = 20;

inline constexpr uint64_t kPowersOfTen[20] = {1ULL,
                                              10ULL,
                                              100ULL,
                                              1000ULL,
                                              10000ULL,
                                              100000ULL,
                                              1000000ULL,
                                              10000000ULL,
                                              100000000ULL,
                                              1000000000ULL,
                                              10000000000ULL,
                                              100000000000ULL,
                                              1000000000000ULL,
                                              10000000000000ULL,
                                              100000000000000ULL,
                                              1000000000000000ULL,
                                              10000000000000000ULL,
                                              100000000000000000ULL,
                                              1000000000000000000ULL,
                                              10000000000000000000ULL};

// Number of decimal digits of v (1 for 0).
inline int decimal_length(uint64_t v) {
  const uint64_t x = v | 1;
  // 1233/4096 is just above log10(2): t is the digit count or one more.
  const int t = (std::bit_width(x) * 1233) >> 12;
  return t + 1 - (x < kPowersOfTen[t]);
}

// The eight digits of v (below 10**8), leading zeros included, at out.
// The four pairs come from two independent halves, so their divisions
// overlap instead of forming one chain.
inline void eight_digits(uint32_t v, char* out) {
  const uint32_t high = v / 10000, low = v % 10000;
  memcpy(out, kDigitPairs + 2 * (high / 100), 2);
  memcpy(out + 2, kDigitPairs + 2 * (high % 100), 2);
  memcpy(out + 4, kDigitPairs + 2 * (low / 100), 2);
  memcpy(out + 6, kDigitPairs + 2 * (low % 100), 2);
}

// The eight digits of v (below 10**8), leading zeros included, as one
// word whose first byte is the most significant digit: the halves of v
// side by side in two 32-bit lanes, each cut by 100 into 16-bit lanes and
// those by 10 into bytes, the divisions done as multiplications that stay
// inside their lanes (x / 100 = x * 10486 >> 20 for x below 10**4,
// y / 10 = y * 103 >> 10 for y below 100).
inline uint64_t eight_digit_word(uint32_t v) {
  const uint64_t halves = (v / 10000) | (uint64_t{v % 10000} << 32);
  const uint64_t hundreds = ((halves * 10486) >> 20) & 0x0000007f0000007fULL;
  const uint64_t pairs = hundreds | ((halves - hundreds * 100) << 16);
  const uint64_t tens = ((pairs * 103) >> 10) & 0x000f000f000f000fULL;
  const uint64_t digits = tens | ((pairs - tens * 10) << 8);
  return digits + 0x3030303030303030ULL;
}

// Writes the digits of `v` so that they end just before `end`; returns the
// first digit's address.  Wide values are cut into groups of eight digits
// first, so that the rest is 32-bit arithmetic.
template <class U>
inline char* unsigned_to_decimal_backward(U v, char* end) {
  static_assert(std::is_unsigned_v<U>);
  if constexpr (sizeof(U) > 4) {
    if (v > 0xffffffffu) {
      while (v >= 100000000) {
        const U q = v / 100000000;
        end -= 8;
        eight_digits(static_cast<uint32_t>(v - q * 100000000), end);
        v = q;
      }
      return unsigned_to_decimal_backward(static_cast<uint32_t>(v), end);
    }
    return unsigned_to_decimal_backward(static_cast<uint32_t>(v), end);
  }
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

template <class S>
inline char* signed_to_decimal_backward(S v, char* end) {
  using U = std::make_unsigned_t<S>;
  // Negate in unsigned arithmetic so that the most negative value is exact.
  const U magnitude = v < 0 ? U(0) - static_cast<U>(v) : static_cast<U>(v);
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
