/* List-directed output: PRINT *, WRITE(u,*), and WRITE(variable,*). */
#ifndef QAL_LISTED_H
#define QAL_LISTED_H

#include "qal/abi.h"
#include "qal/statement.h"

QAL_BEGIN_DECLS

/* Sequential: start, items, end.  Each returns 0 or an error number (only
 * when the statement has SF_ERR_RETURN; otherwise a failure is fatal).
 * After a non-zero return the statement is over. */
QAL_EXPORT int __f90_sslw(IoStatementSlw* stmt);
QAL_EXPORT int __f90_sslw_pos(IoStatementSlw* stmt, int64_t pos);
QAL_EXPORT int __f90_slw_ch(IoStatementSlw* stmt, const char* text, int64_t length);
QAL_EXPORT int __f90_slw_i4(IoStatementSlw* stmt, int32_t value);
QAL_EXPORT int __f90_slw_i8(IoStatementSlw* stmt, int64_t value);
QAL_EXPORT int __f90_slw_u4(IoStatementSlw* stmt, uint32_t value);
QAL_EXPORT int __f90_slw_u8(IoStatementSlw* stmt, uint64_t value);
QAL_EXPORT int __f90_slw_l1(IoStatementSlw* stmt, int8_t value);
QAL_EXPORT int __f90_slw_l4(IoStatementSlw* stmt, int32_t value);
QAL_EXPORT int __f90_slw_l8(IoStatementSlw* stmt, int64_t value);
/* Reals at their shortest exact digits; REAL*16 by value as two 64-bit
 * halves of the binary128 image (low first) or by address; complex items
 * by address. */
QAL_EXPORT int __f90_slw_r4(IoStatementSlw* stmt, float value);
QAL_EXPORT int __f90_slw_r8(IoStatementSlw* stmt, double value);
QAL_EXPORT int __f90_slw_r16(IoStatementSlw* stmt, uint64_t low, uint64_t high);
QAL_EXPORT int __f90_slw_r16_ref(IoStatementSlw* stmt, const void* value);
/* The same reals in the old dialect's fixed-width forms, written without a
 * separator; the plain entries above hand over to these when the statement
 * has SF_F77_WRITE.  Complex items keep their form in both dialects. */
QAL_EXPORT int __f90_slw_r4_f77compat(IoStatementSlw* stmt, float value);
QAL_EXPORT int __f90_slw_r8_f77compat(IoStatementSlw* stmt, double value);
QAL_EXPORT int __f90_slw_r16_f77compat(IoStatementSlw* stmt, uint64_t low, uint64_t high);
QAL_EXPORT int __f90_slw_c4(IoStatementSlw* stmt, const void* value);
QAL_EXPORT int __f90_slw_c8(IoStatementSlw* stmt, const void* value);
QAL_EXPORT int __f90_slw_c16(IoStatementSlw* stmt, const void* value);
QAL_EXPORT int __f90_eslw(IoStatementSlw* stmt);

/* Rough floor(log10 |x|) from the bits, and the width the old dialect's
 * list-directed and namelist output gives a real (REAL*16 by address for
 * the estimate, by value as two 64-bit halves, low first, for the width). */
QAL_EXPORT int32_t __f90_silog(const float* x);
QAL_EXPORT int32_t __f90_ilog(double x);
QAL_EXPORT int32_t __f90_qilog(const void* x);
QAL_EXPORT int32_t __f90_width_f77compat(const float* x);
QAL_EXPORT int32_t __f90_dwidth_f77compat(double x);
QAL_EXPORT int32_t __f90_qwidth_f77compat(uint64_t low, uint64_t high);

/* Internal: the records are the elements of a character variable. */
QAL_EXPORT int __f90_silw(IoStatementIl* stmt);
QAL_EXPORT int __f90_ilw_ch(IoStatementIl* stmt, const char* text, int64_t length);
QAL_EXPORT int __f90_ilw_i4(IoStatementIl* stmt, int32_t value);
QAL_EXPORT int __f90_ilw_i8(IoStatementIl* stmt, int64_t value);
QAL_EXPORT int __f90_ilw_u4(IoStatementIl* stmt, uint32_t value);
QAL_EXPORT int __f90_ilw_u8(IoStatementIl* stmt, uint64_t value);
QAL_EXPORT int __f90_ilw_l1(IoStatementIl* stmt, int8_t value);
QAL_EXPORT int __f90_ilw_l4(IoStatementIl* stmt, int32_t value);
QAL_EXPORT int __f90_ilw_l8(IoStatementIl* stmt, int64_t value);
QAL_EXPORT int __f90_ilw_r4(IoStatementIl* stmt, float value);
QAL_EXPORT int __f90_ilw_r8(IoStatementIl* stmt, double value);
QAL_EXPORT int __f90_ilw_r16(IoStatementIl* stmt, uint64_t low, uint64_t high);
QAL_EXPORT int __f90_ilw_r16_ref(IoStatementIl* stmt, const void* value);
QAL_EXPORT int __f90_ilw_c4(IoStatementIl* stmt, const void* value);
QAL_EXPORT int __f90_ilw_c8(IoStatementIl* stmt, const void* value);
QAL_EXPORT int __f90_ilw_c16(IoStatementIl* stmt, const void* value);
QAL_EXPORT int __f90_eilw(IoStatementIl* stmt);

QAL_END_DECLS

#endif
