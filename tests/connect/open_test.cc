// OPEN against real files in a scratch directory.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

const std::string kOpenLine = " Location:  the OPEN statement at line 12 of \"test.f90\"\n";

Unit* table_entry(int n) { return __f90_small_unit_pointer_table[n]; }

mode_t mode_of(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

TEST(OpenNames, FileTextEndsAtNulOrLosesTrailingBlanks) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(10).file("a  ").run() == 0);
    CHILD_CHECK(std::string(table_entry(10)->file_name) == "a");
    CHILD_CHECK(Open(11).file(std::string("b\0 junk", 7)).run() == 0);
    CHILD_CHECK(std::string(table_entry(11)->file_name) == "b");
    // Blanks inside a name are kept.
    CHILD_CHECK(Open(12).file("c d ").run() == 0);
    CHILD_CHECK(Open(13).file("    ").run() == ERR_ZERO_LENGTH_NAME);
    CHILD_CHECK(__f90_open(OF_ERR_RETURN | OF_FILE, 14, nullptr, 3, 0, nullptr, 0) ==
                ERR_UNASSOCIATED_FILE);
    CHILD_CHECK(table_entry(13) == nullptr && table_entry(14) == nullptr);
    ListWrite(10).all("in a");
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("a"), " in a\n");
  EXPECT_TRUE(dir.exists("b"));
  EXPECT_TRUE(dir.exists("c d"));
  EXPECT_EQ(mode_of(dir.file("a")) & 0600, 0600u);
}

