// Formatted input from units: records and the end of the file, the walk
// through the format on input, non-advancing input with SIZE= and EOR=,
// PAD='NO', the item dispatch, the connection checks, POS=, and every
// failure with its number or report.
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

constexpr uint32_t kAll = SF_ERR_RETURN | SF_END_RETURN | SF_EOR_RETURN;

// Every test leaves the units it used closed, so tests may share a process.
class ReadUnits : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12, 13}) close_unit(unit);
  }
  // fort.10 holds `text`; unit 10 is connected to it.
  void file(const std::string& text, const char* pad = nullptr) {
    dir_.write("in.txt", text);
    Open o(10);
    o.file("in.txt");
    if (pad) o.pad(pad);
    ASSERT_EQ(o.run(), 0);
  }
  Unit* unit(int64_t n) {
    Unit* u = nullptr;
    __f90_get_numbered_unit_r(&u, n);
    __f90_release_unit(u);
    return u;
  }
  ScratchDir dir_;
};

using ReadRecords = ReadUnits;
using ReadWalk = ReadUnits;
using ReadNonAdvancing = ReadUnits;
using ReadDispatch = ReadUnits;
using ReadFailures = ReadUnits;

std::string chars(const char* text, size_t n) { return std::string(text, n); }

}  // namespace

TEST_F(ReadRecords, LastLineWithoutNewlineThenEndOfFileTwice) {
  file("12\nabc");
  int32_t i = 0;
  char a[3];
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll).all(&i), 0);
  EXPECT_EQ(i, 12);
  EXPECT_EQ(FormattedRead(10, "(A3)", kAll).all(CharOut{a, 3}), 0);
  EXPECT_EQ(chars(a, 3), "abc");
  EXPECT_EQ(FormattedRead(10, "(A3)", kAll).all(CharOut{a, 3}), ERR_END_OF_FILE);
  // The buffer went with the end of the file; the next read makes a new
  // one and meets the end again.
  EXPECT_EQ(unit(10)->buffer, nullptr);
  EXPECT_EQ(FormattedRead(10, "(A3)", kAll).all(CharOut{a, 3}), ERR_END_OF_FILE);
}

TEST_F(ReadRecords, EmptyAndShortRecordsReadAsBlanks) {
  file("\n7\n");
  int32_t i = 5, j = 5;
  char a[4];
  EXPECT_EQ(FormattedRead(10, "(I4,A4)", kAll).all(&i, CharOut{a, 4}), 0);
  EXPECT_EQ(i, 0);
  EXPECT_EQ(chars(a, 4), "    ");
  // "7" under I3 with BZ: the two missing positions are blanks, thus zeros.
  EXPECT_EQ(FormattedRead(10, "(BZ,I3,I2)", kAll).all(&i, &j), 0);
  EXPECT_EQ(i, 700);
  EXPECT_EQ(j, 0);
}

TEST_F(ReadRecords, RecordLongerThanAnyBufferGrowsItAndGivesTheMemoryBack) {
  // The buffer grows by 8192 bytes a step: without the memory remapping of
  // a plain build every step copies, so the sanitized build reads less.
  const size_t size = QAL_SANITIZED ? 1'000'000 : 20'000'000;
  std::string big(size, 'x');
  big[size - 1] = 'y';
  file(big + "\n42\n" + big + "\n");
  const std::string last_column = "(T" + std::to_string(size) + ",A1)";
  char last;
  int32_t i = 0;
  // READ(10,'(T20000000,A1)') LAST
  EXPECT_EQ(FormattedRead(10, last_column, kAll).all(CharOut{&last, 1}), 0);
  EXPECT_EQ(last, 'y');
  // What is left unread moves into a buffer of its own size again.
  Unit* u = unit(10);
  EXPECT_LT(u->buffer_end - u->buffer, 65536);
  EXPECT_EQ(FormattedRead(10, "(I2)", kAll).all(&i), 0);
  EXPECT_EQ(i, 42);
  // With nothing left unread, the grown buffer goes.
  EXPECT_EQ(FormattedRead(10, last_column, kAll).all(CharOut{&last, 1}), 0);
  EXPECT_EQ(last, 'y');
  EXPECT_EQ(u->buffer, nullptr);
}

