// List-directed output to units: spacing of items, record breaks, delimited
// character items, the old dialect's rules, stream positions and failures.
#include <unistd.h>

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

// Change a connected unit by hand, as OPEN would have left it.
template <class F>
void adjust_unit(int64_t n, F f) {
  Unit* u = nullptr;
  ASSERT_EQ(__f90_get_numbered_unit_r(&u, n), 0);
  f(u);
  __f90_release_unit(u);
}

// Connect unit n to fort.n with an empty first statement that leaves no
// record behind, then apply `f` to the unit.
template <class F>
void connect(int64_t n, F f) {
  ListWrite w(n, SF_NO_FIRST_BLANK);
  w.start();
  w.stmt().unit_ptr->column = 0;
  w.end();
  adjust_unit(n, f);
}

std::string print_items(std::function<void()> body) { return run_in_child(body).out; }

}  // namespace

TEST(ListWriteSpacing, ItemsAtNaturalWidth) {
  struct Row {
    const char* name;
    std::function<int()> statement;
    const char* expected;
  };
  const std::vector<Row> rows = {
      {"adjacent text touches", [] { return ListWrite::print().all("a", "b"); }, " ab\n"},
      {"numbers get one blank", [] { return ListWrite::print().all(1, 2); }, " 1 2\n"},
      {"empty string", [] { return ListWrite::print().all(""); }, " \n"},
      {"empty list", [] { return ListWrite::print().start().end().status(); }, " \n"},
      {"text then number", [] { return ListWrite::print().all("ab", 1); }, " ab 1\n"},
      {"number then text", [] { return ListWrite::print().all(1, "ab", "cd", 2); }, " 1 abcd 2\n"},
      {"empty between texts", [] { return ListWrite::print().all("a", "", "b"); }, " ab\n"},
      {"logicals",
       [] {
         return ListWrite::print().all(Logical{1}, Logical{0, 8}, Logical{-3, 1});
       },
       " T F T\n"},
      {"extremes",
       [] {
         return ListWrite::print().all(INT32_MIN, INT64_MIN, UINT32_MAX, UINT64_MAX, int32_t{0});
       },
       " -2147483648 -9223372036854775808 4294967295 18446744073709551615 0\n"},
      {"no first blank", [] { return ListWrite::print(SF_NO_FIRST_BLANK).all(1, 2); }, "1 2\n"},
      {"no character separator",
       [] { return ListWrite::print(SF_NO_CHARACTER_SEPARATOR).all(1, "a", "", 2); }, " 1a 2\n"},
      {"old dialect", [] { return ListWrite::print(SF_F77_WRITE).all(1, 2, "x", "y"); },
       "   1  2xy\n"},
      {"old dialect one-byte logical",
       [] {
         return ListWrite::print(SF_F77_WRITE).all(Logical{-5, 1}, Logical{1});
       },
       "   -5  T\n"},
  };
  for (const auto& row : rows) {
    auto r = run_in_child([&] { exit(row.statement()); });
    EXPECT_EQ(r.exit_code, 0) << row.name;
    EXPECT_EQ(r.out, row.expected) << row.name;
  }
}

TEST(ListWriteRecords, StandardOutputWrapsAt81) {
  auto out = print_items([] {
    ListWrite p = ListWrite::print();
    p.start();
    for (int i = 0; i < 100; ++i) p.item(1000000000);
    p.end();
  });
  // 7 items of 11 characters fill 77 columns; an 8th would pass 81.
  std::string line = " 1000000000";
  std::string full;
  for (int i = 0; i < 7; ++i) full += line;
  std::string expected;
  for (int i = 0; i < 14; ++i) expected += full + "\n";
  expected += line + line + "\n";
  EXPECT_EQ(out, expected);
}

TEST(ListWriteRecords, FilesDoNotWrap) {
  ScratchDir dir;
  run_in_child([] {
    ListWrite w(10);
    w.start();
    for (int i = 0; i < 1000000; ++i) w.item(i % 10);
    w.end();
  });
  std::string text = dir.read("fort.10");
  ASSERT_EQ(text.size(), 2000001u);
  EXPECT_EQ(text.find('\n'), 2000000u);
  EXPECT_EQ(text.substr(0, 8), " 0 1 2 3");
}

