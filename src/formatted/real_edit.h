// Layout of real fields for E, D, EN, ES, F and G, once the value is a
// string of decimal digits: 0.DDD... times ten to the p.  These lay out
// and never convert; the front ends of each precision decide the digits
// (how many, rounded which way) and call them.  Digits the string does not
// have are zeros; leading zeros of the string are skipped, each lowering p.
//
// Every field is reserved whole before it is filled, so a field that is
// too narrow still takes its w positions, as asterisks.
#pragma once

#include <stdint.h>

#include "formatted/output_edit.h"

namespace qal {

// A finite non-zero value as its digits.
struct DecimalDigits {
  bool negative;
  int32_t p;           // the point stands p digits into the string
  const char* digits;  // NUL-terminated ASCII digits
  int32_t count = -1;  // how many there are, when the producer knows
};

// Exponent width `e` when the descriptor has none.
inline constexpr int32_t kNoExponentWidth = -1;

// E and D (`letter` is printed): the scale factor puts k digits ahead of
// the point.  The scale factor's range is the front end's test.
int wrt_ewd_normal(FieldWriter& f, int32_t w, int32_t d, char letter, const DecimalDigits& v);
int wrt_ewde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter,
                    const DecimalDigits& v);
// ES: one digit ahead of the point.
int wrt_eswd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& v);
int wrt_eswde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& v);
// EN: one to three digits ahead of the point, the exponent a multiple of
// three.  `v` holds d + 4 digits rounded toward zero (or as the mode says);
// the cut to d places rounds a second time by the rounding mode.
int wrt_enwd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& v);
int wrt_enwde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& v);
// F: `v` holds the digits to d places behind the point (after kP, unless a
// G editor runs); an empty string is a value that rounded to zero.
int wrt_fwd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& v);

// Zeros.  E, D and ES of zero (e = 2 without an exponent width); EN of
// zero; G of zero; F of a value that is or rounded to zero.
int wrt_ewde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter);
int wrt_enwde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e);
int wrt_gwde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e);
int wrt_fwd_zero(FieldWriter& f, int32_t w, int32_t d, bool negative);

int wrt_flt_infinity(FieldWriter& f, int32_t w, int32_t d, bool negative);
int wrt_flt_nan(FieldWriter& f, int32_t w, bool negative);

// The scale factor test of E and D: 0, or 1078.  In the old dialect a bad
// factor is no error: d becomes w.
int check_scale_factor(const FieldWriter& f, int32_t w, int32_t& d);

}  // namespace qal
