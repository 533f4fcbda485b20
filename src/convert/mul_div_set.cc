// One double operation with its own exception report.  The flags are
// cleared around the operation so that what it raises can be read alone,
// then the caller's earlier flags are put back beside the new ones.  The
// empty asm statements pin the operation between the two MXCSR accesses:
// without them the compiler may move it across either.
#include <stdint.h>

#include "qal/convert.h"

namespace qal {

namespace {

// MXCSR flags: invalid, divide by zero, overflow, underflow, inexact.  The
// denormal-operand flag (bit 1) is not an IEEE exception and is not reported.
constexpr uint32_t kFlagBits = 0x3f;
constexpr uint32_t kIeeeFlags = 0x3d;

enum class Op { kMultiply, kDivide };

template <Op op>
inline double operate(int* status, double a, double b) {
  uint32_t saved, cleared, after;
  asm volatile("stmxcsr %0" : "=m"(saved));
  cleared = saved & ~kFlagBits;
  asm volatile("ldmxcsr %0" : : "m"(cleared));
  asm volatile("" : "+x"(a), "+x"(b));
  double r = op == Op::kMultiply ? a * b : a / b;
  asm volatile("" : "+x"(r));
  asm volatile("stmxcsr %0" : "=m"(after));
  *status = (after & kIeeeFlags) != 0;
  after |= saved & kFlagBits;
  asm volatile("ldmxcsr %0" : : "m"(after));
  return r;
}

}  // namespace

extern "C" {

QAL_EXPORT double __mul_set(int* status, double a, double b) {
  return operate<Op::kMultiply>(status, a, b);
}

QAL_EXPORT double __div_set(int* status, double a, double b) {
  return operate<Op::kDivide>(status, a, b);
}

}  // extern "C"

}  // namespace qal
