/* What a compiler emits for
 *
 *       PRINT *, 'Hello', 42, .TRUE.
 *
 * at line 3 of hello.f90: one control block on the stack, a start call, one
 * call per item, an end call.  Without IOSTAT= a failure never returns. */
#include "qal/qal.h"

int main(int argc, char** argv) {
  static const Location where = {LOC_PRINT, 3, "hello.f90"};
  IoStatementSlw io = {0};
  (void)argc;
  (void)argv;
  io.stmt_flags = SF_DEFAULT_UNIT;
  io.location = &where;
  __f90_sslw(&io);
  __f90_slw_ch(&io, "Hello", 5);
  __f90_slw_i4(&io, 42);
  __f90_slw_l4(&io, 1);
  __f90_eslw(&io);
  return 0;
}
