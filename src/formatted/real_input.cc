#include "formatted/real_input.h"

#include <stdint.h>

#include "util/binary_format.h"
#include "util/rounding.h"

namespace qal {

namespace {

// The fixed images of input: infinity, the NaN with every fraction bit
// set, and zero, under the sign.
template <int N>
void store_special(const DecimalRecord& rec, void* item) {
  using L = RealFormat<N>;
  typename L::Bits bits = rec.fp_class == FPC_INFINITY    ? L::kInfinity
                          : rec.fp_class == FPC_QUIET_NAN ? L::kDefaultNaN
                                                          : 0;
  if (rec.sign) bits |= L::kSign;
  memcpy(item, &bits, N);
}

}  // namespace

template <int N>
unsigned store_real(DecimalRecord& rec, void* item) {
  if (rec.fp_class != FPC_NORMAL || rec.ndigits == 0) {
    if (rec.fp_class == FPC_NORMAL) rec.fp_class = FPC_ZERO;
    store_special<N>(rec, item);
    return 0;
  }
  DecimalMode mode{rounding_direction(), DECIMAL_FLOATING, 0};
  unsigned exceptions = 0;
  if constexpr (N == 4)
    decimal_to_single(static_cast<float*>(item), &mode, &rec, &exceptions);
  else if constexpr (N == 8)
    decimal_to_double(static_cast<double*>(item), &mode, &rec, &exceptions);
  else
    x86_decimal_to_quadruple(static_cast<uint32_t*>(item), &mode, &rec, &exceptions);
  return exceptions;
}

template unsigned store_real<4>(DecimalRecord&, void*);
template unsigned store_real<8>(DecimalRecord&, void*);
template unsigned store_real<16>(DecimalRecord&, void*);

}  // namespace qal
