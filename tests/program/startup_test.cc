// Start-up of a main program: the command line, the message catalogue, and
// the default units.
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

char program_name[] = "prog";
char option[] = "-v";
char* command_line[] = {program_name, option, nullptr};

struct StartCase {
  const char* what;
  std::function<void()> start;
  bool keeps_command_line;
  std::string stop_line;  // what STOP 'abc' prints afterwards
};

// A catalogue that translates the STOP line sits in the working directory.
// Only the start-up entries open it; I/O alone connects the default units
// and leaves the built-in texts.
TEST(Startup, EntriesOpenTheCatalogueAndConnectTheDefaultUnits) {
  const std::vector<StartCase> cases = {
      {"__f90_init", [] { __f90_init(2, command_line); }, true, "HALT: abc\n"},
      {"__f90_init_f77compat", [] { __f90_init_f77compat(2, command_line); }, true, "HALT: abc\n"},
      {"f_init", [] { f_init(); }, false, "HALT: abc\n"},
      {"first PRINT", [] { ListWrite::print(SF_ERR_RETURN).all(1); }, false, "STOP: abc\n"},
  };
  for (const auto& c : cases) {
    ScratchDir dir;
    dir.write("source.msg", "$quote \"\n$set 4\n1 \"HALT: %.*s\\n\"\n");
    const std::string command =
        "gencat '" + dir.file("KORV_XYLO_TQ_libf90") + "' '" + dir.file("source.msg") + "'";
    ASSERT_EQ(system(command.c_str()), 0) << command;
    auto r = run_in_child([&] {
      setenv("NLSPATH", "%N", 1);
      c.start();
      if (!(__f90_default_output_unit.flags & UF_CONNECTED) ||
          !(__f90_default_error_unit.flags & UF_CONNECTED))
        _exit(1);
      if (c.keeps_command_line && (__xargc != 2 || __xargv != command_line)) _exit(2);
      __f90_stop_char("abc", 3);
    });
    EXPECT_EQ(r.exit_code, 0) << c.what;
    EXPECT_EQ(r.err, c.stop_line) << c.what;
  }
}

}  // namespace
