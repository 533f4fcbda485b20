/* Statement control blocks.  A compiled I/O statement allocates one of these
 * (usually on its stack), fills the head, and passes it to the start entry,
 * every item entry and the end entry of the statement.  The order of the
 * common fields differs between transfer modes. */
#ifndef QAL_STATEMENT_H
#define QAL_STATEMENT_H

#include "qal/abi.h"
#include "qal/location.h"
#include "qal/unit.h"

QAL_BEGIN_DECLS

/* `stmt_flags`.  Some bits mean different things in different modes; each
 * mode's names are given below. */
enum StatementFlags {
  SF_ERR_RETURN = 0x00000001,       /* ERR= or IOSTAT= */
  SF_END_RETURN = 0x00000002,       /* END= or IOSTAT= */
  SF_EOR_RETURN = 0x00000004,       /* EOR= or IOSTAT= */
  SF_DEFAULT_UNIT = 0x00000008,     /* the unit is * */
  SF_FIRST_ITEM = 0x00000010,       /* list-directed write: no item yet */
  SF_NON_ADVANCING = 0x00000010,    /* formatted write: ADVANCE='NO' */
  SF_STICKY_SEPARATOR = 0x00000020, /* list-directed write: last item was bare text */
  SF_NO_FIRST_BLANK = 0x00000040,
  SF_FREE_FORMAT = 0x00000100, /* run-time format, freed at every exit */
  SF_NO_CHARACTER_SEPARATOR = 0x00000200,
  SF_NO_PARSED_FORMAT = 0x00001000,
  SF_AT_FORMAT_END = 0x00002000, /* formatted write: passed the format's end, no
                                    data edit descriptor since */
  SF_ASYNCHRONOUS = 0x00100000,
  SF_DECIMAL = 0x00600000,
  SF_DECIMAL_POINT = 0x00200000,
  SF_DECIMAL_COMMA = 0x00400000,
  SF_ROUND = 0x03800000,
  SF_ROUND_UP = 0x00800000,
  SF_ROUND_DOWN = 0x01000000,
  SF_ROUND_ZERO = 0x01800000,
  SF_ROUND_NEAREST = 0x02000000,
  SF_ROUND_COMPATIBLE = 0x02800000,
  SF_ROUND_PROCESSOR_DEFINED = 0x03000000,
  SF_ROUND_COMPATIBLE_DEFAULT = 0x04000000,
  SF_F77_READ = 0x08000000,
  SF_F77_WRITE = 0x10000000,

  /* Internal list-directed write: the bit that says the last item was a
   * character item, in place of SF_STICKY_SEPARATOR. */
  SF_INTERNAL_STICKY = 0x00000002,

  /* Formatted read. */
  SF_EOR_GIVEN = 0x00000010,          /* EOR= */
  SF_SIZE_GIVEN = 0x00000020,         /* SIZE= */
  SF_NO_ADVANCE = 0x00000040,         /* ADVANCE='NO' */
  SF_BZ = 0x00000080,                 /* blanks in numeric fields are zeros */
  SF_CHECK_FP_OVERFLOW = 0x00000200,  /* a real that overflows is 1031 */
  SF_BLANK_ZERO_DEFAULT = 0x00000800, /* BZ unless the unit says BLANK= */
  SF_FORMAT_WRAPPED = 0x00002000,     /* reverted, no data edit descriptor since */

  /* Unformatted transfer. */
  SF_SHORT_FILE_IS_TOO_LONG = 0x00000010,   /* read: the file ending inside a
                                               record is 1010, not end of file */
  SF_ITEM_CLASS = 0x00000700,               /* what an _n block holds: */
  SF_ITEM_CLASS_NEVER_SWAPPED = 0x00000500, /* bytes kept in file order */
  SF_ITEM_CLASS_UNION = 0x00000700,         /* a UNION's storage */
  SF_ITEM_LOG2_SIZE = 0x00007000,           /* log2 of an _n element's size */
  SF_ITEM_LOG2_SIZE_SHIFT = 12
};

/* Sequential formatted write: WRITE(u,fmt), PRINT fmt.  The last three
 * fields are the edit modes in force, set by the start entry and changed
 * by nR, kP, SP, SS, S and SU as the format is walked. */
