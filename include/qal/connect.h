/* OPEN and CLOSE: the specifier words, their parsers and the statements. */
#ifndef QAL_CONNECT_H
#define QAL_CONNECT_H

#include "qal/abi.h"
#include "qal/location.h"
#include "qal/statement.h"
#include "qal/unit.h"

QAL_BEGIN_DECLS

/* The OPEN word.  The parsers fold the character specifiers into it; the
 * compiled program sets the presence bits and passes it to __f90_open. */
enum OpenFlags {
  OF_ERR_RETURN = 0x00000001, /* ERR= or IOSTAT=: failures return */
  OF_FILE = 0x00000002,
  OF_RECL = 0x00000004,
  OF_ACCESS = 0x00000098,
  OF_ACCESS_SEQUENTIAL = 0x00000008,
  OF_ACCESS_DIRECT = 0x00000010,
  OF_ACCESS_STREAM = 0x00000018,
  OF_ACCESS_APPEND = 0x00000080, /* old dialect */
  OF_PAD_NO = 0x00000020,
  OF_BLANK_ZERO = 0x00000040,
  OF_ACTION = 0x00000300,
  OF_ACTION_READ = 0x00000100,
  OF_ACTION_WRITE = 0x00000200,
  OF_ACTION_READWRITE = 0x00000300,
  OF_STATUS = 0x00001c00,
  OF_STATUS_OLD = 0x00000400,
  OF_STATUS_NEW = 0x00000800,
  OF_STATUS_UNKNOWN = 0x00000c00,
  OF_STATUS_REPLACE = 0x00001000,
  OF_STATUS_SCRATCH = 0x00001400,
  OF_FORM = 0x0000e000,
  OF_FORM_FORMATTED = 0x00002000,
  OF_FORM_UNFORMATTED = 0x00004000,
  OF_FORM_BINARY = 0x00006000,
  OF_FORM_PRINT = 0x00008000, /* old dialect */
  OF_POSITION = 0x00030000,
  OF_POSITION_REWIND = 0x00010000,
  OF_POSITION_APPEND = 0x00020000,
  OF_DELIM = 0x000c0000,
  OF_DELIM_APOSTROPHE = 0x00040000,
  OF_DELIM_QUOTE = 0x000c0000,
  OF_ASYNCHRONOUS = 0x00100000,
  OF_DECIMAL = 0x00600000,
  OF_DECIMAL_POINT = 0x00200000,
  OF_DECIMAL_COMMA = 0x00400000,
  OF_ROUND = 0x03800000,
  OF_F77 = 0x18000000, /* non-zero: the old dialect's rules */
  OF_FILEOPT = 0x60000000,
  OF_FILEOPT_EOF = 0x20000000,
  OF_FILEOPT_NOPAD = 0x40000000,
  OF_FILEOPT_BUFFER = 0x60000000,
  OF_RECL_WORDS = (int)0x80000000u /* RECL counts 4-byte words when unformatted */
};

/* The CLOSE word: OF_ERR_RETURN and OF_F77 as above, and STATUS=. */
enum CloseFlags { CF_STATUS = 0x6, CF_STATUS_KEEP = 0x2, CF_STATUS_DELETE = 0x4 };

/* Specifier parsers: clear the field, then set it from `text`, which must
 * begin with one of the values (any case) and go on with blanks only.  A
 * null text and a text that matches nothing are two different errors;
 * OF_ERR_RETURN in the word says whether they return or are reported. */
typedef int SpecifierParser(uint32_t* word, const char* text, int64_t length,
                            const Location* location);
QAL_EXPORT SpecifierParser __f90_open_form;
QAL_EXPORT SpecifierParser __f90_open_form_f77compat;
QAL_EXPORT SpecifierParser __f90_open_access;
QAL_EXPORT SpecifierParser __f90_open_access_f77compat;
QAL_EXPORT SpecifierParser __f90_open_status;
QAL_EXPORT SpecifierParser __f90_open_blank;
QAL_EXPORT SpecifierParser __f90_open_position;
QAL_EXPORT SpecifierParser __f90_open_action;
QAL_EXPORT SpecifierParser __f90_open_delim;
QAL_EXPORT SpecifierParser __f90_open_pad;
QAL_EXPORT SpecifierParser __f90_open_asynchronous;
QAL_EXPORT SpecifierParser __f90_open_round;
QAL_EXPORT SpecifierParser __f90_open_decimal;
QAL_EXPORT SpecifierParser __f90_open_fileopt;
/* The workers behind ASYNCHRONOUS=, ROUND= and DECIMAL=, shared with the
 * transfer statements, whose stmt_flags use the same bits. */
QAL_EXPORT SpecifierParser __f90_parse_asynchronous;
QAL_EXPORT SpecifierParser __f90_parse_round;
QAL_EXPORT SpecifierParser __f90_parse_decimal;
QAL_EXPORT SpecifierParser __f90_close_status;
/* FILEOPT= with a place for the number of BUFFER=N. */
QAL_EXPORT int __f95_open_fileopt(uint32_t* word, const char* text, int64_t length,
                                  const Location* location, int64_t* buffer_size);
QAL_EXPORT int __f90_parse_fileopt(uint32_t* word, const char* text, int64_t length,
                                   const Location* location, int64_t* buffer_size);

/* OPEN: connect `unit` to a file, or change the modes of its connection. */
QAL_EXPORT int __f90_open(uint32_t word, int64_t unit, const char* file, int64_t file_length,
                          int64_t recl, const Location* location, int64_t buffer_size);

/* CLOSE, and the disposal of a connection already taken.  The return twins
 * release the unit on failure. */