TEST_F(ReadRecords, WhatAProgramWroteItReadsBack) {
  ASSERT_EQ(FormattedWrite(10, "(I5,A6,L3)").all(-42, "abcdef", Logical{1}), 0);
  ASSERT_EQ(FormattedWrite(10, "(I5)").all(7), 0);
  // Reading from where the writing stopped: the end of the file.
  int32_t i = 0;
  EXPECT_EQ(FormattedRead(10, "(I5)", kAll).all(&i), ERR_END_OF_FILE);
  ASSERT_EQ(close_unit(10), 0);
  char text[6];
  int32_t l = 0;
  EXPECT_EQ(
      FormattedRead(10, "(I5,A6,L3,/,I5)", kAll).all(&i, CharOut{text, 6}, LogicalOut{&l}, &i), 0);
  EXPECT_EQ(chars(text, 6), "abcdef");
  EXPECT_EQ(l, 1);
  EXPECT_EQ(i, 7);
}

TEST_F(ReadRecords, StreamUnitReadsAtPosWhatItWrote) {
  ASSERT_EQ(Open(11).file("s.txt").access("STREAM").form("FORMATTED").run(), 0);
  ASSERT_EQ(FormattedWrite(11, "(A)").all("first"), 0);
  ASSERT_EQ(FormattedWrite(11, "(A)").all("second"), 0);
  char a[6];
  // "first\n" is six bytes: POS=7 is the start of the second record.
  EXPECT_EQ(FormattedRead(11, "(A6)", kAll).start_pos(7).item(CharOut{a, 6}).end().status(), 0);
  EXPECT_EQ(chars(a, 6), "second");
  EXPECT_EQ(FormattedRead(11, "(A5)", kAll).start_pos(1).item(CharOut{a, 5}).end().status(), 0);
  EXPECT_EQ(chars(a, 5), "first");
  EXPECT_EQ(FormattedRead(11, "(A5)", kAll).start_pos(15).item(CharOut{a, 5}).end().status(),
            ERR_BAD_POS);
  EXPECT_EQ(FormattedRead(11, "(A5)", kAll).start_pos(0).end().status(), ERR_BAD_POS);
  ASSERT_EQ(Open(12).file("q.txt").run(), 0);
  EXPECT_EQ(FormattedRead(12, "(A5)", kAll).start_pos(1).end().status(), ERR_STREAM_ON_RECORD_UNIT);
  EXPECT_EQ(FormattedRead(13, "(A5)", kAll).start_pos(1).end().status(), ERR_STREAM_UNCONNECTED);
  EXPECT_EQ(FormattedRead::star("(A5)", kAll).start_pos(1).end().status(), ERR_STREAM_DEFAULT_UNIT);
}

TEST_F(ReadWalk, PositionsSlashesAndReversion) {
  file("1234567\nab\ncd\nef\ngh\n");
  int32_t i = 0, j = 0;
  // READ(10,'(T5,I2,T1,I2)') I, J on "1234567"
  EXPECT_EQ(FormattedRead(10, "(T5,I2,T1,I2)", kAll).all(&i, &j), 0);
  EXPECT_EQ(i, 56);
  EXPECT_EQ(j, 12);
  char a[2], b[2];
  // The slash and the format's end each take a record: ab, then ef; the
  // slash that stands behind the last item takes gh.
  EXPECT_EQ(FormattedRead(10, "(A2,/)", kAll).all(CharOut{a, 2}, CharOut{b, 2}), 0);
  EXPECT_EQ(chars(a, 2), "ab");
  EXPECT_EQ(chars(b, 2), "ef");
}

