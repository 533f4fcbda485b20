// Reversing the bytes of each element of a run of numbers: the other byte
// order of byte-swapped unformatted files.  Elements of 2, 4, 8 and 16
// bytes; a 16-byte element is one REAL*16 reversed whole.  Bytes behind the
// last whole element are copied as they are.  `to` may be `from`.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace qal {

template <size_t Element>
inline void reverse_each(char* to, const char* from, size_t bytes) {
  static_assert(Element == 2 || Element == 4 || Element == 8 || Element == 16);
  const size_t whole = bytes - bytes % Element;
  for (size_t i = 0; i < whole; i += Element) {
    if constexpr (Element == 16) {
      uint64_t low, high;
      memcpy(&low, from + i, 8);
      memcpy(&high, from + i + 8, 8);
      low = __builtin_bswap64(low);
      high = __builtin_bswap64(high);
      memcpy(to + i, &high, 8);
      memcpy(to + i + 8, &low, 8);
    } else if constexpr (Element == 2) {
      uint16_t v;
      memcpy(&v, from + i, 2);
      v = __builtin_bswap16(v);
      memcpy(to + i, &v, 2);
    } else if constexpr (Element == 4) {
      uint32_t v;
      memcpy(&v, from + i, 4);
      v = __builtin_bswap32(v);
      memcpy(to + i, &v, 4);
    } else {
      uint64_t v;
      memcpy(&v, from + i, 8);
      v = __builtin_bswap64(v);
      memcpy(to + i, &v, 8);
    }
  }
  if (to != from) memmove(to + whole, from + whole, bytes - whole);
}

// The same with the element size known at run time; any other size copies.
inline void reverse_elements(void* to, const void* from, size_t bytes, size_t element) {
  char* t = static_cast<char*>(to);
  const char* f = static_cast<const char*>(from);
  switch (element) {
    case 2:
      return reverse_each<2>(t, f, bytes);
    case 4:
      return reverse_each<4>(t, f, bytes);
    case 8:
      return reverse_each<8>(t, f, bytes);
    case 16:
      return reverse_each<16>(t, f, bytes);
    default:
      if (t != f) memmove(t, f, bytes);
  }
}

}  // namespace qal
