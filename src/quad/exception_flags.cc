// The two places where quad and conversion code touch the exception flags
// on purpose: the underflow of the quad routines, and double products and
// quotients that report whether they were exact.
#include "quad/quad_ops.h"

namespace qal {

namespace {

// MXCSR: the six flags, and of them the five of IEEE arithmetic (all but
// the denormal-operand flag).
constexpr uint32_t kAllFlags = 0x3f;
constexpr uint32_t kIeeeFlags = 0x3d;

enum class DoubleOp { kMultiply, kDivide };

// The operation runs with the flags cleared so that its own can be read
// afterwards; the earlier flags are then put back beside them.  Every step
// is an asm statement of its own, so none can move across another.
template <DoubleOp kOp>
double operate_and_report(int* status, double a, double b) {
  uint32_t saved, cleared, after;
  asm volatile("stmxcsr %0" : "=m"(saved));
  cleared = saved & ~kAllFlags;
  asm volatile("ldmxcsr %0" : : "m"(cleared));
  if constexpr (kOp == DoubleOp::kMultiply)
    asm volatile("mulsd %1, %0" : "+x"(a) : "x"(b));
  else
    asm volatile("divsd %1, %0" : "+x"(a) : "x"(b));
  asm volatile("stmxcsr %0" : "=m"(after));
  *status = (after & kIeeeFlags) != 0;
  after |= saved & kAllFlags;
  asm volatile("ldmxcsr %0" : : "m"(after));
  return a;
}

}  // namespace

void raise_underflow() {
  float tiny = std::bit_cast<float>(0x00800001u);
  const float half = std::bit_cast<float>(0x3f000000u);
  asm volatile("mulss %1, %0" : "+x"(tiny) : "x"(half));
}

extern "C" {

QAL_EXPORT double __mul_set(int* status, double a, double b) {
  return operate_and_report<DoubleOp::kMultiply>(status, a, b);
}

QAL_EXPORT double __div_set(int* status, double a, double b) {
  return operate_and_report<DoubleOp::kDivide>(status, a, b);
}

}  // extern "C"

}  // namespace qal