TEST(ListWriteRecords, LongTextFillsEachRecordThenContinuesWithABlank) {
  ScratchDir dir;
  run_in_child([] {
    connect(10, [](Unit* u) { u->record_length = 10; });
    ListWrite(10).all("abcdefghijklmnopqrstuvwxyz", 1);
  });
  EXPECT_EQ(dir.read("fort.10"), " abcdefghi\n jklmnopqr\n stuvwxyz\n 1\n");
}

TEST(ListWriteRecords, ItemLongerThanRecordIs1010) {
  ScratchDir dir;
  auto r = run_in_child([] {
    connect(10, [](Unit* u) { u->record_length = 5; });
    if (ListWrite(10, SF_ERR_RETURN).all(1234) != 0) _exit(1);  // 4 + 1 fits
    if (ListWrite(10, SF_ERR_RETURN).all(12345) != ERR_RECORD_TOO_LONG) _exit(2);
    connect(11, [](Unit* u) { u->record_length = 1; });
    if (ListWrite(11, SF_ERR_RETURN).all(Logical{1}) != ERR_RECORD_TOO_LONG) _exit(3);
    if (ListWrite(11, SF_ERR_RETURN).all("") != 0) _exit(4);  // dropped before the test
    if (ListWrite(11, SF_ERR_RETURN).all("a") != ERR_RECORD_TOO_LONG) _exit(5);
    ListWrite(10).all(123456);
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err, kBanner +
                       " Error 1010:  record too long\n"
                       " Location:  the WRITE statement at line 7 of \"test.f90\"\n"
                       " Unit:  10\n File:  fort.10\n");
  // Each failed statement ends the record it had begun: a blank.
  EXPECT_EQ(dir.read("fort.10"), " 1234\n \n \n");
}

TEST(ListWriteRecords, LargeTextBypassesTheBuffer) {
  ScratchDir dir;
  std::string big;
  for (int i = 0; i < 300000; ++i) big += static_cast<char>('a' + i % 26);
  run_in_child([&] { ListWrite(10).all(1, big.c_str(), 2, big.c_str()); });
  EXPECT_EQ(dir.read("fort.10"), " 1 " + big + " 2 " + big + "\n");
}

TEST(ListWriteDelimiters, QuotesAreDoubledAndPairsStayTogether) {
  ScratchDir dir;
  run_in_child([] {
    connect(10, [](Unit* u) { u->flags |= UF_DELIM_QUOTE; });
    ListWrite(10).all("a\"b", "", "c");
    connect(11, [](Unit* u) { u->flags |= UF_DELIM_APOSTROPHE; });
    ListWrite(11).all("it's", 1);
    // RECL=8: ' "abcdef' fills the record, so the doubled quote goes to
    // the next record whole.
    connect(12, [](Unit* u) {
      u->flags |= UF_DELIM_QUOTE;
      u->record_length = 8;
    });
    ListWrite(12).all("abcdef\"gh");
  });
  EXPECT_EQ(dir.read("fort.10"), " \"a\"\"b\" \"\" \"c\"\n");
  EXPECT_EQ(dir.read("fort.11"), " 'it''s' 1\n");
  EXPECT_EQ(dir.read("fort.12"), " \"abcdef\n\"\"gh\"\n");
}

TEST(ListWriteOldDialect, WrapsAtLineLimitWithContinuationBlank) {
  auto out = print_items([] {
    ListWrite p = ListWrite::print(SF_F77_WRITE);
    p.start();
    for (int i = 0; i < 30; ++i) p.item(int32_t{100});
    p.end();
  });
  // Each item takes 5 columns after the leading blank; line_limit is 80.
  std::string item = "  100", first, rest;
  for (int i = 0; i < 15; ++i) first += item;
  EXPECT_EQ(out, " " + first + "\n " + first + "\n");
}

TEST(ListWriteRecords, ProgramsMayPreemptTheLineLength) {
  // The program defines __f90_stdout_reclen = 11 itself.
  FILE* p = popen(QAL_PREEMPT_PROGRAM, "r");
  ASSERT_NE(p, nullptr);
  char buf[256] = {};
  size_t n = fread(buf, 1, sizeof buf - 1, p);
  EXPECT_EQ(pclose(p), 0);
  EXPECT_EQ(std::string(buf, n), " 12345\n 67890 1\n");
}

TEST(ListWriteStream, PositionedStartOnAStreamUnit) {
  ScratchDir dir;
  auto r = run_in_child([] {
    ListWrite(10).all("abcdefgh");
    __f90_flush_all();
    adjust_unit(10, [](Unit* u) { u->flags |= UF_STREAM; });
    ListWrite w(10, SF_ERR_RETURN | SF_NO_FIRST_BLANK);
    if (w.start_pos(4).item("XY").end().status() != 0) _exit(1);
    if (ListWrite(10, SF_ERR_RETURN).start_pos(0).status() != ERR_BAD_POS) _exit(2);
    if (ListWrite(10, SF_ERR_RETURN).start_pos(100).status() != ERR_BAD_POS) _exit(3);
    if (ListWrite(11, SF_ERR_RETURN).start_pos(1).status() != ERR_STREAM_UNCONNECTED) _exit(4);
    ListWrite(12).all(1);
    if (ListWrite(12, SF_ERR_RETURN).start_pos(1).status() != ERR_STREAM_ON_RECORD_UNIT) _exit(5);
    if (ListWrite::print(SF_ERR_RETURN).start_pos(1).status() != ERR_STREAM_DEFAULT_UNIT) _exit(6);
  });
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("fort.10"), " abXY\nfgh\n");
  EXPECT_FALSE(dir.exists("fort.11"));
}

