// Formatted output to units: the walk through the format, records in the
// buffer, carriage control, non-advancing output, stream positions, the
// item dispatch and every failure with its number or report.
#include <string.h>
#include <unistd.h>

#include <functional>
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

using Statements = std::function<void()>;

// What `body` leaves in fort.10, with unit 10 closed afterwards.
std::string file_text(const Statements& body) {
  ScratchDir dir;
  body();
  close_unit(10);
  return dir.read("fort.10");
}

// The status of one statement on unit 10 with IOSTAT=.
template <class... Items>
int status_of(std::string_view format, Items... items) {
  ScratchDir dir;
  const int r = FormattedWrite(10, format, SF_ERR_RETURN).all(items...);
  close_unit(10);
  return r;
}

// A table as a compiler lays one down: ops, `counters` counter words, no text.
struct Table {
  std::vector<int32_t> words;
  explicit Table(std::vector<int32_t> ops, int counters = 1) {
    words = {FMT_MAGIC, FMT_HEADER_WORDS, static_cast<int32_t>(ops.size()) + counters, 0};
    words.insert(words.end(), ops.begin(), ops.end());
    words.insert(words.end(), static_cast<size_t>(counters), 0);
  }
  const int32_t* table() const { return words.data(); }
  int32_t* counters() { return words.data() + words.size() - 1; }
};

// One case of a table: statements on unit 10 and the file they leave.
struct Row {
  const char* name;
  Statements statements;
  const char* expected;
};

// Every test leaves the units it used closed, so tests may share a process.
class UnitsClosedAfterwards : public ::testing::Test {
 protected:
  void TearDown() override {
    for (int unit : {10, 11, 12, 13, 14}) close_unit(unit);
  }
};

}  // namespace

using FormatWalk = UnitsClosedAfterwards;
using FormatRecords = UnitsClosedAfterwards;
using FormatItems = UnitsClosedAfterwards;
using FormatFailures = UnitsClosedAfterwards;

