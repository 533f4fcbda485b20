// The two places where quad and conversion code touch the exception flags
// on purpose: the underflow of the quad routines, and double products and
// quotients that report whether they were exact.
#include "quad/quad_ops.h"
#include "util/reported_op.h"

namespace qal {

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
