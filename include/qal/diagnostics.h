/* Run-time diagnostics: message tables, catalogue readers, the writers from
 * which every fatal report is assembled, and the check entries that compiled
 * code calls when a bounds, shape or presence check fails. */
#ifndef QAL_DIAGNOSTICS_H
#define QAL_DIAGNOSTICS_H

#include "qal/abi.h"
#include "qal/location.h"
#include "qal/unit.h"

QAL_BEGIN_DECLS

/* Built-in texts; a catalogue may translate each entry. */
enum {
  RUNTIME_ERROR_COUNT = 222, /* 1000 .. 1221 */
  POSIX9_ERROR_COUNT = 24,   /* 2000 .. 2023 */
  LOC_FORMAT_COUNT = 61,     /* kinds 0 .. 60 */
  MISC_FORMAT_COUNT = 30,
  PS_FORMAT_COUNT = 8
};

extern QAL_EXPORT const char* const __f90_runtime_error[RUNTIME_ERROR_COUNT];
extern QAL_EXPORT const char* const __f90_posix9_error[POSIX9_ERROR_COUNT];
extern QAL_EXPORT const char* const __f90_loc_format[LOC_FORMAT_COUNT];
extern QAL_EXPORT const char* const __f90_misc_format[MISC_FORMAT_COUNT];
extern QAL_EXPORT const char* const __f90_ps_format[PS_FORMAT_COUNT];

/* Numbers of the miscellaneous formats. */
enum MiscFormat {
  MISC_BANNER = 1,
  MISC_END_OF_FILE = 2,
  MISC_END_OF_RECORD = 3,
  MISC_ERROR_NUMBER = 4,
  MISC_ERROR_TEXT = 5,
  MISC_BYTES_REQUESTED = 6,
  MISC_BYTE_DISCREPANCY = 7,
  MISC_UNIT = 8,
  MISC_UNIT_DEFAULT = 9,
  MISC_RECORD_NUMBER = 10,
  MISC_STATUS = 11,
  MISC_FILE = 12,
  MISC_UNKNOWN_ERROR = 13,
  MISC_SUBSCRIPT = 14,
  MISC_SUBSTRING_END = 15,
  MISC_SUBSTRING_START = 16,
  MISC_SHAPE = 20,
  MISC_SHAPE_ARGUMENTS = 21,
  MISC_FORMAT_EMPTY = 22,
  MISC_FORMAT_TEXT = 23,
  MISC_FORMAT_CARET = 24,
  MISC_FORMAT_NO_PAREN = 25,
  MISC_RESHAPE = 26,
  MISC_NULL_POINTER = 27,
  MISC_UNALLOCATED = 28,
  MISC_MISSING_OPTIONAL = 29
};

/* Catalogue readers: the translated text, or the built-in one. */
QAL_EXPORT const char* __f90_rmsg(int32_t number);
QAL_EXPORT const char* __f90_pmsg(int32_t number);
QAL_EXPORT const char* __f90_lfmt(int32_t kind);
QAL_EXPORT const char* __f90_mfmt(int32_t n);
QAL_EXPORT const char* __f90_psfmt(int32_t n);
QAL_EXPORT void __f90_opencat(void);

/* Report writers, all to stderr. */
QAL_EXPORT void __f90_banner(void);
QAL_EXPORT void __f90_write_message(int32_t number);
QAL_EXPORT void __f90_write_system_message(int32_t errnum);
QAL_EXPORT void __f90_write_loc(const Location* location);
QAL_EXPORT void __f90_write_unit_number(int64_t unit);
QAL_EXPORT void __f90_write_filename(const char* name);
QAL_EXPORT void __f90_write_record_number(int64_t record);
QAL_EXPORT void __f90_write_status(const char* text);
QAL_EXPORT void __f90_write_bytes_requested(uint64_t bytes);
QAL_EXPORT void __f90_write_byte_discrepancy(uint64_t expected, uint64_t got);
QAL_EXPORT void __f90_write_eof(void);
QAL_EXPORT void __f90_write_eor(void);
QAL_EXPORT void __f90_write_bad_format(int32_t kind, const char* text, const char* pointer_line);

QAL_EXPORT QAL_NORETURN void __f95_error_message_and_abort(int32_t number,
                                                           const Location* location);

/* IOMSG=: the text of `number`, blank-padded to `length`. */
QAL_EXPORT void __f90_assign_iomsg(int32_t number, char* buffer, int64_t length);

/* Check entries: called by compiled code only when a check fails. */
QAL_EXPORT QAL_NORETURN void __f95_missing_optional_err(const char* name, int32_t line,
                                                        int32_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f95_null_pointer_err(const char* name, int32_t which, int32_t line,
                                                    int32_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_shape_err(int32_t dim, int32_t found, int32_t wanted,
                                             int32_t line, int32_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_shape_err_long(int64_t dim, int64_t found, int64_t wanted,
                                                  int64_t line, int64_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_reshape_err(int32_t found, int32_t wanted, int32_t line,
                                               int32_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_reshape_err_long(int64_t found, int64_t wanted, int64_t line,
                                                    int64_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_shape_arguments_err(int32_t dim, int32_t found, int32_t wanted,
                                                       int32_t line, int32_t column,
                                                       const char* file, const char* function);
QAL_EXPORT QAL_NORETURN void __f90_cb_error(int32_t subscript, int32_t value, const char* array,
                                            int32_t line, int32_t column, const char* file);
QAL_EXPORT QAL_NORETURN void __f90_cb_error_long(int64_t subscript, int64_t value,
                                                 const char* array, int64_t line, int64_t column,
                                                 const char* file);
QAL_EXPORT QAL_NORETURN void __f90_cb_err_str(int32_t which_end, int32_t value,
                                              const char* variable, int32_t line, int32_t column,
                                              const char* file);
QAL_EXPORT QAL_NORETURN void __f90_cb_err_str_long(int64_t which_end, int64_t value,
                                                   const char* variable, int64_t line,
                                                   int64_t column, const char* file);

QAL_END_DECLS

#endif
