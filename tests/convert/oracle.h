// Helpers of the conversion tests: the digits glibc's printf and
// libquadmath's quadmath_snprintf give in a rounding direction, random
// operands that reach every path, and the unpacked form of each format.
#pragma once

#include <fenv.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <bit>
#include <ostream>
#include <random>
#include <string>

extern "C" {
#include <quadmath.h>
}

#include "convert/engine.h"
#include "qal/convert.h"

namespace qal::test {

// Random counts are cut down under the sanitizers.
constexpr int scaled_count(int n) { return QAL_SANITIZED ? n / 20 + 1 : n; }

constexpr int kFenvDirection[4] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};

class Direction {
 public:
  explicit Direction(int rounding) { fesetround(kFenvDirection[rounding]); }
  ~Direction() { fesetround(FE_TONEAREST); }
  Direction(const Direction&) = delete;
  Direction& operator=(const Direction&) = delete;
};

// The digits and the power of ten of the last one, as a record holds them.
struct Digits {
  std::string digits;
  int exponent;
  bool operator==(const Digits&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const Digits& d) {
  return os << d.digits << "e" << d.exponent;
}

inline Digits record_digits(const DecimalRecord& r) {
  return {std::string(r.digits, static_cast<size_t>(r.ndigits)), r.exponent};
}

// "%.*e" text to digits: sign and point dropped, exponent of the last digit.
inline Digits from_e_text(const char* text, int n) {
  Digits d{"", 0};
  const char* p = text;
  if (*p == '-') ++p;
  for (; *p && *p != 'e'; ++p)
    if (*p != '.') d.digits += *p;
  d.exponent = atoi(p + 1) - (n - 1);
  return d;
}

// "%.*f" text to digits as the fixed form keeps them: leading zeros
// dropped down to n digits (at least one).
inline Digits from_f_text(const char* text, int n) {
  std::string s;
  for (const char* p = text; *p; ++p)
    if (*p >= '0' && *p <= '9') s += *p;
  const size_t keep = static_cast<size_t>(n > 1 ? n : 1);
  size_t z = 0;
  while (s.size() - z > keep && s[z] == '0') ++z;
  return {s.substr(z), -n};
}

// The text `print` writes into a buffer while `rounding` is in force.
template <class Print>
const char* text_in_direction(int rounding, Print print) {
  static char buf[8192];
  Direction d(rounding);
  print(buf, sizeof buf);
  return buf;
}

inline Digits printf_e(int rounding, double x, int n) {
  return from_e_text(
      text_in_direction(rounding,
                        [&](char* b, size_t size) { snprintf(b, size, "%.*e", n - 1, x); }),
      n);
}

inline Digits printf_f(int rounding, double x, int n) {
  return from_f_text(
      text_in_direction(rounding, [&](char* b, size_t size) { snprintf(b, size, "%.*f", n, x); }),
      n);
}

inline Digits printf_le(int rounding, long double x, int n) {
  return from_e_text(
      text_in_direction(rounding,
                        [&](char* b, size_t size) { snprintf(b, size, "%.*Le", n - 1, x); }),
      n);
}

inline Digits quad_e(int rounding, __float128 x, int n) {
  return from_e_text(
      text_in_direction(
          rounding, [&](char* b, size_t size) { quadmath_snprintf(b, size, "%.*Qe", n - 1, x); }),
      n);
}

inline Digits quad_f(int rounding, __float128 x, int n) {
  return from_f_text(
      text_in_direction(rounding,
                        [&](char* b, size_t size) { quadmath_snprintf(b, size, "%.*Qf", n, x); }),
      n);
}

// Random operands: raw bit patterns reach every exponent; the others hit
// integers, short fractions, ties, powers of two and subnormals, where the
// paths have their exact cases.
class Operands {
 public:
  explicit Operands(uint64_t seed) : rng_(seed) {}
  uint64_t bits() { return rng_(); }
  int below(int n) { return static_cast<int>(rng_() % static_cast<uint64_t>(n)); }

