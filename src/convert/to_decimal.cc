// The *_to_decimal entries: classify the operand, store class and sign,
// and send a finite non-zero value through the paths of engine.h.  Each
// format is a small description of its fields; one template does the rest.
#include <string.h>

#include <bit>

#include "convert/engine.h"
#include "qal/convert.h"
#include "util/binary_format.h"

namespace qal {

namespace {

struct Classified {
  int fp_class;
  Unpacked u;
};

// sign, biased exponent, significand as stored (integer bit included for
// x87), and whether a NaN is quiet.
template <class L>
Classified classify(int sign, int biased, u128 significand, u128 fraction, bool quiet) {
  Classified c{};
  c.u.sign = sign;
  if (biased == L::kMaxBiased) {
    c.fp_class = fraction == 0 ? FPC_INFINITY : quiet ? FPC_QUIET_NAN : FPC_SIGNALING_NAN;
    return c;
  }
  if (significand == 0) {
    c.fp_class = FPC_ZERO;
    return c;
  }
  c.fp_class = biased == 0 ? FPC_SUBNORMAL : FPC_NORMAL;
  c.u.mant = significand;
  c.u.exponent = L::kMinExponent + (biased == 0 ? 0 : biased - 1);
  return c;
}

// The class and fields of an image of format L; `quiet` says whether a
// NaN is quiet.
template <class L>
Classified classify_image(typename L::Bits b, bool quiet) {
  return classify<L>(L::negative(b), L::biased(b), L::significand(b), L::payload(b), quiet);
}

Classified classify_single(float x) {
  const uint32_t b = std::bit_cast<uint32_t>(x);
  return classify_image<Binary32>(b, (b & Binary32::kQuiet) != 0);
}

Classified classify_double(double x) {
  const uint64_t b = std::bit_cast<uint64_t>(x);
  // A NaN whose upper 20 fraction bits, as a number, reach 0x40000 counts
  // as quiet: the second-highest fraction bit alone is enough.
  return classify_image<Binary64>(b, (Binary64::fraction(b) >> 32) >= 0x40000);
}

Classified classify_extended(const uint32_t w[3]) {
  u128 b = 0;
  memcpy(&b, w, X87Extended::kBytes);
  return classify_image<X87Extended>(b, (b & X87Extended::kQuiet) != 0);
}

// Words least significant first.
Classified classify_quad(const uint32_t w[4]) {
  u128 b;
  memcpy(&b, w, 16);
  return classify_image<Binary128>(b, (b & Binary128::kQuiet) != 0);
}

// Stores class and sign; converts finite non-zero values.  `fast` is the
// magnitude as a double when the double fast path may be tried.
void convert(const Classified& c, const double* fast, DecimalMode* mode, DecimalRecord* rec,
             unsigned* exceptions) {
  rec->fp_class = c.fp_class;
  rec->sign = c.u.sign;
  *exceptions = 0;
  if (c.fp_class != FPC_NORMAL && c.fp_class != FPC_SUBNORMAL) return;
  // The wide path is integer arithmetic and settles nearly every request
  // of up to 36 digits; the double path works in the floating-point unit
  // and may still settle what the wide path left in doubt.
  if (!wide_to_decimal(c.u, mode, rec, exceptions) &&
      !(fast && __k_double_to_decimal(*fast, mode, rec, exceptions)))
    _unpacked_to_decimal_two(c.u, mode, rec, exceptions);
  if (*exceptions) __base_conversion_set_exception(*exceptions);
}

void convert_double(double x, const Classified& c, DecimalMode* mode, DecimalRecord* rec,
                    unsigned* exceptions) {
  const double magnitude = std::bit_cast<double>(std::bit_cast<uint64_t>(x) & ~(uint64_t{1} << 63));
  convert(c, &magnitude, mode, rec, exceptions);
}

}  // namespace

// Written only, so that the squares below are really computed.
volatile double __base_conversion_write_only_double;

extern "C" {

QAL_EXPORT void __base_conversion_set_exception(unsigned exceptions) {
  // Each square raises its flags: a value just below 1 only inexact; the
  // others invalid, overflow or underflow (with inexact).
  volatile double v;
  if (exceptions == FPX_INEXACT) {
    v = 0.9999999962747097;
    __base_conversion_write_only_double = v * v;
    return;
  }
  if (exceptions & FPX_INVALID) {
    v = std::bit_cast<double>(uint64_t{0x7ff4000000000000});
    __base_conversion_write_only_double = v * v;
  }
  if (exceptions & FPX_OVERFLOW) {
    v = 4.149515553422843e180;
    __base_conversion_write_only_double = v * v;
  }
  if (exceptions & FPX_UNDERFLOW) {
    v = 2.2250738585072014e-308;
    __base_conversion_write_only_double = v * v;
  }
}

QAL_EXPORT void double_to_decimal(const double* value, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  convert_double(*value, classify_double(*value), mode, rec, exceptions);
}

QAL_EXPORT void single_to_decimal(const float* value, DecimalMode* mode, DecimalRecord* rec,
                                  unsigned* exceptions) {
  // The widening is exact; the class is the float's own.
  convert_double(static_cast<double>(*value), classify_single(*value), mode, rec, exceptions);
}

QAL_EXPORT void extended_to_decimal(const uint32_t value[3], DecimalMode* mode, DecimalRecord* rec,
                                    unsigned* exceptions) {
  convert(classify_extended(value), nullptr, mode, rec, exceptions);
}

QAL_EXPORT void _extended_to_decimal(const uint32_t value[3], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions) {
  extended_to_decimal(value, mode, rec, exceptions);
}

QAL_EXPORT void x86_quadruple_to_decimal(const uint32_t value[4], DecimalMode* mode,
                                         DecimalRecord* rec, unsigned* exceptions) {
  convert(classify_quad(value), nullptr, mode, rec, exceptions);
}

QAL_EXPORT void quadruple_to_decimal(const uint32_t value[4], DecimalMode* mode, DecimalRecord* rec,
                                     unsigned* exceptions) {
  const uint32_t reversed[4] = {value[3], value[2], value[1], value[0]};
  convert(classify_quad(reversed), nullptr, mode, rec, exceptions);
}

}  // extern "C"

}  // namespace qal