TEST_F(FormatWalk, WhatTheFormatWritesAroundItems) {
  const std::vector<Row> rows = {
      // The walk stops at the next descriptor that needs an item.
      {"trailing text stops at data", [] { FormattedWrite(10, "(I5,'abc',I5,'def')").all(42); },
       "   42abc\n"},
      {"text alone", [] { FormattedWrite(10, "('abc')").all(); }, "abc\n"},
      {"reversion per item", [] { FormattedWrite(10, "(I3)").all(1, 2, 3); }, "  1\n  2\n  3\n"},
      {"colon ends the output", [] { FormattedWrite(10, "(I3,:,'x')").all(1); }, "  1\n"},
      {"colon with more items", [] { FormattedWrite(10, "(I1,:,'x')").all(1, 2); }, "1x\n2\n"},
      {"tabs overwrite blanks", [] { FormattedWrite(10, "(T10,I2,T1,I2,TR20,5X)").all(12, 34); },
       "34       12\n"},
      {"tab left past the start", [] { FormattedWrite(10, "(I3,TL9,I1)").all(123, 7); }, "723\n"},
      {"tab left inside", [] { FormattedWrite(10, "(I4,TL2,I1)").all(1234, 7); }, "1274\n"},
      {"gap becomes blanks", [] { FormattedWrite(10, "(I1,3X,I1,TR2,'z')").all(1, 2); },
       "1   2  z\n"},
      {"string after a tab", [] { FormattedWrite(10, "(T5,'ab')").all(); }, "    ab\n"},
      {"slash in a group", [] { FormattedWrite(10, "(2(I2),/)").all(1, 2); }, " 1 2\n\n"},
      {"counted slash", [] { FormattedWrite(10, "(I1,3/I1)").all(1, 2); }, "1\n\n\n2\n"},
      // Reversion goes back to the last group at the outer level.
      {"reversion into a group", [] { FormattedWrite(10, "(I2,(I3,I4))").all(1, 2, 3, 4, 5); },
       " 1  2   3\n  4   5\n"},
      {"reversion into a repeated group", [] { FormattedWrite(10, "('a',2(I1))").all(1, 2, 3); },
       "a12\n3\n"},
      {"nested repeats", [] { FormattedWrite(10, "(2(I1,2(I2)),'|')").all(1, 2, 3, 4, 5, 6); },
       "1 2 34 5 6|\n"},
      // Modes set on one pass stay in force after reversion.
      {"sign mode survives reversion", [] { FormattedWrite(10, "(I3,SP)").all(1, 2); },
       "  1\n +2\n"},
      {"S resets SP", [] { FormattedWrite(10, "(SP,I3,S,I3,SP,I3,SS,I3)").all(1, 2, 3, 4); },
       " +1  2 +3  4\n"},
      {"empty list ends the record at the first data", [] { FormattedWrite(10, "(I3)").all(); },
       "\n"},
      {"text behind the last item up to the colon",
       [] { FormattedWrite(10, "(I1,'a',:,'b')").all(1); }, "1a\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(file_text(row.statements), row.expected) << row.name;
}

TEST_F(FormatWalk, ModeOpsChangeTheStatement) {
  ScratchDir dir;
  FormattedWrite w(10, "(DC,3P,I1,RZ,DP,I1,RC)");
  w.start().item(1);
  EXPECT_EQ(w.stmt().stmt_flags & SF_DECIMAL, uint32_t{SF_DECIMAL_COMMA});
  EXPECT_EQ(w.stmt().scale_factor, 3);
  w.item(2);
  EXPECT_EQ(w.stmt().stmt_flags & SF_DECIMAL, uint32_t{SF_DECIMAL_POINT});
  EXPECT_EQ(w.stmt().stmt_flags & SF_ROUND, uint32_t{SF_ROUND_ZERO});
  w.end();
  EXPECT_EQ(w.status(), 0);
}

TEST_F(FormatWalk, CompiledTables) {
  // 16R,I4: the radix of compiled tables (the text form is the old
  // dialect's).  The format stays the program's: the statement frees nothing.
  Table radix({FMT_RADIX, 16, FMT_I_W, 4, 0, FMT_B_W, 9, 0, FMT_END, 4});
  EXPECT_EQ(file_text([&] { FormattedWrite(10, radix.table(), radix.counters()).all(255, 5); }),
            "  FF      101\n");
  // A negative X is bounded by the start of the record when the walk stops.
  Table back({FMT_I_W, 3, 0, FMT_X, -5, FMT_I_W, 2, 0, FMT_END, 4});
  EXPECT_EQ(file_text([&] { FormattedWrite(10, back.table(), back.counters()).all(1, 2); }),
            " 21\n");
  // A slash of count 0 writes nothing.
  Table none({FMT_I_W, 1, 0, FMT_SLASH, 0, FMT_I_W, 1, 0, FMT_END, 4});
  EXPECT_EQ(file_text([&] { FormattedWrite(10, none.table(), none.counters()).all(1, 2); }),
            "12\n");
  // S by processor default acts as SS, after an SP.
  Table plus({FMT_SP, FMT_I_W, 2, 0, FMT_S_DEFAULT, FMT_I_W, 2, 0, FMT_END, 4});
  EXPECT_EQ(file_text([&] { FormattedWrite(10, plus.table(), plus.counters()).all(1, 2); }),
            "+1 2\n");
}

TEST_F(FormatRecords, NonAdvancingAndDollarKeepTheRecordOpen) {
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(I1,$)").all(7);
              // T counts from where this statement began.
              FormattedWrite(10, "(T2,I1)").all(8);
            }),
            "7 8\n");
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(A)").start().advance("no  ").item("ab").end();
              FormattedWrite(10, "(A)").start().advance("No").item("cd").end();
              FormattedWrite(10, "(A)").start().advance("YES").item("ef").end();
              FormattedWrite(10, "(A)").all("gh");
            }),
            "abcdef\ngh\n");
  ScratchDir dir;
  FormattedWrite(10, "(A)").start().advance("NO").item("abc").end();
  Unit* u = nullptr;
  ASSERT_EQ(__f90_get_numbered_unit_r(&u, 10), 0);
  EXPECT_EQ(u->column, 3);
  __f90_release_unit(u);
  close_unit(10);
  // An unfinished record reaches the file at CLOSE without a newline.
  EXPECT_EQ(dir.read("fort.10"), "abc");
}

TEST_F(FormatRecords, NonAdvancingRecordContinuesBehindItsLastByte) {
  // A closing X or T leaves nothing behind: the next statement starts where
  // the last byte stands, not where the position was moved to.
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(A,3X)").start().advance("NO").item("abc").end();
              FormattedWrite(10, "(A)").all("def");
            }),
            "abcdef\n");
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(A,T2,A)").start().advance("NO").item("abcdef").item("x").end();
              FormattedWrite(10, "(A)").all("Z");
            }),
            "axcdefZ\n");
}

