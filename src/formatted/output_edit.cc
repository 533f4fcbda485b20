// The integer family lays out every field the same way once it has its
// digits (least significant first), its sign and its width rules:
//
//   w > 0:  [blanks][sign][zeros up to m][digits]   or w asterisks
//   w = 0:  [sign][zeros up to m][digits]           (nothing in the f77 dialect)
//
// Digits come from repeated division (radix 10 has its own loop), from
// shifts for B, O and Z, or from long division through 16-bit words for
// integers of any length given as bytes.
#include "formatted/output_edit.h"

#include <stdlib.h>
#include <string.h>

#include <type_traits>

#include "qal/errors.h"

namespace qal {

namespace {

constexpr char kDigitTable[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

char* field(FieldWriter& f, int64_t size, int* err) {
  *err = 0;
  return f.allocate_field(f.record, size, err);
}

int fill(FieldWriter& f, int64_t size, char c) {
  int err;
  char* p = field(f, size, &err);
  if (!p) return err;
  memset(p, c, static_cast<size_t>(size));
  return 0;
}

// Digits of an unsigned value in `radix`, least significant first.
template <class U>
int32_t digits_of(U v, int32_t radix, char* out) {
  int32_t n = 0;
  if (radix == 10) {
    for (; v != 0; v /= 10) out[n++] = static_cast<char>('0' + v % 10);
  } else {
    const U r = static_cast<U>(radix);
    for (; v != 0; v /= r) out[n++] = kDigitTable[v % r];
  }
  return n;
}

// Digits of `bits` bits each (1, 3 or 4), least significant first.
template <class U>
int32_t digits_by_shift(U v, int bits, char* out) {
  const U mask = static_cast<U>((1u << bits) - 1);
  int32_t n = 0;
  for (; v != 0; v >>= bits) out[n++] = kDigitTable[v & mask];
  return n;
}

int32_t bit_length(unsigned v) { return v ? 32 - __builtin_clz(v) : 0; }

// Lays out a field of `n` digit places (zeros ahead of `count` digits) with
// an optional sign, after the width rules; `put_digits` stores the digits
// most significant first.
template <class PutDigits>
int lay_out(FieldWriter& f, int32_t w, int32_t m, char sign, int64_t count, PutDigits put_digits) {
  const int64_t n = m > count ? m : count;
  const int64_t signs = sign ? 1 : 0;
  int err;
  if (w == 0) {
    if (f.f77) return 0;
    char* p = field(f, n + signs, &err);
    if (!p) return err;
    if (sign) *p++ = sign;
    memset(p, '0', static_cast<size_t>(n - count));
    put_digits(p + (n - count));
    return 0;
  }
  if (w < 0) return field(f, w, &err) ? 0 : err;
  if (n + signs > w) return fill(f, w, '*');
  char* p = field(f, w, &err);
  if (!p) return err;
  const int64_t blanks = w - n - signs;
  memset(p, ' ', static_cast<size_t>(blanks));
  p += blanks;
  if (sign) *p++ = sign;
  memset(p, '0', static_cast<size_t>(n - count));
  put_digits(p + (n - count));
  return 0;
}

int lay_out_digits(FieldWriter& f, int32_t w, int32_t m, char sign, const char* digits,
                   int32_t count) {
  return lay_out(f, w, m, sign, count, [&](char* p) {
    for (int32_t i = count - 1; i >= 0; --i) *p++ = digits[i];
  });
}

// Strips leading zero bytes; true when nothing else is left.
bool skip_zero_bytes(const unsigned char*& bytes, int64_t& length) {
  while (length > 0 && *bytes == 0) {
    ++bytes;
    --length;
  }
  return length == 0;
}

void reverse_bytes(unsigned char* bytes, int64_t length) {
  for (int64_t i = 0, j = length - 1; i < j; ++i, --j) {
    const unsigned char t = bytes[i];
    bytes[i] = bytes[j];
    bytes[j] = t;
  }
}

enum class Radix2n { B = 1, O = 3, Z = 4 };

// B, O, Z of a byte string, most significant byte first.
int wrt_radix2n_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length,
                   Radix2n which) {
  if (skip_zero_bytes(bytes, length)) return wrt_integer_zero(f, w, m, SIGN_UNSIGNED);
  const unsigned first = bytes[0];
  switch (which) {
    case Radix2n::B:
      return lay_out(f, w, m, 0, 8 * (length - 1) + bit_length(first), [&](char* p) {
        for (int b = bit_length(first) - 1; b >= 0; --b) *p++ = kDigitTable[(first >> b) & 1];
        for (int64_t i = 1; i < length; ++i)
          for (int b = 7; b >= 0; --b) *p++ = kDigitTable[(bytes[i] >> b) & 1];
      });
    case Radix2n::Z:
      return lay_out(f, w, m, 0, 2 * length - (first < 16 ? 1 : 0), [&](char* p) {
        if (first >= 16) *p++ = kDigitTable[first >> 4];
        *p++ = kDigitTable[first & 15];
        for (int64_t i = 1; i < length; ++i) {
          *p++ = kDigitTable[bytes[i] >> 4];
          *p++ = kDigitTable[bytes[i] & 15];
        }
      });
    case Radix2n::O:
    default: {
      // Groups of three bytes from the right are eight octal digits each;
      // the leftmost group holds the one to three bytes left over.
      const int64_t lead = length % 3 ? length % 3 : 3;
      uint32_t head = 0;
      for (int64_t i = 0; i < lead; ++i) head = head << 8 | bytes[i];
      const int32_t head_digits = (bit_length(head) + 2) / 3;
      return lay_out(f, w, m, 0, head_digits + 8 * ((length - lead) / 3), [&](char* p) {
        for (int d = head_digits - 1; d >= 0; --d) *p++ = kDigitTable[(head >> (3 * d)) & 7];
        for (int64_t i = lead; i < length; i += 3) {
          const uint32_t g = uint32_t{bytes[i]} << 16 | uint32_t{bytes[i + 1]} << 8 | bytes[i + 2];
          for (int d = 7; d >= 0; --d) *p++ = kDigitTable[(g >> (3 * d)) & 7];
        }
      });
    }
  }
}

template <class T>
int wrt_radix2n(FieldWriter& f, int32_t w, int32_t m, T value, int bits) {
  using U = std::make_unsigned_t<T>;
  if (value == 0) return wrt_integer_zero(f, w, m, SIGN_UNSIGNED);
  char digits[64];
  const int32_t n = digits_by_shift(static_cast<U>(value), bits, digits);
  return wrt_nonzero_unsigned(f, w, m, digits, n);
}

// Size of the digit buffer of the long division, by radix; never less
// than the digits the value can have.
uint64_t digit_buffer_size(int32_t radix, int64_t length) {
  const uint64_t bytes = static_cast<uint64_t>(length);
  uint64_t size = radix >= 16  ? 2 * bytes
                  : radix >= 7 ? 3 * bytes
                  : radix >= 4 ? 4 * bytes
                  : radix == 3 ? 6 * bytes
                               : 8 * static_cast<uint64_t>(radix);
  const uint64_t needed = 8 * bytes + 1;
  return size < needed ? needed : size;
}

}  // namespace

int wrt_a(FieldWriter& f, const char* text, int64_t length) {
  if (length < 1) return 0;
  int err;
  char* p = field(f, length, &err);
  if (!p) return err;
  memcpy(p, text, static_cast<size_t>(length));
  return 0;
}

int wrt_aw(FieldWriter& f, int32_t w, const char* text, int64_t length) {
  if (w < 0) return ERR_NEGATIVE_FIELD_WIDTH;
  if (w == 0) return 0;
  int err;
  char* p = field(f, w, &err);
  if (!p) return err;
  if (length < w) {
    const int64_t blanks = w - (length > 0 ? length : 0);
    memset(p, ' ', static_cast<size_t>(blanks));
    if (length > 0) memcpy(p + blanks, text, static_cast<size_t>(length));
  } else {
    memcpy(p, text, static_cast<size_t>(w));
  }
  return 0;
}

int wrt_integer_zero(FieldWriter& f, int32_t w, int32_t m, int32_t mode) {
  if (m < 0) m = 0;
  const bool plus = mode == SIGN_PLUS;
  int err;
  if (w == 0) {
    if (f.f77) return 0;
    if (m == 0) return fill(f, 1, ' ');
    char* p = field(f, m + (plus ? 1 : 0), &err);
    if (!p) return err;
    if (plus) *p++ = '+';
    memset(p, '0', static_cast<size_t>(m));
    return 0;
  }
  if (w < 0) return field(f, w, &err) ? 0 : err;
  if (m == 0) return fill(f, w, ' ');  // Iw.0 of zero is all blank, sign or not
  if (plus ? m >= w : m > w) return fill(f, w, '*');
  char* p = field(f, w, &err);
  if (!p) return err;
  const int32_t blanks = w - m - (plus ? 1 : 0);
  memset(p, ' ', static_cast<size_t>(blanks));
  p += blanks;
  if (plus) *p++ = '+';
  memset(p, '0', static_cast<size_t>(m));
  return 0;
}

int wrt_nonzero_integer(FieldWriter& f, int32_t w, int32_t m, bool has_sign, char sign,
                        const char* digits, int32_t digit_count) {
  return lay_out_digits(f, w, m, has_sign ? sign : 0, digits, digit_count);
}

int wrt_nonzero_unsigned(FieldWriter& f, int32_t w, int32_t m, const char* digits,
                         int32_t digit_count) {
  return lay_out_digits(f, w, m, 0, digits, digit_count);
}

template <class T>
int wrt_iwm(FieldWriter& f, int32_t w, int32_t m, T value) {
  using U = std::make_unsigned_t<T>;
  if (value == 0) return wrt_integer_zero(f, w, m, f.sign_mode);
  char digits[66];
  if constexpr (std::is_signed_v<T>) {
    char sign = 0;
    U magnitude = static_cast<U>(value);  // SU: the bits as they stand
    if (f.sign_mode != SIGN_UNSIGNED) {
      if (value < 0) {
        sign = '-';
        magnitude = U(0) - magnitude;  // the most negative value stays right
      } else if (f.sign_mode == SIGN_PLUS) {
        sign = '+';
      }
    }
    const int32_t n = digits_of(magnitude, f.radix, digits);
    return wrt_nonzero_integer(f, w, m, sign != 0, sign, digits, n);
  } else {
    int32_t n = digits_of(static_cast<U>(value), f.radix, digits);
    // SP on an unsigned value: the plus is one more digit, so zeros that
    // m asks for stand ahead of it ("0+12").
    if (f.sign_mode == SIGN_PLUS) digits[n++] = '+';
    return wrt_nonzero_unsigned(f, w, m, digits, n);
  }
}

template <class T>
int wrt_bwm(FieldWriter& f, int32_t w, int32_t m, T value) {
  return wrt_radix2n(f, w, m, value, 1);
}
template <class T>
int wrt_owm(FieldWriter& f, int32_t w, int32_t m, T value) {
  return wrt_radix2n(f, w, m, value, 3);
}
template <class T>
int wrt_zwm(FieldWriter& f, int32_t w, int32_t m, T value) {
  return wrt_radix2n(f, w, m, value, 4);
}

template int wrt_iwm<int32_t>(FieldWriter&, int32_t, int32_t, int32_t);
template int wrt_iwm<int64_t>(FieldWriter&, int32_t, int32_t, int64_t);
template int wrt_iwm<uint32_t>(FieldWriter&, int32_t, int32_t, uint32_t);
template int wrt_iwm<uint64_t>(FieldWriter&, int32_t, int32_t, uint64_t);
template int wrt_bwm<int32_t>(FieldWriter&, int32_t, int32_t, int32_t);
template int wrt_bwm<int64_t>(FieldWriter&, int32_t, int32_t, int64_t);
template int wrt_bwm<uint32_t>(FieldWriter&, int32_t, int32_t, uint32_t);
template int wrt_bwm<uint64_t>(FieldWriter&, int32_t, int32_t, uint64_t);
template int wrt_owm<int32_t>(FieldWriter&, int32_t, int32_t, int32_t);
template int wrt_owm<int64_t>(FieldWriter&, int32_t, int32_t, int64_t);
template int wrt_owm<uint32_t>(FieldWriter&, int32_t, int32_t, uint32_t);
template int wrt_owm<uint64_t>(FieldWriter&, int32_t, int32_t, uint64_t);
template int wrt_zwm<int32_t>(FieldWriter&, int32_t, int32_t, int32_t);
template int wrt_zwm<int64_t>(FieldWriter&, int32_t, int32_t, int64_t);
template int wrt_zwm<uint32_t>(FieldWriter&, int32_t, int32_t, uint32_t);
template int wrt_zwm<uint64_t>(FieldWriter&, int32_t, int32_t, uint64_t);

int wrt_bwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length) {
  return wrt_radix2n_ch(f, w, m, bytes, length, Radix2n::B);
}
int wrt_owm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length) {
  return wrt_radix2n_ch(f, w, m, bytes, length, Radix2n::O);
}
int wrt_zwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length) {
  return wrt_radix2n_ch(f, w, m, bytes, length, Radix2n::Z);
}
int wrt_bwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length) {
  reverse_bytes(bytes, length);
  return wrt_bwm_ch(f, w, m, bytes, length);
}
int wrt_owm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length) {
  reverse_bytes(bytes, length);
  return wrt_owm_ch(f, w, m, bytes, length);
}
int wrt_zwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length) {
  reverse_bytes(bytes, length);
  return wrt_zwm_ch(f, w, m, bytes, length);
}