TEST_F(ReadWalk, FormatsThatCannotTakeTheItem) {
  file("1\n2\n3\n4\n5\n6\n7\n8\n");
  int32_t i = 0;
  // (/) with an item: two records on the first pass, two on the second.
  EXPECT_EQ(FormattedRead(10, "(/)", kAll).all(&i), ERR_NO_DATA_EDIT);
  EXPECT_EQ(FormattedRead(10, "(I1)", kAll).all(&i), 0);
  EXPECT_EQ(i, 5);
  // RU after the last item: the read succeeds, the end entry finds the
  // format corrupt.
  EXPECT_EQ(FormattedRead(10, "(I1,RU)", kAll).all(&i), ERR_CORRUPTED_FORMAT);
  EXPECT_EQ(i, 6);
  EXPECT_EQ(FormattedRead(10, "('x',I1)", kAll).all(&i), ERR_STRING_ON_INPUT);
  EXPECT_EQ(FormattedRead(10, "(2Hxy,I1)", kAll).all(&i), ERR_HOLLERITH_ON_INPUT);
}

TEST_F(ReadWalk, OldDialectStepsOverLiterals) {
  file("ab12\n");
  int32_t i = 0;
  EXPECT_EQ(FormattedRead(10, "('ab',I2)", kAll | SF_F77_READ).all(&i), 0);
  EXPECT_EQ(i, 12);
}

TEST_F(ReadNonAdvancing, StatementsShareARecordAndCountSize) {
  file("abcdef\nxyz\n");
  char a[2];
  auto read2 = [&](uint32_t extra = 0) {
    FormattedRead r(10, "(A2)", kAll | SF_SIZE_GIVEN | extra);
    r.advance("NO").start().item(CharOut{a, 2}).end();
    return std::make_pair(r.status(), r.stmt().size_count);
  };
  EXPECT_EQ(read2(), std::make_pair(0, int64_t{2}));
  EXPECT_EQ(chars(a, 2), "ab");
  // T1 is where the last statement stopped, not the line's first column.
  char b[1];
  FormattedRead t(10, "(T1,A1)", kAll);
  EXPECT_EQ(t.advance("NO").start().item(CharOut{b, 1}).end().status(), 0);
  EXPECT_EQ(b[0], 'c');
  EXPECT_EQ(read2(), std::make_pair(0, int64_t{2}));
  EXPECT_EQ(chars(a, 2), "de");
  // Past the record's end: the value is stored, then end of record.
  EXPECT_EQ(read2(), std::make_pair(int(ERR_END_OF_RECORD), int64_t{1}));
  EXPECT_EQ(chars(a, 2), "f ");
  EXPECT_EQ(read2(), std::make_pair(0, int64_t{2}));
  EXPECT_EQ(chars(a, 2), "xy");
}

TEST_F(ReadNonAdvancing, ConsumedLineLeavesAnEmptyRecord) {
  file("ab\ncd\n");
  char a[2];
  FormattedRead r(10, "(A2)", kAll);
  EXPECT_EQ(r.advance("NO").start().item(CharOut{a, 2}).end().status(), 0);
  // The rest of the line is empty; the next statement reads it as blanks.
  EXPECT_EQ(FormattedRead(10, "(A2)", kAll).all(CharOut{a, 2}), 0);
  EXPECT_EQ(chars(a, 2), "  ");
  EXPECT_EQ(FormattedRead(10, "(A2)", kAll).all(CharOut{a, 2}), 0);
  EXPECT_EQ(chars(a, 2), "cd");
}

TEST_F(ReadNonAdvancing, AdvanceSpecifier) {
  file("1\n");
  struct Row {
    const char* text;
    uint32_t flags;
    int expected;
  };
  const std::vector<Row> rows = {
      {"N", 0, ERR_BAD_ADVANCE},
      {"No ", 0, 0},
      {"YES  ", 0, 0},
      {"YESS", 0, ERR_BAD_ADVANCE},
      {"YES", SF_EOR_GIVEN, ERR_EOR_WITH_ADVANCING},
      {"YES", SF_SIZE_GIVEN, ERR_SIZE_WITH_ADVANCING},
  };
  for (const Row& row : rows) {
    FormattedRead r(10, "(I1)", kAll | row.flags);
    r.advance(row.text);
    EXPECT_EQ(r.status(), row.expected) << row.text;
  }
  FormattedRead r(10, "(I1)", kAll);
  EXPECT_EQ(__f90_sfr_advance(&r.stmt(), nullptr, 0), ERR_UNASSOCIATED_ADVANCE);
}

