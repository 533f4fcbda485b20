/* What a compiler emits for
 *
 *       DO I = 1, 3
 *          WRITE (10, *, IOSTAT=IOS) 'record', I, I*I
 *          IF (IOS /= 0) EXIT
 *       END DO
 *
 * Unit 10 was never opened, so the first WRITE connects it to fort.10 in the
 * working directory.  The records stay in the unit's buffer and reach the
 * file when the program ends. */
#include <stdio.h>

#include "qal/qal.h"

int main(void) {
  static const Location where = {LOC_WRITE, 2, "records.f90"};
  for (int i = 1; i <= 3; ++i) {
    IoStatementSlw io = {0};
    io.stmt_flags = SF_ERR_RETURN | SF_END_RETURN | SF_EOR_RETURN; /* IOSTAT= */
    io.location = &where;
    io.unit = 10;
    int ios = __f90_sslw(&io);
    if (ios == 0) ios = __f90_slw_ch(&io, "record", 6);
    if (ios == 0) ios = __f90_slw_i4(&io, i);
    if (ios == 0) ios = __f90_slw_i4(&io, i * i);
    if (ios == 0) ios = __f90_eslw(&io);
    if (ios != 0) {
      fprintf(stderr, "IOSTAT=%d\n", ios);
      return 1;
    }
  }
  return 0;
}
