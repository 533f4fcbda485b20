// The digit engine behind the *_to_decimal entries.  A value reaches it
// unpacked: a significand of up to 128 bits and a power of two.
//
//   every format ────────── wide path (128-bit powers of five, up to 36 digits)
//                            │ declined
//   double_to_decimal ─┐     │
//   single_to_decimal ─┴─ __k_double_to_decimal: double fast path (nearest, few digits)
//                            │ declined
//                          exact path (BigFloat)
#pragma once

#include <stdint.h>

#include "qal/convert.h"

namespace qal {

// The SSE control and status word during a floating-point fast path: every
// exception masked, flags clear, round to nearest.  The flags raised inside
// are dropped with the scope.
constexpr uint32_t kQuietNearest = 0x1f80;

class FloatingStatus {
 public:
  FloatingStatus() {
    asm volatile("stmxcsr %0" : "=m"(saved_));
    const uint32_t quiet = kQuietNearest;
    asm volatile("ldmxcsr %0" : : "m"(quiet));
  }
  ~FloatingStatus() { asm volatile("ldmxcsr %0" : : "m"(saved_)); }
  FloatingStatus(const FloatingStatus&) = delete;
  FloatingStatus& operator=(const FloatingStatus&) = delete;

 private:
  uint32_t saved_;
};

// a + b in double precision, *status 1 when the sum raised a flag (as
// __mul_set does); not exported.
extern "C" double __add_set(int* status, double a, double b);

// An operation the compiler may neither fold nor move across the status
// accesses.
inline double opaque(double v) {
  asm volatile("" : "+x"(v));
  return v;
}

struct Unpacked {
  unsigned __int128 mant;  // not zero
  int exponent;            // value = mant * 2**exponent
  int sign;
};

// What lies below the last kept digit, relative to one unit of it.
enum class Rest { kZero, kBelowHalf, kHalf, kAboveHalf };

// Whether rounding in `rounding` direction adds one to the kept digits;
// `odd` is the parity of the last kept digit (even when there is none).
inline bool rounds_up(int rounding, int sign, Rest rest, bool odd) {
  if (rest == Rest::kZero) return false;
  switch (rounding) {
    case FPR_NEAREST:
      return rest == Rest::kAboveHalf || (rest == Rest::kHalf && odd);
    case FPR_DOWN:
      return sign != 0;
    case FPR_UP:
      return sign == 0;
    default:
      return false;
  }
}

// The exact path.  Always succeeds; the exception word gets 32 when the
// digits are rounded and 8 for requests it cannot meet.
void _unpacked_to_decimal_two(const Unpacked& u, const DecimalMode* mode, DecimalRecord* rec,
                              unsigned* exceptions);

// floor(mant * 2**e * 10**s) and the class of what is left, through one
// product with a 128-bit power of five: false when the result does not fit
// 128 bits, s is beyond the table or the product leaves a doubt.
bool wide_scaled(unsigned __int128 mant, int e, int s, unsigned __int128* y, Rest* rest);

// The same by exact multi-word arithmetic, for any s the power rows reach;
// false only when the result does not fit 128 bits.
bool exact_scaled(unsigned __int128 mant, int e, int s, unsigned __int128* y, Rest* rest);

// The wide path: true when it produced the record.
bool wide_to_decimal(const Unpacked& u, const DecimalMode* mode, DecimalRecord* rec,
                     unsigned* exceptions);

// The double fast path of double_to_decimal and single_to_decimal: true
// when it produced the record.
bool __k_double_to_decimal(double x, const DecimalMode* mode, DecimalRecord* rec,
                           unsigned* exceptions);

// Rounds the digits held in rec (rec->ndigits of them) by the first
// dropped digit `guard` and `sticky` (anything non-zero after it), in the
// direction of mode, and NUL-terminates them.  A carry out of the digits
// gives "1" followed by zeros: in floating form the count stays and
// exponent rises, in fixed form the count grows.
void __decimal_round(const DecimalMode* mode, DecimalRecord* rec, unsigned* exceptions, char guard,
                     bool sticky);

// Rounds y to an integer and grades how far the result can be trusted
// (0 exact, 1 safe, 2 doubtful) from the grade of y.
double __arint_set_n(int status, int* newstatus, double y);

}  // namespace qal
