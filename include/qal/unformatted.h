/* Unformatted transfer on sequential and stream units: WRITE(u) and
 * READ(u) with no format.
 *
 * A sequential unformatted file is a run of records, each its payload
 * between two copies of the payload's length as a signed 32-bit number
 * (at most 2147483647 bytes); ACCESS='STREAM' and FORM='BINARY' files are
 * the payload bytes alone.  Numbers are in the machine's order, or reversed
 * on a unit that the byte-swap options select (qal/connect.h). */
#ifndef QAL_UNFORMATTED_H
#define QAL_UNFORMATTED_H

#include "qal/abi.h"
#include "qal/statement.h"

QAL_BEGIN_DECLS

/* Write: start, items, end.  Each returns 0 or an error number (only when
 * the statement has SF_ERR_RETURN; otherwise a failure is fatal).  After a
 * non-zero return the statement is over and its record is not written. */
QAL_EXPORT int __f90_ssuw(IoStatementSuw* stmt);
QAL_EXPORT int __f90_ssuw_pos(IoStatementSuw* stmt, int64_t pos);
/* Integers and reals by value, REAL*16 as the two 64-bit halves of its
 * image (low first) or by address; complex and interval items by address:
 * _c4, _c8, _c16 are pairs of REAL*4, *8, *16, and _ia8, _ia16, _ia32 are
 * intervals of 8, 16 and 32 bytes.  In a byte-swapped file each component
 * is reversed on its own. */
QAL_EXPORT int __f90_suw_i1(IoStatementSuw* stmt, int8_t value);
QAL_EXPORT int __f90_suw_i2(IoStatementSuw* stmt, int16_t value);
QAL_EXPORT int __f90_suw_i4(IoStatementSuw* stmt, int32_t value);
QAL_EXPORT int __f90_suw_i8(IoStatementSuw* stmt, int64_t value);
QAL_EXPORT int __f90_suw_r4(IoStatementSuw* stmt, float value);
QAL_EXPORT int __f90_suw_r8(IoStatementSuw* stmt, double value);
QAL_EXPORT int __f90_suw_r16(IoStatementSuw* stmt, uint64_t low, uint64_t high);
QAL_EXPORT int __f90_suw_r16_ref(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_c4(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_c8(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_c16(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_ia8(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_ia16(IoStatementSuw* stmt, const void* value);
QAL_EXPORT int __f90_suw_ia32(IoStatementSuw* stmt, const void* value);
/* `bytes` bytes from `data`: arrays, character data, derived types.  The
 * statement's SF_ITEM_LOG2_SIZE gives the element size that a byte-swapped
 * file reverses, SF_ITEM_CLASS marks bytes never swapped or a UNION. */
QAL_EXPORT int __f90_suw_n(IoStatementSuw* stmt, const void* data, int64_t bytes);
/* Zero bytes for an alignment gap: table[the unit's alignment code]. */
QAL_EXPORT int __f90_suw_pad(IoStatementSuw* stmt, const int32_t* table);
QAL_EXPORT int __f90_esuw(IoStatementSuw* stmt);

/* Read: start, items by size, end.  _16 reverses 16 bytes as one element
 * in a byte-swapped file, _32 two elements of 16; complex items of smaller
 * parts come through _n with their part's size. */
QAL_EXPORT int __f90_ssur(IoStatementSur* stmt);
QAL_EXPORT int __f90_ssur_pos(IoStatementSur* stmt, int64_t pos);
QAL_EXPORT int __f90_sur_1(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_2(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_4(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_8(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_16(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_32(IoStatementSur* stmt, void* item);
QAL_EXPORT int __f90_sur_n(IoStatementSur* stmt, void* data, int64_t bytes);
QAL_EXPORT int __f90_sur_pad(IoStatementSur* stmt, const int32_t* table);
QAL_EXPORT int __f90_esur(IoStatementSur* stmt);

QAL_END_DECLS

#endif /* QAL_UNFORMATTED_H */
