// The conversion tables, computed at compile time from exact integers.
// A natural number here is an array of 32-bit limbs, least significant
// first, sized for the largest value each table needs.
#include "convert/tables.h"

#include <bit>

#include "util/binary_format.h"

namespace qal {

namespace {

template <int N>
struct Nat {
  std::array<uint32_t, N> w{};
  int n = 0;  // limbs in use; the top one is not zero

  constexpr void mul_small(uint32_t m) {
    uint64_t carry = 0;
    for (int i = 0; i < n; ++i) {
      carry += static_cast<uint64_t>(w[i]) * m;
      w[i] = static_cast<uint32_t>(carry);
      carry >>= 32;
    }
    if (carry) w[n++] = static_cast<uint32_t>(carry);
  }
  // Divides in place, rounding down.
  constexpr void div_small(uint32_t d) {
    uint64_t rem = 0;
    for (int i = n - 1; i >= 0; --i) {
      const uint64_t cur = (rem << 32) | w[i];
      w[i] = static_cast<uint32_t>(cur / d);
      rem = cur % d;
    }
    while (n > 0 && w[n - 1] == 0) --n;
  }
  constexpr int bit_length() const { return n == 0 ? 0 : 32 * (n - 1) + std::bit_width(w[n - 1]); }
  constexpr bool bit(int i) const { return i >= 0 && i < 32 * n && ((w[i / 32] >> (i % 32)) & 1); }
  // floor(value / 2**shift) when it fits 64 bits.
  constexpr uint64_t bits_from(int shift) const {
    uint64_t r = 0;
    for (int i = 63; i >= 0; --i) r = (r << 1) | bit(shift + i);
    return r;
  }
  constexpr bool any_below(int shift) const {
    for (int i = 0; i < shift; ++i)
      if (bit(i)) return true;
    return false;
  }
};

// The double nearest to value * 2**scale, ties to even, for a value whose
// nearest double is normal; `sticky` says that value is a truncation.
constexpr double nearest_double(const Nat<34>& value, int scale, bool sticky) {
  const int len = value.bit_length();
  const int cut = len - 53;  // bits below the 53 kept
  uint64_t m = value.bits_from(cut);
  const bool half = value.bit(cut - 1);
  const bool rest = sticky || value.any_below(cut - 1);
  if (half && (rest || (m & 1))) ++m;
  int e = len - 1 + scale;
  if (m >> 53) {
    m >>= 1;
    ++e;
  }
  return std::bit_cast<double>(
      Binary64::pack(false, e + Binary64::kBias, m & Binary64::kFractionMask));
}

constexpr std::array<double, 50> make_tens(bool negative) {
  std::array<double, 50> t{};
  // 2**1024 / 5**i keeps well over 53 bits for every i here.
  constexpr int kScale = 1024;
  Nat<34> five, inverse;
  five.w[0] = 1;
  five.n = 1;
  inverse.w[kScale / 32] = 1;
  inverse.n = kScale / 32 + 1;
  for (int i = 0; i < 50; ++i) {
    // 10**i = 5**i * 2**i; 10**-i = (2**1024 / 5**i) * 2**(-1024 - i), and
    // that quotient is never exact for i > 0.
    t[i] = negative ? nearest_double(inverse, -kScale - i, i > 0) : nearest_double(five, i, false);
    five.mul_small(5);
    inverse.div_small(5);
  }
  return t;
}

// log10(x) for x in [1, 2], from ln(x) = 2 atanh((x-1)/(x+1)).
constexpr double log10_of(double x) {
  constexpr double kLn10 = 2.302585092994045684;
  const double y = (x - 1) / (x + 1), y2 = y * y;
  double term = y, sum = 0;
  for (int k = 1; k < 60; k += 2) {
    sum += term / k;
    term *= y2;
  }
  return 2 * sum / kLn10;
}

constexpr std::array<uint16_t, 128> make_baselg() {
  std::array<uint16_t, 128> t{};
  for (int i = 0; i < 128; ++i)
    t[i] = static_cast<uint16_t>(4096 * log10_of(1 + (2 * i + 1) / 256.0) + 0.5);
  return t;
}

constexpr std::array<FourDigits, 1250> make_four_digits() {
  std::array<FourDigits, 1250> t{};
  for (int i = 0; i < 1250; ++i) {
    int v = 8 * i;
    for (int d = 3; d >= 0; --d, v /= 10) t[i][d] = static_cast<char>('0' + v % 10);
  }
  return t;
}

constexpr std::array<WidePower, 2 * kWidePowerLimit + 1> make_wide_powers() {
  std::array<WidePower, 2 * kWidePowerLimit + 1> t{};
  // 5**k exactly for k >= 0; floor(2**kScale / 5**k) for k < 0, which is
  // exact as a floor because floor(floor(a/b)/c) = floor(a/(b c)).
  constexpr int kScale = 1216;
  Nat<40> up;
  up.w[0] = 1;
  up.n = 1;
  Nat<40> down;
  down.w[kScale / 32] = 1;
  down.n = kScale / 32 + 1;
  for (int k = 0; k <= kWidePowerLimit; ++k) {
    for (int side = 0; side < 2; ++side) {
      const Nat<40>& x = side == 0 ? up : down;
      const int len = x.bit_length();
      WidePower p{};
      p.hi = x.bits_from(len - 64);
      p.lo = x.bits_from(len - 128);
      p.exponent = side == 0 ? len - 1 : len - 1 - kScale;
      t[kWidePowerLimit + (side == 0 ? k : -k)] = p;
    }
    up.mul_small(5);
    down.div_small(5);
  }
  return t;
}

}  // namespace

constinit const std::array<double, 50> __tbl_tens = make_tens(false);
constinit const std::array<double, 50> __tbl_ntens = make_tens(true);
constinit const std::array<uint16_t, 128> __tbl_baselg = make_baselg();
constinit const std::array<FourDigits, 1250> __four_digits_quick_table = make_four_digits();

// The rows of powers, printed by tools/power_rows.cc when the library is built.
#include "power_rows.inc"

constinit const std::array<WidePower, 2 * kWidePowerLimit + 1> kWidePowers = make_wide_powers();

}  // namespace qal
