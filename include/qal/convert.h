/* Binary to decimal conversion.
 *
 * A request (DecimalMode) names a rounding direction, a form and a digit
 * count; the answer (DecimalRecord) holds the class, the sign and, for a
 * finite non-zero value, a digit string with the power of ten of its last
 * digit:
 *
 *   value = (digits read as an integer) * 10**exponent
 *
 * Every digit string is exactly rounded: it differs from the infinitely
 * precise value only by the one final rounding in the requested direction.
 * The exception word says what that rounding did (FPX_INEXACT) or that the
 * request cannot be met (FPX_OVERFLOW: 512 digits or more); in the second
 * case the digits are not meaningful.
 *
 * Operand layouts: `extended` is the x87 80-bit image as three 32-bit words
 * (significand low, significand high with its explicit integer bit, then
 * sign and exponent in the low 16 bits of the third word), which is the
 * memory image of a C long double on x86.  The binary128 image is four
 * 32-bit words with word 0 the least significant and word 3 holding sign,
 * exponent and the top 16 fraction bits.  quadruple_to_decimal takes the
 * same four words in the opposite order, most significant word first. */
#ifndef QAL_CONVERT_H
#define QAL_CONVERT_H

#include "qal/abi.h"
#include "qal/quad.h"

QAL_BEGIN_DECLS

/* DecimalMode.rounding: the x86 rounding-control values. */
enum {
  FPR_NEAREST = 0,
  FPR_DOWN = 1, /* toward minus infinity */
  FPR_UP = 2,   /* toward plus infinity */
  FPR_ZERO = 3
};

/* DecimalMode.form. */
enum {
  DECIMAL_FIXED = 0,   /* ndigits: digits after the decimal point, may be negative */
  DECIMAL_FLOATING = 1 /* ndigits: significant digits */
};

/* DecimalRecord.fp_class. */
enum {
  FPC_ZERO = 0,
  FPC_SUBNORMAL = 1,
  FPC_NORMAL = 2,
  FPC_INFINITY = 3,
  FPC_QUIET_NAN = 4,
  FPC_SIGNALING_NAN = 5
};

/* Bits of the exception word. */
enum { FPX_INVALID = 1, FPX_OVERFLOW = 8, FPX_UNDERFLOW = 16, FPX_INEXACT = 32 };

enum { DECIMAL_RECORD_DIGITS = 512 };

typedef struct DecimalMode {
  int32_t rounding;
  int32_t form;
  int32_t ndigits;
} DecimalMode;

typedef struct DecimalRecord {
  int32_t fp_class;
  int32_t sign;                       /* 1 when the sign bit is set, zeros and NaNs included */
  int32_t exponent;                   /* power of ten of the last digit */
  char digits[DECIMAL_RECORD_DIGITS]; /* NUL-terminated once filled */
  int32_t more;    /* set by input scanners: digits were dropped behind the last one */
  int32_t ndigits; /* digits stored */
} DecimalRecord;

QAL_OFFSET(DecimalMode, rounding, 0);
QAL_OFFSET(DecimalMode, form, 4);
QAL_OFFSET(DecimalMode, ndigits, 8);
QAL_STATIC_ASSERT(sizeof(DecimalMode) == 12, "DecimalMode size");
QAL_OFFSET(DecimalRecord, fp_class, 0);
QAL_OFFSET(DecimalRecord, sign, 4);
QAL_OFFSET(DecimalRecord, exponent, 8);
QAL_OFFSET(DecimalRecord, digits, 12);
QAL_OFFSET(DecimalRecord, more, 524);
QAL_OFFSET(DecimalRecord, ndigits, 528);
QAL_STATIC_ASSERT(sizeof(DecimalRecord) == 532, "DecimalRecord size");

/* The digit engine.  Zero, infinity and NaN set class and sign, store no
 * digits and give an exception word of 0.  A non-zero word is also raised
 * in the processor's flags. */
QAL_EXPORT void single_to_decimal(const float* value, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions);
QAL_EXPORT void double_to_decimal(const double* value, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions);
QAL_EXPORT void extended_to_decimal(const uint32_t value[3], DecimalMode* mode, DecimalRecord* rec,
                                    unsigned* exceptions);
QAL_EXPORT void _extended_to_decimal(const uint32_t value[3], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions);
QAL_EXPORT void quadruple_to_decimal(const uint32_t value[4], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions);
QAL_EXPORT void x86_quadruple_to_decimal(const uint32_t value[4], DecimalMode* mode,
                                         DecimalRecord* rec, unsigned* exceptions);

/* Decimal to binary: the value of `rec` correctly rounded in the direction
 * mode->rounding (form and ndigits are not read), with the exception word
 * (inexact, overflow, underflow) in *exceptions. */
QAL_EXPORT void decimal_to_single(float* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions);
QAL_EXPORT void decimal_to_double(double* result, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions);
QAL_EXPORT void decimal_to_extended(uint32_t result[3], DecimalMode* mode, DecimalRecord* rec,
                                    unsigned* exceptions);
QAL_EXPORT void decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions);
QAL_EXPORT void x86_decimal_to_quadruple(uint32_t result[4], DecimalMode* mode, DecimalRecord* rec,
                                         unsigned* exceptions);

/* A value between conversion and packing: 1.f times 2**exponent, the
 * significand in five words, most significant first, its top bit the
 * leading one once normalised; the low bit of the last word is sticky (some
 * bit below was not zero).  A finite non-zero value has class FPC_NORMAL.
 * Two exponents stand for values beyond every format: UNPACKED_TOO_LARGE
 * (with word 0 of 0x80000000) and its negative; the packers turn them into
 * the overflow and underflow results of the direction. */
