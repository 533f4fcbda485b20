// The classic digit entries on top of the *_to_decimal engine, the %g-like
// text builder, and the moves between the x87 and binary128 images.
#include <fenv.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include "convert/digits.h"
#include "qal/convert.h"
#include "util/binary_format.h"
#include "util/rounding.h"

namespace qal {

extern "C" {
QAL_EXPORT int __inf_written = 0;
QAL_EXPORT int __nan_written = 0;
}

namespace {

// The direction as a DecimalMode value from the control word; anything
// unknown counts as toward zero.
int __xgetRD() {
  switch (rounding_control()) {
    case FE_TONEAREST:
      return FPR_NEAREST;
    case FE_DOWNWARD:
      return FPR_DOWN;
    case FE_UPWARD:
      return FPR_UP;
    default:
      return FPR_ZERO;
  }
}

// The quad entries insist on a direction they know.
int local_getRD() {
  const int mode = rounding_control();
  if (mode != FE_TONEAREST && mode != FE_DOWNWARD && mode != FE_UPWARD && mode != FE_TOWARDZERO)
    abort();
  return __xgetRD();
}

void infinity_or_nan(const DecimalRecord& rec, int ndigit, int* decpt, char* buf) {
  *decpt = 0;
  __infnanstring(rec.fp_class, ndigit, buf);
  if (rec.fp_class == FPC_INFINITY)
    __inf_written = 1;
  else
    __nan_written = 1;
}

bool is_number(const DecimalRecord& rec) {
  return rec.fp_class == FPC_NORMAL || rec.fp_class == FPC_SUBNORMAL;
}

// e forms: ndigit significant digits, *decpt where the point goes after
// the first of them.  f forms: ndigit digits after the point.
template <int Form, class T, class Convert>
char* digits_text(const T* value, int ndigit, int* decpt, int* sign, char* buf, int rounding,
                  Convert convert) {
  DecimalMode mode = {rounding, Form, ndigit};
  DecimalRecord rec;
  unsigned exceptions;
  convert(value, &mode, &rec, &exceptions);
  *sign = rec.sign;
  int n;
  if (rec.fp_class == FPC_ZERO) {
    n = Form == DECIMAL_FLOATING ? (ndigit > 0 ? ndigit : 0) : (ndigit > 1 ? ndigit : 1);
    *decpt = Form == DECIMAL_FLOATING ? 1 : 0;
    memset(buf, '0', static_cast<size_t>(n));
  } else if (is_number(rec)) {
    const int count = Form == DECIMAL_FLOATING ? ndigit : rec.ndigits;
    n = exceptions & FPX_OVERFLOW ? 0 : count;
    *decpt = Form == DECIMAL_FLOATING ? rec.exponent + ndigit : ndigit < 0 ? n : n - ndigit;
    memcpy(buf, rec.digits, static_cast<size_t>(n));
  } else {
    infinity_or_nan(rec, ndigit, decpt, buf);
    return buf;
  }
  buf[n] = '\0';
  return buf;
}

}  // namespace

extern "C" {

QAL_EXPORT void __infnanstring(int fp_class, int ndigit, char* buf) {
  const char* text = fp_class == FPC_QUIET_NAN || fp_class == FPC_SIGNALING_NAN ? "NaN"
                     : ndigit < 8                                               ? "Inf"
                                                                                : "Infinity";
  strcpy(buf, text);
}

QAL_EXPORT char* econvert(double value, int ndigit, int* decpt, int* sign, char* buf) {
  return digits_text<DECIMAL_FLOATING>(&value, ndigit, decpt, sign, buf, __xgetRD(),
                                       double_to_decimal);
}

QAL_EXPORT char* fconvert(double value, int ndigit, int* decpt, int* sign, char* buf) {
  return digits_text<DECIMAL_FIXED>(&value, ndigit, decpt, sign, buf, __xgetRD(),
                                    double_to_decimal);
}

QAL_EXPORT char* seconvert(const float* value, int ndigit, int* decpt, int* sign, char* buf) {
  return digits_text<DECIMAL_FLOATING>(value, ndigit, decpt, sign, buf, __xgetRD(),
                                       single_to_decimal);
}

QAL_EXPORT char* sfconvert(const float* value, int ndigit, int* decpt, int* sign, char* buf) {
  return digits_text<DECIMAL_FIXED>(value, ndigit, decpt, sign, buf, __xgetRD(), single_to_decimal);
}

QAL_EXPORT char* x86_qeconvert(const uint32_t value[4], int ndigit, int* decpt, int* sign,
                               char* buf) {
  return digits_text<DECIMAL_FLOATING>(value, ndigit, decpt, sign, buf, local_getRD(),
                                       x86_quadruple_to_decimal);
}

QAL_EXPORT char* x86_qfconvert(const uint32_t value[4], int ndigit, int* decpt, int* sign,
                               char* buf) {
  return digits_text<DECIMAL_FIXED>(value, ndigit, decpt, sign, buf, local_getRD(),
                                    x86_quadruple_to_decimal);
}

QAL_EXPORT char* sgconvert(const float* value, int ndigit, int trailing, char* buf) {
  DecimalMode mode = {__xgetRD(), DECIMAL_FLOATING, ndigit};
  DecimalRecord rec;
  unsigned exceptions;
  single_to_decimal(value, &mode, &rec, &exceptions);
  return __k_gconvert(ndigit, &rec, trailing, buf);
}

QAL_EXPORT char* __k_gconvert(int ndigit, DecimalRecord* rec, int trailing, char* buf) {
  const char point = *localeconv()->decimal_point;
  char* p = buf;
  if (rec->sign) *p++ = '-';
  if (rec->fp_class == FPC_ZERO) {
    *p++ = '0';
    if (trailing) {
      *p++ = point;
      for (int i = 1; i < ndigit; ++i) *p++ = '0';
    }
    *p = '\0';
    return buf;
  }
  if (!is_number(*rec)) {
    __infnanstring(rec->fp_class, ndigit, p);
    return buf;
  }
  const int n = rec->ndigits;
  const char* d = rec->digits;
  const int e = rec->exponent;
  // Drops zeros at the end, then a point left at the end, unless trailing.
  auto trim = [&](char* end) {
    if (trailing) return end;
    while (end > buf && end[-1] == '0') --end;
    if (end > buf && end[-1] == point) --end;
    return end;
  };
  if (e > 0 || e < -3 - ndigit) {
    *p++ = d[0];
    *p++ = point;
    memcpy(p, d + 1, static_cast<size_t>(n - 1));
    p = trim(p + n - 1);
    const int x = n + e - 1;
    *p++ = 'e';
    *p++ = x < 0 ? '-' : '+';
    char four[4];
    __four_digits_quick(static_cast<unsigned>(x < 0 ? -x : x), four);
    const int skip = four[0] != '0' ? 0 : four[1] != '0' ? 1 : 2;
    memcpy(p, four + skip, static_cast<size_t>(4 - skip));
    p += 4 - skip;
  } else if (e >= -ndigit + 1) {
    const int before = e + ndigit;
    memcpy(p, d, static_cast<size_t>(before));
    p += before;
    *p++ = point;
    memcpy(p, d + before, static_cast<size_t>(n - before));
    p = trim(p + n - before);
  } else {
    *p++ = '0';
    *p++ = point;
    const int zeros = -(e + ndigit);
    memset(p, '0', static_cast<size_t>(zeros));
    p += zeros;
    memcpy(p, d, static_cast<size_t>(n));
    p = trim(p + n);
  }
  *p = '\0';
  return buf;
}

QAL_EXPORT void ldouble2quadruple(const uint32_t from[3], uint32_t to[4]) {
  // The 63 fraction bits below the integer bit become the top of the
  // quad's fraction; the sign and exponent word is the same.
  u128 x = 0;
  memcpy(&x, from, X87Extended::kBytes);
  constexpr int kShift = Binary128::kFractionBits - (X87Extended::kFractionBits - 1);
  const u128 q = Binary128::pack(X87Extended::negative(x), X87Extended::biased(x),
                                 X87Extended::payload(x) << kShift);
  memcpy(to, &q, 16);
}

QAL_EXPORT void quadruple2ldouble(const uint32_t from[4], uint32_t to[3]) {
  // The top 63 fraction bits, cut, behind an integer bit that is always set.
  u128 q;
  memcpy(&q, from, 16);
  constexpr int kShift = Binary128::kFractionBits - (X87Extended::kFractionBits - 1);
  const u128 x = X87Extended::pack(Binary128::negative(q), Binary128::biased(q),
                                   X87Extended::kLead | (Binary128::fraction(q) >> kShift));
  memcpy(to, &x, 12);
}

}  // extern "C"

}  // namespace qal
