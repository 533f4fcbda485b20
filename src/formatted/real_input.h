// Reals on input: the field's number as a decimal record, then the exact
// conversion in the processor's rounding direction, or the fixed images
// of infinity, NaN and signed zero.
#pragma once

#include <string.h>

#include "convert/decimal_input.h"
#include "format/data_edit.h"
#include "formatted/input_edit.h"
#include "formatted/read_items.h"
#include "qal/convert.h"
#include "qal/errors.h"
#include "util/digit_scan.h"
#include "util/rounding.h"

namespace qal {

// Stores the value of `rec` (class, sign, digits) into a real of N bytes
// (4, 8 or 16).  Returns the conversion's exception word.
template <int N>
unsigned store_real(DecimalRecord& rec, void* item);

namespace read_detail {

// The widths of a bare real descriptor, by the precision read.
inline int32_t bare_real_width(int precision) {
  return precision == 4 ? 15 : precision == 8 ? 25 : 42;
}
inline int32_t bare_real_digits(int precision) {
  return precision == 4 ? 7 : precision == 8 ? 16 : 33;
}

}  // namespace read_detail

// F, E, D, EN, ES and G with w.d on a REAL*4 or REAL*8, a field wholly
// inside the record written the plain way: blanks, a sign, at most 19
// significant digits with or without a point, an exponent letter with its
// sign and digits, blanks.  Converted by the fast way when it can decide.
// Anything else is left to the general path before anything is changed.
template <class P>
bool read_plain_real(P& p, const DataEdit& de, const ItemRef& item) {
  constexpr uint32_t kUnusual = SF_BZ | SF_F77_READ;
  auto* r = p.cursor();
  char* const begin = r->record_pos;
  const int32_t w = de.w;
  if (de.shape < 2 || w <= 0 || w > r->record_end - begin || (p.stmt->stmt_flags & kUnusual) ||
      p.has_hook())
    return false;
  const char point = (p.stmt->stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA ? ',' : '.';
  const char* const end = begin + w;
  const char* const limit = p.load_limit();
  const char* c = skip_blanks(begin, end, limit);
  bool negative = false;
  if (c < end && (*c == '-' || *c == '+')) negative = *c++ == '-';
  // Leading zeros, and zeros right after the point when none came before
  // it, only shift the exponent.
  const char* const number = c;
  while (c < end && *c == '0') ++c;
  uint64_t v = 0;
  const char* first = c;
  c = append_digits(c, end, limit, v);
  ptrdiff_t significant = c - first;
  ptrdiff_t after_point = 0;
  const bool seen_point = c < end && *c == point;
  if (seen_point) {
    const char* const fraction = ++c;
    if (significant == 0)
      while (c < end && *c == '0') ++c;
    first = c;
    c = append_digits(c, end, limit, v);
    significant += c - first;
    after_point = c - fraction;
  }
  if (c - number <= seen_point || significant > 19) return false;
  int32_t exponent;
  if (c < end && (*c == 'E' || *c == 'e' || *c == 'D' || *c == 'd')) {
    ++c;
    bool minus = false;
    if (c < end && (*c == '-' || *c == '+')) minus = *c++ == '-';
    int32_t e = 0, n = 0;
    for (; c < end && static_cast<unsigned>(*c - '0') < 10 && n < 5; ++c, ++n)
      e = e * 10 + (*c - '0');
    if (n == 0) return false;
    exponent = (seen_point ? -static_cast<int32_t>(after_point) : -de.d) + (minus ? -e : e);
  } else {
    exponent = seen_point ? -static_cast<int32_t>(after_point) - p.stmt->scale_factor
                          : -p.stmt->scale_factor - de.d;
  }
  if (skip_blanks(c, end, limit) != end) return false;
  if (v == 0) {
    // Zero keeps its sign.
    if (item.size == 4) {
      const uint32_t bits = negative ? 0x80000000u : 0;
      memcpy(item.address, &bits, 4);
    } else {
      const uint64_t bits = negative ? uint64_t{1} << 63 : 0;
      memcpy(item.address, &bits, 8);
    }
  } else if (!(item.size == 4 ? fast_decimal_to_real<4>(v, exponent, negative, rounding_direction(),
                                                        item.address)
                              : fast_decimal_to_real<8>(v, exponent, negative, rounding_direction(),
                                                        item.address))) {
    return false;
  }
  p.count_size(w);
  r->record_pos = begin + w;
  if (r->record_pos > r->record_high) r->record_high = r->record_pos;
  return true;
}

// The real family on an item of `size` bytes.  Sizes 4, 8 and 16 are read
// at their own precision; any other size is read as a REAL*16 and receives
// the first bytes of its image.
template <class P>
int real_field(P& p, const DataEdit& de, void* item, int64_t size) {
  using namespace read_detail;
  const int precision = size == 4 || size == 8 ? static_cast<int>(size) : 16;
  const int32_t w = de.bare() ? bare_real_width(precision) : de.w;
  const int32_t d = de.bare() ? bare_real_digits(precision) : de.shape == 1 ? 0 : de.d;
  if (w < 0 || d < 0) return p.fail(ERR_NEGATIVE_FIELD_WIDTH, 0);
  if (w == 0) return p.fail(ERR_ZERO_FIELD_WIDTH, 0);
  const InputModes m = p.modes();
  DecimalRecord rec;
  for (;;) {
    const FoundField f = p.find_field(w, true);
    const int err = rd_decimal_record(f.field, m, d, p.hook(), &rec);
    if (err == kRescanField) continue;
    if (err) return p.fail(err, 0);
    // Past the record's end under PAD='NO' the statement fails and the
    // item keeps its value.
    if (rec.ndigits >= 0 && !f.field.past_end_nopad) {
      unsigned char scratch[16];
      void* target = precision == size ? item : scratch;
      const unsigned exceptions = precision == 4   ? store_real<4>(rec, target)
                                  : precision == 8 ? store_real<8>(rec, target)
                                                   : store_real<16>(rec, target);
      if (target == scratch) memcpy(item, scratch, static_cast<size_t>(size < 16 ? size : 16));
      // An end of record still to come is reported rather than the overflow.
      const bool record_ends =
          f.next > p.cursor()->record_end && (p.stmt->stmt_flags & SF_NO_ADVANCE);
      if ((exceptions & FPX_OVERFLOW) && (p.stmt->stmt_flags & SF_CHECK_FP_OVERFLOW) &&
          !record_ends)
        return p.fail(ERR_REAL_OVERFLOW_INPUT, 0);
    }
    return p.finish_field(f.next);
  }
}

}  // namespace qal