TEST_F(ReadNonAdvancing, PadNoMakesAShortRecordAnError) {
  file("12\n34\n", "NO");
  int32_t i = 99, j = 99;
  EXPECT_EQ(FormattedRead(10, "(I2,I3)", kAll).all(&i, &j), ERR_RECORD_TOO_SHORT);
  EXPECT_EQ(i, 12);
  EXPECT_EQ(j, 99);  // a blank field past the end leaves the item alone
  // The record is done with: the next statement reads the next one.  The
  // old dialect takes the short record as the end of the file.
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll | SF_F77_READ).all(&i), ERR_END_OF_FILE);
  EXPECT_EQ(i, 34);
}

TEST_F(ReadDispatch, DescriptorsAnItemCannotTake) {
  file(std::string(14, '1') + "\n");
  // Each statement takes a record of its own.
  for (int k = 0; k < 7; ++k) dir_.write("in.txt", dir_.read("in.txt") + "1\n");
  int32_t i;
  float x;
  char c[1];
  int32_t l;
  EXPECT_EQ(FormattedRead(10, "(L1)", kAll).all(&i), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(Q)", kAll).all(&x), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(F1.0)", kAll).all(LogicalOut{&l}), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(F1.0)", kAll).all(CharOut{c, 1}), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(Q)", kAll).all(CharOut{c, 1}), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(D3.1E2)", kAll).all(&x), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(FormattedRead(10, "(I0)", kAll).all(&i), ERR_ZERO_FIELD_WIDTH);
}

TEST_F(ReadDispatch, QCountsWhatIsLeftOfTheRecord) {
  file("abcdef\n");
  int8_t q1 = 0;
  int64_t q8 = 0;
  char a[2];
  EXPECT_EQ(FormattedRead(10, "(A2,Q,Q)", kAll).all(CharOut{a, 2}, &q1, &q8), 0);
  EXPECT_EQ(q1, 4);
  EXPECT_EQ(q8, 4);
}

TEST_F(ReadDispatch, BareWidthsFollowTheItemsSize) {
  // Bare I on INTEGER*4 is twelve wide, on INTEGER*1 seven.
  file("           5      9\n");
  int32_t i = 0;
  int8_t j = 0;
  EXPECT_EQ(FormattedRead(10, "(I,I)", kAll).all(&i, &j), 0);
  EXPECT_EQ(i, 5);
  EXPECT_EQ(j, 9);
}

TEST_F(ReadDispatch, ComplexTakesTwoDescriptorsAndCountsAsOneItem) {
  file("1.5 2.5\n");
  double z[2];
  FormattedRead r(10, "(2F4.1)", kAll);
  EXPECT_EQ(r.start().item(ComplexOut{z, 8}).status(), 0);
  EXPECT_EQ(z[0], 1.5);
  EXPECT_EQ(z[1], 2.5);
  EXPECT_EQ(unit(10)->item_count, 1u);
  EXPECT_EQ(r.end().status(), 0);
}

TEST_F(ReadFailures, ConnectionChecks) {
  dir_.write("w.txt", "1\n");
  ASSERT_EQ(Open(10).file("w.txt").action("WRITE").run(), 0);
  int32_t i;
  EXPECT_EQ(FormattedRead(10, "(I1)", kAll).all(&i), ERR_READING_NOT_ALLOWED);
  ASSERT_EQ(Open(11).file("u.bin").form("UNFORMATTED").run(), 0);
  EXPECT_EQ(FormattedRead(11, "(I1)", kAll).all(&i), ERR_FORMATTED_ON_UNFORMATTED);
  ASSERT_EQ(Open(12).file("d.txt").access("DIRECT").form("FORMATTED").recl(10).run(), 0);
  EXPECT_EQ(FormattedRead(12, "(I1)", kAll).all(&i), ERR_SEQUENTIAL_ON_DIRECT);
  EXPECT_EQ(FormattedRead(13, "(I1)", kAll | SF_ASYNCHRONOUS).all(&i), ERR_ASYNC_UNCONNECTED);
  // An unopened unit is connected to fort.N, created empty: end of file.
  EXPECT_EQ(FormattedRead(13, "(I1)", kAll).all(&i), ERR_END_OF_FILE);
  EXPECT_TRUE(dir_.exists("fort.13"));
}