TEST_F(FormatRecords, AdvanceSpecifier) {
  ScratchDir dir;
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start().advance("N").item("x").end().status(),
            ERR_BAD_ADVANCE);
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start().advance("NOT").end().status(),
            ERR_BAD_ADVANCE);
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start().advance(" NO").end().status(),
            ERR_BAD_ADVANCE);
  FormattedWrite w(10, "(A)", SF_ERR_RETURN);
  w.start();
  EXPECT_EQ(__f90_sfw_advance(&w.stmt(), nullptr, 2), ERR_UNASSOCIATED_ADVANCE);
}

TEST_F(FormatRecords, RecordsLongerThanTheBuffer) {
  ScratchDir dir;
  // Finished records ahead of a record that outgrows the buffer are written
  // first and the open record slides to the front; then the buffer grows.
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    FormattedWrite(10, "(I5)").all(i);
    char line[8];
    snprintf(line, sizeof line, "%5d\n", i);
    expected += line;
  }
  std::string big(1000000, 'x');
  for (size_t i = 0; i < big.size(); i += 7) big[i] = static_cast<char>('a' + i % 26);
  FormattedWrite(10, "('<',A,'>')").all(std::string_view(big));
  expected += "<" + big + ">\n";
  Unit* u = nullptr;
  ASSERT_EQ(__f90_get_numbered_unit_r(&u, 10), 0);
  EXPECT_GE(u->buffer_end - u->buffer, 1000002);  // grown, and not shrunk by the statement
  __f90_release_unit(u);
  // Many fields of one record across the same boundary.
  FormattedWrite w(10, "(3000I4)");
  w.start();
  for (int i = 0; i < 3000; ++i) {
    w.item(i % 1000);
    char f[8];
    snprintf(f, sizeof f, "%4d", i % 1000);
    expected += f;
  }
  w.end();
  expected += "\n";
  close_unit(10);
  EXPECT_EQ(dir.read("fort.10"), expected);
}

TEST_F(FormatRecords, CarriageControlOnPrintFormUnits) {
  ScratchDir dir;
  ASSERT_EQ(Open(10).f77().file("cc.txt").form("PRINT").run(), 0);
  FormattedWrite(10, "(A)").all("1abc");
  FormattedWrite(10, "(A)").all("0x");
  FormattedWrite(10, "(A)").all(" plain");
  FormattedWrite(10, "(A)").all(" ab");
  FormattedWrite(10, "(A)").all("+cd");  // overprints: the newline before it turns to a return
  FormattedWrite(10, "(A,/,A)").all("1p", "0q");
  close_unit(10);
  EXPECT_EQ(dir.read("cc.txt"), "\fabc\n\nx\nplain\nab\rcd\n\fp\n\nq\n");
}

TEST_F(FormatRecords, StreamPositions) {
  ScratchDir dir;
  ASSERT_EQ(Open(10).file("s.txt").access("STREAM").form("FORMATTED").run(), 0);
  FormattedWrite(10, "(A)").all("abcdef");
  EXPECT_EQ(FormattedWrite(10, "(A)").start_pos(3).item("XY").end().status(), 0);
  // Nothing behind the position is cut off.
  close_unit(10);
  EXPECT_EQ(dir.read("s.txt"), "abXY\nf\n");
  ASSERT_EQ(Open(10).file("s.txt").access("STREAM").form("FORMATTED").run(), 0);
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start_pos(0).status(), ERR_BAD_POS);
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start_pos(9).status(), ERR_BAD_POS);
  EXPECT_EQ(FormattedWrite(10, "(A)", SF_ERR_RETURN).start_pos(8).item("z").end().status(), 0);
  close_unit(10);
  EXPECT_EQ(dir.read("s.txt"), "abXY\nf\nz\n");
  ASSERT_EQ(Open(11).file("q.txt").run(), 0);
  EXPECT_EQ(FormattedWrite(11, "(A)", SF_ERR_RETURN).start_pos(1).status(),
            ERR_STREAM_ON_RECORD_UNIT);
  EXPECT_EQ(FormattedWrite(12, "(A)", SF_ERR_RETURN).start_pos(1).status(), ERR_STREAM_UNCONNECTED);
  EXPECT_FALSE(dir.exists("fort.12"));
  EXPECT_EQ(FormattedWrite(0, "(A)", SF_ERR_RETURN | SF_DEFAULT_UNIT).start_pos(1).status(),
            ERR_STREAM_DEFAULT_UNIT);
}

