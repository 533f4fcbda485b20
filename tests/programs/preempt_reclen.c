/* A program that defines the standard output's line length itself: the
 * library's own definition is pre-empted, so PRINT * wraps after 11
 * columns. */
#include "qal/qal.h"

int64_t __f90_stdout_reclen = 11;

int main(void) {
  static const Location where = {LOC_PRINT, 1, "preempt.f90"};
  IoStatementSlw io = {0};
  io.stmt_flags = SF_DEFAULT_UNIT;
  io.location = &where;
  __f90_sslw(&io);
  __f90_slw_i4(&io, 12345);
  __f90_slw_i4(&io, 67890);
  __f90_slw_i4(&io, 1);
  __f90_eslw(&io);
  return 0;
}
