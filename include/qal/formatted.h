/* Formatted output to a sequential or stream unit: WRITE(u,fmt), PRINT fmt.
 *
 * A statement is the start entry, at most one ADVANCE= call, one item entry
 * per list item and the end entry, all on the same IoStatementSfw.  Before
 * the start the compiled code sets `unit`, `stmt_flags`, `location`,
 * `format` (a table of format.h, laid down by the compiler or made by
 * __f90_parse_format, with SF_FREE_FORMAT set for the latter) and
 * `format_counters` (its counter area).  Every entry returns 0 or an error
 * number; a number comes back only with SF_ERR_RETURN, otherwise the failure
 * is reported and the program aborts.  After a non-zero return the unit is
 * released, a run-time format freed, and the statement is over.
 *
 * Each item entry walks the format to the next data edit descriptor,
 * performing every position, string and mode descriptor on its way, and
 * edits the item there.  The end entry performs what stands before the next
 * data edit descriptor, colon or end of format, and ends the record. */
#ifndef QAL_FORMATTED_H
#define QAL_FORMATTED_H

#include "qal/abi.h"
#include "qal/statement.h"

QAL_BEGIN_DECLS

QAL_EXPORT int __f90_ssfw(IoStatementSfw* stmt);
/* Stream access with POS=: the statement writes from byte `pos` (1-based). */
QAL_EXPORT int __f90_ssfw_pos(IoStatementSfw* stmt, int64_t pos);
/* ADVANCE= given at run time: "YES" or "NO", any case, trailing blanks. */
QAL_EXPORT int __f90_sfw_advance(IoStatementSfw* stmt, const char* text, int64_t length);

QAL_EXPORT int __f90_sfw_i1(IoStatementSfw* stmt, int8_t value);
QAL_EXPORT int __f90_sfw_i2(IoStatementSfw* stmt, int16_t value);
QAL_EXPORT int __f90_sfw_i4(IoStatementSfw* stmt, int32_t value);
QAL_EXPORT int __f90_sfw_i8(IoStatementSfw* stmt, int64_t value);
QAL_EXPORT int __f90_sfw_u1(IoStatementSfw* stmt, uint8_t value);
QAL_EXPORT int __f90_sfw_u2(IoStatementSfw* stmt, uint16_t value);
QAL_EXPORT int __f90_sfw_u4(IoStatementSfw* stmt, uint32_t value);
QAL_EXPORT int __f90_sfw_u8(IoStatementSfw* stmt, uint64_t value);
QAL_EXPORT int __f90_sfw_l1(IoStatementSfw* stmt, int8_t value);
QAL_EXPORT int __f90_sfw_l2(IoStatementSfw* stmt, int16_t value);
QAL_EXPORT int __f90_sfw_l4(IoStatementSfw* stmt, int32_t value);
QAL_EXPORT int __f90_sfw_l8(IoStatementSfw* stmt, int64_t value);
QAL_EXPORT int __f90_sfw_r4(IoStatementSfw* stmt, float value);
QAL_EXPORT int __f90_sfw_r8(IoStatementSfw* stmt, double value);
/* REAL*16 by value (the binary128 image in two 8-byte halves, low first)
 * and by address. */
QAL_EXPORT int __f90_sfw_r16(IoStatementSfw* stmt, uint64_t low, uint64_t high);
QAL_EXPORT int __f90_sfw_r16_ref(IoStatementSfw* stmt, const void* value);
/* Complex items by address; a complex item takes two data edit descriptors. */
QAL_EXPORT int __f90_sfw_c4(IoStatementSfw* stmt, const void* value);
QAL_EXPORT int __f90_sfw_c8(IoStatementSfw* stmt, const void* value);
QAL_EXPORT int __f90_sfw_c16(IoStatementSfw* stmt, const void* value);
QAL_EXPORT int __f90_sfw_ch(IoStatementSfw* stmt, const char* text, int64_t length);
/* Interval items: a pair of bounds by address (8 or 16 bytes each). */
QAL_EXPORT int __f90_sfw_ia8(IoStatementSfw* stmt, const void* value);
QAL_EXPORT int __f90_sfw_ia16(IoStatementSfw* stmt, const void* value);

QAL_EXPORT int __f90_esfw(IoStatementSfw* stmt);

QAL_END_DECLS

#endif
