// PAUSE.  The program stops until someone lets it go on: at a terminal by
// typing "go", otherwise by sending SIGINT.  Units are written and scratch
// files removed first, since the program may never be resumed.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "frame/report.h"
#include "qal/diagnostics.h"
#include "qal/program.h"
#include "qal/unit.h"

namespace qal {
namespace {

volatile sig_atomic_t sigint_seen;

void waitpause(int) { sigint_seen = 1; }

// Exactly "go" and a newline resume; anything else ends the program.
void wait_at_terminal() {
  write_report(__f90_psfmt(PS_PAUSE_AT_TERMINAL));
  const int first = getchar();
  const int second = getchar();
  const int third = getchar();
  if (first != 'g' || second != 'o' || third != '\n') exit(0);
}

// The wait is set up before the prompt names the process: SIGINT is held
// back until sigsuspend opens the mask, so a signal sent the moment the
// prompt appears is neither lost nor taken by the program's own action.
// Other signals the program catches do not end the wait.  The program's
// SIGINT action and mask are back afterwards.
void wait_for_sigint() {
  sigset_t sigint;
  sigemptyset(&sigint);
  sigaddset(&sigint, SIGINT);
  sigset_t old_mask;
  sigprocmask(SIG_BLOCK, &sigint, &old_mask);
  sigset_t wait_mask = old_mask;
  sigdelset(&wait_mask, SIGINT);

  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = waitpause;
  sigemptyset(&action.sa_mask);
  struct sigaction old_action;
  sigaction(SIGINT, &action, &old_action);
  sigint_seen = 0;
  write_report(__f90_psfmt(PS_PAUSE_FOR_SIGINT), {static_cast<int>(getpid())});
  while (!sigint_seen) sigsuspend(&wait_mask);
  sigaction(SIGINT, &old_action, nullptr);
  sigprocmask(SIG_SETMASK, &old_mask, nullptr);
}

}  // namespace

extern "C" {

QAL_EXPORT void __f90_pause(const char* text, int64_t length) {
  __f90_cleanup();
  if (text == nullptr) {
    write_report(__f90_psfmt(PS_PAUSE));
  } else {
    write_report(__f90_psfmt(PS_PAUSE_TEXT), {length, text});
  }
  if (isatty(fileno(stdin))) {
    wait_at_terminal();
  } else {
    wait_for_sigint();
  }
  write_report(__f90_psfmt(PS_RESUMED));
}

}  // extern "C"
}  // namespace qal
