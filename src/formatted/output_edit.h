// Output editors of integers, logicals and characters: A, Aw, Lw, and the
// integer family I, B, O, Z with their w and m.
//
// An editor decides the width of its field, asks the record for exactly
// that many bytes, and fills them.  It does not know which kind of record
// it writes into: the formatted write modes hand it a FieldWriter whose
// `allocate_field` reserves the field in their own record and buffer.  So
// each editor is compiled once and serves every mode.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <type_traits>

#include "util/decimal.h"

namespace qal {

// Sign modes of the integer editors.
enum SignMode : int32_t { SIGN_PLUS = 1, SIGN_SUPPRESS = 2, SIGN_UNSIGNED = 3 };

// Rounding modes of the real editors, in the order of the statement's
// round field: RU, RD, RZ, RN, RC, RP.
enum RoundMode : int32_t {
  ROUND_UP = 1,
  ROUND_DOWN = 2,
  ROUND_ZERO = 3,
  ROUND_NEAREST = 4,
  ROUND_COMPATIBLE = 5,
  ROUND_PROCESSOR_DEFINED = 6
};

struct FieldWriter {
  int32_t radix = 10;                 // from nR; digits above 9 are letters
  int32_t sign_mode = SIGN_SUPPRESS;  // SP, SS (or S), SU
  bool f77 = false;                   // the old dialect's rules for w = 0
  // The real editors' modes: kP, the decimal separator (DC, DP), the
  // rounding mode, and whether a G editor is choosing F editing.
  int32_t scale_factor = 0;
  char separator = '.';
  int32_t round = ROUND_PROCESSOR_DEFINED;
  bool g_editing = false;
  // Reserve `size` bytes of the current record and return where they
  // start, or null with *err set (1072 for a negative size).
  char* (*allocate_field)(void* record, int64_t size, int* err) = nullptr;
  void* record = nullptr;
  // The size of the work buffer whose allocation failed, after a 12.
  uint64_t failed_bytes = 0;
};

// A, Aw.
int wrt_a(FieldWriter& f, const char* text, int64_t length);
int wrt_aw(FieldWriter& f, int32_t w, const char* text, int64_t length);

// The layout steps of the integer family.  `digits` run least significant
// first; `mode` is SIGN_UNSIGNED for B, O and Z, the sign mode for I.
int wrt_integer_zero(FieldWriter& f, int32_t w, int32_t m, int32_t mode);
int wrt_nonzero_integer(FieldWriter& f, int32_t w, int32_t m, bool has_sign, char sign,
                        const char* digits, int32_t digit_count);
int wrt_nonzero_unsigned(FieldWriter& f, int32_t w, int32_t m, const char* digits,
                         int32_t digit_count);

// Iw.m, Bw.m, Ow.m, Zw.m of a value of 4 or 8 bytes, signed or unsigned.
template <class T>
int wrt_iwm(FieldWriter& f, int32_t w, int32_t m, T value);
template <class T>
int wrt_bwm(FieldWriter& f, int32_t w, int32_t m, T value);
template <class T>
int wrt_owm(FieldWriter& f, int32_t w, int32_t m, T value);
template <class T>
int wrt_zwm(FieldWriter& f, int32_t w, int32_t m, T value);

// The same of a string of bytes taken as one number: `_ch` with the first
// byte most significant, `_n` with the bytes of a numeric item in memory
// order (reversed in place first, so the caller passes its own copy).
// For I, w = -1 is the bare descriptor: as wide as the number needs.
int wrt_iwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length);
int wrt_bwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length);
int wrt_owm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length);
int wrt_zwm_ch(FieldWriter& f, int32_t w, int32_t m, const unsigned char* bytes, int64_t length);
int wrt_iwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length);
int wrt_bwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length);
int wrt_owm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length);
int wrt_zwm_n(FieldWriter& f, int32_t w, int32_t m, unsigned char* bytes, int64_t length);

// Lw: w - 1 blanks and T or F; any nonzero value (or byte) is true.
int wrt_logical_l4(FieldWriter& f, int32_t w, int32_t value);
int wrt_logical_l8(FieldWriter& f, int32_t w, int64_t value);
int wrt_lwm_ch(FieldWriter& f, int32_t w, const unsigned char* bytes, int64_t length);