TEST(OpenNames, WithoutFileTheUnitGetsFortN) {
  ScratchDir dir;
  dir.write("fort.10", "kept\n");
  auto r = run_in_child([] {
    CHILD_CHECK(Open(10).run() == 0);  // STATUS='UNKNOWN': opened, not truncated
    Unit* u = table_entry(10);
    CHILD_CHECK(std::string(u->file_name) == "fort.10");
    CHILD_CHECK((u->flags & 0xfff) == 0xc01);
    CHILD_CHECK(u->flags & UF_SEQUENTIAL && u->flags & UF_FORMATTED && u->flags & UF_REGULAR_FILE);
    CHILD_CHECK(u->record_length == 2147483646 && u->inquire_record_length == 2147483646);
    CHILD_CHECK(u->record_number == 1 && u->buffer == nullptr && u->hold_count == 0);
    CHILD_CHECK(u->blocksize >= 1024);
    CHILD_CHECK(Open(2000).run() == 0);  // a hashed number
    ListWrite(2000).all("big");
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("fort.10"), "kept\n");
  EXPECT_EQ(dir.read("fort.2000"), " big\n");
}

TEST(OpenStatus, NewOldReplaceAndTheirFailures) {
  ScratchDir dir;
  dir.write("exists", "old text\n");
  symlink("nowhere", dir.file("dangling").c_str());
  symlink("exists", dir.file("link").c_str());
  mkdir(dir.file("sub").c_str(), 0755);
  auto r = run_in_child([] {
    CHILD_CHECK(Open(20).file("exists").status("NEW").run() == EEXIST);
    CHILD_CHECK(Open(20).file("fresh").status("NEW").run() == 0);
    CHILD_CHECK(Open(21).file("missing").status("OLD").run() == ENOENT);
    CHILD_CHECK(Open(21).f77().file("missing").status("OLD").run() == ERR_OLD_FILE_MISSING);
    CHILD_CHECK(Open(21).file("dangling").status("OLD").run() == ERR_OLD_DANGLING_LINK);
    CHILD_CHECK(Open(21).file("dangling").status("OLD").action("READ").run() ==
                ERR_OLD_DANGLING_LINK);
    // A symbolic link met by NEW: 1150 for reading or without ACTION=,
    // 1149 for writing.
    CHILD_CHECK(Open(21).file("link").status("NEW").run() == ERR_NEW_SYMBOLIC_LINK);
    CHILD_CHECK(Open(21).file("link").status("NEW").action("READ").run() == ERR_NEW_SYMBOLIC_LINK);
    CHILD_CHECK(Open(21).file("link").status("NEW").action("WRITE").run() == ERR_OLD_DANGLING_LINK);
    CHILD_CHECK(Open(21).file("dangling").status("NEW").run() == ERR_NEW_SYMBOLIC_LINK);
    CHILD_CHECK(Open(21).file("sub").run() == ERR_OPEN_DIRECTORY);
    CHILD_CHECK(Open(21).file("sub").status("OLD").run() == ERR_OPEN_DIRECTORY);
    CHILD_CHECK(Open(21).file("sub").status("OLD").action("READ").run() == ERR_OPEN_DIRECTORY);
    CHILD_CHECK(Open(21).file("x").status("SCRATCH").run() == ERR_NAMED_SCRATCH);
    // No failure leaves a record or a file behind.
    CHILD_CHECK(table_entry(21) == nullptr);
    CHILD_CHECK(access("missing", F_OK) != 0);
    CHILD_CHECK(Open(22).file("exists").status("REPLACE").run() == 0);
    CHILD_CHECK(Open(23).file("made").status("REPLACE").action("WRITE").run() == 0);
    CHILD_CHECK((table_entry(23)->flags & 0xfff) == 0x801);
    CHILD_CHECK(Open(24).file("exists").status("OLD").action("READ").run() == 0);
    CHILD_CHECK((table_entry(24)->flags & 0xfff) == 0x401);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_TRUE(dir.exists("fresh"));
  EXPECT_EQ(dir.read("exists"), "");  // REPLACE truncated it
}

TEST(OpenStatus, ReadOnlyFileWithoutActionConnectsForReading) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
  ScratchDir dir;
  dir.write("ro", "data\n");
  chmod(dir.file("ro").c_str(), 0444);
  auto r = run_in_child([] {
    CHILD_CHECK(Open(30).file("ro").status("OLD").run() == 0);
    CHILD_CHECK((table_entry(30)->flags & 0xfff) == 0x401);
    CHILD_CHECK(Open(31).file("ro").run() == 0);
    CHILD_CHECK((table_entry(31)->flags & 0xfff) == 0x401);
    CHILD_CHECK(Open(32).file("ro").action("WRITE").run() == EACCES);
    CHILD_CHECK(ListWrite(30, SF_ERR_RETURN).all(1) == ERR_WRITING_NOT_ALLOWED);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(OpenReports, FailuresCarryUnitFileAndStatusLines) {
  ScratchDir dir;
  dir.write("exists", "");
  auto r = run_in_child([] { Open(20, false).file("exists").status("NEW").run(); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err,
            kBanner + " Error 17:  File exists\n" + kOpenLine + " Unit:  20\n File:  exists\n");

  r = run_in_child([] {
    CHILD_CHECK(Open(20).file("exists").run() == 0);
    Open(20, false).file("exists").status("REPLACE").run();
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1141:  status is specified and not 'OLD' for connected unit\n" +
                       kOpenLine + " Unit:  20\n File:  exists\n Status:  REPLACE\n");

  r = run_in_child([] { Open(-3, false).run(); });
  EXPECT_EQ(r.err, kBanner + " Error 1001:  illegal unit number\n" + kOpenLine + " Unit:  *\n");
}

TEST(OpenScratch, NamesLiveInTmpdirAndVanishWithTheConnection) {
  ScratchDir dir;
  mkdir(dir.file("tmp").c_str(), 0755);
  setenv("TMPDIR", (dir.path() + "/tmp//").c_str(), 1);
  auto r = run_in_child([] {
    CHILD_CHECK(Open(40).status("SCRATCH").run() == 0);
    CHILD_CHECK(Open(41).status("scratch").action("READWRITE").run() == 0);
    Unit* a = table_entry(40);
    Unit* b = table_entry(41);
    std::string na = a->file_name, nb = b->file_name;
    printf("%s\n%s\n", na.c_str(), nb.c_str());
    CHILD_CHECK((a->flags & 0x100fff) == 0x100c01 && (a->flags & UF_FORMATTED));
    ListWrite(40).all("gone soon");
    CHILD_CHECK(close_unit(40) == 0);
    CHILD_CHECK(access(na.c_str(), F_OK) != 0);
    CHILD_CHECK(access(nb.c_str(), F_OK) == 0);
    exit(0);  // normal end: the second goes too
  });
  unsetenv("TMPDIR");
  ASSERT_EQ(r.exit_code, 0) << r.err;
  // <TMPDIR>/tmp.F<seed><6 base-64 digits>, the seed advancing per name.
  const std::string prefix = dir.path() + "/tmp/tmp.F";
  std::string first = r.out.substr(0, r.out.find('\n'));
  std::string second = r.out.substr(r.out.find('\n') + 1);
  second.pop_back();
  ASSERT_EQ(first.size(), prefix.size() + 9) << first;
  EXPECT_EQ(first.substr(0, prefix.size() + 3), prefix + "AAA");
  EXPECT_EQ(second.substr(0, prefix.size() + 3), prefix + "BAA");
  // The digits start with the counter's low bits and end with the pid's.
  const std::string digits = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._";
  for (char c : first.substr(prefix.size() + 3)) EXPECT_NE(digits.find(c), std::string::npos);
  EXPECT_FALSE(dir.exists("tmp/" + second.substr(dir.path().size() + 5)));
}

TEST(OpenScratch, UnusableTmpdirFallsBackToTheWorkingDirectory) {
  ScratchDir dir;
  setenv("TMPDIR", "/nonexistent/place", 1);
  auto r = run_in_child([] {
    CHILD_CHECK(Open(42).status("SCRATCH").run() == 0);
    const char* name = table_entry(42)->file_name;
    CHILD_CHECK(strncmp(name, "tmp.FAAA", 8) == 0 && strlen(name) == 14);
    struct stat st;
    CHILD_CHECK(stat(name, &st) == 0 && (st.st_mode & 0777) == 0600);
    // A fatal report removes it as well.
    printf("%s\n", name);
    fflush(stdout);
    Open(43, false).file("x").status("SCRATCH").run();
  });
  unsetenv("TMPDIR");
  EXPECT_TRUE(r.aborted());
  EXPECT_NE(r.err.find("Error 1145"), std::string::npos) << r.err;
  ASSERT_FALSE(r.out.empty());
  EXPECT_FALSE(dir.exists(r.out.substr(0, r.out.size() - 1)));
}

TEST(OpenScratch, OldDialectMayNameItsScratchFile) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(44).f77().file("named").status("SCRATCH").run() == 0);
    CHILD_CHECK(table_entry(44)->flags & UF_SCRATCH);
    CHILD_CHECK(access("named", F_OK) == 0);
    CHILD_CHECK(close_unit(44) == 0);
    CHILD_CHECK(access("named", F_OK) != 0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(OpenModes, ReopenChangesOnlyTheChangeableModes) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(50).file("f").action("WRITE").position("APPEND").run() == 0);
    Unit* u = table_entry(50);
    ListWrite(50).all(1);
    const uint32_t before = u->flags;
    CHILD_CHECK(!(before & UF_BLANK_ZERO) && (before & UF_BLANK_NULL));
    // Same file, new modes; FORM= and ACTION= are not changeable.
    CHILD_CHECK(Open(50)
                    .file("f")
                    .blank("ZERO")
                    .delim("QUOTE")
                    .pad("NO")
                    .form("UNFORMATTED")
                    .action("READ")
                    .decimal("COMMA")
                    .round("UP")
                    .run() == 0);
    CHILD_CHECK(table_entry(50) == u);
    CHILD_CHECK(u->flags == ((before & 0x83f0ffff) | UF_BLANK_ZERO | UF_DELIM_QUOTE | UF_NOPAD |
                             UF_DECIMAL_COMMA | UF_ROUND_UP));
    CHILD_CHECK(u->buffer != nullptr);  // the connection, and its buffer, went on
    // Without FILE= it is a re-OPEN too.
    CHILD_CHECK(Open(50).status("OLD").run() == 0);
    CHILD_CHECK(Open(50).status("NEW").run() == ERR_STATUS_FOR_CONNECTED);
    CHILD_CHECK(table_entry(50) == u && (u->flags & UF_CONNECTED));
    ListWrite(50).all(2);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("f"), " 1\n 2\n");
}

TEST(OpenModes, OldDialectReopenMovesBetweenFormattedForms) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(51).f77().file("f").run() == 0);
    Unit* u = table_entry(51);
    CHILD_CHECK(Open(51).f77().file("f").form("PRINT").run() == 0);
    CHILD_CHECK((u->flags & UF_FORMATTED_LIKE) == UF_PRINT_FORM);
    CHILD_CHECK(Open(51).f77().file("f").form("UNFORMATTED").run() == ERR_UNFORMATTED_ON_FORMATTED);
    CHILD_CHECK(Open(51).f77().file("f").form("BINARY").run() == ERR_ILLEGAL_ARGUMENT);
    CHILD_CHECK(Open(51).f77().file("f").form("FORMATTED").run() == 0);
    CHILD_CHECK((u->flags & UF_FORMATTED_LIKE) == UF_FORMATTED);
    CHILD_CHECK(Open(52).f77().file("g").form("UNFORMATTED").run() == 0);
    CHILD_CHECK(Open(52).f77().file("g").form("PRINT").run() == ERR_FORMATTED_ON_UNFORMATTED);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(OpenModes, AnotherFileClosesTheFirstConnectionKeepingItsData) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(53).file("first").run() == 0);
    ListWrite(53).all("one");
    CHILD_CHECK(Open(53).file("second").run() == 0);
    ListWrite(53).all("two");
    std::_Exit(0);  // no end-of-run pass: only what CLOSE wrote is there
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("first"), " one\n");
  EXPECT_EQ(dir.read("second"), "");
}

