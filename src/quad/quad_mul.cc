// Multiplication and division of binary128 images.  Both work on
// significands normalised to bit 127 (subnormal operands included), build a
// 128-bit result with a sticky bit from everything below, and leave the rest
// to round_pack, whose underflow path raises the flags.
#include "quad/quad_ops.h"

namespace qal {

namespace {

[[gnu::always_inline]] inline u128 round_pack_product(u128 sign, int32_t exp, u128 sig,
                                                      uint32_t mode) {
  return round_pack<Binary128, true>(sign, exp, sig, mode);
}

// The high 128 bits of a * b, with the low 128 folded into a sticky bit 0.
[[gnu::always_inline]] inline u128 multiply_high(u128 a, u128 b, bool& top_bit) {
  const uint64_t a1 = uint64_t(a >> 64), a0 = uint64_t(a);
  const uint64_t b1 = uint64_t(b >> 64), b0 = uint64_t(b);
  const u128 p00 = u128{a0} * b0, p01 = u128{a0} * b1, p10 = u128{a1} * b0, p11 = u128{a1} * b1;
  const u128 mid = (p00 >> 64) + uint64_t(p01) + uint64_t(p10);
  const u128 high = p11 + (p01 >> 64) + (p10 >> 64) + (mid >> 64);
  const uint64_t low_mid = uint64_t(mid), low = uint64_t(p00);
  top_bit = (high >> 127) != 0;
  // Below 2**255 the product gives one more bit to the result.  As likely
  // as not, so no branch.
  const uint32_t shift = !top_bit;
  return (high << shift) | ((low_mid >> 63) & shift) | u128{((low_mid << shift) | low) != 0};
}

// One 64-bit digit of (n * 2**64) / d, for n < d and d with its top bit set;
// n becomes the remainder.  The estimate from the top words is at most two
// above the digit (the divisor is normalised), and the remainder goes
// negative exactly when it is too large.
[[gnu::always_inline]] inline uint64_t divide_digit(u128& n, u128 d) {
  const uint64_t n1 = uint64_t(n >> 64), n0 = uint64_t(n);
  const uint64_t d1 = uint64_t(d >> 64), d0 = uint64_t(d);
  uint64_t q;
  u128 top, take;  // the remainder is top - take
  if (n1 < d1) [[likely]] {
    uint64_t r;
    asm("divq %4" : "=a"(q), "=d"(r) : "a"(n0), "d"(n1), "rm"(d1) : "cc");
    top = u128{r} << 64;
    take = u128{q} * d0;
  } else {
    // n1 == d1: the quotient of the top words would not fit; take the
    // largest digit, whose remainder is d - (d0 - n0) * 2**64.
    q = ~uint64_t{0};
    top = d;
    take = u128{d0 - n0} << 64;
  }
  // One correction is common and taken without a branch; a second is rare.
  const bool negative = top < take;
  const u128 r = top - take;
  u128 once = r + (d & -u128{negative});
  q -= negative;
  if (negative && once >= r) [[unlikely]] {
    --q;
    once += d;
  }
  n = once;
  return q;
}

struct Product {
  static u128 special(u128 sign, u128 mx, u128 my) {
    return (mx == 0 || my == 0) ? kDefaultNaN : sign | kInfinity;
  }
  static u128 zero(u128 sign, u128, u128) { return sign; }
  static u128 finite(u128 sign, u128 sa, int32_t ea, u128 sb, int32_t eb, uint32_t mode) {
    bool top_bit;
    const u128 sig = multiply_high(sa, sb, top_bit);
    return round_pack_product(sign, ea + eb - (kBias - 2) - !top_bit, sig, mode);
  }
};

struct Quotient {
  static u128 special(u128 sign, u128 mx, u128 my) {
    if (mx == my) return kDefaultNaN;
    return my == kInfinity ? sign : sign | kInfinity;
  }
  static u128 zero(u128 sign, u128 mx, u128 my) {
    return my != 0 ? sign : mx != 0 ? sign | kInfinity : kDefaultNaN;
  }
  static u128 finite(u128 sign, u128 sa, int32_t ea, u128 sb, int32_t eb, uint32_t mode) {
    // Quotient in [2**127, 2**128): halve a when its significand is not
    // below b's (exactly, its low bits are zero) and count that in the
    // exponent.
    const bool halve = sa >= sb;
    u128 n = sa >> uint32_t{halve};
    const uint64_t q1 = divide_digit(n, sb);
    const uint64_t q0 = divide_digit(n, sb);
    const u128 sig = ((u128{q1} << 64) | q0) | u128{n != 0};
    return round_pack_product(sign, ea - eb + kBias - 2 + halve, sig, mode);
  }
};

// The frame of both operations: NaNs first (the same rule for both), then
// the other infinities, then zeros, then finite non-zero operands.
template <typename Op>
[[gnu::always_inline]] inline void multiplicative(QuadImage* result, const QuadImage* a,
                                                  const QuadImage* b) {
  // The control register is slow to read: start early.
  const uint32_t mode = rounding_mode();
  const u128 x = load(a), y = load(b);
  const u128 sign = (x ^ y) & kSign;
  const u128 mx = x & kMagnitude, my = y & kMagnitude;
  if (mx >= kInfinity || my >= kInfinity) [[unlikely]] {
    store(result, is_nan(x) || is_nan(y) ? nan_result(x, y) : Op::special(sign, mx, my));
    return;
  }
  if (mx == 0 || my == 0) [[unlikely]] {
    store(result, Op::zero(sign, mx, my));
    return;
  }
  u128 sa, sb;
  int32_t ea, eb;
  unpack(mx, sa, ea);
  unpack(my, sb, eb);
  store(result, Op::finite(sign, sa, ea, sb, eb, mode));
}

}  // namespace

extern "C" {

QAL_EXPORT void _Qmul(QuadImage* result, const QuadImage* a, const QuadImage* b) {
  multiplicative<Product>(result, a, b);
}

QAL_EXPORT void _Qdiv(QuadImage* result, const QuadImage* a, const QuadImage* b) {
  multiplicative<Quotient>(result, a, b);
}

}  // extern "C"

}  // namespace qal
