// The exact path: multi-word integer arithmetic that serves every format,
// direction and digit count.  The value is split at the binary point into
// an integer part I and a fraction F:
//
//   I -> base 10000, times 2**E           integer digits D (L of them in all)
//   F -> times 10**N, bits below 1 dropped  N fraction digits
//
// and the digits wanted are taken from D and then from the fraction, with
// the first digit dropped (the guard) and whether anything after it is
// non-zero (the sticky) handed to __decimal_round.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <climits>

#include "convert/big_float.h"
#include "convert/engine.h"

namespace qal {

namespace {

using u128 = unsigned __int128;

// Largest text of an integer part: 511 requested digits and a guard, plus
// what the kept words hold below them.
constexpr int kIntegerText = 600;

[[noreturn]] void conversion_abort(int error) {
  errno = error;
  abort();
}

BigFloat* times_power(BigFloat* x, int base, int p, int precision) {
  BigFloat* out;
  __big_float_times_power(x, base, p, precision, &out);
  if (out == kPowerOverflow) conversion_abort(ERANGE);
  if (!out) conversion_abort(ENOMEM);
  return out;
}

void release(BigFloat* result, BigFloat* input) {
  if (result != input) __free_big_float(result);
}

// A count as a size; never negative here, and the compiler is told so.
size_t sz(int n) { return n > 0 ? static_cast<size_t>(n) : 0; }

bool any_nonzero(const char* p, const char* end) {
  for (; p < end; ++p)
    if (*p != '0') return true;
  return false;
}

// The integer part I (binary, exponent >= 0) as decimal text.  Returns the
// characters written; *total is the digit count of I, dropped digits
// included.  Digits are kept exactly down to at least `digits` + 1 below
// the top, a dropped non-zero tail showing as an odd last character.
int integer_digits(BigFloat* integer, int digits, char* out, int* total) {
  const int e = integer->exponent;
  integer->exponent = 0;
  LocalBigFloat<> dec;
  __big_binary_to_big_decimal(integer, dec.get());
  BigFloat* d = times_power(dec.get(), 2, e, digits);
  const int n = big_decimal_text(d, out);
  *total = n + d->exponent;
  release(d, dec.get());
  return n;
}

// floor(F * 10**count) as exactly `count` digits, leading zeros kept, for
// F below 1.  Returns whether anything below them is non-zero.
bool fraction_digits(const BigFloat* fraction, int count, char* out) {
  if (fraction->length == 0 || count <= 0) {
    memset(out, '0', sz(count));
    return fraction->length != 0;
  }
  LocalBigFloat<> g;
  memcpy(g.get()->words, fraction->words, 2 * sz(fraction->length));
  g->length = fraction->length;
  g->exponent = fraction->exponent;
  // F < 2**top, so the product has at most top + count*log2(10) + 1 bits
  // above the point; 217706/65536 is just above log2(10).  Keeping that
  // many and two words more leaves the point inside the kept words.
  const int top = fraction->exponent + big_bit_length(fraction);
  const int precision = std::max(top + static_cast<int>((int64_t{count} * 217706) >> 16) + 2, 1);
  BigFloat* input = g.get();
  BigFloat* first = input;
  int p = count;
  if (p >= 5120) {
    // Beyond the rows of one multiplication: an exact first step, then the
    // rest with the usual precision.
    first = times_power(input, 10, p - 4096, INT_MAX);
    p = 4096;
  }
  BigFloat* product = times_power(first, 10, p, precision);
  if (first != product) release(first, input);
  const bool lost = __right_shift_base_two(product);
  LocalBigFloat<> dec;
  __big_binary_to_big_decimal(product, dec.get());
  release(product, input);
  char text[kIntegerText];
  const int n = big_decimal_text(dec.get(), text);
  memset(out, '0', sz(count - n));
  memcpy(out + count - n, text, sz(n));
  return lost;
}

// Upper bound of the zeros between the point and the first significant
// digit of F (not zero, below 1).  19729/65536 is just above log10(2).
int fraction_zeros_bound(const BigFloat* fraction) {
  const int top = fraction->exponent + big_bit_length(fraction);  // F >= 2**(top-1)
  return static_cast<int>((int64_t{1 - top} * 19729) >> 16) + 1;
}

// Splits mant * 2**exponent at the binary point.
void split(const Unpacked& u, BigFloat* integer, BigFloat* fraction) {
  if (u.exponent >= 0) {
    big_float_from_bits(integer, u.mant, u.exponent);
    fraction->length = 0;
    return;
  }
  const int shift = -u.exponent;
  const unsigned __int128 whole = shift < 128 ? u.mant >> shift : 0;
  const unsigned __int128 part =
      shift < 128 ? u.mant & ((static_cast<unsigned __int128>(1) << shift) - 1) : u.mant;
  big_float_from_bits(integer, whole, 0);
  big_float_from_bits(fraction, part, u.exponent);
}

void store_overflow(unsigned* exceptions) { *exceptions |= FPX_OVERFLOW; }

Rest rest_of(char guard, bool sticky) {
  return guard == '0' && !sticky   ? Rest::kZero
         : guard < '5'             ? Rest::kBelowHalf
         : guard == '5' && !sticky ? Rest::kHalf
                                   : Rest::kAboveHalf;
}

// The integer part of a binary number and the class of its fraction;
// false when the integer needs more than 128 bits.
bool integer_and_rest(const BigFloat* z, u128* y, Rest* rest) {
  *y = 0;
  *rest = Rest::kZero;
  const int bits = big_bit_length(z);
  if (bits == 0) return true;
  const int e = z->exponent;
  if (bits + e > 128) return false;
  auto bit = [&](int i) { return i >= 0 && i < bits && ((z->words[i / 16] >> (i % 16)) & 1); };
  for (int i = bits - 1; i >= 0 && i + e >= 0; --i) *y = *y << 1 | bit(i);
  if (e >= 0) {
    *y <<= e;
    return true;
  }
  bool lower = false;
  for (int i = 0; i < -e - 1 && i < bits && !lower; ++i) lower = bit(i);
  const bool half = bit(-e - 1);
  *rest = half ? (lower ? Rest::kAboveHalf : Rest::kHalf) : lower ? Rest::kBelowHalf : Rest::kZero;
  return true;
}

}  // namespace

bool exact_scaled(u128 mant, int e, int s, u128* y, Rest* rest) {
  if (s >= 0) {
    LocalBigFloat<> g;
    big_float_from_bits(g.get(), mant, e);
    BigFloat* z = times_power(g.get(), 10, s, INT_MAX);
    const bool ok = integer_and_rest(z, y, rest);
    release(z, g.get());
    return ok;
  }
  // Dividing by 10**m is cutting m digits off the integer's decimal text.
  const int m = -s;
  Unpacked u = {mant, e, 0};
  LocalBigFloat<> integer, fraction;
  split(u, integer.get(), fraction.get());
  const int room = (big_bit_length(integer.get()) + integer->exponent) / 3 + 8;
  char* text = static_cast<char*>(malloc(sz(room)));
  if (!text) conversion_abort(ENOMEM);
  int total = 0;
  const int n = integer->length ? integer_digits(integer.get(), INT_MAX / 8, text, &total) : 0;
  const int keep = n - m;
  bool ok = keep <= 38;
  *y = 0;
  for (int i = 0; ok && i < keep; ++i) *y = *y * 10 + static_cast<unsigned>(text[i] - '0');
  const char guard = keep >= 0 && keep < n ? text[keep] : '0';
  const bool sticky =
      fraction->length != 0 || (keep < 0 ? n > 0 : any_nonzero(text + keep + 1, text + n));
  *rest = rest_of(guard, sticky);
  free(text);
  return ok;
}

void __decimal_round(const DecimalMode* mode, DecimalRecord* rec, unsigned* exceptions, char guard,
                     bool sticky) {
  char* d = rec->digits;
  int n = rec->ndigits;
  const Rest rest = guard == '0' && !sticky   ? Rest::kZero
                    : guard < '5'             ? Rest::kBelowHalf
                    : guard == '5' && !sticky ? Rest::kHalf
                                              : Rest::kAboveHalf;
  if (rest != Rest::kZero) {
    *exceptions |= FPX_INEXACT;
    const bool up = rounds_up(mode->rounding, rec->sign, rest, n > 0 && ((d[n - 1] - '0') & 1));
    if (up) {
      int i = n - 1;
      while (i >= 0 && d[i] == '9') d[i--] = '0';
      if (i >= 0) {
        ++d[i];
      } else if (mode->form == DECIMAL_FLOATING) {
        d[0] = '1';
        ++rec->exponent;
      } else if (n + 1 >= DECIMAL_RECORD_DIGITS) {
        // One digit more than the record holds.
        *exceptions |= FPX_OVERFLOW;
        return;
      } else {
        d[0] = '1';
        if (n > 0) d[n] = '0';
        ++n;
      }
    }
  }
  if (n == 0) {
    d[0] = '0';
    n = 1;
  }
  d[n] = '\0';
  rec->ndigits = n;
}

void _unpacked_to_decimal_two(const Unpacked& u, const DecimalMode* mode, DecimalRecord* rec,
                              unsigned* exceptions) {
  const int n = mode->ndigits;
  const bool floating = mode->form == DECIMAL_FLOATING;
  if (n >= DECIMAL_RECORD_DIGITS || (floating && n < 1)) return store_overflow(exceptions);
  LocalBigFloat<> integer, fraction;
  split(u, integer.get(), fraction.get());

  char itext[kIntegerText];
  int ilen = 0, total = 0;
  if (integer->length)
    ilen =
        integer_digits(integer.get(), floating ? n + 1 : DECIMAL_RECORD_DIGITS - 1, itext, &total);
  const bool has_fraction = fraction->length != 0;
  char* d = rec->digits;
  char guard;
  bool sticky;

  if (floating) {
    if (total >= n + 1) {
      memcpy(d, itext, sz(n));
      guard = itext[n];
      sticky = has_fraction || any_nonzero(itext + n + 1, itext + ilen);
      rec->exponent = total - n;
    } else if (total > 0) {
      // All of the integer's digits (it was not cut), then n - L fraction
      // digits and the guard.
      const int wanted = n - total + 1;
      char ftext[DECIMAL_RECORD_DIGITS + 1];
      sticky = fraction_digits(fraction.get(), wanted, ftext);
      memcpy(d, itext, sz(total));
      memcpy(d + total, ftext, sz(wanted - 1));
      guard = ftext[wanted - 1];
      rec->exponent = total - n;
    } else {
      // Below 1: skip the zeros after the point.
      const int zeros = fraction_zeros_bound(fraction.get());
      const int count = zeros + n + 1;
      char* ftext = static_cast<char*>(malloc(sz(count)));
      if (!ftext) conversion_abort(ENOMEM);
      sticky = fraction_digits(fraction.get(), count, ftext);
      int z = 0;
      while (ftext[z] == '0') ++z;
      memcpy(d, ftext + z, sz(n));
      guard = ftext[z + n];
      sticky = sticky || any_nonzero(ftext + z + n + 1, ftext + count);
      rec->exponent = -(z + n);
      free(ftext);
    }
    rec->ndigits = n;
  } else if (n >= 0) {
    if (total + n >= DECIMAL_RECORD_DIGITS) return store_overflow(exceptions);
    char ftext[DECIMAL_RECORD_DIGITS + 1];
    sticky = fraction_digits(fraction.get(), n + 1, ftext);
    memcpy(d, itext, sz(total));
    memcpy(d + total, ftext, sz(n));
    guard = ftext[n];
    rec->ndigits = total + n;
    rec->exponent = -n;
  } else {
    // Rounding to the left of the point: m digits of the integer go.
    const int m = -n;
    if (total >= DECIMAL_RECORD_DIGITS || m >= DECIMAL_RECORD_DIGITS)
      return store_overflow(exceptions);
    const int keep = std::max(total - m, 0);
    memcpy(d, itext, sz(keep));
    guard = total >= m ? itext[keep] : '0';
    sticky = has_fraction || (total > m    ? any_nonzero(itext + keep + 1, itext + total)
                              : total == m ? any_nonzero(itext + 1, itext + total)
                                           : total > 0);
    rec->ndigits = keep;
    rec->exponent = 0;
    __decimal_round(mode, rec, exceptions, guard, sticky);
    if (rec->ndigits == 1 && d[0] == '0') return;
    if (rec->ndigits + m >= DECIMAL_RECORD_DIGITS) return store_overflow(exceptions);
    memset(d + rec->ndigits, '0', sz(m));
    rec->ndigits += m;
    d[rec->ndigits] = '\0';
    return;
  }
  __decimal_round(mode, rec, exceptions, guard, sticky);
}

}  // namespace qal