TEST_F(FormatItems, DescriptorsByItemType) {
  const std::vector<Row> rows = {
      {"bare I by kind",
       [] { FormattedWrite(10, "(4I)").all(int8_t{-5}, int16_t{7}, 9, int64_t{-1}); },
       "     -5      7           9                     -1\n"},
      {"bare B by kind", [] { FormattedWrite(10, "(B,B)").all(int8_t{-1}, int16_t{5}); },
       " 11111111              101\n"},
      {"B, O, Z of one byte are its own bits",
       [] { FormattedWrite(10, "(B0,1X,O0,1X,Z0)").all(int8_t{-2}, int8_t{-2}, int8_t{-2}); },
       "11111110 376 FE\n"},
      {"unsigned items", [] { FormattedWrite(10, "(I4,SP,I5.4)").all(uint8_t{200}, uint32_t{12}); },
       " 200 0+12\n"},
      {"SU takes the widened bits", [] { FormattedWrite(10, "(SU,I11)").all(int16_t{-1}); },
       " 4294967295\n"},
      {"G of integers is I",
       [] { FormattedWrite(10, "(G,G5,G6.2,G7.1E3)").all(1, 2, int64_t{3}, int8_t{4}); },
       "           1    2     3      4\n"},
      {"logicals under L, G and I",
       [] {
         FormattedWrite(10, "(L,L3,G,G2,I3,Z3)")
             .all(Logical{1}, Logical{0, 8}, Logical{2, 1}, Logical{0, 2}, Logical{-1, 1},
                  Logical{-1, 1});
       },
       " T  F T F -1 FF\n"},
      {"A of numeric items gives their bytes",
       [] { FormattedWrite(10, "(A,A2,A6)").all(0x64636261, int16_t{0x7a79}, int8_t{0x41}); },
       "abcdyz     A\n"},
      {"character items",
       [] { FormattedWrite(10, "(A,A3,A7,A0,G,G4)").all("xy", "abcde", "abcde", "q", "g", "h"); },
       "xyabc  abcdeg   h\n"},
      {"character items as numbers",
       [] {
         FormattedWrite(10, "(Z,1X,Z3,1X,O,1X,I,1X,B)")
             .all("A", "A", std::string_view("\1\0", 2), "\xff", "");
       },
       " 41  41     400  -1  0\n"},
      {"character bare widths", [] { FormattedWrite(10, "(O,Z,B)").all("", "", "abc"); },
       " 0 0  11000010110001001100011\n"},
  };
  for (const Row& row : rows) EXPECT_EQ(file_text(row.statements), row.expected) << row.name;
}

TEST_F(FormatItems, RealsAndComplexesAsBits) {
  // Under the integer and A descriptors reals go out as their bits.
  EXPECT_EQ(file_text([] { FormattedWrite(10, "(A,A2)").all(0.0f, 1.0f); }),
            std::string("\0\0\0\0\0\0\n", 7));
  EXPECT_EQ(file_text([] { FormattedWrite(10, "(Z,1X,Z0)").all(1.0f, -2.0); }),
            "    3F800000 C000000000000000\n");
  ScratchDir dir;
  FormattedWrite w(10, "(Z0,1X,Z0,1X,Z0)");
  const float c[2] = {1.0f, -1.0f};
  const uint64_t q[2] = {0, 0x3fff000000000000};
  w.start();
  EXPECT_EQ(__f90_sfw_c4(&w.stmt(), c), 0);
  EXPECT_EQ(__f90_sfw_r16_ref(&w.stmt(), q), 0);
  w.end();
  close_unit(10);
  EXPECT_EQ(dir.read("fort.10"), "3F800000 BF800000 3FFF0000000000000000000000000000\n");
  EXPECT_EQ(status_of("(L2)", 1.0), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(status_of("(A2,L2)", "ab", 1.0), ERR_EDIT_TYPE_MISMATCH);
}

TEST_F(FormatItems, RealDescriptorsByItemType) {
  // Integers under real descriptors are reals of their size: the bits of
  // 1.0 in four and eight bytes, and a one-byte 1 as the low end of a
  // REAL*16, the smallest subnormal there is (E42.33, the exponent too
  // long for its letter).
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(F5.2,1X,G10.3,1X,E10.3,1X,ES10.2E4)")
                  .all(1.0, 1.0f, 0x3f800000, int64_t{0x3ff0000000000000});
            }),
            " 1.00   1.00      0.100E+01 1.00E+0000\n");
  EXPECT_EQ(file_text([] { FormattedWrite(10, "(E)").all(int8_t{1}); }),
            "  0.647517511943802511092443895822765-4965\n");
  // Complex items take two descriptors; the old dialect also takes Dw.dEe.
  ScratchDir dir;
  FormattedWrite w(10, "('(',F4.1,',',F4.1,')',1X,D10.3E2)", SF_F77_WRITE);
  const double c[2] = {1.5, -2.25};
  w.start();
  EXPECT_EQ(__f90_sfw_c8(&w.stmt(), c), 0);
  w.item(1.0).end();
  close_unit(10);
  // -2.25 lies halfway: the processor's direction, to even, decides.
  EXPECT_EQ(dir.read("fort.10"), "( 1.5,-2.2)  0.100D+01\n");
}