TEST(ListWriteChecks, ConnectionMustSuitTheStatement) {
  ScratchDir dir;
  auto r = run_in_child([] {
    connect(10, [](Unit* u) { u->flags &= ~UF_WRITABLE; });
    if (ListWrite(10, SF_ERR_RETURN).all(1) != ERR_WRITING_NOT_ALLOWED) _exit(1);
    connect(11, [](Unit* u) { u->flags &= ~UF_SEQUENTIAL; });
    if (ListWrite(11, SF_ERR_RETURN).all(1) != ERR_SEQUENTIAL_ON_DIRECT) _exit(2);
    connect(12, [](Unit* u) { u->flags &= ~UF_FORMATTED; });
    if (ListWrite(12, SF_ERR_RETURN).all(1) != ERR_FORMATTED_ON_UNFORMATTED) _exit(3);
    if (ListWrite(13, SF_ERR_RETURN | SF_ASYNCHRONOUS).all(1) != ERR_ASYNC_UNCONNECTED) _exit(4);
    if (ListWrite(12, SF_ERR_RETURN | SF_ASYNCHRONOUS).all(1) != ERR_FORMATTED_ON_UNFORMATTED)
      _exit(5);
    connect(14, [](Unit*) {});
    if (ListWrite(14, SF_ERR_RETURN | SF_ASYNCHRONOUS).all(1) != ERR_ASYNC_ON_SYNC) _exit(6);
    // After each failure the unit was released and the next statement works.
    if (ListWrite(14, SF_ERR_RETURN).all(2) != 0) _exit(7);
  });
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(dir.read("fort.14"), " 2\n");
}

TEST(ListWriteChecks, DecimalModeComesFromTheUnit) {
  ScratchDir dir;
  auto r = run_in_child([] {
    connect(10, [](Unit* u) { u->flags |= UF_DECIMAL_COMMA; });
    ListWrite a(10);
    a.start();
    const uint32_t comma = a.stmt().stmt_flags & SF_DECIMAL;
    a.end();
    ListWrite b(10, SF_DECIMAL_POINT);
    b.start();
    const uint32_t kept = b.stmt().stmt_flags & SF_DECIMAL;
    b.end();
    std::_Exit(comma == SF_DECIMAL_COMMA && kept == SF_DECIMAL_POINT ? 0 : 1);
  });
  EXPECT_EQ(r.exit_code, 0);
}
