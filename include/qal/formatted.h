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
#include "qal/location.h"
#include "qal/statement.h"
#include "qal/unit.h"

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

/* Formatted input from a sequential or stream unit: READ(u,fmt), READ fmt.
 *
 * The same shape on an IoStatementSfr: the start entry, one item entry per
 * list item (the item by address), the end entry.  SF_END_RETURN and
 * SF_EOR_RETURN ask for -1 at the end of the file and -2 at the end of a
 * record under ADVANCE='NO'; SF_EOR_GIVEN and SF_SIZE_GIVEN say that EOR=
 * and SIZE= are present; `size_count` is the SIZE= value after the
 * statement.  __f90_sfr_advance, when ADVANCE= is a run-time value, is
 * called before the start entry. */
QAL_EXPORT int __f90_ssfr(IoStatementSfr* stmt);
QAL_EXPORT int __f90_ssfr_pos(IoStatementSfr* stmt, int64_t pos);
QAL_EXPORT int __f90_sfr_advance(IoStatementSfr* stmt, const char* text, int64_t length);
QAL_EXPORT int __f90_sfr_i1(IoStatementSfr* stmt, int8_t* item);
QAL_EXPORT int __f90_sfr_i2(IoStatementSfr* stmt, int16_t* item);
QAL_EXPORT int __f90_sfr_i4(IoStatementSfr* stmt, int32_t* item);
QAL_EXPORT int __f90_sfr_i8(IoStatementSfr* stmt, int64_t* item);
QAL_EXPORT int __f90_sfr_u1(IoStatementSfr* stmt, uint8_t* item);
QAL_EXPORT int __f90_sfr_u2(IoStatementSfr* stmt, uint16_t* item);
QAL_EXPORT int __f90_sfr_u4(IoStatementSfr* stmt, uint32_t* item);
QAL_EXPORT int __f90_sfr_u8(IoStatementSfr* stmt, uint64_t* item);
QAL_EXPORT int __f90_sfr_l1(IoStatementSfr* stmt, int8_t* item);
QAL_EXPORT int __f90_sfr_l2(IoStatementSfr* stmt, int16_t* item);
QAL_EXPORT int __f90_sfr_l4(IoStatementSfr* stmt, int32_t* item);
QAL_EXPORT int __f90_sfr_l8(IoStatementSfr* stmt, int64_t* item);
QAL_EXPORT int __f90_sfr_r4(IoStatementSfr* stmt, float* item);
QAL_EXPORT int __f90_sfr_r8(IoStatementSfr* stmt, double* item);
QAL_EXPORT int __f90_sfr_r16(IoStatementSfr* stmt, void* item);
QAL_EXPORT int __f90_sfr_c4(IoStatementSfr* stmt, void* item);
QAL_EXPORT int __f90_sfr_c8(IoStatementSfr* stmt, void* item);
QAL_EXPORT int __f90_sfr_c16(IoStatementSfr* stmt, void* item);
QAL_EXPORT int __f90_sfr_ch(IoStatementSfr* stmt, char* text, int64_t length);
QAL_EXPORT int __f90_esfr(IoStatementSfr* stmt);

/* The overflow limits of I editing in radix r (2 to 36): floor(2**31 / r),
 * floor(2**63 / r), floor((2**32 - 1) / r), floor((2**64 - 1) / r). */
extern QAL_EXPORT const int32_t __f95_max_multiplicand_4[37];
extern QAL_EXPORT const int64_t __f95_max_multiplicand_8[37];
extern QAL_EXPORT const uint32_t __f95_max_multiplicand_u4[37];
extern QAL_EXPORT const uint64_t __f95_max_multiplicand_u8[37];

/* A record of a unit for callers outside the transfer statements: finds the
 * next newline in the unit's buffer, reading more as needed.  `flags` 1
 * returns errors, 2 returns end of file (-1); otherwise they are reported.
 * Releases the unit on failure. */
QAL_EXPORT int __f90_read_sf_record(Unit* u, int32_t flags, int64_t unit, const Location* location);

/* The correction hook of formatted input.  When a unit has one, a character
 * that an input editor cannot take is offered to it instead of failing the
 * statement:
 *
 *   unit, source file, source line, data file, offset of the character in
 *   the file, the rest of the record from the character, the number of the
 *   list item, then two answers: the character to put in its place, and the
 *   action: 1 to use it, 2 to use it and write it into the file too (any
 *   other value fails the statement with 1217).  The three texts are
 *   NUL-terminated copies; their lengths follow last, as a Fortran routine
 *   expects them.
 *
 * A corrected blank or separator makes the field be found again; any other
 * character makes it be parsed again.  Offering the same character at the
 * same place twice fails with 1218. */
typedef void (*IoErrorHandler)(const int64_t* unit, const char* source_file, const int64_t* line,
                               const char* data_file, const int64_t* offset, const char* rest,
                               const int64_t* item, char* corrected, int32_t* action,
                               int64_t source_file_length, int64_t data_file_length,
                               int64_t rest_length);
/* Sets (or, with null, removes) the hook of a connected unit until it is
 * closed: 0, 1001 for a bad number, 1014 for a unit not connected. */
QAL_EXPORT int32_t __f90_set_io_error_handler(int64_t unit, IoErrorHandler handler);

QAL_END_DECLS

#endif
