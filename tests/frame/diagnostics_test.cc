#include "qal/diagnostics.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "qal/location.h"
#include "support/child.h"
#include "support/scratch.h"

using qal::test::kBanner;

namespace {

using qal::test::run_in_child;
using qal::test::ScratchDir;

const char kCatalogue[] = "KORV_XYLO_TQ_libf90";

// Everything `body` writes on stderr, run in a child.
std::string stderr_of(const std::function<void()>& body) { return run_in_child(body).err; }

// ---- report writers ----

struct WriterCase {
  const char* what;
  std::function<void()> write;
  std::string expected;
};

TEST(ReportWriters, PrintTheirLinesExactly) {
  static const qal::Location write_stmt{qal::LOC_WRITE, 12, "t.f90"};
  static const qal::Location init{qal::LOC_LIB_F90_INIT, 12, "t.f90"};
  static const qal::Location flush{qal::LOC_FLUSH, 3, "u.f90"};
  static const qal::Location line_column{qal::LOC_LINE_COLUMN, 4, "v.f90"};
  const std::vector<WriterCase> cases = {
      {"runtime error", [] { qal::__f90_write_message(1001); },
       " Error 1001:  illegal unit number\n"},
      // The text is an argument, never a format of its own.
      {"text with %d", [] { qal::__f90_write_message(1193); }, " Error 1193:  illegal rank %d\n"},
      {"empty text", [] { qal::__f90_write_message(1219); }, " Error 1219\n"},
      {"gap in table", [] { qal::__f90_write_message(1034); }, " Error 1034\n"},
      {"past the table", [] { qal::__f90_write_message(1500); }, " Error 1500\n"},
      {"errno", [] { qal::__f90_write_message(2); },
       std::string(" Error 2:  ") + strerror(2) + "\n"},
      {"posix binding", [] { qal::__f90_write_message(2021); },
       " Error 2021:  lock not initialized\n"},
      {"posix gap", [] { qal::__f90_write_message(2000); }, " Error 2000\n"},
      {"end of file number", [] { qal::__f90_write_message(-1); }, " Error -1\n"},
      {"system message", [] { qal::__f90_write_system_message(13); },
       std::string(" Error 13:  ") + strerror(13) + "\n"},
      {"statement location", [] { qal::__f90_write_loc(&write_stmt); },
       " Location:  the WRITE statement at line 12 of \"t.f90\"\n"},
      {"library routine", [] { qal::__f90_write_loc(&init); },
       " Location:  the library routine \"f90_init\"\n"},
      {"flush location", [] { qal::__f90_write_loc(&flush); },
       " Location:  the FLUSH statement at line 3 of \"u.f90\"\n"},
      // Kind 37 wants a column this writer does not have: the slots it
      // cannot fill stay empty.
      {"line-column kind", [] { qal::__f90_write_loc(&line_column); },
       " Location:  line 4 column  of ''\n"},
      {"default unit", [] { qal::__f90_write_unit_number(-1); }, " Unit:  *\n"},
      {"unit", [] { qal::__f90_write_unit_number(2147483648); }, " Unit:  2147483648\n"},
      {"no file", [] { qal::__f90_write_filename(nullptr); }, ""},
      {"file", [] { qal::__f90_write_filename("dir/a b"); }, " File:  dir/a b\n"},
      {"record", [] { qal::__f90_write_record_number(INT64_MIN); },
       " Record number -9223372036854775808\n"},
      {"status", [] { qal::__f90_write_status("SCRATCH"); }, " Status:  SCRATCH\n"},
      {"bytes", [] { qal::__f90_write_bytes_requested(UINT64_MAX); },
       " Bytes requested:  18446744073709551615\n"},
      {"discrepancy", [] { qal::__f90_write_byte_discrepancy(0, 10); },
       " Expected 0 bytes, got 10 bytes\n"},
      {"eof", [] { qal::__f90_write_eof(); }, " End-of-file:  -1\n"},
      {"eor", [] { qal::__f90_write_eor(); }, " End-of-record:  -2\n"},
      {"empty format", [] { qal::__f90_write_bad_format(1, "", ""); },
       " Format string is empty!\n"},
      {"bad symbol", [] { qal::__f90_write_bad_format(2, "(I5,Q)", "     "); },
       " Format string:    \"(I5,Q)\"\n Incorrect symbol:       ^\n"},
      {"no parenthesis", [] { qal::__f90_write_bad_format(7, "(I5", ""); },
       " Format string has no right parenthesis!\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(stderr_of(c.write), c.expected) << c.what;
}

TEST(ReportWriters, ErrorMessageAndAbortIsBannerMessageLocation) {
  static const qal::Location stop{qal::LOC_STOP, 9, "m.f90"};
  auto r = run_in_child([] { qal::__f95_error_message_and_abort(1219, &stop); });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err,
            kBanner + " Error 1219\n Location:  the STOP statement at line 9 of \"m.f90\"\n");
}

// ---- check entries ----

struct CheckCase {
  const char* what;
  std::function<void()> fail;
  std::string lines;  // after the banner
};

TEST(CheckEntries, ReportWithColumnAndAbort) {
  const std::vector<CheckCase> cases = {
      // x(11) with x(10), checked: the message has no newline of its own.
      {"subscript", [] { qal::__f90_cb_error(2, 11, "x", 7, 12, "a.f90"); },
       "Subscript out of range. Location:  line 7 column 12 of 'a.f90'\n"
       "Subscript number 2 has value 11 in array 'x'\n"},
      {"subscript, 64-bit",
       [] { qal::__f90_cb_error_long(1, -5000000000, "big", 1LL << 33, 3, "b.f90"); },
       "Subscript out of range. Location:  line 8589934592 column 3 of 'b.f90'\n"
       "Subscript number 1 has value -5000000000 in array 'big'\n"},
      {"substring end", [] { qal::__f90_cb_err_str(2, 9, "s", 4, 5, "c.f90"); },
       "Substring out of range. Location:  line 4 column 5 of 'c.f90'\n"
       "The ending point has value 9 for substring of 's'\n"},
      {"substring start", [] { qal::__f90_cb_err_str_long(1, 0, "s", 4, 5, "c.f90"); },
       "Substring out of range. Location:  line 4 column 5 of 'c.f90'\n"
       "The starting point has value 0 for substring of 's'\n"},
      {"shape", [] { qal::__f90_shape_err(1, 3, 4, 10, 2, "d.f90"); },
       " An array expression does not conform : dim 1 is 3 , not 4\n"
       " Location:  line 10 column 2 of 'd.f90'\n"},
      {"shape, 64-bit", [] { qal::__f90_shape_err_long(2, 1LL << 40, 1, 10, 2, "d.f90"); },
       " An array expression does not conform : dim 2 is 1099511627776 , not 1\n"
       " Location:  line 10 column 2 of 'd.f90'\n"},
      {"reshape", [] { qal::__f90_reshape_err(5, 6, 11, 1, "e.f90"); },
       " The SOURCE argument to RESHAPE is not large enough : it has 5 elements and needs to "
       "have 6 elements\n Location:  line 11 column 1 of 'e.f90'\n"},
      {"reshape, 64-bit", [] { qal::__f90_reshape_err_long(5, 6000000000, 11, 1, "e.f90"); },
       " The SOURCE argument to RESHAPE is not large enough : it has 5 elements and needs to "
       "have 6000000000 elements\n Location:  line 11 column 1 of 'e.f90'\n"},
      {"arguments", [] { qal::__f90_shape_arguments_err(1, 2, 3, 6, 8, "f.f90", "DOT_PRODUCT"); },
       " Arguments of function \"DOT_PRODUCT\" do not conform : dim 1 is 2 , not 3\n"
       " Location:  line 6 column 8 of 'f.f90'\n"},
      {"pointer", [] { qal::__f95_null_pointer_err("p", 0, 2, 3, "g.f90"); },
       " Attempting to use an unassociated POINTER 'p'\n Location:  line 2 column 3 of 'g.f90'\n"},
      {"allocatable", [] { qal::__f95_null_pointer_err("a", 1, 2, 3, "g.f90"); },
       " Attempting to use an unallocated ALLOCATABLE 'a'\n"
       " Location:  line 2 column 3 of 'g.f90'\n"},
      {"optional", [] { qal::__f95_missing_optional_err("opt", 5, 9, "h.f90"); },
       " Attempting to use a missing optional dummy 'opt'\n"
       " Location:  line 5 column 9 of 'h.f90'\n"},
  };
  for (const auto& c : cases) {
    auto r = run_in_child(c.fail);
    EXPECT_TRUE(r.aborted()) << c.what;
    EXPECT_EQ(r.err, kBanner + c.lines) << c.what;
  }
}

// ---- IOMSG= ----

// The variable as IOMSG= leaves it, with a guard byte behind it.
std::string iomsg(int32_t number, int64_t length) {
  std::string buffer(static_cast<size_t>(length) + 1, '#');
  qal::__f90_assign_iomsg(number, buffer.data(), length);
  EXPECT_EQ(buffer.back(), '#') << "wrote past the variable for " << number;
  buffer.pop_back();
  return buffer;
}

TEST(IoMessage, TextIsCutAtNewlineOrLengthAndBlankFilled) {
  EXPECT_EQ(iomsg(-1, 20), " End-of-file:  -1   ");
  EXPECT_EQ(iomsg(-2, 19), " End-of-record:  -2");
  EXPECT_EQ(iomsg(1001, 25), "illegal unit number      ");
  EXPECT_EQ(iomsg(1001, 7), "illegal");
  EXPECT_EQ(iomsg(1211, 36), "unexpected form of interval value   ");
  EXPECT_EQ(iomsg(2003, 30), "character argument too short  ");
  std::string os = strerror(2);
  EXPECT_EQ(iomsg(2, 60), os + std::string(60 - os.size(), ' '));
}

TEST(IoMessage, NumbersWithoutTextGetUnknownError) {
  for (int32_t number : {0, -3, 1219, 1034, 2000, 1500}) {
    EXPECT_EQ(iomsg(number, 16), " Unknown error  ") << number;
  }
  std::string untouched = "xyz";
  qal::__f90_assign_iomsg(1001, untouched.data(), 0);
  EXPECT_EQ(untouched, "xyz");
}

// ---- catalogue ----

// Environment of a catalogue child: null unsets the variable.
struct CatalogueEnv {
  const char* nlspath;
  const char* lc_all = nullptr;
  const char* lc_messages = nullptr;
  const char* lang = nullptr;
};

void set_or_unset(const char* name, const char* value) {
  if (value != nullptr) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

// Opens the catalogue in a child, as __f90_init would, then runs `body`;
// the handle is process-wide and set once, so no two cases may share it.
qal::test::ChildResult with_catalogue(const CatalogueEnv& env, const std::function<void()>& body) {
  return run_in_child([&] {
    set_or_unset("NLSPATH", env.nlspath);
    set_or_unset("LC_ALL", env.lc_all);
    set_or_unset("LC_MESSAGES", env.lc_messages);
    set_or_unset("LANG", env.lang);
    errno = EINVAL;
    qal::__f90_opencat();
    if (errno != 0) fputs("errno not cleared\n", stdout);
    body();
  });
}

// Builds a catalogue at `path` (relative to the scratch directory, which is
// the working directory) whose message 1001 reads `marker`.
void make_catalogue(const ScratchDir& dir, const std::string& path, const std::string& marker,
                    const std::string& more = "") {
  for (size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(dir.file(path.substr(0, slash)).c_str(), 0755);
  }
  dir.write("source.msg", "$quote \"\n$set 1\n1001 \"" + marker + "\"\n" + more);
  std::string command = "gencat '" + dir.file(path) + "' '" + dir.file("source.msg") + "'";
  ASSERT_EQ(system(command.c_str()), 0) << command;
}

std::string text_1001(const CatalogueEnv& env) {
  return with_catalogue(env, [] { fputs(qal::__f90_rmsg(1001), stdout); }).out;
}

struct SearchCase {
  const char* what;
  std::vector<std::pair<std::string, std::string>> catalogues;  // path, marker
  CatalogueEnv env;
  std::string expected;
};

TEST(Catalogue, SearchExpandsNlspathTemplates) {
  const std::string name = kCatalogue;
  const std::string overflow = std::string(5000, 'a') + "/%N:%N";
  const std::vector<SearchCase> cases = {
      {"name", {{name, "N"}}, {"%N"}, "N"},
      {"whole locale",
       {{"de_DE.UTF-8@euro/" + name, "L"}},
       {.nlspath = "%L/%N", .lang = "de_DE.UTF-8@euro"},
       "L"},
      {"locale parts",
       {{"de-DE-UTF-8", "P"}},
       {.nlspath = "%l-%t-%c", .lang = "de_DE.UTF-8@euro"},
       "P"},
      {"LC_ALL first",
       {{"fr_FR/" + name, "F"}, {"de_DE/" + name, "D"}},
       {.nlspath = "%L/%N", .lc_all = "fr_FR", .lang = "de_DE"},
       "F"},
      {"empty LC_ALL skipped",
       {{"it_IT/" + name, "I"}, {"de_DE/" + name, "D"}},
       {.nlspath = "%L/%N", .lc_all = "", .lc_messages = "it_IT", .lang = "de_DE"},
       "I"},
      {"C without locale", {{"C/" + name, "C"}}, {"%L/%N"}, "C"},
      {"percent escapes", {{"a%b" + name, "%"}}, {"a%%%b%N"}, "%"},
      // Without "./" catopen would search NLSPATH itself, for "xx<name>".
      {"no slash", {{"x" + name, "X"}}, {"x%N"}, "X"},
      {"empty template", {{name, "E"}}, {":missing"}, "E"},
      {"empty template inside", {{name, "E"}}, {"missing/%N::b/%N"}, "E"},
      {"first success wins", {{"a/" + name, "A"}, {"b/" + name, "B"}}, {"a/%N:b/%N"}, "A"},
      {"later template", {{"b/" + name, "B"}}, {"a/%N:b/%N"}, "B"},
      {"overflowing template", {{name, "O"}}, {overflow.c_str()}, "O"},
      // A ":" ends a template; only a ":" with nothing before it is empty.
      {"no match", {{name, "N"}}, {"a/%N:b/%N"}, "illegal unit number"},
      {"percent at the end", {{name, "N"}}, {"%N%"}, "N"},
      {"percent before colon", {{name, "N"}}, {"a/%:%N"}, "N"},
      {"empty NLSPATH", {{name, "N"}}, {""}, "illegal unit number"},
      {"NLSPATH unset", {{name, "N"}}, {nullptr}, "illegal unit number"},
  };
  for (const auto& c : cases) {
    ScratchDir dir;
    for (const auto& [path, marker] : c.catalogues) make_catalogue(dir, path, marker);
    EXPECT_EQ(text_1001(c.env), c.expected) << c.what;
  }
}

TEST(Catalogue, AbsoluteTemplate) {
  ScratchDir dir;
  make_catalogue(dir, std::string("abs/") + kCatalogue, "A");
  std::string nlspath = dir.path() + "/abs/%N";
  EXPECT_EQ(text_1001({nlspath.c_str()}), "A");
}

TEST(Catalogue, MissingMessagesFallBackToBuiltInText) {
  ScratchDir dir;
  make_catalogue(dir, kCatalogue, "Einheit?",
                 "$set 2\n25 \" Ort: WRITE, Zeile %ld in %s\\n\"\n"
                 "$set 4\n1 \"HALT: %.*s\\n\"\n");
  auto r = with_catalogue({"%N"}, [] {
    static const qal::Location at{qal::LOC_WRITE, 3, "w.f90"};
    printf("%s|%s|%s|%s|%s", qal::__f90_rmsg(1001), qal::__f90_rmsg(1002), qal::__f90_psfmt(1),
           qal::__f90_psfmt(3), qal::__f90_mfmt(13));
    qal::__f90_write_message(1001);
    qal::__f90_write_loc(&at);
  });
  EXPECT_EQ(r.out,
            "Einheit?|formatted I/O on unformatted unit|HALT: %.*s\n|PAUSE\n| Unknown error");
  EXPECT_EQ(r.err, " Error 1001:  Einheit?\n Ort: WRITE, Zeile 3 in w.f90\n");
}

// A translated format is not trusted: conversions with no argument left
// print nothing, a mismatched argument never reaches memory it should not,
// and unknown conversions stand as written.
TEST(Catalogue, HostileFormatsCannotReachPastTheirArguments) {
  ScratchDir dir;
  make_catalogue(dir, kCatalogue, "-",
                 "$set 3\n"
                 "4 \"<%d|%s|%lld|%q|%5d|%%|%\"\n"
                 "5 \"[%.*s]\\n\"\n"
                 "10 \"%s!\\n\"\n"
                 "12 \"(%d %s %.*s)\\n\"\n");
  auto r = with_catalogue({"%N"}, [] {
    qal::__f90_write_message(0);          // misc 4: number only
    qal::__f90_write_message(5);          // misc 5: the number as precision
    qal::__f90_write_system_message(-1);  // negative precision: no limit
    qal::__f90_write_record_number(42);   // a number where text is asked
    qal::__f90_write_filename("f.dat");   // text where a number is asked
  });
  EXPECT_EQ(r.err, std::string("<0|||%q|%5d|%|%") + "[" + std::string(strerror(5)).substr(0, 5) +
                       "]\n[" + strerror(-1) + "]\n42!\n(  )\n");
  EXPECT_EQ(r.out, "");
}

}  // namespace
