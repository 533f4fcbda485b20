// D, E, EN, ES, F and G editing of a REAL*4, REAL*8 or REAL*16 value, or of
// bits taken as one: sort out zero, infinity and NaN, check the descriptor,
// ask for the digits in the rounding mode of the statement, and hand them
// to the layout of real_edit.h.  One template serves the three precisions.
#pragma once

#include <stdint.h>

#include "format/data_edit.h"
#include "formatted/output_edit.h"

namespace qal {

// The front ends, one family per descriptor, each a template over the
// precision N (4, 8 or 16 bytes); `value` is the image as in memory.  E
// and D print `letter`; Ew, Fw and the like pass d = 0.
template <int N>
int wrt_ewd(FieldWriter& f, int32_t w, int32_t d, char letter, const void* value);
template <int N>
int wrt_ewde(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter, const void* value);
template <int N>
int wrt_enwd(FieldWriter& f, int32_t w, int32_t d, const void* value);
template <int N>
int wrt_enwde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value);
template <int N>
int wrt_eswd(FieldWriter& f, int32_t w, int32_t d, const void* value);
template <int N>
int wrt_eswde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value);
template <int N>
int wrt_fwd(FieldWriter& f, int32_t w, int32_t d, const void* value);
template <int N>
int wrt_gwd(FieldWriter& f, int32_t w, int32_t d, const void* value);
template <int N>
int wrt_gwde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value);

// The bare E of a REAL*16 in the old dialect: wrt_ewd with the default
// width and digits of its precision.
int wrt_e_r16(FieldWriter& f, const void* value);

// Edits the value at `value` (4, 8 or 16 bytes as in memory) under a real
// descriptor (D, E, EN, ES, F, G in all their forms; a bare one takes the
// widths of its precision).  1215 for any other descriptor.
int edit_real(FieldWriter& f, const DataEdit& de, const void* value, int size);

}  // namespace qal
