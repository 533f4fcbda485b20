// REWIND, BACKSPACE, ENDFILE, FLUSH and WAIT on formatted and unformatted
// sequential units, unconnected units and the connections they refuse, and
// the statements that follow them.
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <string>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"
#include "unformatted/unformatted_statements.h"

using namespace qal;
using namespace qal::test;

// The library's truncations go through this one while `failing_truncation`
// is set, and fail as a full or broken disk would make them.
static int failing_truncation = 0;
extern "C" int ftruncate(int fd, off_t length) {
  if (failing_truncation) {
    errno = failing_truncation;
    return -1;
  }
  return static_cast<int>(syscall(SYS_ftruncate, fd, length));
}

namespace {

using Entry = int (*)(IoStatementPos*);

int position(Entry entry, int64_t unit, uint32_t flags = SF_ERR_RETURN) {
  static const Location where{LOC_REWIND, 4, kSourceFile};
  IoStatementPos b{unit, flags, &where};
  return entry(&b);
}

class Positioning : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12, 13}) close_unit(unit);
  }
  // A line of formatted input from unit 10, or the statement's status.
  std::string line(int64_t unit = 10) {
    char text[400];
    const int status = FormattedRead(unit, "(A)", kAll).all(CharOut{text, sizeof text});
    if (status) return "status " + std::to_string(status);
    std::string s(text, sizeof text);
    return s.substr(0, s.find_last_not_of(' ') + 1);
  }
  int put(const std::string& text, int64_t unit = 10) {
    return FormattedWrite(unit, "(A)", SF_ERR_RETURN).all(text.c_str());
  }
  static constexpr uint32_t kAll = SF_ERR_RETURN | SF_END_RETURN | SF_EOR_RETURN;
  ScratchDir dir_;
};

}  // namespace

TEST_F(Positioning, UnconnectedUnits) {
  EXPECT_EQ(position(__f90_rewind, 40), 0);
  EXPECT_EQ(position(__f90_backspace, 40), 0);
  EXPECT_EQ(position(__f2003_flush, 40), 0);
  EXPECT_FALSE(dir_.exists("fort.40"));
  // ENDFILE makes fort.N empty, and connects nothing.
  dir_.write("fort.41", "old\n");
  EXPECT_EQ(position(__f90_endfile, 41), 0);
  EXPECT_EQ(position(__f90_endfile, 40), 0);
  EXPECT_TRUE(dir_.exists("fort.40"));
  EXPECT_EQ(dir_.read("fort.41"), "");
  const Unit* u = __f90_small_unit_pointer_table[41];
  EXPECT_TRUE(!u || !(u->flags & UF_CONNECTED));
  EXPECT_EQ(__f95_wait(), 0);
}

TEST_F(Positioning, FormattedRecordsBackAndForth) {
  dir_.write("f.txt", "one\ntwo\nthree\n");
  ASSERT_EQ(Open(10).file("f.txt").run(), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);  // at the start: nothing
  EXPECT_EQ(line(), "one");
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "one");
  EXPECT_EQ(line(), "two");
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "one");
  EXPECT_EQ(line(), "two");
  EXPECT_EQ(line(), "three");
  EXPECT_EQ(line(), "status -1");
  // After the end of the file the first BACKSPACE steps over the end only.
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "three");
  EXPECT_EQ(position(__f90_rewind, 10), 0);
  EXPECT_EQ(line(), "one");
  // A write after BACKSPACE replaces the record and ends the file there.
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(put("ONE"), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("f.txt"), "ONE\n");
}

// After a non-advancing READ the current record is the one stepped back
// to; after a non-advancing WRITE, the one left open.
TEST_F(Positioning, BackspaceAfterNonAdvancingStatements) {
  dir_.write("f.txt", "one\ntwo\n");
  ASSERT_EQ(Open(10).file("f.txt").run(), 0);
  EXPECT_EQ(line(), "one");
  char two[2];
  ASSERT_EQ(FormattedRead(10, "(A2)", kAll).advance("NO").all(CharOut{two, 2}), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "two");
  // Nothing taken of the record yet: it is still the current one.
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  ASSERT_EQ(FormattedRead(10, "()", kAll).advance("NO").all(), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "two");
  EXPECT_EQ(position(__f90_rewind, 10), 0);
  EXPECT_EQ(line(), "one");
  ASSERT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).advance("NO").all("half"), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "half");
}

TEST_F(Positioning, BackspaceOverRecordsLongerThanTheBlock) {
  const std::string a(300, 'a'), b(1000, 'b'), c(70, 'c');
  dir_.write("f.txt", a + "\n" + b + "\n" + c + "\n");
  ASSERT_EQ(Open(10).file("f.txt").fileopt("BUFFER=64").run(), 0);
  EXPECT_EQ(line(), a);
  EXPECT_EQ(line(), std::string(400, 'b'));  // the rest of the record is passed over
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), std::string(400, 'b'));
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), a);
  EXPECT_EQ(line(), std::string(400, 'b'));
  EXPECT_EQ(line(), c);
}

