// Helpers of the quad tests: images from words or from the compiler's
// __float128 (the peer the random tests compare with), and a scope that
// sets the rounding direction.
#pragma once

#include <fenv.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "qal/quad.h"

namespace qal::test {

using Quad = __float128;
using u128 = unsigned __int128;

inline QuadImage image(u128 bits) {
  QuadImage q;
  memcpy(&q, &bits, sizeof q);
  return q;
}

// Words most significant first, as one reads a number.
inline QuadImage words(uint32_t w3, uint32_t w2 = 0, uint32_t w1 = 0, uint32_t w0 = 0) {
  return QuadImage{{w0, w1, w2, w3}};
}

inline u128 bits_of(const QuadImage& q) {
  u128 b;
  memcpy(&b, &q, sizeof b);
  return b;
}

inline QuadImage image(Quad v) {
  QuadImage q;
  memcpy(&q, &v, sizeof q);
  return q;
}

inline Quad value_of(const QuadImage& q) {
  Quad v;
  memcpy(&v, &q, sizeof v);
  return v;
}

inline bool same(const QuadImage& a, const QuadImage& b) { return bits_of(a) == bits_of(b); }

inline bool is_nan(const QuadImage& q) { return (bits_of(q) << 1 >> 1) > (u128{0x7fff} << 112); }

inline std::string hex(const QuadImage& q) {
  char buf[48];
  snprintf(buf, sizeof buf, "%08x %08x %08x %08x", q.word[3], q.word[2], q.word[1], q.word[0]);
  return buf;
}

inline const char* direction_name(int direction) {
  switch (direction) {
    case FE_TONEAREST:
      return "nearest";
    case FE_DOWNWARD:
      return "down";
    case FE_UPWARD:
      return "up";
    default:
      return "toward zero";
  }
}

inline constexpr int kDirections[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};

// Sets the rounding direction (MXCSR and the x87 word) for a scope.
class Direction {
 public:
  explicit Direction(int direction) { fesetround(direction); }
  ~Direction() { fesetround(FE_TONEAREST); }
  Direction(const Direction&) = delete;
  Direction& operator=(const Direction&) = delete;
};

using Binary = void (*)(QuadImage*, const QuadImage*, const QuadImage*);

inline QuadImage apply(Binary op, const QuadImage& a, const QuadImage& b) {
  QuadImage r;
  op(&r, &a, &b);
  return r;
}

}  // namespace qal::test
