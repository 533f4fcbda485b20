// The unit table, the default units, taking and releasing units across
// threads, implicit connection and the end-of-run pass.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

Unit* take(int64_t n) {
  Unit* u = nullptr;
  EXPECT_EQ(__f90_get_numbered_unit_r(&u, n), 0);
  return u;
}

}  // namespace

TEST(UnitNumbers, OutOfRangeNumbersAreIllegal) {
  // WRITE(-1,*) 1 without IOSTAT=: the Unit line shows * for a negative number.
  auto r = run_in_child([] { ListWrite(-1).all(1); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1001:  illegal unit number\n"
                       " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                       " Unit:  *\n");
  r = run_in_child([] { ListWrite(2147483648LL).all(1); });
  EXPECT_TRUE(r.aborted());
  EXPECT_NE(r.err.find(" Unit:  2147483648\n"), std::string::npos) << r.err;

  Unit* u = reinterpret_cast<Unit*>(1);
  EXPECT_EQ(__f90_get_numbered_unit_r(&u, 2147483648LL), ERR_ILLEGAL_UNIT);
  EXPECT_EQ(u, nullptr);
  EXPECT_EQ(ListWrite(-1, SF_ERR_RETURN).all(1), ERR_ILLEGAL_UNIT);
  EXPECT_EQ(ListWrite(2147483647LL, SF_ERR_RETURN).start().status(), 0);
}

TEST(UnitTable, RecordLivesOnlyWhileHeldWhenUnconnected) {
  auto r = run_in_child([] {
    Unit* u = take(42);
    if (__f90_small_unit_pointer_table[42] != u) _exit(1);
    Unit* again = take(42);  // same thread takes it again
    if (again != u || u->hold_count != 2) _exit(2);
    __f90_release_unit(u);
    if (!(u->flags & UF_NESTED) || u->hold_count != 1) _exit(3);
    __f90_release_unit(u);
    if (__f90_small_unit_pointer_table[42] != nullptr) _exit(4);
  });
  EXPECT_TRUE(r.exited);
  EXPECT_EQ(r.exit_code, 0);
}

TEST(UnitTable, NumbersSharingASlotChainThroughTheCollisionList) {
  auto r = run_in_child([] {
    const int slot = 128 & UNIT_TABLE_MASK;
    Unit* a = take(1152);  // first on the slot: primary, plus a cell with no unit
    UnitListCell* placeholder = __f90_unit_collision_table[slot];
    if (__f90_unit_pointer_table[slot] != a || !placeholder || placeholder->unit) _exit(1);
    Unit* b = take(128);  // the newer unit takes the primary slot
    if (__f90_unit_pointer_table[slot] != b || __f90_unit_collision_table[slot]->unit != a)
      _exit(2);
    // A third number on the slot walks past the empty cell.
    Unit* c = take(2176);
    if (c == a || c == b || take(1152) != a || take(128) != b) _exit(3);
    __f90_release_unit(a);
    __f90_release_unit(b);
    for (Unit* u : {b, c, a}) __f90_release_unit(u);
    // All unconnected: every record and cell is gone.
    if (__f90_unit_pointer_table[slot] || __f90_unit_collision_table[slot]) _exit(4);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(DefaultUnits, ComeFromTheLibcStreams) {
  auto r = run_in_child([] {
    __f90_initio_r();
    // stdout and stderr are files here, stdin is /dev/null.
    const uint32_t out = __f90_default_output_unit.flags;
    const uint32_t in = __f90_default_input_unit.flags;
    const uint32_t err = __f90_default_error_unit.flags;
    if (out != (0x3811 | UF_LAST_WRITE | UF_BLANK_NULL | UF_REGULAR_FILE)) _exit(1);
    if (err != (0x3811 | UF_LAST_WRITE | UF_BLANK_NULL | UF_REGULAR_FILE)) _exit(2);
    if (in != (0x3411 | UF_LAST_READ | UF_BLANK_NULL)) _exit(3);
    if (__f90_default_output_unit.stream != stdout || __f90_default_output_unit.fd != 1) _exit(4);
    if (__f90_default_output_unit.record_length != 81 ||
        __f90_small_unit_pointer_table[6] != &__f90_default_output_unit)
      _exit(5);
    char buf[4097];
    if (std::string(__f90_copy_filename(&__f90_default_input_unit, buf)) != "standard input")
      _exit(6);
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(DefaultUnits, ClosedStandardOutputIsError1052) {
  auto r = run_in_child([] {
    fclose(stdout);
    close(1);
    std::_Exit(ListWrite::print(SF_ERR_RETURN).all(1) == ERR_DEFAULT_OUTPUT_CLOSED ? 0 : 1);
  });
  EXPECT_EQ(r.exit_code, 0);
  r = run_in_child([] {
    fclose(stdout);
    close(1);
    ListWrite::print().all(1);
  });
  EXPECT_TRUE(r.aborted());
  // A statement on * that finds no unit has no Unit line.
  EXPECT_EQ(r.err, kBanner +
                       " Error 1052:  default output unit closed\n"
                       " Location:  the PRINT statement at line 7 of \"test.f90\"\n");
}

TEST(ImplicitConnection, FirstWriteTruncatesFortN) {
  ScratchDir dir;
  dir.write("fort.10", "old content that must go\n");
  auto r = run_in_child([] {
    ListWrite(10).all(1, "two");
    Unit* u = take(10);
    bool ok = (u->flags & 0xfff) == (0xe01) && (u->flags & UF_SEQUENTIAL) &&
              (u->flags & UF_FORMATTED) && u->record_length == 2147483646 &&
              u->inquire_record_length == 2147483646 && std::string(u->file_name) == "fort.10";
    __f90_release_unit(u);
    ListWrite(10).all(Logical{1});
    std::_Exit(ok ? 0 : 1);  // no finaliser: the records are still buffered
  });
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(dir.read("fort.10"), "");
  // Ending normally, the finaliser writes the unit's buffer out.
  r = run_in_child([] { ListWrite(10).all(1, "two"); });
  EXPECT_EQ(dir.read("fort.10"), " 1 two\n");
}

TEST(ImplicitConnection, F77ModeReportsNoRecordLength) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite(11, SF_F77_WRITE).all(1);
    Unit* u = take(11);
    std::_Exit(u->inquire_record_length == 0 && u->record_length == 2147483646 ? 0 : 1);
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(ImplicitConnection, DirectoryNamedFortNIs1148AndLeavesNoRecord) {
  ScratchDir dir;
  mkdir(dir.file("fort.12").c_str(), 0755);
  auto r = run_in_child([] {
    if (ListWrite(12, SF_ERR_RETURN).all(1) != ERR_OPEN_DIRECTORY) _exit(1);
    if (__f90_small_unit_pointer_table[12] != nullptr) _exit(2);
  });
  EXPECT_EQ(r.exit_code, 0);
  r = run_in_child([] { ListWrite(12).all(1); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1148:  attempting to open a directory\n"
                       " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                       " Unit:  12\n File:  fort.12\n");
}

TEST(ImplicitConnection, ReadConnectionCreatesAnEmptyFile) {
  ScratchDir dir;
  auto r = run_in_child([] {
    Unit* u = take(13);
    if (__f90_open_for_input_r(13, u) != 0) _exit(1);
    bool ok = (u->flags & 0xfff) == 0xd01;
    __f90_release_unit(u);
    std::_Exit(ok ? 0 : 2);
  });
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_TRUE(dir.exists("fort.13"));
}

TEST(Failures, FatalReportFlushesEveryUnitFirst) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite(20).all("kept", 20);
    ListWrite(21).all("kept", 21);
    ListWrite(-5).all(1);  // fatal
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(dir.read("fort.20"), " kept 20\n");
  EXPECT_EQ(dir.read("fort.21"), " kept 21\n");
}

TEST(Failures, FailedWriteReportsErrnoWithUnitAndFile) {
  ScratchDir dir;
  symlink("/dev/full", dir.file("fort.14").c_str());
  const std::string big(100000, 'x');
  auto r = run_in_child([&] {
    // Too big for the buffer, so it goes straight to the device, which is full.
    int err = ListWrite(14, SF_ERR_RETURN).all(big.c_str());
    if (err != ENOSPC) _exit(1);
    // The unit was released: another statement can take it.
    Unit* u = take(14);
    if (u->hold_count != 1) _exit(2);
    __f90_release_unit(u);
    ListWrite(14).all(big.c_str());
  });
  EXPECT_TRUE(r.aborted());
  // The banner's pass over the units finds the buffered block it cannot
  // write, and says so ahead of the report.
  EXPECT_EQ(r.err,
            " Output lost:  4096 bytes of unit 14, file fort.14, could not be written: No space "
            "left on device\n" +
                kBanner +
                " Error 28:  No space left on device\n"
                " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                " Unit:  14\n File:  fort.14\n");
}

TEST(Failures, IoMallocReturnsOrReportsTheRequest) {
  void* p = nullptr;
  const Location loc{LOC_ALLOCATE, 4, "m.f90"};
  EXPECT_EQ(__f90_io_malloc(&p, SF_ERR_RETURN, ~0ULL >> 2, &loc), ERR_OUT_OF_MEMORY);
  EXPECT_EQ(__f90_io_malloc(&p, 0, 16, &loc), 0);
  free(p);
  auto r = run_in_child([&] { __f90_io_malloc(&p, 0, ~0ULL >> 2, &loc); });
  EXPECT_TRUE(r.aborted());
  // (A sanitizer may warn about the request before the report.)
  EXPECT_EQ(r.err.substr(r.err.find(kBanner)),
            kBanner +
                " Error 12:  Cannot allocate memory\n"
                " Location:  the ALLOCATE statement at line 4 of \"m.f90\"\n"
                " Bytes requested:  4611686018427387903\n");
}

TEST(Failures, CopyFilenameStopsAt4096Bytes) {
  Unit u{};
  std::string name(5000, 'n');
  u.file_name = name.data();
  char buf[4097];
  EXPECT_EQ(std::string(__f90_copy_filename(&u, buf)), name.substr(0, 4096));
  u.file_name = nullptr;
  EXPECT_EQ(__f90_copy_filename(&u, buf), nullptr);
}

TEST(Cleanup, RemovesScratchFilesAndKeepsTheConnection) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite(15).all("scratch data");
    Unit* u = take(15);
    u->flags |= UF_SCRATCH;
    __f90_release_unit(u);
    __f90_flush_all();  // keeps scratch files, writes their data
    if (access("fort.15", F_OK) != 0) _exit(1);
    __f90_cleanup();
    if (access("fort.15", F_OK) == 0) _exit(2);
    if (!(take(15)->flags & UF_CONNECTED)) _exit(3);
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(Cleanup, SynchronousFlagPushesEveryStatement) {
  ScratchDir dir;
  auto r = run_in_child([&] {
    EXPECT_EQ(__f90_set_synchronous_flag(1), 0);
    ListWrite(16).all(7);
    std::_Exit(__f90_get_synchronous_flag() == 1 ? 0 : 1);  // no finaliser
  });
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(dir.read("fort.16"), " 7\n");
}

TEST(Threads, StatementsOnOneUnitInterleaveWhole) {
  ScratchDir dir;
  auto r = run_in_child([] {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([t] {
        for (int i = 0; i < 2000; ++i) ListWrite(30).all("thread", t, "line", i, "end");
      });
    for (auto& th : threads) th.join();
  });
  ASSERT_EQ(r.exit_code, 0);
  std::string text = dir.read("fort.30");
  std::istringstream lines(text);
  std::string line;
  int count[4] = {0, 0, 0, 0};
  while (std::getline(lines, line)) {
    int t = -1, i = -1;
    char tail[8] = {};
    ASSERT_EQ(sscanf(line.c_str(), " thread %d line %d %3s", &t, &i, tail), 3) << line;
    ASSERT_TRUE(t >= 0 && t < 4);
    EXPECT_EQ(i, count[t]++) << "statements of one thread stay in order";
    EXPECT_STREQ(tail, "end");
  }
  for (int c : count) EXPECT_EQ(c, 2000);
}

TEST(Threads, HeldUnitBlocksOnlyItsOwnNumber) {
  ScratchDir dir;
  auto r = run_in_child([] {
    // The holder takes unit 31 while the process may still have one thread
    // (under ctest each test runs in a fresh process), so this also checks
    // a unit taken without its lock is waited for once threads exist.
    ListWrite holder(31);
    holder.start().item(1);  // unit 31 is held until holder ends
    std::atomic<bool> other_done{false}, same_done{false};
    std::thread other([&] {
      ListWrite(32).all(2);  // another unit: must not wait
      other_done = true;
    });
    std::thread same([&] {
      ListWrite(31).all(3);  // the held unit: waits
      same_done = true;
    });
    other.join();
    usleep(100000);
    bool waited = other_done && !same_done;
    holder.end();
    same.join();
    std::_Exit(waited && same_done ? 0 : 1);
  });
  EXPECT_EQ(r.exit_code, 0);
}

TEST(Reentrancy, InnerStatementOnTheSameUnitMarksItNested) {
  ScratchDir dir;
  auto r = run_in_child([] {
    // WRITE(40,*) F(X), where F itself does WRITE(40,*): list-directed end
    // entries do not check, so both statements complete.
    ListWrite outer(40);
    outer.start().item(1);
    if (ListWrite(40).all(2) != 0) _exit(1);
    Unit* u = outer.stmt().unit_ptr;
    if (!(u->flags & UF_NESTED)) _exit(2);
    if (outer.item(3).end().status() != 0) _exit(3);
    if (u->flags & UF_NESTED) _exit(4);
  });
  EXPECT_EQ(r.exit_code, 0);
  // The inner statement continues the open record: its first item gets no blank.
  EXPECT_EQ(dir.read("fort.40"), " 12\n 3\n");
}
