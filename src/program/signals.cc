// The signal handler of f77 compatibility mode.  A fatal signal still gets
// the program's files written and its scratch files removed, leaves a short
// report on stderr, and then ends the process with the same signal, so the
// exit status and any core dump are what they would have been.
#include "program/signals.h"

#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "frame/report.h"
#include "qal/program.h"
#include "qal/unit.h"

namespace qal {
extern "C" {

// 7 appears three times: three signals of the system this list was written
// for are all SIGBUS on Linux.  Installing the handler again changes
// nothing, as the second time finds it already there.
extern QAL_EXPORT const int32_t f90_signals_id[F90_SIGNALS_ID_COUNT] = {1,  2, 3,  4,  5,  7,  7,
                                                                        11, 7, 13, 15, 24, 25, 0};

extern QAL_EXPORT const char* const f90_signals_name[F90_SIGNALS_NAME_COUNT] = {
    "",          "SIGHUP",  "SIGINT",  "SIGQUIT", "SIGILL",     "SIGTRAP", "SIGABRT",
    "SIGEMT",    "SIGFPE",  "SIGKILL", "SIGBUS",  "SIGSEGV",    "SIGSYS",  "SIGPIPE",
    "SIGALRM",   "SIGTERM", "SIGUSR1", "SIGUSR2", "SIGCHLD",    "SIGPWR",  "SIGWINCH",
    "SIGURG",    "SIGPOLL", "SIGSTOP", "SIGTSTP", "SIGCONT",    "SIGTTIN", "SIGTTOU",
    "SIGVTALRM", "SIGPROF", "SIGXCPU", "SIGXFSZ", "SIGWAITING", "SIGLWP"};

QAL_EXPORT pthread_mutex_t __f90_signal_pv = PTHREAD_MUTEX_INITIALIZER;
QAL_EXPORT pthread_mutex_t __f90_stderr_pv = PTHREAD_MUTEX_INITIALIZER;

}  // extern "C"

namespace {

// Set by the first signal the handler takes and never cleared: the process
// is on its way out, and a second signal must not run the cleanup again.
int in_handler;

constexpr int kLastNamedSignal = F90_SIGNALS_NAME_COUNT - 1;
constexpr int kLastSignal = 64;

void report_signal(int signal, const siginfo_t* info) {
  write_report("\n");
  if (__xargv != nullptr && __xargv[0] != nullptr) {
    write_report("*** TERMINATING  %s\n", {__xargv[0]});
  } else {
    write_report("*** TERMINATING\n");
  }
  // A store into a read-only page is most often a constant passed as an
  // actual argument and assigned to by the procedure.
  if (signal == SIGSEGV && info != nullptr && info->si_code == SEGV_ACCERR) {
    write_report("*** Received signal %d\n", {signal});
    write_report("POSSIBLE ATTEMPT TO MODIFY CONSTANT\n");
  } else if (signal >= 1 && signal <= kLastNamedSignal) {
    write_report("*** Received signal %d %s\n", {signal, f90_signals_name[signal]});
  } else {
    write_report("*** Received signal %d\n", {signal});
  }
  fflush(stderr);
}

}  // namespace

void install_f77_signal_handlers() {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_sigaction = __f90_signals_f77compat;
  action.sa_flags = SA_SIGINFO;
  sigfillset(&action.sa_mask);
  for (const int32_t* s = f90_signals_id; *s != 0; ++s) {
    struct sigaction present;
    if (sigaction(*s, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) continue;
    sigaction(*s, &action, nullptr);
  }
}

extern "C" {

QAL_EXPORT void __f90_signals_f77compat(int signal, siginfo_t* info, void*) {
  const pid_t pid = getpid();
  pthread_mutex_lock(&__f90_signal_pv);
  if (in_handler) {
    pthread_mutex_unlock(&__f90_signal_pv);
    kill(pid, SIGKILL);
    return;
  }
  in_handler = 1;
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, nullptr);

  __f90_cleanup();
  pthread_mutex_lock(&__f90_stderr_pv);
  report_signal(signal, info);
  pthread_mutex_unlock(&__f90_stderr_pv);
  pthread_mutex_unlock(&__f90_signal_pv);
  if (signal < 1 || signal > kLastSignal) abort();

  // Die of the signal itself, with its default action; abort covers a
  // signal whose default is to be ignored.
  struct sigaction default_action;
  memset(&default_action, 0, sizeof default_action);
  sigaction(signal, &default_action, nullptr);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  kill(pid, signal);
  abort();
}

}  // extern "C"
}  // namespace qal
