// Integer digits for the conversions, four at a time from the table.
#include "convert/digits.h"

#include "util/decimal.h"

namespace qal {

namespace {

// Writes `count` digits of v (v below 10**count) ending just before end.
char* fixed_digits(uint32_t v, int count, char* end) {
  for (; count >= 4; count -= 4) {
    end -= 4;
    __four_digits_quick(v % 10000, end);
    v /= 10000;
  }
  for (; count > 0; --count, v /= 10) *--end = static_cast<char>('0' + v % 10);
  return end;
}

// All digits of v in groups of four, the top group with its leading zeros.
char* grouped_digits(uint64_t v, char* end) {
  while (v >= 655360) {
    end -= 4;
    __four_digits_quick(static_cast<unsigned>(v % 10000), end);
    v /= 10000;
  }
  uint32_t w = static_cast<uint32_t>(v);
  do {
    end -= 4;
    __four_digits_quick(w % 10000, end);
    w /= 10000;
  } while (w);
  return end;
}

}  // namespace

void __double_to_digits(char* end, int* count, double y) {
  // y is integral and below 2**63, so the conversion is exact; the split
  // keeps the lower part within 32 bits.
  const uint64_t v = static_cast<uint64_t>(y);
  char* p;
  if (v >= 10000000000000000ULL) {
    p = fixed_digits(static_cast<uint32_t>(v % 1000000000), 9, end);
    p = grouped_digits(v / 1000000000, p);
  } else if (v > 2147483647) {
    p = fixed_digits(static_cast<uint32_t>(v % 100000000), 8, end);
    p = grouped_digits(v / 100000000, p);
  } else {
    p = grouped_digits(v, end);
  }
  *count = static_cast<int>(end - p);
}

char* u128_digits_backward(unsigned __int128 v, char* end) {
  constexpr uint64_t k19 = 10000000000000000000ULL;
  while (v >> 64) {
    unsigned __int128 q;
    uint64_t r;
    const uint64_t high = static_cast<uint64_t>(v >> 64), low = static_cast<uint64_t>(v);
    if (high < k19) {
      // One hardware division: the quotient fits 64 bits.
      uint64_t quotient;
      asm("divq %4" : "=a"(quotient), "=d"(r) : "a"(low), "d"(high), "r"(k19));
      q = quotient;
    } else {
      q = v / k19;
      r = static_cast<uint64_t>(v - q * k19);
    }
    char* p = unsigned_to_decimal_backward(r, end);
    while (p > end - 19) *--p = '0';
    end = p;
    v = q;
  }
  const uint64_t low = static_cast<uint64_t>(v);
  return low ? unsigned_to_decimal_backward(low, end) : end;
}

}  // namespace qal