typedef struct IoStatementSfw {
  int64_t unit;
  uint32_t stmt_flags;
  const Location* location;
  int32_t format_index; /* op word to perform next */
  const int32_t* format;
  int32_t* format_counters;
  Unit* unit_ptr;
  int32_t radix;        /* 10 */
  int32_t scale_factor; /* 0 */
  int32_t sign_mode;    /* 1 SP, 2 SS or S, 3 SU */
} IoStatementSfw;

/* Sequential formatted read. */
typedef struct IoStatementSfr {
  int64_t unit;
  int64_t size_count; /* SIZE=: characters taken by fields */
  uint32_t stmt_flags;
  const Location* location;
  int32_t format_index;
  const int32_t* format;
  int32_t* format_counters;
  Unit* unit_ptr;
  int32_t radix;        /* 10 */
  int32_t scale_factor; /* 0 */
} IoStatementSfr;

/* Direct formatted read and write. */
typedef struct IoStatementDf {
  int64_t unit;
  int64_t record; /* REC= */
  uint32_t stmt_flags;
  const Location* location;
  int32_t format_index;
  const int32_t* format;
  int32_t* format_counters;
  Unit* unit_ptr;
} IoStatementDf;

/* Internal formatted read and write. */
typedef struct IoStatementIf {
  uint32_t stmt_flags;
  const Location* location;
  int32_t element_length;
  int32_t rank;
  void* internal_unit;
  int32_t format_index;
  const int32_t* format;
} IoStatementIf;

/* Sequential list-directed write: WRITE(u,*), PRINT *. */
typedef struct IoStatementSlw {
  uint32_t stmt_flags;
  const Location* location;
  int64_t unit;
  Unit* unit_ptr;
} IoStatementSlw;

/* Sequential list-directed read. */
typedef struct IoStatementSlr {
  int64_t unit;
  uint32_t stmt_flags;
  const Location* location;
  Unit* unit_ptr;
} IoStatementSlr;

/* An array used as an internal file.  At rank 0 `internal_unit` is the
 * address of the character variable itself; at rank 1 and above it points
 * to this record, with `rank` extents and then `rank` strides in bytes. */
typedef struct InternalUnit {
  char* base;
  int64_t dims[]; /* extents[rank], then strides[rank] */
} InternalUnit;

/* Internal list-directed read and write.  Behind the fixed fields the
 * statement holds `rank` running indices and `rank` row pointers, so a
 * compiled program allocates QAL_IL_STATEMENT_SIZE(rank) bytes. */
typedef struct IoStatementIl {
  uint32_t stmt_flags;
  const Location* location;
  int32_t element_length;
  int32_t rank;
  void* internal_unit;
  char* record_start;
  char* cursor;
  char* record_end;
  int64_t walk[]; /* indices[rank], then row pointers[rank] */
} IoStatementIl;

#define QAL_IL_STATEMENT_SIZE(rank) (sizeof(IoStatementIl) + 16 * (size_t)(rank))

/* Namelist read and write: the group comes as separate arguments. */
typedef struct IoStatementNl {
  int64_t unit;
  uint32_t stmt_flags;
  const Location* location;
} IoStatementNl;

/* REWIND, BACKSPACE, ENDFILE and FLUSH: of the flags only SF_ERR_RETURN
 * counts. */
typedef struct IoStatementPos {
  int64_t unit;
  uint32_t stmt_flags;
  const Location* location;
} IoStatementPos;

/* Sequential unformatted and stream write. */
typedef struct IoStatementSuw {
  int64_t unit;
  uint32_t stmt_flags;
  const Location* location;
  Unit* unit_ptr;
  int64_t record_written; /* payload bytes of the record so far */
} IoStatementSuw;

/* Sequential unformatted and stream read.  `record_remaining` is the
 * record's length from its leading marker, less what the items took; a
 * negative length (a foreign file's) sets no limit. */
typedef struct IoStatementSur {
  int64_t unit;
  int64_t record_remaining;
  uint32_t stmt_flags;
  const Location* location;
  Unit* unit_ptr;
} IoStatementSur;

/* Direct unformatted read and write. */
typedef struct IoStatementDu {
  int64_t unit;
  int64_t record; /* REC= */
  uint32_t stmt_flags;
  const Location* location;
  Unit* unit_ptr;
} IoStatementDu;

