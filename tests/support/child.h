// Runs a piece of test code in a forked child with its standard output and
// error captured, so that fatal reports can be compared byte for byte and an
// abort ends only the child.  The child starts with the parent's library
// state (fork copies it), and ends through exit(), so the library's
// finaliser runs as it does at the end of a real program.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <functional>
#include <string>

// Inside a child body: on a false condition, say which on stderr and end
// the child with status 1 (gtest assertions do not reach the parent).
#define CHILD_CHECK(cond)                                                \
  do {                                                                   \
    if (!(cond)) {                                                       \
      fprintf(stderr, "check failed at line %d: %s\n", __LINE__, #cond); \
      fflush(stderr);                                                    \
      _exit(1);                                                          \
    }                                                                    \
  } while (0)

namespace qal::test {

// The first line of every fatal report.
inline const std::string kBanner = "\n ******  FORTRAN RUN-TIME SYSTEM  ******\n";

struct ChildResult {
  std::string out;      // everything written to fd 1
  std::string err;      // everything written to fd 2
  bool exited = false;  // ended through exit or a return
  int exit_code = -1;
  int signal = 0;  // the signal that ended it, if any

  bool aborted() const { return signal == 6; }
};

// Runs `body` in a child; a normal return is exit(0).  `input` is fed to the
// child's standard input (empty: /dev/null).
ChildResult run_in_child(const std::function<void()>& body, const std::string& input = "");

}  // namespace qal::test
