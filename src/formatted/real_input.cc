#include "formatted/real_input.h"

#include <stdint.h>

#include "util/rounding.h"

namespace qal {

namespace {

// The fixed images of input: NaN with every fraction bit set, infinity,
// and the sign in the top byte (4 and 8 bytes) or the top bit (16).
template <int N>
struct Images;
template <>
struct Images<4> {
  static constexpr uint32_t kNaN = 0x7fffffff, kInfinity = 0x7f800000, kSign = 0xff000000;
};
template <>
struct Images<8> {
  static constexpr uint64_t kNaN = 0x7fffffffffffffff, kInfinity = 0x7ff0000000000000,
                            kSign = 0xff00000000000000;
};

template <int N>
void store_special(const DecimalRecord& rec, void* item) {
  if constexpr (N == 16) {
    uint64_t image[2];
    if (rec.fp_class == FPC_INFINITY) {
      image[0] = 0;
      image[1] = 0x7fff000000000000;
    } else if (rec.fp_class == FPC_QUIET_NAN) {
      image[0] = ~uint64_t{0};
      image[1] = 0x7fffffffffffffff;
    } else {
      image[0] = image[1] = 0;
    }
    if (rec.sign) image[1] |= uint64_t{1} << 63;
    memcpy(item, image, 16);
  } else {
    using I = Images<N>;
    using Bits = decltype(+I::kNaN);
    Bits bits = rec.fp_class == FPC_INFINITY    ? I::kInfinity
                : rec.fp_class == FPC_QUIET_NAN ? I::kNaN
                                                : Bits{0};
    // A zero's sign is its top bit alone.
    if (rec.sign) bits |= rec.fp_class == FPC_ZERO ? Bits{1} << (8 * N - 1) : I::kSign;
    memcpy(item, &bits, N);
  }
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