// Iw of a decimal value, w above 0 and m = 1, laid straight into its field:
// the common case of the family, without its layout steps.  `fits` is
// false where those steps are needed: SU on a signed value, SP on an
// unsigned one, or a field too narrow (asterisks).
template <class T>
struct DecimalIw {
  std::make_unsigned_t<T> magnitude;
  char sign;  // 0, '-' or '+'
  int32_t width;
  bool fits;
};

template <class T>
inline DecimalIw<T> decimal_iw(T value, int32_t sign_mode, int32_t w) {
  using U = std::make_unsigned_t<T>;
  DecimalIw<T> d{static_cast<U>(value), 0, 0, false};
  if constexpr (std::is_signed_v<T>) {
    if (sign_mode == SIGN_UNSIGNED) return d;
    if (value < 0) {
      d.sign = '-';
      d.magnitude = U(0) - d.magnitude;
    } else if (sign_mode == SIGN_PLUS) {
      d.sign = '+';
    }
  } else {
    if (sign_mode == SIGN_PLUS) return d;
  }
  d.width = decimal_length(d.magnitude) + (d.sign ? 1 : 0);
  d.fits = d.width <= w;
  return d;
}

// Fills a field of w bytes with what decimal_iw found to fit.  Fields are
// short and written in place with word stores, never a call: blanks over
// the whole field, then the digits; a value below 10**8 in a field of 8 or
// more is one word whose leading zeros have become blanks.
template <class T>
[[gnu::always_inline]] inline void store_decimal_iw(char* field, int32_t w, const DecimalIw<T>& d) {
  constexpr uint64_t kBlanks = 0x2020202020202020ULL;
  if (w > 32) {
    memset(field, ' ', static_cast<size_t>(w - d.width));
    char* first = unsigned_to_decimal_backward(d.magnitude, field + w);
    if (d.sign) first[-1] = d.sign;
    return;
  }
  if (w >= 16) {
    memcpy(field, &kBlanks, 8);
    memcpy(field + 8, &kBlanks, 8);
    memcpy(field + w - 16, &kBlanks, 8);
  } else if (w >= 8) {
    memcpy(field, &kBlanks, 8);
  }
  if (w >= 8 && d.magnitude < 100000000) {
    const int length = d.width - (d.sign ? 1 : 0);
    const int zeros = 8 - length;  // 0 to 7
    uint64_t word = eight_digit_word(static_cast<uint32_t>(d.magnitude));
    const uint64_t leading = (uint64_t{1} << (8 * zeros)) - 1;
    word = (word & ~leading) | (kBlanks & leading);
    memcpy(field + w - 8, &word, 8);
    if (d.sign) field[w - length - 1] = d.sign;
    return;
  }
  if (w < 8)
    for (int32_t i = 0; i < w; ++i) field[i] = ' ';
  char* first = unsigned_to_decimal_backward(d.magnitude, field + w);
  if (d.sign) first[-1] = d.sign;
}

// The names of the family members.
inline constexpr auto wrt_iwm_i4 = wrt_iwm<int32_t>;
inline constexpr auto wrt_iwm_i8 = wrt_iwm<int64_t>;
inline constexpr auto wrt_iwm_u4 = wrt_iwm<uint32_t>;
inline constexpr auto wrt_iwm_u8 = wrt_iwm<uint64_t>;
inline constexpr auto wrt_bwm_i4 = wrt_bwm<int32_t>;
inline constexpr auto wrt_bwm_i8 = wrt_bwm<int64_t>;
inline constexpr auto wrt_bwm_u4 = wrt_bwm<uint32_t>;
inline constexpr auto wrt_bwm_u8 = wrt_bwm<uint64_t>;
inline constexpr auto wrt_owm_i4 = wrt_owm<int32_t>;
inline constexpr auto wrt_owm_i8 = wrt_owm<int64_t>;
inline constexpr auto wrt_owm_u4 = wrt_owm<uint32_t>;
inline constexpr auto wrt_owm_u8 = wrt_owm<uint64_t>;
inline constexpr auto wrt_zwm_i4 = wrt_zwm<int32_t>;
inline constexpr auto wrt_zwm_i8 = wrt_zwm<int64_t>;
inline constexpr auto wrt_zwm_u4 = wrt_zwm<uint32_t>;
inline constexpr auto wrt_zwm_u8 = wrt_zwm<uint64_t>;

}  // namespace qal