TEST_F(ReadFailures, FatalReports) {
  dir_.write("in.txt", "ab\n");
  // Each child opens the file itself: children share the parent's offsets.
  auto report = [](auto statement) {
    return run_in_child([&] {
      CHILD_CHECK(Open(11).file("in.txt").run() == 0);
      statement();
    });
  };
  auto r = report([] {
    int32_t i;
    FormattedRead(11, "(I2)").all(&i);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1080:  unexpected character in integer field\n"
                       " Location:  the READ statement at line 5 of \"test.f90\"\n"
                       " Unit:  11\n File:  in.txt\n");
  r = report([] {
    char a[2];
    FormattedRead(11, "(A2,/,A2)").all(CharOut{a, 2}, CharOut{a, 2});
  });
  EXPECT_EQ(r.err, kBanner +
                       " End-of-file:  -1\n"
                       " Location:  the READ statement at line 5 of \"test.f90\"\n"
                       " Unit:  11\n File:  in.txt\n");
  r = report([] {
    char a[3];
    FormattedRead(11, "(A3)").advance("NO").start().item(CharOut{a, 3}).end();
  });
  EXPECT_EQ(r.err, kBanner +
                       " End-of-record:  -2\n"
                       " Location:  the READ statement at line 5 of \"test.f90\"\n"
                       " Unit:  11\n File:  in.txt\n");
}

TEST_F(ReadFailures, ReadErrorDropsTheBufferAndLeavesTheUnitUsable) {
  file("1\n2\n");
  Unit* u = unit(10);
  // The descriptor goes away behind the unit's back: read fails with EBADF.
  const int saved = dup(u->fd);
  close(u->fd);
  int32_t i;
  EXPECT_EQ(FormattedRead(10, "(I1)", kAll).all(&i), EBADF);
  EXPECT_EQ(u->buffer, nullptr);
  dup2(saved, u->fd);
  close(saved);
  EXPECT_EQ(FormattedRead(10, "(I1)", kAll).all(&i), 0);
  EXPECT_EQ(i, 1);
}

TEST(ReadDefaultUnit, StandardInputFromAPipe) {
  auto r = run_in_child(
      [] {
        int32_t i = 0, j = 0;
        CHILD_CHECK(FormattedRead::star("(I3)", kAll).all(&i) == 0);
        CHILD_CHECK(FormattedRead::star("(I3)", kAll).all(&j) == 0);
        CHILD_CHECK(FormattedRead::star("(I3)", kAll).all(&j) == ERR_END_OF_FILE);
        printf("%d %d\n", i, j);
      },
      " 12\n 34\n");
  EXPECT_EQ(r.out, "12 34\n");
  EXPECT_TRUE(r.exited && r.exit_code == 0) << r.err;
}

namespace {

// What the correction hook was told, and what it answers.
struct HookCall {
  int64_t unit, line, offset, item;
  std::string source, file, rest;
};
std::vector<HookCall> hook_calls;
char hook_answer;
int32_t hook_action;

void record_and_answer(const int64_t* unit, const char* source, const int64_t* line,
                       const char* file, const int64_t* offset, const char* rest,
                       const int64_t* item, char* corrected, int32_t* action, int64_t source_length,
                       int64_t file_length, int64_t rest_length) {
  hook_calls.push_back({*unit, *line, *offset, *item, std::string(source, size_t(source_length)),
                        std::string(file, size_t(file_length)),
                        std::string(rest, size_t(rest_length))});
  *corrected = hook_answer;
  *action = hook_action;
}

}  // namespace

using ReadCorrectionHook = ReadUnits;

TEST_F(ReadCorrectionHook, TheHookMendsTheFieldOrFailsTheStatement) {
  file("11 1x3\n1x3\n1x3\n1x3\n1x3\n");
  ASSERT_EQ(__f90_set_io_error_handler(10, record_and_answer), 0);
  int32_t i = 0, j = 0;
  hook_calls.clear();
  hook_answer = '2';
  hook_action = 1;
  // READ(10,'(I3,I3)') I, J: the second field's x is offered.
  EXPECT_EQ(FormattedRead(10, "(I2,I4)", kAll).all(&i, &j), 0);
  EXPECT_EQ(j, 123);
  ASSERT_EQ(hook_calls.size(), 1u);
  const HookCall& c = hook_calls[0];
  EXPECT_EQ(c.unit, 10);
  EXPECT_EQ(c.source, "test.f90");
  EXPECT_EQ(c.line, 5);
  EXPECT_EQ(c.file, "in.txt");
  EXPECT_EQ(c.offset, 4);
  EXPECT_EQ(c.rest, "x3");
  EXPECT_EQ(c.item, 2);
  // A blank in its place: the field is found again, and the blank skipped.
  hook_answer = ' ';
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll).all(&i), 0);
  EXPECT_EQ(i, 13);
  // Action 2 writes the character into the file too.
  hook_answer = '7';
  hook_action = 2;
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll).all(&i), 0);
  EXPECT_EQ(i, 173);
  EXPECT_EQ(dir_.read("in.txt"), "11 1x3\n1x3\n173\n1x3\n1x3\n");
  hook_action = 0;
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll).all(&i), ERR_BAD_CORRECTION_ACTION);
  // Answering with the character offered offers it again: a loop.
  hook_answer = 'x';
  hook_action = 1;
  EXPECT_EQ(FormattedRead(10, "(I3)", kAll).all(&i), ERR_HANDLER_LOOP);
  EXPECT_EQ(__f90_set_io_error_handler(13, record_and_answer), ERR_UNIT_NOT_CONNECTED);
  EXPECT_EQ(__f90_set_io_error_handler(-1, record_and_answer), ERR_ILLEGAL_UNIT);
}

