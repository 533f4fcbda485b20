// Reals on input: the field's number as a decimal record, then the exact
// conversion in the processor's rounding direction, or the fixed images
// of infinity, NaN and signed zero.
#pragma once

#include <string.h>

#include "format/data_edit.h"
#include "formatted/input_edit.h"
#include "formatted/read_items.h"
#include "qal/convert.h"
#include "qal/errors.h"

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