TEST(OpenModes, PositionAndAccessForms) {
  ScratchDir dir;
  dir.write("log", "line 1\n");
  dir.write("eof", "x\n");
  auto r = run_in_child([] {
    CHILD_CHECK(Open(54).file("log").position("APPEND").run() == 0);
    ListWrite(54).all("line 2");
    CHILD_CHECK(Open(55).file("eof").fileopt("EOF").run() == 0);
    CHILD_CHECK(lseek(table_entry(55)->fd, 0, SEEK_CUR) == 2);
    CHILD_CHECK(Open(56).file("d").access("DIRECT").form("FORMATTED").recl(80).run() == 0);
    Unit* d = table_entry(56);
    CHILD_CHECK(!(d->flags & (UF_SEQUENTIAL | UF_STREAM)) && (d->flags & UF_FORMATTED));
    CHILD_CHECK(d->record_length == 80 && d->inquire_record_length == 80);
    CHILD_CHECK(Open(57).file("w").access("DIRECT").recl(10, true).run() == 0);
    CHILD_CHECK(table_entry(57)->record_length == 40);  // unformatted: words of 4 bytes
    CHILD_CHECK(Open(58).file("s").access("STREAM").run() == 0);
    Unit* s = table_entry(58);
    CHILD_CHECK((s->flags & UF_STREAM) && !(s->flags & (UF_SEQUENTIAL | UF_FORMATTED_LIKE)));
    CHILD_CHECK(Open(59).file("u").form("UNFORMATTED").run() == 0);
    CHILD_CHECK(table_entry(59)->record_length == 2147483647);
    CHILD_CHECK(Open(60).f77().file("o").run() == 0);
    CHILD_CHECK(table_entry(60)->inquire_record_length == 0);
    CHILD_CHECK(Open(61).f77().file("a").access("APPEND").run() == 0);
    CHILD_CHECK(table_entry(61)->flags & UF_SEQUENTIAL);
    CHILD_CHECK(Open(62).file("b").fileopt("BUFFER=1 024").run() == 0);
    CHILD_CHECK(table_entry(62)->blocksize == 1024);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("log"), "line 1\n line 2\n");
}

TEST(OpenModes, InconsistentSpecifiers) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(63).file("d").access("DIRECT").run() == ERR_DIRECT_WITHOUT_RECL);
    CHILD_CHECK(Open(63).file("s").access("STREAM").recl(8).run() == ERR_RECL_ON_STREAM);
    CHILD_CHECK(Open(63).file("r").recl(0).run() == ERR_BAD_RECL);
    CHILD_CHECK(Open(63).file("b").fileopt("BUFFER=0").run() == ERR_BUFFER_SIZE_NOT_POSITIVE);
    CHILD_CHECK(Open(63).f77().file("n").access("APPEND").status("NEW").run() ==
                ERR_INCOMPATIBLE_OPEN);
    CHILD_CHECK(Open(6).access("STREAM").run() == ERR_STREAM_OPEN_DEFAULT_UNIT);
    // RECL= is ignored in the old dialect unless the access is direct.
    CHILD_CHECK(Open(64).f77().file("q").recl(0).run() == 0);
    CHILD_CHECK(table_entry(63) == nullptr);
    CHILD_CHECK(access("d", F_OK) != 0 && access("s", F_OK) != 0 && access("n", F_OK) != 0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

TEST(OpenDefaultUnits, FileOnUnitSixLeavesPrintOnStandardOutput) {
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(6).file("six").run() == 0);
    CHILD_CHECK(table_entry(6) != &__f90_default_output_unit);
    ListWrite::print().all("to stdout");
    ListWrite(6).all("to six");
    // Without FILE= the static record's modes change in place.
    CHILD_CHECK(Open(5).blank("ZERO").run() == 0);
    CHILD_CHECK(table_entry(5) == &__f90_default_input_unit);
    CHILD_CHECK(__f90_default_input_unit.flags & UF_BLANK_ZERO);
    exit(0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, " to stdout\n");
  EXPECT_EQ(dir.read("six"), " to six\n");
}

TEST(OpenBusy, OpenInsideAStatementOnTheSameUnitIs1146) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite outer(70);
    outer.start().item(1);
    CHILD_CHECK(Open(70).file("other").run() == ERR_OPEN_BUSY_UNIT);
    CHILD_CHECK(outer.item(2).end().status() == 0);
    CHILD_CHECK(access("other", F_OK) != 0);
    exit(0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("fort.70"), " 1 2\n");
}

// The child of a fork made by a second thread has one thread again, not
// the one that loaded the library: a statement there must still know its
// own thread holds the unit (1146, not a wait for ever).
TEST(OpenBusy, InTheChildOfAForkFromAnotherThread) {
  ScratchDir dir;
  auto r = run_in_child([] {
    int status = -1;
    std::thread forker([&] {
      const pid_t pid = fork();
      if (pid == 0) {
        alarm(10);
        ListWrite outer(71);
        outer.start().item(1);
        const int open = Open(71).file("other").run();
        _exit(open == ERR_OPEN_BUSY_UNIT && outer.item(2).end().status() == 0 ? 0 : 1);
      }
      waitpid(pid, &status, 0);
    });
    forker.join();
    CHILD_CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    exit(0);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
}

}  // namespace
