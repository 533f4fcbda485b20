// The run-time format parser, called as compiled code calls it ahead of a
// formatted statement.  Tables are compared whole, word by word: header,
// ops, counter area (zeroed by the parser) and text copy.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>

#include <string>
#include <vector>

#include "qal/errors.h"
#include "qal/format.h"
#include "support/child.h"

using qal::test::kBanner;
using qal::test::run_in_child;

namespace {

using Words = std::vector<int32_t>;

constexpr qal::Location kWhere = {qal::LOC_WRITE, 7, "f.f90"};
const std::string kWhereLine = " Location:  the WRITE statement at line 7 of \"f.f90\"\n";

enum Dialect { kStandard, kCompat };

// Characters packed four to a word, as the string ops hold them.
Words packed(const std::string& s) {
  Words w((s.size() + 3) / 4, 0);
  memcpy(w.data(), s.data(), s.size());
  return w;
}

Words cat(std::initializer_list<Words> parts) {
  Words all;
  for (const Words& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

// The table the parser must build for `ops`, `deepest` counters and the text
// as scanned.
Words table(const Words& ops, int32_t deepest, const std::string& text) {
  const std::string with_nul = text + std::string(1, '\0');
  Words t = {qal::FMT_MAGIC, 4, static_cast<int32_t>(ops.size()) + deepest,
             static_cast<int32_t>(with_nul.size())};
  t.insert(t.end(), ops.begin(), ops.end());
  t.insert(t.end(), static_cast<size_t>(deepest), 0);
  Words chars = packed(with_nul);
  t.insert(t.end(), chars.begin(), chars.end());
  return t;
}

struct Parsed {
  int32_t result = -1;
  Words words;
  ptrdiff_t counters_at = -1;  // word index of the counter area
};

Parsed parse_source(Dialect dialect, const void* source, int32_t length, int32_t rank) {
  int32_t* format = nullptr;
  int32_t* counters = nullptr;
  auto entry = dialect == kCompat ? qal::__f90_parse_format_f77compat : qal::__f90_parse_format;
  Parsed p;
  p.result = entry(&format, &counters, 1, &kWhere, source, length, rank);
  if (p.result != 0) return p;
  const size_t n = 4 + static_cast<size_t>(format[2]) + (static_cast<size_t>(format[3]) + 3) / 4;
  p.words.assign(format, format + n);
  p.counters_at = counters - format;
  free(format);
  return p;
}

Parsed parse(const std::string& text, Dialect dialect = kStandard) {
  return parse_source(dialect, text.data(), static_cast<int32_t>(text.size()), 0);
}

struct TableCase {
  const char* format;
  Words ops;  // FMT_END and its target included
  int32_t deepest = 0;
  const char* scanned = nullptr;  // the text copy, when not the format itself
};

void expect_tables(const std::vector<TableCase>& cases, Dialect dialect) {
  for (const TableCase& c : cases) {
    SCOPED_TRACE(c.format);
    const Parsed p = parse(c.format, dialect);
    ASSERT_EQ(p.result, 0);
    EXPECT_EQ(p.words, table(c.ops, c.deepest, c.scanned ? c.scanned : c.format));
    EXPECT_EQ(p.counters_at, 4 + static_cast<ptrdiff_t>(c.ops.size()));
  }
}

using namespace qal;

// ---- good formats ----

TEST(FormatTables, RepeatsNestingAndReversion) {
  expect_tables(
      {
          {"()", {FMT_END, 4}},
          {"   \t(I5)", {FMT_I_W, 5, 2, FMT_END, 4}, 0, "(I5)"},
          {"(I5) xyz", {FMT_I_W, 5, 2, FMT_END, 4}, 0, "(I5)"},
          // A repeated descriptor does not move the reversion target.
          {"(3I5)", {FMT_REPEAT, 0, 3, FMT_I_W, 5, 3, FMT_END_REPEAT, 0, 7, FMT_END, 4}, 1},
          {"(1I5)", {FMT_I_W, 5, 3, FMT_END, 4}},
          // The walker runs a count-0 item once.
          {"(0I5)", {FMT_REPEAT, 0, 0, FMT_I_W, 5, 3, FMT_END_REPEAT, 0, 7, FMT_END, 4}, 1},
          {"(2(I5),3(F5.2))",
           {FMT_REPEAT, 0, 2,         FMT_I_W, 5, 4,  FMT_END_REPEAT, 0, 7,  FMT_REPEAT,
            0,          3, FMT_F_W_D, 5,       2, 10, FMT_END_REPEAT, 0, 16, FMT_END,
            13},
           1},
          {"(I2,(I5),I3)", {FMT_I_W, 2, 2, FMT_I_W, 5, 6, FMT_I_W, 3, 10, FMT_END, 7}},
          // Only groups directly inside the outermost one set the target.
          {"(I5,(I3,(I2)))", {FMT_I_W, 5, 2, FMT_I_W, 3, 6, FMT_I_W, 2, 10, FMT_END, 7}},
          {"(1(I5),I3)", {FMT_I_W, 5, 4, FMT_I_W, 3, 8, FMT_END, 4}},
          // Nested repeats use one counter per level; siblings share.
          {"(2(3(I1),I2))",
           {FMT_REPEAT, 0, 2,  FMT_REPEAT,     1, 3, FMT_I_W, 1, 6, FMT_END_REPEAT, 1, 10,
            FMT_I_W,    2, 10, FMT_END_REPEAT, 0, 7, FMT_END, 4},
           2},
          {"(2(I1),3(I2),4I3)",
           {FMT_REPEAT,     0, 2,  FMT_I_W,        1, 4,  FMT_END_REPEAT, 0, 7, FMT_REPEAT, 0, 3,
            FMT_I_W,        2, 10, FMT_END_REPEAT, 0, 16, FMT_REPEAT,     0, 4, FMT_I_W,    3, 15,
            FMT_END_REPEAT, 0, 25, FMT_END,        13},
           1},
          // Commas are optional and may be doubled; blanks sit anywhere.
          {"(,I5,,X)", {FMT_I_W, 5, 3, FMT_X, 1, FMT_END, 4}},
          {"(I5X)", {FMT_I_W, 5, 2, FMT_X, 1, FMT_END, 4}},
          {"( 1 2 X , 2 ( I 3 ) )",
           {FMT_X, 12, FMT_REPEAT, 0, 2, FMT_I_W, 3, 15, FMT_END_REPEAT, 0, 9, FMT_END, 6},
           1},
          {"(2147483647X)", {FMT_X, 2147483647, FMT_END, 4}},
      },
      kStandard);
}

TEST(FormatTables, StringsAndHollerith) {
  expect_tables(
      {
          {"('it''s',\"a\"\"b\")",
           cat({{FMT_STRING, 4}, packed("it's"), {FMT_STRING, 3}, packed("a\"b"), {FMT_END, 4}})},
          {"('')", {FMT_STRING, 0, FMT_END, 4}},
          {"('a'')')", cat({{FMT_STRING, 3}, packed("a')"), {FMT_END, 4}})},
          {"('abcdefgh'I2)",
           cat({{FMT_STRING, 8}, packed("abcdefgh"), {FMT_I_W, 2, 12, FMT_END, 4}})},
          // nH takes any characters, parentheses and quotes included.
          {"(5Ha)'(,X)", cat({{FMT_HOLLERITH, 5}, packed("a)'(,"), {FMT_X, 1, FMT_END, 4}})},
          {"(2hAB)", cat({{FMT_HOLLERITH, 2}, packed("AB"), {FMT_END, 4}})},
      },
      kStandard);
}

TEST(FormatTables, DataEditDescriptors) {
  expect_tables(
      {
          {"(A,A12)", {FMT_A, 2, FMT_A_W, 12, 4, FMT_END, 4}},
          {"(A5I3)", {FMT_A_W, 5, 2, FMT_I_W, 3, 4, FMT_END, 4}},
          {"(B,B8,B8.4)", {FMT_B, 2, FMT_B_W, 8, 4, FMT_B_W_M, 8, 4, 7, FMT_END, 4}},
          {"(I,I0,I5.3)", {FMT_I, 2, FMT_I_W, 0, 4, FMT_I_W_M, 5, 3, 7, FMT_END, 4}},
          {"(O,O7,O7.7)", {FMT_O, 2, FMT_O_W, 7, 4, FMT_O_W_M, 7, 7, 7, FMT_END, 4}},
          {"(z,z4,z4.2)", {FMT_Z, 2, FMT_Z_W, 4, 4, FMT_Z_W_M, 4, 2, 7, FMT_END, 4}},
          {"(L,L3)", {FMT_L, 2, FMT_L_W, 3, 4, FMT_END, 4}},
          {"(D,D9,D9.2,D9.2E3)",
           {FMT_D, 2, FMT_D_W, 9, 4, FMT_D_W_D, 9, 2, 7, FMT_D_W_D_E, 9, 2, 3, 12, FMT_END, 4}},
          {"(E,E9,E9.2,E9.2e3)",
           {FMT_E, 2, FMT_E_W, 9, 4, FMT_E_W_D, 9, 2, 7, FMT_E_W_D_E, 9, 2, 3, 12, FMT_END, 4}},
          // EN and ES keep the position behind the E.
          {"(EN,EN9,EN9.2,EN9.2E3)",
           {FMT_EN, 2, FMT_EN_W, 9, 5, FMT_EN_W_D, 9, 2, 9, FMT_EN_W_D_E, 9, 2, 3, 15, FMT_END, 4}},
          {"(ES,E S9,ES9.2,ES9.2E3)",
           {FMT_ES, 2, FMT_ES_W, 9, 5, FMT_ES_W_D, 9, 2, 10, FMT_ES_W_D_E, 9, 2, 3, 16, FMT_END,
            4}},
          {"(F,F0,F9.2,F0.3)",
           {FMT_F, 2, FMT_F_W, 0, 4, FMT_F_W_D, 9, 2, 7, FMT_F_W_D, 0, 3, 12, FMT_END, 4}},
          {"(G,G9,G9.2,G9.2E3)",
           {FMT_G, 2, FMT_G_W, 9, 4, FMT_G_W_D, 9, 2, 7, FMT_G_W_D_E, 9, 2, 3, 12, FMT_END, 4}},
          // F ends at d, so an E behind it is the next descriptor.
          {"(F9.2E3)", {FMT_F_W_D, 9, 2, 2, FMT_E_W, 3, 6, FMT_END, 4}},
          // Interval editing needs a d; without one V is plain.
          {"(VE9.2,VEN9.2E3,VES9.2,VF9.2,VG9.2E3,VE9,Y9.2,Y9.2E3)",
           {FMT_VE_W_D,
            9,
            2,
            2,
            FMT_VEN_W_D_E,
            9,
            2,
            3,
            8,
            FMT_VES_W_D,
            9,
            2,
            17,
            FMT_VF_W_D,
            9,
            2,
            24,
            FMT_VG_W_D_E,
            9,
            2,
            3,
            30,
            FMT_E_W,
            9,
            38,
            FMT_Y_W_D,
            9,
            2,
            42,
            FMT_Y_W_D_E,
            9,
            2,
            3,
            47,
            FMT_END,
            4}},
          // The digit after the point is not checked: ':' counts as 10.
          {"(F5.:)", {FMT_F_W_D, 5, 10, 2, FMT_END, 4}},
      },
      kStandard);
}

TEST(FormatTables, ControlAndPositionDescriptors) {
  expect_tables(
      {
          {"(2P,-1P,+3PF5.1)", {FMT_P, 2, FMT_P, -1, FMT_P, 3, FMT_F_W_D, 5, 1, 12, FMT_END, 4}},
          {"(X,1X,+1X,-3X,5X)", {FMT_X, 1, FMT_X, 1, FMT_X, 1, FMT_X, -3, FMT_X, 5, FMT_END, 4}},
          {"(T5,TL3,TR2,T L 4,t,tl,TR)",
           {FMT_T, 5, FMT_TL, 3, FMT_TR, 2, FMT_TL, 4, FMT_T, 1, FMT_TL, 1, FMT_TR, 1, FMT_END, 4}},
          {"(/,3/,//)", {FMT_SLASH, 1, FMT_SLASH, 3, FMT_SLASH, 1, FMT_SLASH, 1, FMT_END, 4}},
          {"(S,SP,SS,SU,s p,SI2)",
           {FMT_SS, FMT_SP, FMT_SS, FMT_SU, FMT_SP, FMT_SS, FMT_I_W, 2, 18, FMT_END, 4}},
          {"(BN,BZ,bn,B Z,DC,DP,dc)",
           {FMT_BN, FMT_BZ, FMT_BN, FMT_BZ, FMT_DC, FMT_DP, FMT_DC, FMT_END, 4}},
          {"(RU,RD,RZ,RN,RC,R P)", {FMT_RU, FMT_RD, FMT_RZ, FMT_RN, FMT_RC, FMT_RP, FMT_END, 4}},
          {"(Q,$,:,I2:)", {FMT_Q, 1, FMT_DOLLAR, FMT_COLON, FMT_I_W, 2, 8, FMT_COLON, FMT_END, 4}},
      },
      kStandard);
}

// ---- the older dialect ----

TEST(FormatCompat, AcceptsTheOlderForms) {
  expect_tables(
      {
          {"(B,I2)", {FMT_BN, FMT_I_W, 2, 4, FMT_END, 4}},
          {"(B8)", {FMT_B_W, 8, 2, FMT_END, 4}},
          {"(R,16R,2R,36R)",
           {FMT_RADIX, 10, FMT_RADIX, 16, FMT_RADIX, 2, FMT_RADIX, 36, FMT_END, 4}},
          {"(P,-P,+X)", {FMT_P, 0, FMT_P, -1, FMT_X, 1, FMT_END, 4}},
          {"(0H)", {FMT_HOLLERITH, 0, FMT_END, 4}},
          {"(T,T0,T7,TL,TR,TL0,TR0)",
           {FMT_T, 9, FMT_T, 9, FMT_T, 7, FMT_TL, 0, FMT_TR, 0, FMT_TL, 0, FMT_TR, 0, FMT_END, 4}},
          {"(D0.1,E0.1,G0.1)",
           {FMT_D_W_D, 0, 1, 2, FMT_E_W_D, 0, 1, 7, FMT_G_W_D, 0, 1, 12, FMT_END, 4}},
          {"(E12.4.2,D9.2.3,G9.2.1)",
           {FMT_E_W_D_E, 12, 4, 2, 2, FMT_D_W_D_E, 9, 2, 3, 10, FMT_G_W_D_E, 9, 2, 1, 17, FMT_END,
            4}},
      },
      kCompat);
}

TEST(FormatCompat, StandardDialectRefusesThem) {
  for (const char* f : {"(R)", "(16R)", "(P)", "(-P)", "(+X)", "(0H)", "(T0)", "(TL0)", "(TR0)",
                        "(D0.1)", "(E0.1)", "(G0.1)", "(E12.4.2)"}) {
    SCOPED_TRACE(f);
    EXPECT_EQ(parse(f).result, ERR_FORMAT);
  }
  // The same texts that mean something else without the flag.
  expect_tables({{"(B)", {FMT_B, 2, FMT_END, 4}},
                 {"(T,TL,TR)", {FMT_T, 1, FMT_TL, 1, FMT_TR, 1, FMT_END, 4}}},
                kStandard);
}

TEST(FormatCompat, StillRefusesWhatNeitherTakes) {
  for (const char* f : {"(1R)", "(37R)", "(EN0.1)", "(ES0.1)", "(EN12.4.2)", "(F5.2.1)", "(\\)"}) {
    SCOPED_TRACE(f);
    EXPECT_EQ(parse(f, kCompat).result, ERR_FORMAT);
  }
}

// ---- character arrays ----

// CHARACTER(4) FMT(2,2) with the second subscript running backwards in
// memory: the elements read in array order as one text, and the number 12
// runs across an element boundary.
TEST(FormatArrays, RankTwoWithNegativeStride) {
  char store[6][4];
  memcpy(store[2], ".2,A", 4);
  memcpy(store[3], ")zzz", 4);
  memcpy(store[4], "( I1", 4);
  memcpy(store[5], "2,F5", 4);
  memcpy(store[0], "!!!!", 4);
  memcpy(store[1], "!!!!", 4);
  const uint64_t record[5] = {reinterpret_cast<uint64_t>(store[4]), 2, 2, 4,
                              static_cast<uint64_t>(-8)};
  const Parsed p = parse_source(kStandard, record, 4, 2);
  ASSERT_EQ(p.result, 0);
  EXPECT_EQ(p.words,
            table({FMT_I_W, 12, 3, FMT_F_W_D, 5, 2, 7, FMT_A, 12, FMT_END, 4}, 0, "( I12,F5.2,A)"));
}

TEST(FormatArrays, RankOneElementsRunTogether) {
  const char elements[] = "(I5, F5.2)";
  const uint64_t record[3] = {reinterpret_cast<uint64_t>(elements), 2, 5};
  const Parsed p = parse_source(kStandard, record, 5, 1);
  ASSERT_EQ(p.result, 0);
  EXPECT_EQ(p.words, table({FMT_I_W, 5, 2, FMT_F_W_D, 5, 2, 6, FMT_END, 4}, 0, "(I5, F5.2)"));
}

TEST(FormatArrays, TextEndsWithTheLastElement) {
  const char elements[] = "(I5, F5.2";
  const uint64_t record[3] = {reinterpret_cast<uint64_t>(elements), 3, 3};
  EXPECT_EQ(parse_source(kStandard, record, 3, 1).result, ERR_FORMAT);
  const uint64_t no_elements[3] = {reinterpret_cast<uint64_t>(elements), 0, 3};
  EXPECT_EQ(parse_source(kStandard, no_elements, 3, 1).result, ERR_FORMAT);
  const uint64_t no_base[3] = {0, 1, 3};
  EXPECT_EQ(parse_source(kStandard, no_base, 3, 1).result, ERR_UNASSOCIATED_FMT);
}

// ---- failures ----

TEST(FormatErrors, ReturnedWithoutAReport) {
  auto child = run_in_child([] {
    for (const char* f : {"",       "   ",     "I5",      "(I5",           "('abc)",
                          "(AI3)",  "(0/)",    "(0(I2))", "(2147483648X)", "(21474836470X)",
                          "(3$)",   "(2:)",    "(2Q)",    "(2'a')",        "(2T3)",
                          "(+I2)",  "(Y)",     "(Y9)",    "(VD9.2)",       "(V E9.2)",
                          "(I5.X)", "(EN0.1)", "(F5.)",   "(1H",           "(\\)",
                          "(R)"}) {
      int32_t* format = nullptr;
      int32_t* counters = nullptr;
      const int32_t r =
          __f90_parse_format(&format, &counters, 1, &kWhere, f, static_cast<int32_t>(strlen(f)), 0);
      if (r != ERR_FORMAT) {
        fprintf(stdout, "%s gave %d\n", f, r);
      }
    }
    int32_t* format = nullptr;
    int32_t* counters = nullptr;
    CHILD_CHECK(__f90_parse_format(&format, &counters, 1, &kWhere, nullptr, 4, 0) ==
                ERR_UNASSOCIATED_FMT);
  });
  EXPECT_TRUE(child.exited);
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(child.err, "");
}

std::string report_of(const std::string& text, Dialect dialect = kStandard, bool null = false) {
  auto child = run_in_child([&] {
    int32_t* format = nullptr;
    int32_t* counters = nullptr;
    auto entry = dialect == kCompat ? __f90_parse_format_f77compat : __f90_parse_format;
    entry(&format, &counters, 0, &kWhere, null ? nullptr : text.data(),
          static_cast<int32_t>(text.size()), 0);
  });
  EXPECT_TRUE(child.aborted());
  return child.err;
}

const std::string kFormatError = kBanner + " Error 1000:  format error\n" + kWhereLine;

std::string at(const std::string& shown, size_t blanks) {
  return kFormatError + " Format string:    \"" + shown +
         "\"\n Incorrect symbol:  " + std::string(blanks, ' ') + "^\n";
}

TEST(FormatErrors, ReportPointsAtTheOffendingCharacter) {
  const std::string paren = kFormatError + " Format string has no right parenthesis!\n";
  const std::string empty = kFormatError + " Format string is empty!\n";
  struct Row {
    std::string text;
    std::string report;
  };
  const std::vector<Row> rows = {
      {"(AI3)", at("(AI3)", 2)},
      {"X5)", at("X5)", 0)},
      {"  (0/)", at("(0/)", 2)},
      {"(I5,0(I2))", at("(I5,0(I2))", 5)},
      // Up to 16 scanned characters, then unread ones up to 31 in all.
      {"(I5, I6, I7, I8, AI9, I10, I11, I12, I13, I14)", at(", I6, I7, I8, AI9, I10, I11, I1", 15)},
      {"(I5, I6, AI7)", at("(I5, I6, AI7)", 10)},
      // NUL and 0x90 are shown as '?'.
      {std::string("(A\0\x90I3)", 7), at("(A??I3)", 2)},
      {"", empty},
      {"    ", paren},
      {"(I5", paren},
      {"('abc)", paren},
      {"(F5.)", paren},  // the point's digit swallows the parenthesis
      {"(3HAB", paren},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.text);
    EXPECT_EQ(report_of(r.text), r.report);
  }
  EXPECT_EQ(report_of("(T0)", kStandard), at("(T0)", 3));
  EXPECT_EQ(report_of("(37R)", kCompat), at("(37R)", 3));
}

TEST(FormatErrors, UnassociatedSource) {
  EXPECT_EQ(report_of("(I5)", kStandard, true),
            kBanner + " Error 1118:  unassociated FMT specifier\n" + kWhereLine);
}

// An address-space limit makes the scanner record of a huge rank
// unobtainable: 20 + 20 x 200000000 bytes.
TEST(FormatErrors, OutOfMemory) {
  if (QAL_SANITIZED) GTEST_SKIP() << "the sanitizers need the address space";
  const uint64_t record[1] = {0};
  auto child = run_in_child([&] {
    const rlimit limit = {1u << 30, 1u << 30};
    CHILD_CHECK(setrlimit(RLIMIT_AS, &limit) == 0);
    int32_t* format = nullptr;
    int32_t* counters = nullptr;
    CHILD_CHECK(__f90_parse_format(&format, &counters, 1, &kWhere, record, 4, 200000000) ==
                ERR_OUT_OF_MEMORY);
    __f90_parse_format(&format, &counters, 0, &kWhere, record, 4, 200000000);
  });
  EXPECT_TRUE(child.aborted());
  EXPECT_EQ(child.err, kBanner + " Error 12:  Cannot allocate memory\n" + kWhereLine +
                           " Bytes requested:  4000000020\n");
}

// A text longer than both buffers' first size makes them grow.
TEST(FormatTables, LongFormatsGrowTheBuffers) {
  std::string text = "(";
  Words ops;
  for (int i = 0; i < 300; ++i) {
    ops.insert(ops.end(), {FMT_STRING, 5});
    const Words chars = packed("abcde");
    ops.insert(ops.end(), chars.begin(), chars.end());
    text += "'abcde',";
  }
  text += "I2)";
  ops.insert(ops.end(), {FMT_I_W, 2, static_cast<int32_t>(text.size()) - 2, FMT_END, 4});
  const Parsed p = parse(text);
  ASSERT_EQ(p.result, 0);
  EXPECT_EQ(p.words, table(ops, 0, text));
}

}  // namespace

namespace {

using namespace qal;

// Texts made of format characters at random: whatever the parser makes of
// them, it must either refuse them or build a table that holds together,
// and never read or write out of bounds (the sanitizer build watches).
TEST(FormatTables, RandomTextsGiveWholeTablesOrErrors) {
  static const char kAlphabet[] = "()(),,  '\"0123456789.+-/:$AaBDEFGHILNOPQRSTUVXYZ";
  uint32_t seed = 12345;
  auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
  for (int round = 0; round < 20000; ++round) {
    std::string text = "(";
    const int length = static_cast<int>(next() % 40);
    for (int i = 0; i < length; ++i) text += kAlphabet[next() % (sizeof kAlphabet - 1)];
    if (next() % 2) text += ')';
    for (Dialect d : {kStandard, kCompat}) {
      const Parsed p = parse(text, d);
      ASSERT_TRUE(p.result == 0 || p.result == ERR_FORMAT) << text;
      if (p.result != 0) continue;
      ASSERT_EQ(p.words[0], FMT_MAGIC);
      ASSERT_EQ(p.words[1], 4);
      const int32_t op_end = static_cast<int32_t>(p.counters_at);
      ASSERT_EQ(p.words[static_cast<size_t>(op_end - 2)], FMT_END) << text;
      const int32_t target = p.words[static_cast<size_t>(op_end - 1)];
      ASSERT_TRUE(target >= 4 && target <= op_end - 2) << text;
      const char* copy = reinterpret_cast<const char*>(p.words.data() + 4 + p.words[2]);
      const std::string scanned(copy, static_cast<size_t>(p.words[3]) - 1);
      ASSERT_EQ(text.compare(0, scanned.size(), scanned), 0) << text;
      ASSERT_EQ(scanned.back(), ')') << text;
    }
  }
}

}  // namespace