QAL_EXPORT int __f90_close(uint32_t word, int64_t unit, const Location* location);
QAL_EXPORT void __f90_close_a(int64_t unit, uint32_t word, const Location* location);
QAL_EXPORT int __f90_close_r(int64_t unit, uint32_t word);
QAL_EXPORT void __f90_close_unit_a(int64_t unit, Unit* u, uint32_t word, const Location* location);
QAL_EXPORT int __f90_close_unit_r(int64_t unit, Unit* u, uint32_t word);

/* REWIND, BACKSPACE, ENDFILE, FLUSH: 0 or an error number (with
 * SF_ERR_RETURN; otherwise a failure is fatal).  An unconnected unit is
 * left alone, except that ENDFILE empties (or makes) its fort.N.  WAIT has
 * nothing to wait for: every transfer is complete when its statement
 * ends. */
QAL_EXPORT int __f90_rewind(IoStatementPos* block);
QAL_EXPORT int __f90_backspace(IoStatementPos* block);
QAL_EXPORT int __f90_endfile(IoStatementPos* block);
QAL_EXPORT int __f2003_flush(IoStatementPos* block);
QAL_EXPORT int __f95_wait(void);

/* INQUIRE.  The word `iflags` says which character results are wanted
 * (each needs its text) and which of POS=, SIZE= and PENDING=; the integer
 * and logical results before the texts are always written.  A text result
 * is copied, cut to its length and blank-filled. */
enum InquireFlags {
  IF_ERR_RETURN = 0x00000001,
  IF_ACCESS = 0x00000010,
  IF_ACTION = 0x00000020,
  IF_BLANK = 0x00000040,
  IF_DELIM = 0x00000080,
  IF_DIRECT = 0x00000100,
  IF_FORM = 0x00000200,
  IF_FORMATTED = 0x00000400,
  IF_NAME = 0x00000800,
  IF_PAD = 0x00001000,
  IF_POSITION = 0x00002000,
  IF_READ = 0x00004000,
  IF_READWRITE = 0x00008000,
  IF_SEQUENTIAL = 0x00010000,
  IF_UNFORMATTED = 0x00020000,
  IF_WRITE = 0x00040000,
  IF_ASYNCHRONOUS = 0x00080000,
  IF_DECIMAL = 0x00100000,
  IF_PENDING = 0x00800000,
  IF_POS = 0x01000000,
  IF_ROUND = 0x02000000,
  IF_SIZE = 0x04000000,
  IF_STREAM = 0x08000000,
  IF_F77 = 0x10000000 /* the old dialect's answers */
};

typedef struct InquireText {
  char* text;
  int32_t length;
} InquireText;

/* The results, the same in both blocks. */
#define QAL_INQUIRE_RESULTS                                                                     \
  int64_t number;  /* -1 when not connected */                                                  \
  int64_t nextrec; /* -1 when sequential or not connected */                                    \
  int64_t recl;    /* -1 when not connected */                                                  \
  int32_t exist;                                                                                \
  int32_t opened;                                                                               \
  int32_t named;                                                                                \
  InquireText access, action, blank, delim, direct, form, formatted, name, pad, position, read, \
      readwrite, sequential, unformatted, write;                                                \
  int64_t pos;                                                                                  \
  int64_t size;                                                                                 \
  InquireText asynchronous, decimal, reserved, round, stream;                                   \
  int32_t pending;

/* INQUIRE(UNIT=) */
typedef struct InquireBlock {
  uint32_t iflags;
  const Location* location;
  int64_t unit;
  QAL_INQUIRE_RESULTS
} InquireBlock;

/* INQUIRE(FILE=): the name and its length where the other has the unit. */
typedef struct InquireFileBlock {
  uint32_t iflags;
  const Location* location;
  const char* file;
  int32_t file_length;
  QAL_INQUIRE_RESULTS
} InquireFileBlock;

QAL_OFFSET(InquireBlock, unit, 16);
QAL_OFFSET(InquireBlock, number, 24);
QAL_OFFSET(InquireBlock, named, 56);
QAL_OFFSET(InquireBlock, access, 64);
QAL_OFFSET(InquireBlock, write, 288);
QAL_OFFSET(InquireBlock, pos, 304);
QAL_OFFSET(InquireBlock, size, 312);
QAL_OFFSET(InquireBlock, asynchronous, 320);
QAL_OFFSET(InquireBlock, stream, 384);
QAL_OFFSET(InquireBlock, pending, 400);
QAL_STATIC_ASSERT(sizeof(InquireBlock) == 408, "InquireBlock size");
QAL_OFFSET(InquireFileBlock, file_length, 24);
QAL_OFFSET(InquireFileBlock, number, 32);
QAL_STATIC_ASSERT(sizeof(InquireFileBlock) == 416, "InquireFileBlock size");

/* 0 or an error number: a wanted text without its place, a null FILE=
 * (1117), the errno of the file's lookup, a failed flush.  A unit that is
 * not connected, or a number out of range, is an answer, not an error. */
QAL_EXPORT int __f90_inqu(InquireBlock* block);
QAL_EXPORT int __f90_inqf(InquireFileBlock* block);

/* Byte-swapped unformatted files.  The three option lists, taken once
 * before the first connection (any may be null), and the copy that
 * reverses the bytes of each element of 2, 4, 8 or 16 bytes. */
QAL_EXPORT void __f90_set_bsw_files(char* keep_list, char* swap_list, char* third_list);
QAL_EXPORT void __f90_swapbuff(void* destination, void* source, int length, int element_size);

QAL_END_DECLS

#endif
