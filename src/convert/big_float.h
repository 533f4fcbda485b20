// BigFloat: the working number of the exact conversions.
//
//   capacity | length | exponent | words[0] words[1] ... words[length-1]
//                                  least significant            top word
//
// A binary BigFloat has words in base 65536 and is words * 2**exponent; a
// decimal one has words in base 10000 and is words * 10**exponent.  A length
// of 0 is zero; otherwise the top word is not zero.  Numbers live on the
// stack with room for kStackWords words (LocalBigFloat); a power that makes a
// number outgrow that comes back in a malloc'ed BigFloat.
#pragma once

#include <stdint.h>

namespace qal {

inline constexpr int kStackWords = 256;

struct BigFloat {
  uint16_t capacity;
  uint16_t length;
  int16_t exponent;
  uint16_t words[];
};

template <int N = kStackWords>
class LocalBigFloat {
 public:
  LocalBigFloat() {
    BigFloat* b = get();
    b->capacity = N;
    b->length = 0;
    b->exponent = 0;
  }
  LocalBigFloat(const LocalBigFloat&) = delete;
  LocalBigFloat& operator=(const LocalBigFloat&) = delete;
  BigFloat* get() { return reinterpret_cast<BigFloat*>(store_); }
  BigFloat* operator->() { return get(); }

 private:
  alignas(8) uint16_t store_[3 + N];
};

// What __big_float_times_power stores in *out besides a number.
inline BigFloat* const kPowerOverflow = reinterpret_cast<BigFloat*>(1);

// x times 10**p (x binary: 5**p into the words, p into the exponent) or
// times 2**p (x decimal), for p >= 0.  Keeps at least `precision` bits
// (binary) or digits (decimal) below the top of the result, exact, with the
// lowest kept word made odd when anything non-zero was dropped.  *out is x
// when the result fits it, else a new number for __free_big_float; 0 when
// that allocation failed, kPowerOverflow when p is beyond the tables.
void __big_float_times_power(BigFloat* x, int base, int p, int precision, BigFloat** out);
void __free_big_float(BigFloat* x);

// Base 65536 integer (exponent >= 0) to base 10000, exactly.  dec must
// have room for the result.
void __big_binary_to_big_decimal(const BigFloat* bin, BigFloat* dec);

// Drops trailing zero words into the exponent (16 or 4 each).
void _split_shorten(BigFloat* x, int word_exponent);

// Sets x to a value of up to 128 bits times 2**exponent.
void big_float_from_bits(BigFloat* x, unsigned __int128 value, int exponent);

// Drops the bits of a binary number below 2**0, reporting whether any was
// non-zero; the number becomes an integer with exponent 0.  A number with
// a positive exponent keeps it.
bool __right_shift_base_two(BigFloat* x);

// Decimal words, top first, as text: the top word without leading zeros,
// the others four digits each.  Returns the count written.
int big_decimal_text(const BigFloat* dec, char* out);

// Bits of a binary number's words (its value without the exponent).
int big_bit_length(const BigFloat* x);

}  // namespace qal