TEST_F(Positioning, EndfileInTheMiddleAndAfterWrites) {
  dir_.write("f.txt", "one\ntwo\nthree\n");
  ASSERT_EQ(Open(10).file("f.txt").run(), 0);
  EXPECT_EQ(line(), "one");
  EXPECT_EQ(position(__f90_endfile, 10), 0);
  EXPECT_EQ(dir_.read("f.txt"), "one\n");
  EXPECT_EQ(line(), "status -1");
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "status -1");
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(line(), "one");
  // Writes still in the buffer go out before the cut.
  EXPECT_EQ(put("new"), 0);
  EXPECT_EQ(put("last"), 0);
  EXPECT_EQ(position(__f90_backspace, 10), 0);
  EXPECT_EQ(position(__f90_endfile, 10), 0);
  EXPECT_EQ(dir_.read("f.txt"), "one\nnew\n");
  EXPECT_EQ(put("after"), 0);  // appended behind the end
  EXPECT_EQ(position(__f90_endfile, 10), 0);
  EXPECT_EQ(dir_.read("f.txt"), "one\nnew\nafter\n");
}

TEST_F(Positioning, UnformattedRecordsBackAndForth) {
  for (bool swapped : {false, true}) {
    ASSERT_EQ(Open(11).file("u.dat").form("UNFORMATTED").status("REPLACE").run(), 0);
    if (swapped) __f90_small_unit_pointer_table[11]->flags2 |= UF2_BYTE_SWAP;
    for (int32_t k = 1; k <= 3; ++k)
      ASSERT_EQ(UnformattedWrite(11).start().i4(k).text(std::string(5000 * k, 'x')).end(), 0);
    // Back over a record still in the buffer, then over ones in the file.
    EXPECT_EQ(position(__f90_backspace, 11), 0);
    int32_t k = 0;
    EXPECT_EQ(UnformattedRead(11).start().value(&k).end(), 0);
    EXPECT_EQ(k, 3);
    EXPECT_EQ(position(__f90_backspace, 11), 0);
    EXPECT_EQ(position(__f90_backspace, 11), 0);
    EXPECT_EQ(UnformattedRead(11).start().value(&k).end(), 0);
    EXPECT_EQ(k, 2);
    EXPECT_EQ(position(__f90_rewind, 11), 0);
    EXPECT_EQ(UnformattedRead(11).start().value(&k).end(), 0);
    EXPECT_EQ(k, 1);
    EXPECT_EQ(position(__f90_backspace, 11), 0);
    EXPECT_EQ(position(__f90_backspace, 11), 0);  // at the start: nothing
    EXPECT_EQ(UnformattedRead(11).start().value(&k).end(), 0);
    EXPECT_EQ(k, 1);
    // ENDFILE behind the first record; a READ then meets the end.
    EXPECT_EQ(position(__f90_endfile, 11), 0);
    EXPECT_EQ(UnformattedRead(11).start().value(&k).end(), ERR_END_OF_FILE);
    close_unit(11);
    EXPECT_EQ(dir_.read("u.dat").size(), 4u + 4 + 5000 + 4);

    // Small records, all in the buffer once read: stepping back moves
    // within it, and reads on from there.
    ASSERT_EQ(Open(11).file("s.dat").form("UNFORMATTED").status("REPLACE").run(), 0);
    if (swapped) __f90_small_unit_pointer_table[11]->flags2 |= UF2_BYTE_SWAP;
    for (int32_t r = 0; r < 6; ++r)
      ASSERT_EQ(UnformattedWrite(11).start().i4(r).text(std::string(r, 'y')).end(), 0);
    EXPECT_EQ(position(__f90_rewind, 11), 0);
    std::string got;
    const auto next = [&] {
      int32_t r = -1;
      EXPECT_EQ(UnformattedRead(11).start().value(&r).end(), 0);
      got += std::to_string(r);
    };
    for (int r = 0; r < 4; ++r) next();
    for (int back : {1, 2, 3, 1}) {
      for (int i = 0; i < back; ++i) EXPECT_EQ(position(__f90_backspace, 11), 0);
      next();
    }
    EXPECT_EQ(got,
              "0123"
              "3"
              "2"
              "0"
              "0")
        << swapped;
    close_unit(11);
  }
}

