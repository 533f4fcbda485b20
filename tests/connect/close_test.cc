// CLOSE: disposal by STATUS=, the default units, and units in use.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

Unit* table_entry(int n) { return __f90_small_unit_pointer_table[n]; }

TEST(Close, WritesTheBufferAndDisposesByStatus) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(close_unit(99) == 0);  // never used: nothing happens
    CHILD_CHECK(table_entry(99) == nullptr);
    CHILD_CHECK(Open(10).file("kept").run() == 0);
    ListWrite(10).all("kept data");
    CHILD_CHECK(close_unit(10, "KEEP") == 0);
    CHILD_CHECK(table_entry(10) == nullptr);
    CHILD_CHECK(Open(11).file("deleted").run() == 0);
    CHILD_CHECK(close_unit(11, "delete") == 0);
    CHILD_CHECK(access("deleted", F_OK) != 0);
    // The number is free again, and a new statement reconnects it to fort.N.
    ListWrite(10).all("again");
    // DELETE of a file somebody removed already.
    CHILD_CHECK(Open(12).file("gone").run() == 0);
    unlink("gone");
    CHILD_CHECK(close_unit(12, "DELETE") == ENOENT);
    CHILD_CHECK(table_entry(12) == nullptr);
    CHILD_CHECK(Open(12).file("gone").run() == 0);
    unlink("gone");
    CHILD_CHECK(close_unit(12, "DELETE", true, true) == 0);
    CHILD_CHECK(Open(13).file("x").run() == 0);
    CHILD_CHECK(close_unit(13, "DROP") == ERR_BAD_CLOSE_STATUS);
    CHILD_CHECK(table_entry(13) != nullptr);  // a bad specifier closes nothing
    std::_Exit(0);                            // only what CLOSE wrote is in the files
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("kept"), " kept data\n");
  EXPECT_EQ(dir.read("fort.10"), "");
}

TEST(Close, ScratchFilesGoUnlessKeptInTheOldDialect) {
  ScratchDir dir;
  setenv("TMPDIR", dir.path().c_str(), 1);
  auto r = run_in_child([] {
    CHILD_CHECK(Open(20).status("SCRATCH").run() == 0);
    std::string name = table_entry(20)->file_name;
    CHILD_CHECK(close_unit(20, "KEEP") == ERR_KEEP_SCRATCH);
    // The file was closed before the refusal, and stays.
    CHILD_CHECK(table_entry(20) == nullptr && access(name.c_str(), F_OK) == 0);
    unlink(name.c_str());
    CHILD_CHECK(Open(21).status("SCRATCH").run() == 0);
    name = table_entry(21)->file_name;
    CHILD_CHECK(close_unit(21, "KEEP", true, true) == 0);
    CHILD_CHECK(access(name.c_str(), F_OK) == 0);
    unlink(name.c_str());
    // After a cleanup (as at PAUSE) the file and its name are gone; CLOSE
    // then has nothing to unlink.
    CHILD_CHECK(Open(22).status("SCRATCH").run() == 0);
    __f90_cleanup();
    CHILD_CHECK(table_entry(22)->file_name == nullptr);
    CHILD_CHECK(close_unit(22) == EFAULT);
    CHILD_CHECK(Open(23).status("SCRATCH").run() == 0);
    __f90_cleanup();
    CHILD_CHECK(close_unit(23, nullptr, true, true) == 0);
  });
  unsetenv("TMPDIR");
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(Close, DefaultUnitsAreUnboundNotClosed) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite(6).all("before");
    CHILD_CHECK(close_unit(6) == 0);
    CHILD_CHECK(table_entry(6) == nullptr);
    CHILD_CHECK(__f90_default_output_unit.flags & UF_CONNECTED);
    ListWrite::print().all("print still works");
    ListWrite(6).all("to fort.6");
    CHILD_CHECK(close_unit(0, nullptr, true, true) == ERR_ILLEGAL_UNIT);
    CHILD_CHECK(close_unit(-1) == ERR_ILLEGAL_UNIT);
    CHILD_CHECK(close_unit(0) == 0);
    exit(0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, " before\n print still works\n");
  EXPECT_EQ(dir.read("fort.6"), " to fort.6\n");
}

TEST(Close, UnitInUseByThisThreadIs1147) {
  ScratchDir dir;
  auto r = run_in_child([] {
    for (int unit : {30, 3000}) {  // small table and hashed path
      ListWrite outer(unit);
      outer.start().item(1);
      CHILD_CHECK(close_unit(unit) == ERR_CLOSE_BUSY_UNIT);
      CHILD_CHECK(outer.item(2).end().status() == 0);
      CHILD_CHECK(close_unit(unit) == 0);
    }
    ListWrite outer(31);
    outer.start().item(1);
    close_unit(31, nullptr, false);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(dir.read("fort.30"), " 1 2\n");
  EXPECT_EQ(dir.read("fort.3000"), " 1 2\n");
  EXPECT_EQ(r.err, kBanner +
                       " Error 1147:  attempting to close a unit that is being read from or "
                       "written to\n Location:  the CLOSE statement at line 30 of \"test.f90\"\n"
                       " Unit:  31\n");
}

TEST(Close, WaitsForAUnitAnotherThreadHolds) {
  ScratchDir dir;
  auto r = run_in_child([] {
    for (int unit : {40, 4000}) {
      ListWrite holder(unit);
      holder.start().item(1);
      std::atomic<bool> closed{false};
      std::atomic<int> status{-1};
      std::thread closer([&] {
        status = close_unit(unit, "KEEP");
        closed = true;
      });
      usleep(100000);
      CHILD_CHECK(!closed);  // waiting for the holder
      holder.item(2).end();
      closer.join();
      CHILD_CHECK(status == 0);
    }
    std::_Exit(0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  // The holder's record was complete and reached the file at CLOSE.
  EXPECT_EQ(dir.read("fort.40"), " 1 2\n");
  EXPECT_EQ(dir.read("fort.4000"), " 1 2\n");
}

TEST(Close, FailedDisposalIsReportedWithTheRecordsFileName) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(50).file("f").run() == 0);
    unlink("f");
    close_unit(50, "DELETE", false);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 2:  No such file or directory\n"
                       " Location:  the CLOSE statement at line 30 of \"test.f90\"\n"
                       " Unit:  50\n File:  f\n");
}

}  // namespace