  double next_double() {
    for (;;) {
      double x;
      switch (below(8)) {
        case 0:
          x = static_cast<double>(rng_() >> below(64));  // an integer
          break;
        case 1:  // a short decimal fraction or a tie
          x = static_cast<double>(rng_() % 100000) / static_cast<double>(1 << below(20));
          break;
        case 2:  // a power of two
          x = std::bit_cast<double>(static_cast<uint64_t>(1 + below(2046)) << 52);
          break;
        case 3:  // subnormal
          x = std::bit_cast<double>(rng_() >> (12 + below(52)));
          break;
        case 4: {  // near 10**k
          const uint64_t b = std::bit_cast<uint64_t>(__builtin_powi(10.0, below(600) - 300));
          x = std::bit_cast<double>(b + static_cast<uint64_t>(below(5)) - 2);
          break;
        }
        default:
          x = std::bit_cast<double>(rng_());
          break;
      }
      if (x != 0 && __builtin_isfinite(x)) return below(2) ? -x : x;
    }
  }
  float next_float() {
    for (;;) {
      const float f = below(2) ? static_cast<float>(next_double())
                               : std::bit_cast<float>(static_cast<uint32_t>(rng_()));
      if (f != 0 && __builtin_isfinite(f)) return f;
    }
  }
  long double next_extended() {
    for (;;) {
      long double x;
      if (below(3) == 0) {
        x = static_cast<long double>(next_double()) * (1 + static_cast<long double>(below(1000)));
      } else {
        uint32_t w[4] = {static_cast<uint32_t>(rng_()), static_cast<uint32_t>(rng_()) | 0x80000000u,
                         static_cast<uint32_t>(rng_() & 0xffff), 0};
        // A zero exponent with the integer bit set (a pseudo-denormal, which
        // no x87 operation produces) is read by printf without that bit.
        if ((w[2] & 0x7fff) == 0 || below(4) == 0) w[1] &= 0x7fffffff, w[2] &= 0x8000;
        memcpy(&x, w, 10);
      }
      if (x != 0 && __builtin_isfinite(x)) return x;
    }
  }
  __float128 next_quad() {
    for (;;) {
      __float128 q;
      switch (below(4)) {
        case 0:
          q = static_cast<__float128>(next_double()) / 3;
          break;
        case 1:
          q = static_cast<__float128>(rng_()) * static_cast<__float128>(rng_()) /
              static_cast<__float128>(1 << below(30));
          break;
        default: {
          const uint64_t w[2] = {rng_(), rng_()};
          memcpy(&q, w, 16);
          break;
        }
      }
      if (q != 0 && !isnanq(q) && !isinfq(q)) return q;
    }
  }
  // A digit count: mostly few, sometimes hundreds.
  int next_count() {
    switch (below(4)) {
      case 0:
        return 1 + below(511);
      case 1:
        return 18 + below(24);
      default:
        return 1 + below(20);
    }
  }

 private:
  std::mt19937_64 rng_;
};

inline Unpacked unpack_double(double x) {
  const uint64_t b = std::bit_cast<uint64_t>(x);
  const int biased = static_cast<int>((b >> 52) & 0x7ff);
  const uint64_t f = b & ((uint64_t{1} << 52) - 1);
  Unpacked u;
  u.sign = static_cast<int>(b >> 63);
  u.mant = biased ? f | uint64_t{1} << 52 : f;
  u.exponent = biased ? biased - 1075 : -1074;
  return u;
}

inline Unpacked unpack_quad(__float128 q) {
  unsigned __int128 b;
  memcpy(&b, &q, 16);
  const int biased = static_cast<int>((b >> 112) & 0x7fff);
  const unsigned __int128 one = 1;
  const unsigned __int128 f = b & ((one << 112) - 1);
  Unpacked u;
  u.sign = static_cast<int>(b >> 127);
  u.mant = biased ? f | one << 112 : f;
  u.exponent = biased ? biased - 16495 : -16494;
  return u;
}

inline void quad_words(__float128 q, uint32_t w[4]) { memcpy(w, &q, 16); }

}  // namespace qal::test