QAL_OFFSET(IoStatementSfw, stmt_flags, 8);
QAL_OFFSET(IoStatementSfw, location, 16);
QAL_OFFSET(IoStatementSfw, format_index, 24);
QAL_OFFSET(IoStatementSfw, format, 32);
QAL_OFFSET(IoStatementSfw, format_counters, 40);
QAL_OFFSET(IoStatementSfw, unit_ptr, 48);
QAL_OFFSET(IoStatementSfw, radix, 56);
QAL_OFFSET(IoStatementSfw, scale_factor, 60);
QAL_OFFSET(IoStatementSfw, sign_mode, 64);

QAL_OFFSET(IoStatementSfr, size_count, 8);
QAL_OFFSET(IoStatementSfr, stmt_flags, 16);
QAL_OFFSET(IoStatementSfr, location, 24);
QAL_OFFSET(IoStatementSfr, format_index, 32);
QAL_OFFSET(IoStatementSfr, format, 40);
QAL_OFFSET(IoStatementSfr, format_counters, 48);
QAL_OFFSET(IoStatementSfr, unit_ptr, 56);
QAL_OFFSET(IoStatementSfr, radix, 64);
QAL_OFFSET(IoStatementSfr, scale_factor, 68);

QAL_OFFSET(IoStatementDf, record, 8);
QAL_OFFSET(IoStatementDf, stmt_flags, 16);
QAL_OFFSET(IoStatementDf, location, 24);
QAL_OFFSET(IoStatementDf, format_index, 32);
QAL_OFFSET(IoStatementDf, format, 40);
QAL_OFFSET(IoStatementDf, format_counters, 48);
QAL_OFFSET(IoStatementDf, unit_ptr, 56);

QAL_OFFSET(IoStatementIf, location, 8);
QAL_OFFSET(IoStatementIf, element_length, 16);
QAL_OFFSET(IoStatementIf, rank, 20);
QAL_OFFSET(IoStatementIf, internal_unit, 24);
QAL_OFFSET(IoStatementIf, format_index, 32);
QAL_OFFSET(IoStatementIf, format, 40);

QAL_OFFSET(IoStatementSlw, stmt_flags, 0);
QAL_OFFSET(IoStatementSlw, location, 8);
QAL_OFFSET(IoStatementSlw, unit, 16);
QAL_OFFSET(IoStatementSlw, unit_ptr, 24);
QAL_STATIC_ASSERT(sizeof(IoStatementSlw) == 32, "IoStatementSlw size");

QAL_OFFSET(IoStatementSlr, stmt_flags, 8);
QAL_OFFSET(IoStatementSlr, location, 16);
QAL_OFFSET(IoStatementSlr, unit_ptr, 24);

QAL_OFFSET(IoStatementSuw, stmt_flags, 8);
QAL_OFFSET(IoStatementSuw, location, 16);
QAL_OFFSET(IoStatementSuw, unit_ptr, 24);
QAL_OFFSET(IoStatementSuw, record_written, 32);

QAL_OFFSET(IoStatementSur, record_remaining, 8);
QAL_OFFSET(IoStatementSur, stmt_flags, 16);
QAL_OFFSET(IoStatementSur, location, 24);
QAL_OFFSET(IoStatementSur, unit_ptr, 32);

QAL_OFFSET(IoStatementPos, stmt_flags, 8);
QAL_OFFSET(IoStatementPos, location, 16);

QAL_OFFSET(InternalUnit, dims, 8);
QAL_OFFSET(IoStatementIl, location, 8);
QAL_OFFSET(IoStatementIl, element_length, 16);
QAL_OFFSET(IoStatementIl, rank, 20);
QAL_OFFSET(IoStatementIl, internal_unit, 24);
QAL_OFFSET(IoStatementIl, record_start, 32);
QAL_OFFSET(IoStatementIl, cursor, 40);
QAL_OFFSET(IoStatementIl, record_end, 48);
QAL_OFFSET(IoStatementIl, walk, 56);

QAL_OFFSET(IoStatementNl, stmt_flags, 8);
QAL_OFFSET(IoStatementNl, location, 16);

QAL_OFFSET(IoStatementDu, record, 8);
QAL_OFFSET(IoStatementDu, stmt_flags, 16);
QAL_OFFSET(IoStatementDu, location, 24);
QAL_OFFSET(IoStatementDu, unit_ptr, 32);

QAL_END_DECLS

#endif
