// Estimates of floor(log10 |x|) read off the bits, and the field widths the
// old dialect gives a real in list-directed and namelist output.  The
// estimates are deliberately rough: the exponent scaled by log10(2) in
// fixed point, with a few fraction bits to round the boundaries.
#include <string.h>

#include "listed/f77_real_text.h"
#include "qal/listed.h"
#include "util/binary_format.h"

namespace qal {

namespace {

// The biased exponent of a binary128 image and its fraction's top byte.
struct QuadTop {
  int biased;
  int fraction_byte;
};

QuadTop quad_top(const void* value) {
  u128 x;
  memcpy(&x, value, 16);
  return {Binary128::biased(x), static_cast<int>(x >> (Binary128::kFractionBits - 8)) & 0xff};
}

}  // namespace

extern "C" {

QAL_EXPORT int32_t __f90_silog(const float* x) {
  uint32_t bits;
  memcpy(&bits, x, 4);
  // The magnitude less the image of 1.0, read as a fixed-point exponent.
  const uint32_t one = Binary32::pack(false, Binary32::kBias, 0);
  const int32_t t = static_cast<int32_t>((bits & Binary32::kMagnitude) - one) >> 11;
  return (t * 1233) >> 24;
}

QAL_EXPORT int32_t __f90_ilog(double x) {
  uint64_t bits;
  memcpy(&bits, &x, 8);
  const int32_t t = (Binary64::biased(bits) - Binary64::kBias) * 256 +
                    static_cast<int32_t>((bits >> (Binary64::kFractionBits - 8)) & 0xff);
  return (t * 1233) >> 20;
}

QAL_EXPORT int32_t __f90_qilog(const void* x) {
  const QuadTop q = quad_top(x);
  const int32_t t = (q.biased - Binary128::kBias) * 256 + q.fraction_byte;
  return (t * 77 + (t >> 4)) >> 16;
}

// The widths a namelist reserves for a real, from the same estimate as
// the list writer's choice of form (see f77_real_width for where the two
// part).
QAL_EXPORT int32_t __f90_width_f77compat(const float* x) { return f77_real_width<4>(x); }

QAL_EXPORT int32_t __f90_dwidth_f77compat(double x) { return f77_real_width<8>(&x); }

QAL_EXPORT int32_t __f90_qwidth_f77compat(uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return f77_real_width<16>(v);
}

}  // extern "C"

}  // namespace qal
