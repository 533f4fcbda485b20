// STOP in its four forms: where the code is printed, the exit status, and
// the units being written before the process exits.
#include <fcntl.h>
#include <stdlib.h>
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

struct StopCase {
  const char* what;
  std::function<void()> stop;
  std::string err;
  int status;
};

const std::vector<StopCase>& stop_cases() {
  static const std::vector<StopCase> cases = {
      {"STOP", [] { __f90_stop(); }, "", 0},
      {"STOP 'done'", [] { __f90_stop_char("done", 4); }, "STOP: done\n", 0},
      // The code is a counted Fortran string, not NUL-terminated.
      {"STOP text(1:3)", [] { __f90_stop_char("abcdef", 3); }, "STOP: abc\n", 0},
      {"STOP ''", [] { __f90_stop_char("", 0); }, "STOP: \n", 0},
      {"STOP 7",
       [] {
         const int32_t code = 7;
         __f90_stop_int(&code);
       },
       "STOP: 7\n", 7},
      {"STOP -1",
       [] {
         const int32_t code = -1;
         __f90_stop_int(&code);
       },
       "STOP: -1\n", 255},
      // The system keeps the low eight bits of the status.
      {"STOP 263",
       [] {
         const int32_t code = 263;
         __f90_stop_int(&code);
       },
       "STOP: 263\n", 7},
      {"STOP 3 without status",
       [] {
         const int32_t code = 3;
         __f90_stop_nostatus(&code);
       },
       "STOP: 3\n", 0},
  };
  return cases;
}

TEST(Stop, PrintsTheCodeOnStderrAndExits) {
  for (const auto& c : stop_cases()) {
    auto r = run_in_child(c.stop);
    EXPECT_TRUE(r.exited) << c.what;
    EXPECT_EQ(r.exit_code, c.status) << c.what;
    EXPECT_EQ(r.err, c.err) << c.what;
    EXPECT_EQ(r.out, "") << c.what;
  }
}

// Registered before STOP, so exit runs it before the library's own
// finaliser: what it sees is what STOP itself left on disk.
void show_files_at_exit() {
  std::string seen = "fort.10: ";
  int fd = open("fort.10", O_RDONLY);
  char buf[256];
  ssize_t n = fd >= 0 ? read(fd, buf, sizeof buf) : -1;
  if (n > 0) seen.append(buf, static_cast<size_t>(n));
  if (fd >= 0) close(fd);
  seen += access("fort.11", F_OK) == 0 ? "scratch kept\n" : "scratch removed\n";
  if (write(1, seen.data(), seen.size()) < 0) _exit(99);
}

TEST(Stop, WritesUnitsAndRemovesScratchFilesFirst) {
  for (const auto& c : stop_cases()) {
    ScratchDir dir;
    auto r = run_in_child([&] {
      write_pending(10, "pending");
      make_scratch(11);
      atexit(show_files_at_exit);
      c.stop();
    });
    EXPECT_EQ(r.out, "fort.10:  pending\nscratch removed\n") << c.what;
    EXPECT_EQ(r.exit_code, c.status) << c.what;
  }
}

}  // namespace
