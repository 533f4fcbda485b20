/* What a compiler emits for
 *
 *       CHARACTER(LEN=*), PARAMETER :: FMT = '(A,I4,2X,B8.8,2X,Z4,L3)'
 *       DO I = 1, 3
 *          PRINT FMT, 'row', I, I*37, I*4660, MOD(I,2) == 1
 *       END DO
 *
 * The format is a character constant, so the program parses it at run time
 * before each statement and lets the statement free it (SF_FREE_FORMAT).
 * Without IOSTAT= any failure is reported on stderr and ends the program. */
#include <string.h>

#include "qal/qal.h"

int main(void) {
  static const Location where = {LOC_PRINT, 3, "table.f90"};
  static const char fmt[] = "(A,I4,2X,B8.8,2X,Z4,L3)";
  for (int i = 1; i <= 3; ++i) {
    IoStatementSfw io = {0};
    io.stmt_flags = SF_DEFAULT_UNIT | SF_FREE_FORMAT;
    io.location = &where;
    int32_t* table;
    int32_t* counters;
    __f90_parse_format(&table, &counters, 0, &where, fmt, (int32_t)strlen(fmt), 0);
    io.format = table;
    io.format_counters = counters;
    __f90_ssfw(&io);
    __f90_sfw_ch(&io, "row", 3);
    __f90_sfw_i4(&io, i);
    __f90_sfw_i4(&io, i * 37);
    __f90_sfw_i4(&io, i * 4660);
    __f90_sfw_l4(&io, i % 2 == 1);
    __f90_esfw(&io);
  }
  return 0;
}
