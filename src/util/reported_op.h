// One double operation that reports whether it raised a flag, leaving the
// flags raised before it as they were and adding its own.
#pragma once

#include <stdint.h>

namespace qal {

// MXCSR: the six flags, and of them the five of IEEE arithmetic (all but
// the denormal-operand flag).
constexpr uint32_t kAllFlags = 0x3f;
constexpr uint32_t kIeeeFlags = 0x3d;

enum class DoubleOp { kAdd, kMultiply, kDivide };

// The operation runs with the flags cleared so that its own can be read
// afterwards; the earlier flags are then put back beside them.  Every step
// is an asm statement of its own, so none can move across another.
template <DoubleOp kOp>
inline double operate_and_report(int* status, double a, double b) {
  uint32_t saved, cleared, after;
  asm volatile("stmxcsr %0" : "=m"(saved));
  cleared = saved & ~kAllFlags;
  asm volatile("ldmxcsr %0" : : "m"(cleared));
  if constexpr (kOp == DoubleOp::kAdd)
    asm volatile("addsd %1, %0" : "+x"(a) : "x"(b));
  else if constexpr (kOp == DoubleOp::kMultiply)
    asm volatile("mulsd %1, %0" : "+x"(a) : "x"(b));
  else
    asm volatile("divsd %1, %0" : "+x"(a) : "x"(b));
  asm volatile("stmxcsr %0" : "=m"(after));
  *status = (after & kIeeeFlags) != 0;
  after |= saved & kAllFlags;
  asm volatile("ldmxcsr %0" : : "m"(after));
  return a;
}

}  // namespace qal
