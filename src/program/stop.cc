// STOP.  Every form first writes all units and removes scratch files, so
// nothing depends on the finaliser running after exit; the code goes to
// stderr, never mixed into the program's standard output.
#include <stdlib.h>

#include "frame/report.h"
#include "qal/diagnostics.h"
#include "qal/program.h"
#include "qal/unit.h"

namespace qal {
extern "C" {

QAL_EXPORT void __f90_stop(void) {
  __f90_cleanup();
  exit(0);
}

QAL_EXPORT void __f90_stop_char(const char* text, int64_t length) {
  __f90_cleanup();
  write_report(__f90_psfmt(PS_STOP_TEXT), {length, text});
  exit(0);
}

// The status is the code as the system keeps it: its low eight bits.
QAL_EXPORT void __f90_stop_int(const int32_t* code) {
  __f90_cleanup();
  write_report(__f90_psfmt(PS_STOP_NUMBER), {*code});
  exit(*code);
}

QAL_EXPORT void __f90_stop_nostatus(const int32_t* code) {
  __f90_cleanup();
  write_report(__f90_psfmt(PS_STOP_NUMBER), {*code});
  exit(0);
}

}  // extern "C"
}  // namespace qal