// I of a two's complement number of any length, first byte most
// significant: negated through 16-bit words if negative, then divided by
// the radix over and over, one digit a round.
int wrt_iwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length) {
  const bool su = f.sign_mode == SIGN_UNSIGNED;
  if (su) {
    while (length > 0 && *bytes == 0) ++bytes, --length;
  } else {
    // A byte that only repeats the sign of the next one adds nothing.
    while (length > 1 &&
           ((bytes[0] == 0x00 && !(bytes[1] & 0x80)) || (bytes[0] == 0xff && (bytes[1] & 0x80))))
      ++bytes, --length;
  }
  bool zero = true;
  for (int64_t i = 0; i < length && zero; ++i) zero = bytes[i] == 0;
  if (zero) return wrt_integer_zero(f, w == -1 ? 3 : w, m, f.sign_mode);

  const bool negative = !su && (bytes[0] & 0x80);
  const int64_t words = (length + 1) / 2;
  const uint64_t work_size = static_cast<uint64_t>(words) * 2;
  uint16_t* work = static_cast<uint16_t*>(malloc(work_size));
  if (!work) {
    f.failed_bytes = work_size;
    return ERR_OUT_OF_MEMORY;
  }
  const uint64_t digit_size = digit_buffer_size(f.radix, length);
  char* digits = static_cast<char*>(malloc(digit_size));
  if (!digits) {
    free(work);
    f.failed_bytes = digit_size;
    return ERR_OUT_OF_MEMORY;
  }
  // Most significant word first; an odd count gets a sign byte in front.
  int64_t b = 0;
  for (int64_t i = 0; i < words; ++i) {
    unsigned hi;
    if (i == 0 && (length & 1))
      hi = negative ? 0xff : 0x00;
    else
      hi = bytes[b++];
    work[i] = static_cast<uint16_t>(hi << 8 | bytes[b++]);
  }
  char sign = 0;
  if (negative) {
    unsigned carry = 1;
    for (int64_t i = words - 1; i >= 0; --i) {
      const unsigned v = static_cast<uint16_t>(~work[i]) + carry;
      work[i] = static_cast<uint16_t>(v);
      carry = v >> 16;
    }
    sign = '-';
  } else if (f.sign_mode == SIGN_PLUS) {
    sign = '+';
  }
  const uint32_t radix = static_cast<uint32_t>(f.radix);
  int32_t count = 0;
  int64_t top = 0;
  while (true) {
    while (top < words && work[top] == 0) ++top;
    if (top == words) break;
    uint32_t remainder = 0;
    for (int64_t i = top; i < words; ++i) {
      const uint32_t cur = remainder << 16 | work[i];
      work[i] = static_cast<uint16_t>(cur / radix);
      remainder = cur % radix;
    }
    digits[count++] = kDigitTable[remainder];
  }
  if (w == -1) w = count + 2;
  const int err = wrt_nonzero_integer(f, w, m, sign != 0, sign, digits, count);
  free(digits);
  free(work);
  return err;
}

int wrt_iwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length) {
  reverse_bytes(bytes, length);
  return wrt_iwm_ch(f, w, m, bytes, length);
}

namespace {

int write_logical(FieldWriter& f, int32_t w, bool value) {
  if (w < 0) return ERR_NEGATIVE_FIELD_WIDTH;
  if (w == 0) {
    if (!f.f77) return ERR_ZERO_FIELD_WIDTH;
    w = 1;
  }
  int err;
  char* p = field(f, w, &err);
  if (!p) return err;
  memset(p, ' ', static_cast<size_t>(w - 1));
  p[w - 1] = value ? 'T' : 'F';
  return 0;
}

}  // namespace

int wrt_logical_l4(FieldWriter& f, int32_t w, int32_t value) {
  return write_logical(f, w, value != 0);
}
int wrt_logical_l8(FieldWriter& f, int32_t w, int64_t value) {
  return write_logical(f, w, value != 0);
}
int wrt_lwm_ch(FieldWriter& f, int32_t w, const unsigned char* bytes, int64_t length) {
  bool value = false;
  for (int64_t i = 0; i < length && !value; ++i) value = bytes[i] != 0;
  return write_logical(f, w, value);
}

}  // namespace qal
