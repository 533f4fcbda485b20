/* Compiled only: every public header is valid C11 and its offset checks
 * hold there too. */
#include "qal/qal.h"

int qal_c_header_check(void) { return (int)sizeof(Unit); }
