// The fast way from decimal digits to a REAL*4 or REAL*8, for input editing
// that has its digits as an integer already.
#pragma once

#include <stdint.h>

namespace qal {

// w (up to 19 digits, not zero) times 10**q, rounded in `rounding` into a
// REAL*4 or REAL*8 (N bytes) at `out`; raises inexact (and underflow) as
// the exact conversions do.  False, with nothing stored, where the fast way
// cannot decide, the result overflows or lies below the least subnormal:
// the caller then takes the exact way.
template <int N>
bool fast_decimal_to_real(uint64_t w, int q, bool negative, int rounding, void* out);

}  // namespace qal