TEST_F(ReadDispatch, OldDialectGoesBySizeAlone) {
  file("  12ab  T 1.5\n");
  // A four-byte character item read as a number, a two-byte one as text.
  int32_t as_integer = 0;
  char text[2];
  int64_t logical = 0;
  double x = 0;
  FormattedRead r(10, "(I4,A2,L3,F4.1)", kAll | SF_F77_READ);
  r.start().item(reinterpret_cast<int32_t*>(&as_integer)).item(CharOut{text, 2});
  r.item(LogicalOut{&logical, 8}).item(&x).end();
  EXPECT_EQ(r.status(), 0);
  EXPECT_EQ(as_integer, 12);
  EXPECT_EQ(chars(text, 2), "ab");
  EXPECT_EQ(logical, 1);
  EXPECT_EQ(x, 1.5);
}

TEST_F(ReadRecords, RecordsForOtherCallers) {
  file("one\ntwo");
  Unit* u = nullptr;
  ASSERT_EQ(__f90_get_numbered_unit_r(&u, 10), 0);
  EXPECT_EQ(__f90_read_sf_record(u, 3, 10, nullptr), 0);
  EXPECT_EQ(std::string(u->record_start, u->record_end), "one");
  // A last line without its newline is not a record here: end of file,
  // and the unit is released.
  EXPECT_EQ(__f90_read_sf_record(u, 3, 10, nullptr), ERR_END_OF_FILE);
}