TEST_F(Positioning, ConnectionsThatRefuse) {
  ASSERT_EQ(Open(10).f77().file("b.dat").form("BINARY").run(), 0);
  EXPECT_EQ(position(__f90_backspace, 10), ERR_BACKSPACE_BINARY);
  ASSERT_EQ(Open(11).file("s.dat").form("UNFORMATTED").access("STREAM").run(), 0);
  EXPECT_EQ(position(__f90_backspace, 11), ERR_BACKSPACE_UNFORMATTED_STREAM);
  ASSERT_EQ(Open(12).file("/dev/null").run(), 0);
  EXPECT_EQ(put("x", 12), 0);
  EXPECT_EQ(position(__f90_backspace, 12), ERR_NO_BACKSPACE);
  EXPECT_EQ(position(__f90_endfile, 12), 0);  // nothing to cut on a device
  ASSERT_EQ(Open(13).file("w.txt").action("WRITE").run(), 0);
  EXPECT_EQ(put("x", 13), 0);
  EXPECT_EQ(position(__f90_backspace, 13), ERR_BACKSPACE_NOT_READABLE);
  close_unit(13);
  ASSERT_EQ(Open(13).file("w.txt").action("READ").run(), 0);
  EXPECT_EQ(position(__f90_endfile, 13), ERR_ENDFILE_NOT_WRITABLE);
  close_unit(13);
  ASSERT_EQ(Open(13).file("d.dat").access("DIRECT").form("UNFORMATTED").recl(4).run(), 0);
  EXPECT_EQ(position(__f90_endfile, 13), ERR_ENDFILE_ON_DIRECT);
  Unit* u = __f90_small_unit_pointer_table[13];
  u->record_number = 5;
  EXPECT_EQ(position(__f90_backspace, 13), 0);
  EXPECT_EQ(u->record_number, 4);
  EXPECT_EQ(position(__f90_rewind, 13), 0);
  EXPECT_EQ(u->record_number, 1);
  EXPECT_EQ(position(__f90_backspace, 13), 0);
  EXPECT_EQ(u->record_number, 1);
  // Every refusal released its unit.
  EXPECT_EQ(put("y", 12), 0);
}

// REWIND and ENDFILE report the Location line ahead of the message.
TEST_F(Positioning, FatalReports) {
  dir_.write("r.txt", "x\n");
  ASSERT_EQ(Open(13).file("r.txt").action("READ").run(), 0);
  ChildResult r = run_in_child([] { position(__f90_endfile, 13, 0); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Location:  the REWIND statement at line 4 of \"test.f90\"\n"
                       " Error 1166:  write permission required for ENDFILE\n"
                       " Unit:  13\n File:  r.txt\n");
  ASSERT_EQ(Open(12).file("/dev/null").run(), 0);
  r = run_in_child([] { position(__f90_backspace, 12, 0); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1006:  device does not support BACKSPACE\n"
                       " Location:  the REWIND statement at line 4 of \"test.f90\"\n"
                       " Unit:  12\n File:  /dev/null\n");
}

TEST_F(Positioning, FlushPushesPendingOutput) {
  ASSERT_EQ(Open(10).file("f.txt").run(), 0);
  EXPECT_EQ(put("pending"), 0);
  EXPECT_EQ(dir_.read("f.txt"), "");
  EXPECT_EQ(position(__f2003_flush, 10), 0);
  EXPECT_EQ(dir_.read("f.txt"), "pending\n");
  ASSERT_EQ(Open(11).file("u.dat").form("UNFORMATTED").run(), 0);
  ASSERT_EQ(UnformattedWrite(11).start().i4(7).end(), 0);
  EXPECT_EQ(position(__f2003_flush, 11), 0);
  EXPECT_EQ(dir_.read("u.dat"), records_file({bytes_of(int32_t{7})}));
}

TEST_F(Positioning, TruncationThatFails) {
  // ENDFILE after writes: the records go out first, the errno comes back,
  // and the unit goes on.
  ASSERT_EQ(Open(10).file("t.txt").status("replace").run(), 0);
  ASSERT_EQ(put("one"), 0);
  ASSERT_EQ(put("two"), 0);
  failing_truncation = EIO;
  EXPECT_EQ(position(__f90_endfile, 10), EIO);
  failing_truncation = 0;
  EXPECT_EQ(dir_.read("t.txt"), "one\ntwo\n");
  ASSERT_EQ(put("three"), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("t.txt"), "one\ntwo\nthree\n");

  // ENDFILE after a read: the unit reads on from where it was.
  ASSERT_EQ(Open(10).file("t.txt").run(), 0);
  EXPECT_EQ(line(), "one");
  failing_truncation = ENOSPC;
  EXPECT_EQ(position(__f90_endfile, 10), ENOSPC);
  failing_truncation = 0;
  EXPECT_EQ(line(), "two");

  // A WRITE after a read cuts the file first; when that fails, the WRITE
  // fails with the errno and writes nothing, and the next one cuts.
  failing_truncation = EIO;
  EXPECT_EQ(put("lost"), EIO);
  failing_truncation = 0;
  ASSERT_EQ(put("four"), 0);
  close_unit(10);
  EXPECT_EQ(dir_.read("t.txt"), "one\ntwo\nfour\n");
}
