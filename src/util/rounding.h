// The processor's rounding direction, read from the x87 control word: the
// value fegetround gives on this machine, without a call into libm.  The
// control word's field holds 0 nearest, 0x400 down, 0x800 up, 0xc00 toward
// zero; shifted down, that is the direction code of the conversions.
#pragma once

#include <stdint.h>

namespace qal {

inline int rounding_control() {
  uint16_t cw;
  __asm__("fnstcw %0" : "=m"(cw));
  return cw & 0xc00;
}

inline int rounding_direction() { return rounding_control() >> 10; }

}  // namespace qal
