// Addition and subtraction of binary128 images, and negation.
#include <algorithm>

#include "quad/quad_ops.h"

namespace qal {

namespace {

struct Aligned {
  u128 big;    // significand of big, leading bit on `top`
  u128 small;  // small shifted to big's scale, sticky in bit 0
  int32_t exp_big;
};

// Both significands (a subnormal counts with exponent 1 and no hidden bit),
// small shifted right by the difference of the exponents.  The sticky mark
// keeps rounding exact: with at least two round bits below the last kept
// bit, a jammed bit 0 can never move the result across a rounding boundary.
template <int kTop>
[[gnu::always_inline]] inline Aligned align(const QuadImage* big, const QuadImage* small) {
  const u128 mb = load(big) & kMagnitude, ms = load(small) & kMagnitude;
  const int32_t eb = int32_t(mb >> 112), es = int32_t(ms >> 112);
  const u128 sb = (mb & kFraction) | (u128{eb != 0} << 112);
  const u128 ss = (ms & kFraction) | (u128{es != 0} << 112);
  const int32_t exp_big = eb + (eb == 0);
  const uint32_t d = uint32_t(exp_big - (es + (es == 0)));
  return {sb << (kTop - 112), shift_right_jam(ss << (kTop - 112), d), exp_big};
}

[[gnu::always_inline]] inline u128 sign_of(uint32_t sign_word) { return u128{sign_word} << 96; }

// Infinities and NaNs; y carries the sign that the operation gives it and
// `flip` undoes that for a NaN, which is returned as it was stored.
u128 add_special(u128 x, u128 y, u128 flip) {
  if (is_nan(x) || is_nan(y)) return nan_result(x, y ^ flip);
  const u128 mx = x & kMagnitude, my = y & kMagnitude;
  if (mx == kInfinity && my == kInfinity) return ((x ^ y) & kSign) ? kDefaultNaN : x;
  return mx == kInfinity ? x : y;
}

}  // namespace

[[gnu::always_inline]] inline void mag_add(QuadImage* result, const QuadImage* big,
                                           const QuadImage* small, uint32_t sign, uint32_t mode) {
  // Leading bit of big on 126, so that the sum has room for its carry.
  const Aligned v = align<126>(big, small);
  const u128 sum = v.big + v.small;
  const bool carry = (sum >> 127) != 0;
  const u128 sig = carry ? sum : sum << 1;
  store(result, round_pack_quad(sign_of(sign), v.exp_big - !carry, sig, mode));
}

[[gnu::always_inline]] inline void mag_sub(QuadImage* result, const QuadImage* big,
                                           const QuadImage* small, uint32_t sign, uint32_t mode) {
  const Aligned v = align<127>(big, small);
  const u128 diff = v.big - v.small;
  if (diff == 0) {
    store(result, mode == kDown ? kSign : 0);
    return;
  }
  // Normalise, but not below exponent 1: what remains there is subnormal,
  // and then exact.
  const int32_t shift = std::min(clz128(diff), v.exp_big - 1);
  store(result, round_pack_quad(sign_of(sign), v.exp_big - 1 - shift, diff << shift, mode));
}

namespace {

// a + b, or a - b when flip is the sign bit: the operands are ordered by
// magnitude (the first stays big on equality) and the magnitudes added or
// subtracted under the sign of big.
[[gnu::always_inline]] inline void add_signed(QuadImage* result, const QuadImage* a,
                                              const QuadImage* b, u128 flip) {
  // The control register is slow to read: start early.
  const uint32_t mode = rounding_mode();
  const u128 x = load(a), y = load(b) ^ flip;
  const u128 mx = x & kMagnitude, my = y & kMagnitude;
  const bool swap = my > mx;
  if ((swap ? my : mx) >= kInfinity) [[unlikely]] {
    store(result, add_special(x, y, flip));
    return;
  }
  const QuadImage* big = swap ? b : a;
  const QuadImage* small = swap ? a : b;
  const uint32_t sign = uint32_t((swap ? y : x) >> 96) & 0x80000000u;
  if ((x ^ y) & kSign)
    mag_sub(result, big, small, sign, mode);
  else
    mag_add(result, big, small, sign, mode);
}

}  // namespace

extern "C" {

QAL_EXPORT void _Qadd(QuadImage* result, const QuadImage* a, const QuadImage* b) {
  add_signed(result, a, b, 0);
}

QAL_EXPORT void _Qsub(QuadImage* result, const QuadImage* a, const QuadImage* b) {
  add_signed(result, a, b, kSign);
}

QAL_EXPORT void _Qneg(QuadImage* result, const QuadImage* a) { store(result, load(a) ^ kSign); }

}  // extern "C"

}  // namespace qal