TEST_F(ReadDispatch, RealsOfEverySizeAndTheirSpecialValues) {
  file("1.5 -0.25E2 Inf -nan1.0E+9991.0E+999\n1.5\n");
  float x4 = 0;
  double x8 = 0, big = 0;
  uint64_t q[2] = {};
  uint32_t inf = 0, nan = 0;
  FormattedRead r(10, "(F4.1,E8.2,2F4.0,2E8.1,/,F3.1)", kAll);
  r.start().item(&x4).item(&x8).item(reinterpret_cast<float*>(&inf));
  r.item(reinterpret_cast<float*>(&nan)).item(&big).item(&big).item(QuadOut{q}).end();
  EXPECT_EQ(r.status(), 0);
  EXPECT_EQ(x4, 1.5f);
  EXPECT_EQ(x8, -25.0);
  EXPECT_EQ(inf, 0x7f800000u);
  EXPECT_EQ(nan, 0xffffffffu);  // every fraction bit, and the sign
  EXPECT_EQ(big, __builtin_inf());
  EXPECT_EQ(q[1], uint64_t{0x3fff8} << 44);  // 1.5 as REAL*16
  EXPECT_EQ(q[0], 0u);
  // With the overflow check, a real too large for its item is 1031.
  close_unit(10);
  file("1.0E+39\n");
  EXPECT_EQ(FormattedRead(10, "(E8.1)", kAll | SF_CHECK_FP_OVERFLOW).all(&x4),
            ERR_REAL_OVERFLOW_INPUT);
  // The same from a plain field of digits, which has a quicker path.
  close_unit(10);
  file("   1.5E39\n");
  EXPECT_EQ(FormattedRead(10, "(F9.0)", kAll | SF_CHECK_FP_OVERFLOW).all(&x4),
            ERR_REAL_OVERFLOW_INPUT);
}

TEST_F(ReadDispatch, RealDescriptorsOnIntegersAndBareWidths) {
  // A bare F on a REAL*8 is 25 wide with 16 digits after an implied point;
  // on INTEGER*4 the field is read as a REAL*4 and its bits are stored.
  file(std::string(24, ' ') + "5" + "1.5\n");
  double x = 0;
  int32_t bits = 0;
  EXPECT_EQ(FormattedRead(10, "(F,F3.1)", kAll).all(&x, &bits), 0);
  EXPECT_EQ(x, 5e-16);
  float f;
  memcpy(&f, &bits, 4);
  EXPECT_EQ(f, 1.5f);
}

// Integer fields against their neighbours: digits of the field before or
// after, signs and blanks in every place, fields at the record's start and
// end, eight digits and more.
TEST_F(ReadDispatch, IntegerFieldsTakeOnlyTheirOwnColumns) {
  file(
      "12345678\n"
      " 1234567-12\n"
      "  12 3    45\n"
      "+ 1234 -0000001\n"
      "123456789012345678\n"
      "9-1\n"
      "ab123456\n");
  int32_t a = 0, b = 0;
  int64_t c = 0;
  EXPECT_EQ(FormattedRead(10, "(I4,I4)", kAll).all(&a, &b), 0);
  EXPECT_EQ(a, 1234);
  EXPECT_EQ(b, 5678);
  EXPECT_EQ(FormattedRead(10, "(I8,I3)", kAll).all(&a, &b), 0);
  EXPECT_EQ(a, 1234567);
  EXPECT_EQ(b, -12);
  EXPECT_EQ(FormattedRead(10, "(2I6)", kAll).all(&a, &b), 0);
  EXPECT_EQ(a, 123);  // blanks inside the field are nothing
  EXPECT_EQ(b, 45);
  EXPECT_EQ(FormattedRead(10, "(I6,I9)", kAll).all(&a, &b), 0);
  EXPECT_EQ(a, 1234);
  EXPECT_EQ(b, -1);
  EXPECT_EQ(FormattedRead(10, "(I2,I16)", kAll).all(&a, &c), 0);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(c, 3456789012345678);
  EXPECT_NE(FormattedRead(10, "(I3)", kAll).all(&a), 0);  // a sign inside the digits
  char text[2];
  EXPECT_EQ(FormattedRead(10, "(A2,I3,I3)", kAll).all(CharOut{text, 2}, &a, &b), 0);
  EXPECT_EQ(a, 123);
  EXPECT_EQ(b, 456);
}
