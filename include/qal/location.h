/* The location record that compiled code passes with every statement, and
 * the statement kinds that select its line in a fatal report. */
#ifndef QAL_LOCATION_H
#define QAL_LOCATION_H

#include "qal/abi.h"

QAL_BEGIN_DECLS

typedef struct Location {
  int32_t kind;     /* index into __f90_loc_format */
  int64_t line;     /* source line of the statement */
  const char* file; /* source file name */
} Location;

QAL_OFFSET(Location, kind, 0);
QAL_OFFSET(Location, line, 8);
QAL_OFFSET(Location, file, 16);
QAL_STATIC_ASSERT(sizeof(Location) == 24, "Location size");

/* Statement kinds.  30 to 36 and 39 name library routines and print no line
 * or file; 37 is reserved for the check entries, which give a column too. */
enum LocationKind {
  LOC_ALLOCATE = 1,
  LOC_ASSIGNMENT = 2,
  LOC_BACKSPACE = 3,
  LOC_CALL = 4,
  LOC_CLOSE = 5,
  LOC_DEALLOCATE = 6,
  LOC_DECODE = 7,
  LOC_DO = 8,
  LOC_ENCODE = 9,
  LOC_ENDFILE = 10,
  LOC_FORALL = 11,
  LOC_GOTO = 12,
  LOC_IF = 13,
  LOC_INQUIRE = 14,
  LOC_OPEN = 15,
  LOC_NULLIFY = 16,
  LOC_PAUSE = 17,
  LOC_POINTER_ASSIGNMENT = 18,
  LOC_PRINT = 19,
  LOC_READ = 20,
  LOC_REWIND = 21,
  LOC_SELECT_CASE = 22,
  LOC_STOP = 23,
  LOC_WHERE = 24,
  LOC_WRITE = 25,
  LOC_ACCEPT = 26,
  LOC_TYPE = 27,
  LOC_WAIT = 28,
  LOC_AUTOMATIC = 29,
  LOC_LIB_F90_INIT = 30,
  LOC_LIB_MAPUNIT = 31,
  LOC_LIB_NEWUNIT = 32,
  LOC_LIB_OMP_SET_LOCK = 33,
  LOC_LIB_OMP_UNSET_LOCK = 34,
  LOC_LIB_OMP_TEST_LOCK = 35,
  LOC_LIB_TTYNAM = 36,
  LOC_LINE_COLUMN = 37,
  LOC_LINE = 38,
  LOC_LIB_ISATTY = 39,
  LOC_FLUSH = 60
};

QAL_END_DECLS

#endif
