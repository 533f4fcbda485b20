// The double fast path: x * 10**s in one floating-point operation, rounded
// to an integer, and accepted only when the error analysis says the
// integer is the correctly rounded one.  Round to nearest only; anything in
// doubt goes on to the slower paths.
//
// Grades: 0 the value is exact, 1 within half an ulp (one correctly
// rounded operation), 2 within a few ulps (a power from the table that is
// itself rounded, then an operation).
#include <string.h>

#include <bit>

#include "convert/digits.h"
#include "convert/engine.h"
#include "convert/tables.h"

namespace qal {

namespace {

// Spacing of the doubles at r (r >= 0).
double ulp(double r) {
  const uint64_t b = std::bit_cast<uint64_t>(r);
  return std::bit_cast<double>(b + 1) - r;
}

// y = x * 10**s with its grade, or false when s is out of the table.
bool scale(double x, int s, double* y, int* status) {
  if (s == 0) {
    *y = x;
    *status = 0;
  } else if (s > 0 && s <= 22) {
    *y = __mul_set(status, x, __tbl_tens[s]);
  } else if (s > 22 && s <= 49) {
    *y = opaque(opaque(x) * __tbl_tens[s]);
    *status = 2;
  } else if (s < 0 && s >= -22) {
    *y = __div_set(status, x, __tbl_tens[-s]);
  } else if (s < -22 && s >= -49) {
    *y = opaque(opaque(x) / __tbl_tens[-s]);
    *status = 2;
  } else {
    return false;
  }
  return true;
}

bool floating_form(double x, int n, DecimalRecord* rec, unsigned* exceptions) {
  if (n < 1 || n > 18) return false;
  const uint32_t h = static_cast<uint32_t>(std::bit_cast<uint64_t>(x) >> 32);
  // floor(log10 x), perhaps one too small: 1233/4096 is log10(2) and the
  // table adds the logarithm of the top seven fraction bits' midpoint.
  const int e = (static_cast<int>(h >> 20) * 1233 + __tbl_baselg[(h >> 13) & 0x7f] - 1261359) >> 12;
  int s = n - e - 1;
  bool second = false;
  const double lower = __tbl_tens[n - 1], upper = __tbl_tens[n];
  for (;;) {
    double y;
    int status, grade;
    if (!scale(x, s, &y, &status)) return false;
    const double r = __arint_set_n(status, &grade, y);
    if (grade == 2) return false;
    if (r > lower && r < upper) {
      char buf[32];
      int count;
      __double_to_digits(buf + sizeof buf, &count, r);
      memcpy(rec->digits, buf + sizeof buf - n, static_cast<size_t>(n));
      rec->digits[n] = '\0';
      rec->ndigits = n;
      rec->exponent = -s;
      if (grade) *exceptions |= FPX_INEXACT;
      return true;
    }
    if (r >= upper) {
      if (second) return false;
      --s;
    } else {
      // Landing exactly on the lower power is not accepted either.
      if (second && (r < lower || grade != 0)) return false;
      ++s;
    }
    second = true;
  }
}

bool fixed_form(double x, int n, DecimalRecord* rec, unsigned* exceptions) {
  if (n >= 50) return false;
  double y;
  int status;
  if (!scale(x, n, &y, &status)) return false;
  // Above this the upper part of the digit split would not fit 32 bits.
  constexpr double kLargest = 2147483647999999744.0;
  if (y > kLargest) return false;
  int grade;
  const double r = __arint_set_n(status, &grade, y);
  if (grade == 2) return false;
  char* d = rec->digits;
  int count = 0;
  if (r != 0) {
    char buf[32];
    __double_to_digits(buf + sizeof buf, &count, r);
    const char* p = buf + sizeof buf - count;
    while (count > 1 && *p == '0') {
      ++p;
      --count;
    }
    const int pad = n > count ? n - count : 0;
    memset(d, '0', static_cast<size_t>(pad));
    memcpy(d + pad, p, static_cast<size_t>(count));
    count += pad;
  } else {
    count = n > 1 ? n : 1;
    memset(d, '0', static_cast<size_t>(count));
    grade = 1;
  }
  d[count] = '\0';
  rec->ndigits = count;
  rec->exponent = -n;
  if (grade) *exceptions |= FPX_INEXACT;
  return true;
}

}  // namespace

double __arint_set_n(int status, int* newstatus, double y) {
  constexpr double kTwo52 = 4503599627370496.0;
  // Adding and removing 2**52 rounds to an integer in the current mode;
  // from 2**52 up every double is an integer already.
  const double r = y < kTwo52 ? opaque(opaque(y + kTwo52) - kTwo52) : y;
  const double d = r > y ? r - y : y - r;
  if (status == 0) {
    *newstatus = d == 0 ? 0 : d > 0.5 ? 2 : 1;
  } else {
    *newstatus = 0.5 - d > status * ulp(r) ? 1 : 2;
  }
  return r;
}

bool __k_double_to_decimal(double x, const DecimalMode* mode, DecimalRecord* rec,
                           unsigned* exceptions) {
  if (mode->rounding != FPR_NEAREST || mode->ndigits < 0) return false;
  FloatingStatus quiet;
  if (mode->form == DECIMAL_FLOATING) return floating_form(x, mode->ndigits, rec, exceptions);
  return fixed_form(x, mode->ndigits, rec, exceptions);
}

}  // namespace qal
