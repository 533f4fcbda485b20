// Start-up entries of a compiled main program.  None of this is needed for
// I/O, which connects the default units on its first statement; what only
// start-up does is keep the command line, open the message catalogue and,
// in f77 mode, catch the fatal signals.
#include <stdlib.h>

#include "program/signals.h"
#include "qal/diagnostics.h"
#include "qal/program.h"
#include "qal/unit.h"

namespace qal {
namespace {

constinit const Location kInitLocation{LOC_LIB_F90_INIT, 0, nullptr};

void start(int32_t argc, char** argv) {
  __xargc = argc;
  __xargv = argv;
  __f90_opencat();
  __f90_initio_a(&kInitLocation);
}

}  // namespace

extern "C" {

QAL_EXPORT int32_t __xargc;
QAL_EXPORT char** __xargv;

QAL_EXPORT void __f90_init(int32_t argc, char** argv) { start(argc, argv); }

QAL_EXPORT void __f90_init_f77compat(int32_t argc, char** argv) {
  start(argc, argv);
  atexit(__f90_exit_f77compat);
  install_f77_signal_handlers();
}

QAL_EXPORT void f_init(void) {
  __f90_opencat();
  __f90_initio_a(&kInitLocation);
}

QAL_EXPORT void f90_init(void) {}
QAL_EXPORT void f_exit(void) {}
QAL_EXPORT void __f90_exit_f77compat(void) {}

}  // extern "C"
}  // namespace qal
