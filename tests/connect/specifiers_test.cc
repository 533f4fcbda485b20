// The specifier parsers of OPEN and CLOSE and the FILEOPT= grammar.
#include <string.h>

#include <string>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/child.h"

using namespace qal;
using namespace qal::test;

namespace {

const Location kLoc{LOC_OPEN, 4, "open.f90"};

using Parser = int (*)(uint32_t*, const char*, int64_t, const Location*);

int parse(Parser p, uint32_t* word, const char* text) {
  return p(word, text, text ? static_cast<int64_t>(strlen(text)) : 0, &kLoc);
}

struct ParserCase {
  const char* name;
  Parser parser;
  uint32_t field;
  const char* text;  // in odd case, with trailing blanks
  uint32_t bits;     // what it sets
  int unassociated;
  int unknown;
};

const ParserCase kCases[] = {
    {"form", __f90_open_form, OF_FORM, "unFormatted  ", OF_FORM_UNFORMATTED, 1119, 1135},
    {"form f77", __f90_open_form_f77compat, OF_FORM, "Print", OF_FORM_PRINT, 1119, 1135},
    {"access", __f90_open_access, OF_ACCESS, "stream ", OF_ACCESS_STREAM, 1111, 1131},
    {"access f77", __f90_open_access_f77compat, OF_ACCESS, "append", OF_ACCESS_APPEND, 1111, 1131},
    {"status", __f90_open_status, OF_STATUS, "Replace", OF_STATUS_REPLACE, 1127, 1140},
    {"blank", __f90_open_blank, OF_BLANK_ZERO, "zero", OF_BLANK_ZERO, 1114, 1133},
    {"position", __f90_open_position, OF_POSITION, "APPEND   ", OF_POSITION_APPEND, 1123, 1137},
    {"action", __f90_open_action, OF_ACTION, "readWrite", OF_ACTION_READWRITE, 1112, 1132},
    {"delim", __f90_open_delim, OF_DELIM, "apostrophe", OF_DELIM_APOSTROPHE, 1115, 1134},
    {"pad", __f90_open_pad, OF_PAD_NO, "no ", OF_PAD_NO, 1122, 1136},
    {"asynchronous", __f90_open_asynchronous, OF_ASYNCHRONOUS, "yes", OF_ASYNCHRONOUS, 1172, 1177},
    {"round", __f90_open_round, OF_ROUND, "processor_defined", 0x03000000, 1175, 1178},
    {"decimal", __f90_open_decimal, OF_DECIMAL, "Comma", OF_DECIMAL_COMMA, 1173, 1179},
    {"close status", __f90_close_status, CF_STATUS, "delete  ", CF_STATUS_DELETE, 1127, 1142},
};

TEST(Specifiers, EveryParserFoldsItsValueAndKeepsTheRestOfTheWord) {
  for (const ParserCase& c : kCases) {
    SCOPED_TRACE(c.name);
    // Every other bit, including a stale value in the field, must come out
    // as it went in, less the field.
    const uint32_t others = ~c.field & 0x00000003u;
    uint32_t word = others | c.field;
    EXPECT_EQ(parse(c.parser, &word, c.text), 0);
    EXPECT_EQ(word, others | c.bits);
  }
}

TEST(Specifiers, NullAndUnknownTextsAreTwoErrorsAndLeaveTheFieldCleared) {
  for (const ParserCase& c : kCases) {
    SCOPED_TRACE(c.name);
    for (const char* bad : {" stream", "x", "", "seq uential"}) {
      uint32_t word = OF_ERR_RETURN | c.field;
      EXPECT_EQ(parse(c.parser, &word, bad), c.unknown) << '"' << bad << '"';
      EXPECT_EQ(word, static_cast<uint32_t>(OF_ERR_RETURN));
    }
    uint32_t word = OF_ERR_RETURN | c.field;
    EXPECT_EQ(parse(c.parser, &word, nullptr), c.unassociated);
    EXPECT_EQ(word, static_cast<uint32_t>(OF_ERR_RETURN));
  }
}

TEST(Specifiers, ValueMustBeWholeAndOnlyBlanksMayFollow) {
  uint32_t word = OF_ERR_RETURN;
  EXPECT_EQ(parse(__f90_open_action, &word, "READWRITEX"), 1132);
  EXPECT_EQ(parse(__f90_open_action, &word, "READ WRITE"), 1132);
  EXPECT_EQ(parse(__f90_open_action, &word, "REA"), 1132);
  EXPECT_EQ(parse(__f90_open_action, &word, "read"), 0);
  EXPECT_EQ(word & OF_ACTION, static_cast<uint32_t>(OF_ACTION_READ));
  // Only the old dialect knows PRINT and APPEND.
  EXPECT_EQ(parse(__f90_open_form, &word, "PRINT"), 1135);
  EXPECT_EQ(parse(__f90_open_access, &word, "APPEND"), 1131);
  // The length bounds the text: what lies beyond it is not looked at.
  EXPECT_EQ(__f90_open_status(&word, "OLDER", 3, &kLoc), 0);
  EXPECT_EQ(word & OF_STATUS, static_cast<uint32_t>(OF_STATUS_OLD));
}

TEST(Specifiers, WithoutErrReturnAFailureIsReported) {
  auto r = run_in_child([] {
    uint32_t word = 0;
    parse(__f90_open_status, &word, "ANCIENT");
  });
  EXPECT_TRUE(r.aborted());
  EXPECT_EQ(r.err,
            "\n ******  FORTRAN RUN-TIME SYSTEM  ******\n"
            " Error 1140:  unexpected STATUS specifier\n"
            " Location:  the OPEN statement at line 4 of \"open.f90\"\n");
}

struct FileoptResult {
  int err;
  uint32_t field;
  int64_t size;
};

FileoptResult fileopt(const char* text, bool with_size = true) {
  uint32_t word = OF_ERR_RETURN | OF_FILEOPT;
  int64_t size = -99;
  const int64_t n = static_cast<int64_t>(strlen(text));
  const int err = with_size ? __f95_open_fileopt(&word, text, n, &kLoc, &size)
                            : __f90_open_fileopt(&word, text, n, &kLoc);
  return {err, word & OF_FILEOPT, size};
}

TEST(Fileopt, BufferSizeAllowsBlanksAroundAndInsideTheNumber) {
  auto r = fileopt("BUFFER = 1 024");
  EXPECT_EQ(r.err, 0);
  EXPECT_EQ(r.field, static_cast<uint32_t>(OF_FILEOPT_BUFFER));
  EXPECT_EQ(r.size, 1024);
  EXPECT_EQ(fileopt("buffer=- 7  ").size, -7);
  EXPECT_EQ(fileopt("Buffer=+0").size, 0);  // refused later, by OPEN
  EXPECT_EQ(fileopt("eof").field, static_cast<uint32_t>(OF_FILEOPT_EOF));
  EXPECT_EQ(fileopt("NOPAD  ").field, static_cast<uint32_t>(OF_FILEOPT_NOPAD));
  EXPECT_EQ(fileopt("BUFFER=9223372036854775807").size, INT64_MAX);
}

TEST(Fileopt, MalformedTextsAndHugeNumbers) {
  for (const char* bad : {"BUFFER", "BUFFER=", "BUFFER 10", "BUFFER=1x", "BUFFER=+-1", "BUFFER==1",
                          "BUF=1", " BUFFER=1", "EOF NOPAD", ""}) {
    auto r = fileopt(bad);
    EXPECT_EQ(r.err, 1189) << bad;
    EXPECT_EQ(r.field, 0u) << bad;
  }
  EXPECT_EQ(fileopt("BUFFER=9223372036854775808").err, 1155);
  EXPECT_EQ(fileopt("BUFFER=99999999999999999999999999").err, 1155);
  // A bad character after an overflow is still a bad text.
  EXPECT_EQ(fileopt("BUFFER=99999999999999999999999999z").err, 1189);
  uint32_t word = OF_ERR_RETURN;
  EXPECT_EQ(__f95_open_fileopt(&word, nullptr, 0, &kLoc, nullptr), 1188);
}

TEST(Fileopt, OldEntryAcceptsBufferAndDropsIt) {
  auto r = fileopt("BUFFER=64", false);
  EXPECT_EQ(r.err, 0);
  EXPECT_EQ(r.field, 0u);
  EXPECT_EQ(fileopt("EOF", false).field, static_cast<uint32_t>(OF_FILEOPT_EOF));
}

}  // namespace