TEST_F(FormatItems, GCountsTheDigitsAheadOfThePoint) {
  // Just below and at a power of ten the F part keeps d significant digits.
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(G25.16,/,G25.16,/,G12.4,/,G12.4)")
                  .all(1000.0, 999.9999999999999, 9.999, 99999.0);
            }),
            "    1000.000000000000    \n    999.9999999999999    \n   9.999    \n  0.1000E+06\n");
  // Either side of every power of ten that G40.30 still edits in F: the
  // integer digits are those of floor(x), and 30 - n digits follow.
  for (int k = 1; k <= 26; ++k) {
    const double at = __builtin_pow(10.0, k);
    for (const double x : {__builtin_nextafter(at, 0.0), at}) {
      char whole[64], want[64];
      const int n = snprintf(whole, sizeof whole, "%.0f", __builtin_floor(x));
      snprintf(want, sizeof want, "%36.*f    \n", 30 - n, x);
      EXPECT_EQ(file_text([x] { FormattedWrite(10, "(G40.30)").all(x); }), want) << x;
    }
  }
}

TEST_F(FormatItems, OldDialectLooksOnlyAtTheSize) {
  // One byte and two (a CHARACTER*2 too) are seven wide under I; L looks
  // at the low 32 bits; Z of two bytes is their unsigned value.
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(I,I,L,L3,Z,I0)", SF_F77_WRITE)
                  .all(int8_t{-3}, "ab", Logical{0x100, 4}, 5, int16_t{-1}, 5);
            }),
            "     -3  25185 T  T   FFFF\n");
  // Items of five to seven bytes are tested on their first four only.
  EXPECT_EQ(file_text([] {
              FormattedWrite(10, "(3L3)", SF_F77_WRITE).all("abcde", "\0\0\0\0fg", "abcdefg");
            }),
            "  T  F  T\n");
  // Bare D keeps its letter on a double; on any size but 4 and 8 it is the
  // bare E of a REAL*16.
  ScratchDir dir;
  FormattedWrite w(10, "(D,/,D)", SF_F77_WRITE);
  w.start().item(1.0);
  EXPECT_EQ(__f90_sfw_r16(&w.stmt(), 0, uint64_t{0x3fff} << 48), 0);
  w.end();
  close_unit(10);
  EXPECT_EQ(dir.read("fort.10"), "   0.1000000000000000D+01\n   0." +
                                     std::string(33, '0').replace(0, 1, "1") + "E+01\n");
}

