/* Parsed formats.  A FORMAT is walked as a table of 32-bit words, never as
 * text: the run-time parser below builds one from a character variable or
 * array, and a compiler may lay a finished table into the program's data.
 *
 *   word 0     FMT_MAGIC, the bytes "#FMT"
 *   word 1     index of the first op word (4 from the parser)
 *   word 2     words from word 4 to the end of the counter area
 *   word 3     bytes of the text copy, its NUL included
 *   word 4...  op words, each followed by its operands; ends with FMT_END
 *   then       one counter per level of repeat nesting
 *   then       the format text as scanned, a NUL, zero bytes up to a word
 *
 * Data edit ops carry `pos` as their last operand: the offset in the text
 * copy just behind the descriptor's letter, for error reports. */
#ifndef QAL_FORMAT_H
#define QAL_FORMAT_H

#include "qal/abi.h"
#include "qal/location.h"

QAL_BEGIN_DECLS

enum {
  FMT_MAGIC = 0x544d4623, /* "#FMT" read as a little-endian word */
  FMT_WORD_MAGIC = 0,
  FMT_WORD_FIRST_OP = 1,
  FMT_WORD_BODY_WORDS = 2,
  FMT_WORD_TEXT_BYTES = 3,
  FMT_HEADER_WORDS = 4
};

/* Op codes.  Operands follow in the order shown; `pos` is always last. */
enum FormatOp {
  FMT_NONE = 0,       /* never produced: a table holding it is corrupt */
  FMT_END = 1,        /* reversion target */
  FMT_REPEAT = 2,     /* counter slot, count */
  FMT_END_REPEAT = 3, /* counter slot, index of the first op of the body */
  FMT_COLON = 4,
  FMT_DOLLAR = 5,
  FMT_BN = 6,
  FMT_BZ = 7,
  FMT_P = 8,          /* k */
  FMT_RADIX = 9,      /* n */
  FMT_S_DEFAULT = 10, /* never produced by the parser; walked as FMT_SS */
  FMT_SP = 11,
  FMT_SS = 12, /* SS and S */
  FMT_SU = 13,
  FMT_T = 14,         /* n */
  FMT_TL = 15,        /* n */
  FMT_TR = 16,        /* n */
  FMT_X = 17,         /* n */
  FMT_SLASH = 18,     /* n */
  FMT_STRING = 19,    /* length, characters packed four to a word */
  FMT_HOLLERITH = 20, /* length, characters packed four to a word */
  FMT_Q = 21,         /* 1 */
  FMT_A = 22,         /* pos */
  FMT_A_W = 23,       /* w, pos */
  FMT_B = 24,
  FMT_B_W = 25,
  FMT_B_W_M = 26, /* w, m, pos */
  FMT_D = 27,
  FMT_D_W = 28,
  FMT_D_W_D = 29,
  FMT_D_W_D_E = 30, /* w, d, e, pos */
  FMT_E = 31,
  FMT_E_W = 32,
  FMT_E_W_D = 33,
  FMT_E_W_D_E = 34,
  FMT_EN = 35,
  FMT_EN_W = 36,
  FMT_EN_W_D = 37,
  FMT_EN_W_D_E = 38,
  FMT_ES = 39,
  FMT_ES_W = 40,
  FMT_ES_W_D = 41,
  FMT_ES_W_D_E = 42,
  FMT_F = 43,
  FMT_F_W = 44,
  FMT_F_W_D = 45,
  FMT_G = 46,
  FMT_G_W = 47,
  FMT_G_W_D = 48,
  FMT_G_W_D_E = 49,
  FMT_I = 50,
  FMT_I_W = 51,
  FMT_I_W_M = 52,
  FMT_L = 53,
  FMT_L_W = 54,
  FMT_O = 55,
  FMT_O_W = 56,
  FMT_O_W_M = 57,
  FMT_Z = 58,
  FMT_Z_W = 59,
  FMT_Z_W_M = 60,
  /* Interval forms; VD only ever comes from compiled tables. */
  FMT_VD_W_D = 63,
  FMT_VD_W_D_E = 64,
  FMT_VE_W_D = 67,
  FMT_VE_W_D_E = 68,
  FMT_VEN_W_D = 71,
  FMT_VEN_W_D_E = 72,
  FMT_VES_W_D = 75,
  FMT_VES_W_D_E = 76,
  FMT_VF_W_D = 79,
  FMT_VG_W_D = 82,
  FMT_VG_W_D_E = 83,
  FMT_Y_W_D = 84,
  FMT_Y_W_D_E = 85,
  FMT_DC = 86,
  FMT_DP = 87,
  FMT_RU = 88,
  FMT_RD = 89,
  FMT_RZ = 90,
  FMT_RN = 91,
  FMT_RC = 92,
  FMT_RP = 93,
  FMT_LAST_OP = 93 /* above this every code is corrupt, as are 61, 62, 65, 66,
                      69, 70, 73, 74, 77, 78, 80 and 81 */
};

/* Parses a run-time FORMAT into one malloc block that the caller frees:
 * *format receives the table, *counters its counter area.
 *
 * At rank 0 `source` is the characters.  Above rank 0 it is an array
 * record: the base address, then `rank` extents, then `rank` strides in
 * bytes, each in 8 bytes of which the low 32 bits count (strides signed).
 * The elements are read as one text, the first dimension varying fastest.
 *
 * Returns 0.  On a failure with `err_return` nonzero, returns 1000 (bad
 * format), 1118 (no source) or 12 (out of memory) and prints nothing;
 * with `err_return` zero, reports the failure and aborts.  The f77compat
 * entry accepts the older forms (BN as bare B, nR, P alone, 0H, T0, ...). */
QAL_EXPORT int32_t __f90_parse_format(int32_t** format, int32_t** counters, int32_t err_return,
                                      const Location* location, const void* source,
                                      int32_t element_length, int32_t rank);
QAL_EXPORT int32_t __f90_parse_format_f77compat(int32_t** format, int32_t** counters,
                                                int32_t err_return, const Location* location,
                                                const void* source, int32_t element_length,
                                                int32_t rank);

QAL_END_DECLS

#endif
