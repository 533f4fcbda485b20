// The constant tables of the conversions.  Every one is computed by the
// compiler from its rule in tables.cc; none is typed in.
#pragma once

#include <stdint.h>

#include <array>

namespace qal {

// 10**i and the double nearest to 10**-i, i = 0..49.
extern const std::array<double, 50> __tbl_tens;
extern const std::array<double, 50> __tbl_ntens;

// Entry i: 4096 * log10(1 + (2i+1)/256) rounded, i = 0..127: the decimal
// logarithm of the middle of the i-th 128th of a binade.
extern const std::array<uint16_t, 128> __tbl_baselg;

// Entry i: the four-digit text of 8i, i = 0..1249.
using FourDigits = std::array<char, 4>;
extern const std::array<FourDigits, 1250> __four_digits_quick_table;

// Rows of powers held in the words of a BigFloat, least significant word
// first and without padding: row r is digits[start[r]] .. digits[start[r+1] - 1].
template <int Rows, int Words>
struct PowerRows {
  std::array<uint16_t, Rows + 1> start;
  std::array<uint16_t, Words> digits;  // a few spare zero words may follow the last row

  const uint16_t* row(int r) const { return digits.data() + start[r]; }
  int length(int r) const { return start[r + 1] - start[r]; }
};

// Words needed for base**(step*r), r < rows, in a base of `word_log`
// (log of the word base to the base of the power, times 1e6, rounded down
// so that the count is an upper bound).
constexpr int power_rows_words(int rows, int step, long per_unit_1e6) {
  int total = 0;
  for (int r = 0; r < rows; ++r) total += static_cast<int>(r * step * per_unit_1e6 / 1000000) + 2;
  return total;
}
// log(5)/log(65536) = 0.1451205...; log(2)/log(10000) = 0.0752574...
inline constexpr long kFivePerWord = 145121;
inline constexpr long kTwoPerWord = 75258;

// 5**p in base 65536: small p = 0..63, big p = 64*(0..15), huge p = 1024*(0..4).
using TenSmallRows = PowerRows<64, power_rows_words(64, 1, kFivePerWord)>;
using TenBigRows = PowerRows<16, power_rows_words(16, 64, kFivePerWord)>;
using TenHugeRows = PowerRows<5, power_rows_words(5, 1024, kFivePerWord)>;
extern const TenSmallRows __tbl_10_small;
extern const TenBigRows __tbl_10_big;
extern const TenHugeRows __tbl_10_huge;

// 2**p in base 10000: small p = 0..175, big p = 176*(0..15), huge p = 2816*(0..5).
using TwoSmallRows = PowerRows<176, power_rows_words(176, 1, kTwoPerWord)>;
using TwoBigRows = PowerRows<16, power_rows_words(16, 176, kTwoPerWord)>;
using TwoHugeRows = PowerRows<6, power_rows_words(6, 2816, kTwoPerWord)>;
extern const TwoSmallRows __tbl_2_small;
extern const TwoBigRows __tbl_2_big;
extern const TwoHugeRows __tbl_2_huge;

// 5**k for |k| <= kWidePowerLimit as a 128-bit mantissa with its top bit set
// and a binary exponent:
//
//   5**k = mantissa * 2**(exponent - 127) + err,   0 <= err < 2**(exponent - 127)
//
// so the mantissa never exceeds the true power; it is exact for k = 0..55.
inline constexpr int kWidePowerLimit = 350;
struct WidePower {
  uint64_t hi, lo;
  int32_t exponent;
};
extern const std::array<WidePower, 2 * kWidePowerLimit + 1> kWidePowers;

inline const WidePower& wide_power(int k) { return kWidePowers[k + kWidePowerLimit]; }

// 5**k exactly, k = 0..27 (all that fit 64 bits).
inline constexpr std::array<uint64_t, 28> kPow5 = [] {
  std::array<uint64_t, 28> t{};
  t[0] = 1;
  for (int k = 1; k < 28; ++k) t[k] = t[k - 1] * 5;
  return t;
}();

}  // namespace qal
