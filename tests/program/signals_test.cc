// The signal handler of f77 mode: which signals it takes, its report, the
// files it writes on the way out, and death by the signal it caught.
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "program/units.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/scratch.h"

using namespace qal;
using namespace qal::test;

namespace {

char a_out[] = "a.out";
char* named_program[] = {a_out, nullptr};

// Starts an f77 main program in a child.  The caught signals go back to
// their default action first, since a sanitizer runtime may have taken
// some; core files are turned off for the deaths to come.
void start_f77(char** argv) {
  const struct rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  for (const int32_t* s = f90_signals_id; *s != 0; ++s) signal(*s, SIG_DFL);
  __f90_init_f77compat(argv != nullptr ? 1 : 0, argv);
}

void store_into_read_only_page() {
  void* page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile char*>(page) = 1;
}

struct SignalCase {
  const char* what;
  char** argv;
  std::function<void()> fault;
  std::string report;
  int signal;
};

TEST(F77Signals, ReportWriteUnitsAndDieOfTheSameSignal) {
  const std::vector<SignalCase> cases = {
      {"SIGTERM", named_program, [] { raise(SIGTERM); },
       "\n*** TERMINATING  a.out\n*** Received signal 15 SIGTERM\n", SIGTERM},
      {"no command line", nullptr, [] { raise(SIGTERM); },
       "\n*** TERMINATING\n*** Received signal 15 SIGTERM\n", SIGTERM},
      // The name table counts as another system does: Linux SIGBUS is 7.
      {"SIGBUS", named_program, [] { raise(SIGBUS); },
       "\n*** TERMINATING  a.out\n*** Received signal 7 SIGEMT\n", SIGBUS},
      {"SIGSEGV sent", named_program, [] { raise(SIGSEGV); },
       "\n*** TERMINATING  a.out\n*** Received signal 11 SIGSEGV\n", SIGSEGV},
      // CALL SUB(1) where SUB assigns to its argument.
      {"store into a constant", named_program, store_into_read_only_page,
       "\n*** TERMINATING  a.out\n*** Received signal 11\nPOSSIBLE ATTEMPT TO MODIFY CONSTANT\n",
       SIGSEGV},
  };
  for (const auto& c : cases) {
    ScratchDir dir;
    auto r = run_in_child([&] {
      start_f77(c.argv);
      write_pending(10, "pending");
      make_scratch(11);
      c.fault();
      _exit(1);
    });
    EXPECT_EQ(r.signal, c.signal) << c.what;
    EXPECT_EQ(r.err, c.report) << c.what;
    // No finaliser runs after a signal: only the handler wrote the unit.
    EXPECT_EQ(dir.read("fort.10"), " pending\n") << c.what;
    EXPECT_FALSE(dir.exists("fort.11")) << c.what;
  }
}

struct NumberCase {
  int signal;
  std::string report;
  int death;
};

// The handler called as the kernel would, with numbers no installed
// signal brings.
TEST(F77Signals, NumbersBeyondTheNameTable) {
  const std::vector<NumberCase> cases = {
      {40, "*** Received signal 40\n", 40},
      // SIGWINCH is ignored by default, so the abort behind the kill ends it.
      {SIGWINCH, "*** Received signal 28 SIGVTALRM\n", SIGABRT},
      // Not a signal at all: the report, then abort.
      {65, "*** Received signal 65\n", SIGABRT},
      {0, "*** Received signal 0\n", SIGABRT},
  };
  for (const auto& c : cases) {
    auto r = run_in_child([&] {
      start_f77(named_program);
      __f90_signals_f77compat(c.signal, nullptr, nullptr);
      _exit(1);
    });
    EXPECT_EQ(r.signal, c.death) << c.signal;
    EXPECT_EQ(r.err, "\n*** TERMINATING  a.out\n" + c.report) << c.signal;
  }
}

void handle_again(int) { __f90_signals_f77compat(SIGABRT, nullptr, nullptr); }

TEST(F77Signals, ASecondSignalKillsAtOnce) {
  auto r = run_in_child([] {
    start_f77(named_program);
    // The first signal's abort comes back into the handler through the
    // program's own SIGABRT action.
    signal(SIGABRT, handle_again);
    __f90_signals_f77compat(SIGWINCH, nullptr, nullptr);
    _exit(1);
  });
  EXPECT_EQ(r.signal, SIGKILL);
  EXPECT_EQ(r.err, "\n*** TERMINATING  a.out\n*** Received signal 28 SIGVTALRM\n");
}

volatile sig_atomic_t program_sigint;
void program_handler(int) { program_sigint = 1; }

// A signal the program has already set up, caught or ignored, stays the
// program's.
TEST(F77Signals, InstalledOnlyWhereTheActionIsTheDefault) {
  auto r = run_in_child([] {
    for (const int32_t* s = f90_signals_id; *s != 0; ++s) signal(*s, SIG_DFL);
    signal(SIGINT, program_handler);
    signal(SIGHUP, SIG_IGN);
    __f90_init_f77compat(1, named_program);
    for (const int32_t* s = f90_signals_id; *s != 0; ++s) {
      struct sigaction now;
      sigaction(*s, nullptr, &now);
      if (*s == SIGINT) {
        if (now.sa_handler != program_handler) _exit(1);
      } else if (*s == SIGHUP) {
        if (now.sa_handler != SIG_IGN) _exit(2);
      } else if (now.sa_sigaction != __f90_signals_f77compat || !(now.sa_flags & SA_SIGINFO) ||
                 !sigismember(&now.sa_mask, SIGUSR1) || !sigismember(&now.sa_mask, SIGINT)) {
        _exit(10 + *s);
      }
    }
    raise(SIGINT);
    raise(SIGHUP);
    _exit(program_sigint ? 0 : 3);
  });
  EXPECT_TRUE(r.exited);
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.err, "");
}

}  // namespace