typedef struct UnpackedFloat {
  int32_t sign;
  int32_t fp_class;
  int32_t exponent;
  uint32_t significand[5];
} UnpackedFloat;

enum { UNPACKED_TOO_LARGE = 0xfffff };

QAL_OFFSET(UnpackedFloat, exponent, 8);
QAL_OFFSET(UnpackedFloat, significand, 12);
QAL_STATIC_ASSERT(sizeof(UnpackedFloat) == 32, "UnpackedFloat size");

/* The packers' rounding direction (an FPR_ value) and their exception
 * accumulator (FPX_ bits, ORed in).  Shared by every thread, unlocked: two
 * threads packing at once may mix their words; the entries above return
 * their own word whatever the accumulator says. */
QAL_EXPORT extern int32_t _fp_current_direction;
QAL_EXPORT extern uint32_t _fp_current_exceptions;

/* The value of `rec` (classes 1 and 2; the digit count is the string's
 * length) as an UnpackedFloat with enough bits for a format of `bits` (24,
 * 53, 64 or 113) to round once from it; the sentinels beyond that format's
 * range. */
QAL_EXPORT void __decimal_to_unpacked(UnpackedFloat* out, DecimalRecord* rec, int bits);
/* Rounds *u in _fp_current_direction into the format, ORing what the
 * rounding raised into _fp_current_exceptions.  Zero, infinity and NaN
 * classes give their images; classes 1 and 5 leave the result alone. */
QAL_EXPORT void __pack_single(UnpackedFloat* u, float* result);
QAL_EXPORT void __pack_double(UnpackedFloat* u, double* result);
QAL_EXPORT void __pack_extended(UnpackedFloat* u, uint32_t result[3]);
QAL_EXPORT void __pack_quadruple(UnpackedFloat* u, uint32_t result[4]);
/* Shifts keep the value: the exponent moves with the significand.  A right
 * shift folds what falls off into the sticky bit (160 or more leaves a
 * sticky 1 alone, or class zero for a zero significand); normalising
 * shifts left until the top bit is set, or makes the class zero. */
QAL_EXPORT void __fp_normalize(UnpackedFloat* u);
QAL_EXPORT void __fp_rightshift(UnpackedFloat* u, int n);
QAL_EXPORT void __fp_leftshift(UnpackedFloat* u, int n);
/* The n digits (characters) at `digits` as a double: status 0 when exact
 * (fewer than 10 digits), 1 when the sum of the two halves of 10 to 18
 * digits was inexact, 2 and 0.0 for 19 digits or more. */
QAL_EXPORT double __digits_to_double(const char* digits, int n, int* status);

/* Raises the bits of an exception word in the processor's flags by
 * computing something that raises them. */
QAL_EXPORT void __base_conversion_set_exception(unsigned exceptions);

/* The classic digit entries, in the current rounding direction.  Each
 * returns buf, NUL-terminated.  e forms give ndigit significant digits and
 * *decpt, the position of the decimal point relative to the first digit;
 * f forms give ndigit digits after the point (all integer digits before
 * them).  Infinity and NaN give "Inf", "Infinity" (ndigit of 8 or more) or
 * "NaN" with *decpt 0, and set __inf_written or __nan_written. */
QAL_EXPORT char* econvert(double value, int ndigit, int* decpt, int* sign, char* buf);
QAL_EXPORT char* fconvert(double value, int ndigit, int* decpt, int* sign, char* buf);
QAL_EXPORT char* seconvert(const float* value, int ndigit, int* decpt, int* sign, char* buf);
QAL_EXPORT char* sfconvert(const float* value, int ndigit, int* decpt, int* sign, char* buf);
QAL_EXPORT char* x86_qeconvert(const uint32_t value[4], int ndigit, int* decpt, int* sign,
                               char* buf);
QAL_EXPORT char* x86_qfconvert(const uint32_t value[4], int ndigit, int* decpt, int* sign,
                               char* buf);
/* %g-like text of ndigit significant digits; trailing keeps trailing zeros
 * and the decimal point. */
QAL_EXPORT char* sgconvert(const float* value, int ndigit, int trailing, char* buf);
QAL_EXPORT char* __k_gconvert(int ndigit, DecimalRecord* rec, int trailing, char* buf);
/* "Inf", "Infinity" or "NaN" for a record class, into buf. */
QAL_EXPORT void __infnanstring(int fp_class, int ndigit, char* buf);
QAL_EXPORT extern int __inf_written;
QAL_EXPORT extern int __nan_written;

/* Moves between the x87 image and the binary128 image by shifting alone:
 * no rounding, no look at classes. */
QAL_EXPORT void ldouble2quadruple(const uint32_t from[3], uint32_t to[4]);
QAL_EXPORT void quadruple2ldouble(const uint32_t from[4], uint32_t to[3]);

/* Shortest digits: mant (16-bit words, least significant first, nbits of
 * 24, 53 or 113 with the hidden bit) times 2**e2, not zero.  Writes the
 * fewest digits whose value lies within half a unit of mant's last bit
 * (the upper end included), without a NUL; *k is the power of ten of the
 * last digit.  A non-zero narrow halves the margin below the value. */
QAL_EXPORT void __f_cvt_real(const uint16_t* mant, int nbits, int e2, int narrow, char* digits,
                             int* ndigits, int* k);

/* __mul_set and __div_set, the graded double operations of the fast path,
 * are declared with the quad arithmetic in qal/quad.h. */

QAL_END_DECLS

#endif