TEST_F(FormatFailures, NumbersReturned) {
  EXPECT_EQ(status_of("('abc')", 1), ERR_NO_DATA_EDIT);
  EXPECT_EQ(status_of("(L2)", 1), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(status_of("(Q)", 1), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(status_of("(D10.3E2)", 1.0), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(status_of("(L2)", "x"), ERR_EDIT_TYPE_MISMATCH);
  EXPECT_EQ(status_of("(L0)", Logical{1}), ERR_ZERO_FIELD_WIDTH);
  // Exponent digits that begin with a sign make a negative exponent width:
  // refused for zero and nonzero values alike, whichever form lays them out.
  for (const char* format : {"(E12.3E-5)", "(ES12.3E-5)", "(EN12.3E-5)", "(G12.3E-5)"})
    for (double x : {0.0, 1.5, 1e30}) EXPECT_EQ(status_of(format, x), ERR_NEGATIVE_FIELD_WIDTH);
  ScratchDir dir;
  // The old dialect: no item-less pass check of its own, B refused as a
  // format error, L0 one wide.
  EXPECT_EQ(FormattedWrite(10, "('a')", SF_ERR_RETURN | SF_F77_WRITE).all(1), ERR_FORMAT);
  EXPECT_EQ(FormattedWrite(10, "(B5)", SF_ERR_RETURN | SF_F77_WRITE).all(1), ERR_FORMAT);
  EXPECT_EQ(FormattedWrite(10, "(L0)", SF_ERR_RETURN | SF_F77_WRITE).all(Logical{1}), 0);
  Table negative({FMT_I_W, -3, 0, FMT_END, 4});
  EXPECT_EQ(FormattedWrite(10, negative.table(), negative.counters(), SF_ERR_RETURN).all(1),
            ERR_NEGATIVE_FIELD_WIDTH);
  Table corrupt({61, FMT_END, 4});
  EXPECT_EQ(FormattedWrite(10, corrupt.table(), corrupt.counters(), SF_ERR_RETURN).all(1),
            ERR_CORRUPTED_FORMAT);
  EXPECT_EQ(FormattedWrite(10, corrupt.table(), corrupt.counters(), SF_ERR_RETURN).all(),
            ERR_CORRUPTED_FORMAT);
  Table no_magic({FMT_I_W, 3, 0, FMT_END, 4});
  no_magic.words[0] = 0;
  EXPECT_EQ(FormattedWrite(10, no_magic.table(), no_magic.counters(), SF_ERR_RETURN).all(1),
            ERR_CORRUPTED_FORMAT);
  EXPECT_EQ(FormattedWrite(10, nullptr, nullptr, SF_ERR_RETURN).all(1), ERR_CORRUPTED_FORMAT);
  close_unit(10);
  // What the failed statements wrote stays: nothing is taken back, but the
  // record that ('a') began again is ended, so L0 starts a record of its own.
  EXPECT_EQ(dir.read("fort.10"), "a\na\nT\n");
}

TEST_F(FormatFailures, ConnectionChecks) {
  ScratchDir dir;
  dir.write("r.txt", "x\n");
  ASSERT_EQ(Open(10).file("r.txt").action("READ").run(), 0);
  EXPECT_EQ(FormattedWrite(10, "(I1)", SF_ERR_RETURN).all(1), ERR_WRITING_NOT_ALLOWED);
  ASSERT_EQ(Open(11).file("u.bin").form("UNFORMATTED").run(), 0);
  EXPECT_EQ(FormattedWrite(11, "(I1)", SF_ERR_RETURN).all(1), ERR_FORMATTED_ON_UNFORMATTED);
  ASSERT_EQ(Open(12).file("d.txt").access("DIRECT").form("FORMATTED").recl(10).run(), 0);
  EXPECT_EQ(FormattedWrite(12, "(I1)", SF_ERR_RETURN).all(1), ERR_SEQUENTIAL_ON_DIRECT);
  EXPECT_EQ(FormattedWrite(13, "(I1)", SF_ERR_RETURN | SF_ASYNCHRONOUS).all(1),
            ERR_ASYNC_UNCONNECTED);
  ASSERT_EQ(Open(14).file("a.txt").run(), 0);
  EXPECT_EQ(FormattedWrite(14, "(I1)", SF_ERR_RETURN | SF_ASYNCHRONOUS).all(1), ERR_ASYNC_ON_SYNC);
}

TEST_F(FormatFailures, NestedStatementOnTheSameUnit) {
  ScratchDir dir;
  FormattedWrite outer(10, "(I2)", SF_ERR_RETURN);
  outer.start().item(1);
  // A function in the output list writes to the same unit.
  EXPECT_EQ(FormattedWrite(10, "(I2)").all(2), 0);
  outer.end();
  EXPECT_EQ(outer.status(), ERR_REENTRANT_IO);
}

TEST_F(FormatFailures, FatalReports) {
  ScratchDir dir;
  auto r = run_in_child([] { FormattedWrite(10, "('abc')").all(1); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1216:  current I/O list item doesn't match with any data edit "
                       "descriptor\n"
                       " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                       " Unit:  10\n File:  fort.10\n");
  // The banner's cleanup writes what the statement had buffered, its
  // unfinished record ended.
  EXPECT_EQ(dir.read("fort.10"), "abc\nabc\n");
  r = run_in_child([] { FormattedWrite::print("(I1,L1)").all(1, 2); });
  EXPECT_EQ(r.err, kBanner +
                       " Error 1215:  a data edit descriptor and I/O list item type are "
                       "incompatible\n"
                       " Location:  the PRINT statement at line 7 of \"test.f90\"\n"
                       " Unit:  *\n File:  standard output\n");
}
