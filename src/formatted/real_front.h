// D, E, EN, ES, F and G editing of a REAL*4, REAL*8 or REAL*16 value, or of
// bits taken as one: sort out zero, infinity and NaN, check the descriptor,
// ask for the digits in the rounding mode of the statement, and hand them
// to the layout of real_edit.h.  One template serves the three precisions.
#pragma once

#include <stdint.h>

#include "formatted/output_edit.h"

namespace qal {

// Edits the value at `value` (4, 8 or 16 bytes as in memory) under the real
// descriptor `op` of a format table (codes D to G, all their forms; a bare
// descriptor takes the widths of its precision).  1215 for any other op.
int edit_real(FieldWriter& f, const int32_t* op, const void* value, int size);

}  // namespace qal
