// UnpackedFloat: the shifts that keep its value, the one rounding into each
// binary format, and the packers.
//
// The 160-bit significand is read as a 192-bit number A = significand *
// 2**32 in three 64-bit words, so that the kept bits, the first dropped bit
// and the sticky rest come out of word shifts.
#include "convert/unpacked.h"

#include <string.h>

namespace qal {

extern "C" {
QAL_EXPORT int32_t _fp_current_direction = FPR_NEAREST;
QAL_EXPORT uint32_t _fp_current_exceptions = 0;
}

namespace {

struct Wide {
  uint64_t w[3];  // least significant first

  explicit Wide(const uint32_t s[5]) {
    w[2] = (uint64_t{s[0]} << 32) | s[1];
    w[1] = (uint64_t{s[2]} << 32) | s[3];
    w[0] = uint64_t{s[4]} << 32;
  }
  uint64_t word(int i) const { return i >= 0 && i < 3 ? w[i] : 0; }
  // The 128 bits of A >> s.
  u128 shifted(int s) const {
    const int ws = s >> 6, bs = s & 63;
    uint64_t r[2];
    for (int i = 0; i < 2; ++i) {
      const uint64_t low = word(i + ws), high = word(i + ws + 1);
      r[i] = bs ? (low >> bs) | (high << (64 - bs)) : low;
    }
    return (u128{r[1]} << 64) | r[0];
  }
  bool bit(int k) const { return k >= 0 && k < 192 && ((w[k >> 6] >> (k & 63)) & 1); }
  // Whether any bit below k is set.
  bool any_below(int k) const {
    for (int i = 0; i < 3 && 64 * i < k; ++i) {
      const int top = k - 64 * i;
      const uint64_t mask = top >= 64 ? ~uint64_t{0} : (uint64_t{1} << top) - 1;
      if (w[i] & mask) return true;
    }
    return false;
  }
};

bool significand_is_zero(const UnpackedFloat& u) {
  for (uint32_t w : u.significand)
    if (w) return false;
  return true;
}

void shift_right(UnpackedFloat* u, int n) {
  if (n <= 0) return;
  uint32_t* s = u->significand;
  if (n >= 160) {
    const bool any = !significand_is_zero(*u);
    memset(s, 0, sizeof u->significand);
    s[4] = any;
    return;
  }
  const int words = n / 32, bits = n % 32;
  bool sticky = false;
  for (int i = 5 - words; i < 5; ++i) sticky |= s[i] != 0;
  if (bits) sticky |= (s[4 - words] << (32 - bits)) != 0;
  uint32_t out[5];
  for (int i = 4; i >= 0; --i) {
    const int from = i - words;
    const uint32_t low = from >= 0 ? s[from] : 0;
    const uint32_t high = from - 1 >= 0 ? s[from - 1] : 0;
    out[i] = bits ? (low >> bits) | (high << (32 - bits)) : low;
  }
  memcpy(s, out, sizeof out);
  s[4] |= sticky;
}

void shift_left(UnpackedFloat* u, int n) {
  if (n <= 0) return;
  uint32_t* s = u->significand;
  if (n >= 160) {
    memset(s, 0, sizeof u->significand);
    return;
  }
  const int words = n / 32, bits = n % 32;
  uint32_t out[5];
  for (int i = 0; i < 5; ++i) {
    const int from = i + words;
    const uint32_t high = from < 5 ? s[from] : 0;
    const uint32_t low = from + 1 < 5 ? s[from + 1] : 0;
    out[i] = bits ? (high << bits) | (low >> (32 - bits)) : high;
  }
  memcpy(s, out, sizeof out);
}

void normalize(UnpackedFloat* u) {
  if (significand_is_zero(*u)) {
    u->fp_class = FPC_ZERO;
    return;
  }
  int lead = 0;
  while (u->significand[lead / 32] == 0) lead += 32;
  lead += __builtin_clz(u->significand[lead / 32]);
  shift_left(u, lead);
  u->exponent -= lead;
}

// The rounding of an entry point's own direction, ORed into the shared
// accumulator as the packers must.
template <class Store>
void pack_shared(UnpackedFloat* u, const Format& f, Store store) {
  const int rounding = __atomic_load_n(&_fp_current_direction, __ATOMIC_RELAXED);
  Rounded r;
  if (u->fp_class == FPC_NORMAL) r = round_unpacked(*u, f, rounding);
  // A NaN's payload: the bits behind the leading one, as many as the
  // format's fraction has.
  if (u->fp_class == FPC_QUIET_NAN) r.image = Wide(u->significand).shifted(192 - f.precision);
  if (u->fp_class == FPC_NORMAL || u->fp_class == FPC_ZERO || u->fp_class == FPC_INFINITY ||
      u->fp_class == FPC_QUIET_NAN)
    store(r);
  if (r.exceptions) __atomic_fetch_or(&_fp_current_exceptions, r.exceptions, __ATOMIC_RELAXED);
}

}  // namespace

Rounded round_unpacked(const UnpackedFloat& in, const Format& f, int rounding) {
  const int sign = in.sign & 1;
  constexpr u128 kLead = u128{1} << 127;
  // The sentinels, and any exponent far outside every range, only need to
  // stay outside.
  constexpr int kFar = 40000;
  if (in.exponent >= UNPACKED_TOO_LARGE) return round_to(f, sign, kFar, kLead, rounding);
  if (in.exponent <= -UNPACKED_TOO_LARGE) return round_to(f, sign, -kFar, kLead, rounding);
  UnpackedFloat u = in;
  normalize(&u);
  u.exponent = u.exponent > kFar ? kFar : u.exponent < -kFar ? -kFar : u.exponent;
  if (u.fp_class == FPC_ZERO) return Rounded{};
  // The top 128 bits of the significand, the rest as a sticky bit; the
  // sentinels stay far outside every range.
  const Wide a(u.significand);
  const u128 sig = a.shifted(64) | a.any_below(64);
  return round_to(f, sign, u.exponent, sig, rounding);
}

void pack_x87(int fp_class, int sign, const Rounded& r, uint32_t result[3]) {
  using L = X87Extended;
  u128 image;
  switch (fp_class) {
    case FPC_NORMAL:
    case FPC_SUBNORMAL: {
      // The implicit twin's exponent field, and its fraction behind a
      // leading bit that is set for every non-zero exponent.
      const int biased = X87Rounded::biased(r.image);
      image = L::pack(sign, biased, (biased ? L::kLead : 0) | X87Rounded::fraction(r.image));
      break;
    }
    case FPC_INFINITY:
      image = L::pack(sign, L::kMaxBiased, L::kLead);
      break;
    case FPC_QUIET_NAN:
      image = L::pack(sign, L::kMaxBiased, (r.image & L::kFractionMask) | L::kLead | L::kQuiet);
      break;
    case FPC_SIGNALING_NAN:
      image = L::pack(sign, L::kMaxBiased, L::kFractionMask >> 1);
      break;
    default:
      image = L::pack(sign, 0, 0);
  }
  memcpy(result, &image, 12);
}

extern "C" {

QAL_EXPORT void __fp_rightshift(UnpackedFloat* u, int n) {
  if (n >= 160 && significand_is_zero(*u)) {
    u->fp_class = FPC_ZERO;
    return;
  }
  shift_right(u, n);
  u->exponent += n;
}

QAL_EXPORT void __fp_leftshift(UnpackedFloat* u, int n) {
  shift_left(u, n);
  u->exponent -= n;
}

QAL_EXPORT void __fp_normalize(UnpackedFloat* u) { normalize(u); }

QAL_EXPORT void __pack_single(UnpackedFloat* u, float* result) {
  pack_shared(u, kSingle, [&](const Rounded& r) {
    const uint32_t bits = pack_image<Binary32>(u->fp_class, u->sign & 1, r);
    memcpy(result, &bits, 4);
  });
}

QAL_EXPORT void __pack_double(UnpackedFloat* u, double* result) {
  pack_shared(u, kDouble, [&](const Rounded& r) {
    const uint64_t bits = pack_image<Binary64>(u->fp_class, u->sign & 1, r);
    memcpy(result, &bits, 8);
  });
}

QAL_EXPORT void __pack_quadruple(UnpackedFloat* u, uint32_t result[4]) {
  pack_shared(u, kQuad, [&](const Rounded& r) {
    const u128 bits = pack_image<Binary128>(u->fp_class, u->sign & 1, r);
    memcpy(result, &bits, 16);
  });
}

QAL_EXPORT void __pack_extended(UnpackedFloat* u, uint32_t result[3]) {
  pack_shared(u, kExtended,
              [&](const Rounded& r) { pack_x87(u->fp_class, u->sign & 1, r, result); });
}

}  // extern "C"

}  // namespace qal
