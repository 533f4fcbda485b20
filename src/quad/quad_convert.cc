// Conversions between binary128 images and doubles and integers.
#include <limits>

#include "quad/quad_ops.h"

namespace qal {

namespace {

constexpr int32_t kDoubleBias = Binary64::kBias;
constexpr uint64_t kDoubleSign = Binary64::kSign;

// A non-zero magnitude below 2**64 as an exact image.
[[gnu::always_inline]] inline u128 from_magnitude(uint64_t m) {
  const int top = 63 - std::countl_zero(m);
  return (u128(kBias + top) << 112) + ((u128{m} << (112 - top)) & kFraction);
}

template <typename T>
[[gnu::always_inline]] inline void integer_to_quad(QuadImage* result, T value) {
  using U = std::make_unsigned_t<T>;
  bool negative = false;
  if constexpr (std::is_signed_v<T>) negative = value < 0;
  const U m = negative ? U(-U(value)) : U(value);
  store(result, m == 0 ? 0 : (negative ? kSign : 0) | from_magnitude(m));
}

// Truncation toward zero to T.  Out of range (NaNs and infinities too) is
// the sign bit of T alone; that is also the value of the one negative number
// that reaches the bound, -2**(bits of T less its sign).
template <typename T>
[[gnu::always_inline]] inline T quad_to_integer(const QuadImage* a) {
  using U = std::make_unsigned_t<T>;
  constexpr int kDigits = std::numeric_limits<T>::digits;
  constexpr U kOutOfRange = U{1} << (sizeof(T) * 8 - 1);
  const u128 x = load(a);
  const int32_t field = int32_t((x & kMagnitude) >> 112);
  if (field >= kBias + kDigits) return T(kOutOfRange);
  if (field < kBias) return 0;
  const U m = U((((x & kFraction) | kHidden) >> (112 - (field - kBias))));
  return T((x & kSign) ? U(-m) : m);
}

}  // namespace

extern "C" {

QAL_EXPORT void _Qdtoq(QuadImage* result, const double* x) {
  const uint64_t bits = std::bit_cast<uint64_t>(*x);
  const u128 sign = u128{bits >> 63} << 127;
  const int32_t field = Binary64::biased(bits);
  const uint64_t fraction = Binary64::fraction(bits);
  u128 m;
  if (field == Binary64::kMaxBiased)
    m = kInfinity | (u128{fraction} << 60);
  else if (field != 0)
    m = (u128(field - kDoubleBias + kBias) << 112) | (u128{fraction} << 60);
  else if (fraction != 0)  // subnormal: normal in binary128
    m = from_magnitude(fraction) - (u128(kDoubleBias - 1 + 52) << 112);
  else
    m = 0;
  store(result, sign | m);
}

QAL_EXPORT void _Qitoq(QuadImage* result, const int32_t* i) { integer_to_quad(result, *i); }
QAL_EXPORT void _Qlltoq(QuadImage* result, const int64_t* i) { integer_to_quad(result, *i); }
QAL_EXPORT void _Qulltoq(QuadImage* result, const uint64_t* i) { integer_to_quad(result, *i); }

QAL_EXPORT double _Qqtod(const QuadImage* a) {
  const u128 x = load(a);
  const u128 m = x & kMagnitude;
  const uint64_t sign = (x & kSign) ? kDoubleSign : 0;
  if (m >= kInfinity) {
    // An infinity, or a NaN quieted with its top 51 payload bits.
    const uint64_t nan = m > kInfinity ? (uint64_t{1} << 51) : 0;
    return std::bit_cast<double>(sign | Binary64::kInfinity | nan |
                                 uint64_t((m & kFraction) >> 60));
  }
  if (m == 0) return std::bit_cast<double>(sign);
  // Significand on bit 63 with the discarded bits jammed into bit 0; the
  // exponent rebased to binary64 (less one).  Subnormal images are far
  // below the double range and count only as a sticky bit.
  const int32_t field = int32_t(m >> 112);
  const u128 sig = ((m & kFraction) | (u128{field != 0} << 112)) << 15;
  const uint64_t sig64 = uint64_t(sig >> 64) | uint64_t(uint64_t(sig) != 0);
  const int32_t exp = (field + (field == 0)) - kBias + kDoubleBias - 1;
  return std::bit_cast<double>(round_pack<Binary64, true>(sign, exp, sig64, rounding_mode()));
}

QAL_EXPORT int32_t _Qqtoi(const QuadImage* a) { return quad_to_integer<int32_t>(a); }
QAL_EXPORT int64_t _Qqtoll(const QuadImage* a) { return quad_to_integer<int64_t>(a); }
QAL_EXPORT uint64_t _Qqtoull(const QuadImage* a) { return quad_to_integer<uint64_t>(a); }

}  // extern "C"

}  // namespace qal
