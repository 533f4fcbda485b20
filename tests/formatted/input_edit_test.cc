// The input editors over plain text: integers of every size and radix with
// their overflow rules, B, O and Z, numbers of any length, logicals,
// characters, the real field scanner's digits and exponent, and the
// correction hook's answer-back.
#include "formatted/input_edit.h"

#include <string.h>

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/errors.h"

using namespace qal;

namespace {

// A field over a copy of `text`; `shortfall` positions lie past the end.
struct Field {
  std::string text;
  InputField f;
  explicit Field(std::string t, int64_t shortfall = 0, bool nopad = false) : text(std::move(t)) {
    f.begin = text.data();
    f.end = text.data() + text.size();
    f.shortfall = shortfall;
    f.past_end_nopad = nopad;
  }
};

InputModes modes(int radix = 10, bool bz = false, int scale = 0, char decimal = '.',
                 bool f77 = false) {
  InputModes m;
  m.radix = radix;
  m.blank_zero = bz;
  m.scale_factor = scale;
  m.decimal = decimal;
  m.f77 = f77;
  return m;
}

const BadCharacterHook kNoHook{};

template <class T>
std::pair<int, T> read_i(const std::string& text, InputModes m = modes(), int64_t shortfall = 0) {
  Field fd(text, shortfall);
  T v = T(99);
  const int err = rd_iw<T>(fd.f, m, kNoHook, &v);
  return {err, v};
}

}  // namespace

TEST(IntegerInput, DecimalFieldsBlanksAndSigns) {
  struct Row {
    const char* text;
    InputModes m;
    int64_t shortfall;
    int err;
    int32_t value;
  };
  const std::vector<Row> rows = {
      {"  42", modes(), 0, 0, 42},
      {"-17 ", modes(), 0, 0, -17},
      {"+5", modes(), 0, 0, 5},
      {"1 2", modes(), 0, 0, 12},           // BN: blanks skipped
      {"1 2", modes(10, true), 0, 0, 102},  // BZ: blanks are zeros
      {"12", modes(10, true), 2, 0, 1200},  // the two positions past the end
      {"    ", modes(), 0, 0, 0},           // blank field
      {" -  ", modes(), 0, 0, 0},           // a sign alone
      {"1x", modes(), 0, ERR_BAD_INTEGER_CHARACTER, 0},
      {"2147483647", modes(), 0, 0, 2147483647},
      {"-2147483648", modes(), 0, 0, INT32_MIN},
      {"2147483648", modes(), 0, ERR_INTEGER_OVERFLOW_INPUT, 0},
      {"99999999999", modes(), 0, ERR_INTEGER_OVERFLOW_INPUT, 0},
      {"102", modes(2), 0, ERR_DIGIT_BEYOND_RADIX, 0},
      {"1F", modes(16), 0, 0, 31},
      {"1f", modes(16), 0, 0, 31},
      {"A", modes(8), 0, ERR_BAD_INTEGER_CHARACTER, 0},  // a letter at or below ten
      {"C", modes(12), 0, ERR_DIGIT_BEYOND_RADIX, 0},
      {"ZZ", modes(36), 0, 0, 35 * 36 + 35},
      {"1 0", modes(2, true), 0, 0, 4},
  };
  for (const Row& r : rows) {
    const auto [err, v] = read_i<int32_t>(r.text, r.m, r.shortfall);
    EXPECT_EQ(err, r.err) << r.text;
    if (r.err == 0) {
      EXPECT_EQ(v, r.value) << r.text;
    }
  }
}

TEST(IntegerInput, EachSizeHasItsOwnLimit) {
  EXPECT_EQ(read_i<int8_t>("127"), std::make_pair(0, int8_t{127}));
  EXPECT_EQ(read_i<int8_t>("-128"), std::make_pair(0, int8_t{-128}));
  EXPECT_EQ(read_i<int8_t>("128").first, ERR_INTEGER_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<int8_t>("-129").first, ERR_INTEGER_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<int16_t>("-32768"), std::make_pair(0, int16_t{-32768}));
  EXPECT_EQ(read_i<int16_t>("32768").first, ERR_INTEGER_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<uint8_t>("255"), std::make_pair(0, uint8_t{255}));
  EXPECT_EQ(read_i<uint8_t>("256").first, ERR_UNSIGNED_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<uint16_t>("65536").first, ERR_UNSIGNED_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<uint32_t>("4294967295"), std::make_pair(0, uint32_t{4294967295u}));
  // The four- and eight-byte unsigned tests look at the value before the
  // last digit only: just past the top the value wraps without an error.
  EXPECT_EQ(read_i<uint32_t>("4294967296"), std::make_pair(0, uint32_t{0}));
  EXPECT_EQ(read_i<uint32_t>("4294967299"), std::make_pair(0, uint32_t{3}));
  EXPECT_EQ(read_i<uint32_t>("4294967300").first, ERR_UNSIGNED_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<uint64_t>("18446744073709551616"), std::make_pair(0, uint64_t{0}));
  EXPECT_EQ(read_i<uint64_t>("-1").first, ERR_BAD_UNSIGNED_CHARACTER);
  EXPECT_EQ(read_i<uint64_t>("+1").second, 1u);
  EXPECT_EQ(read_i<int64_t>("-9223372036854775808").second, INT64_MIN);
  EXPECT_EQ(read_i<int64_t>("9223372036854775808").first, ERR_INTEGER_OVERFLOW_INPUT);
  // In other radices the limits come from the tables.
  EXPECT_EQ(read_i<int32_t>("7FFFFFFF", modes(16)).second, INT32_MAX);
  EXPECT_EQ(read_i<int32_t>("80000000", modes(16)).first, ERR_INTEGER_OVERFLOW_INPUT);
  EXPECT_EQ(read_i<int32_t>("-80000000", modes(16)).second, INT32_MIN);
}

TEST(IntegerInput, BlankFieldPastTheEndUnderPadNoKeepsTheItem) {
  Field fd("  ", 3, true);
  int32_t v = 7;
  EXPECT_EQ(rd_iw<int32_t>(fd.f, modes(), kNoHook, &v), 0);
  EXPECT_EQ(v, 7);
}

namespace {

std::vector<unsigned char> bytes_of(int (*editor)(const InputField&, const InputModes&,
                                                  const BadCharacterHook&, unsigned char*, int64_t),
                                    const std::string& text, int64_t length, int* err,
                                    InputModes m = modes()) {
  Field fd(text);
  std::vector<unsigned char> item(static_cast<size_t>(length), 0xee);
  *err = editor(fd.f, m, kNoHook, item.data(), length);
  return item;
}

using Bytes = std::vector<unsigned char>;

}  // namespace

TEST(BozInput, DigitsBitsAndByteOrder) {
  int err;
  EXPECT_EQ(bytes_of(rd_zw_n, "1234", 4, &err), (Bytes{0x34, 0x12, 0, 0}));
  EXPECT_EQ(err, 0);
  EXPECT_EQ(bytes_of(rd_zw_ch, "1234", 4, &err), (Bytes{0, 0, 0x12, 0x34}));
  EXPECT_EQ(bytes_of(rd_bw_n, "1 0 1", 1, &err), (Bytes{5}));
  EXPECT_EQ(bytes_of(rd_ow_n, "777", 2, &err), (Bytes{0xff, 0x01}));
  EXPECT_EQ(bytes_of(rd_ow_n, "377", 1, &err), (Bytes{0xff}));
  EXPECT_EQ(err, 0);
  EXPECT_EQ(bytes_of(rd_zw_n, "abCD", 2, &err), (Bytes{0xcd, 0xab}));
  EXPECT_EQ(bytes_of(rd_zw_n, "   ", 2, &err), (Bytes{0, 0}));
  EXPECT_EQ(bytes_of(rd_zw_n, "0000", 2, &err), (Bytes{0, 0}));
  // Blanks are zero digits under BZ.
  EXPECT_EQ(bytes_of(rd_bw_n, "1 1", 1, &err, modes(10, true)), (Bytes{5}));
}

TEST(BozInput, WhatDoesNotFitAndBadDigits) {
  int err;
  bytes_of(rd_ow_n, "400", 1, &err);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  bytes_of(rd_zw_n, "100", 1, &err);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  bytes_of(rd_bw_n, "100000000", 1, &err);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  // The old dialect drops what O and Z cannot hold; B still refuses.
  const InputModes f77 = modes(10, false, 0, '.', true);
  EXPECT_EQ(bytes_of(rd_zw_n, "1FF", 1, &err, f77), (Bytes{0xff}));
  EXPECT_EQ(err, 0);
  EXPECT_EQ(bytes_of(rd_ow_n, "777", 1, &err, f77), (Bytes{0xff}));
  bytes_of(rd_bw_n, "100000000", 1, &err, f77);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  bytes_of(rd_bw_n, "12", 1, &err);
  EXPECT_EQ(err, ERR_DIGIT_BEYOND_RADIX);
  bytes_of(rd_ow_n, "8", 1, &err);
  EXPECT_EQ(err, ERR_DIGIT_BEYOND_RADIX);
  bytes_of(rd_ow_n, "x", 1, &err);
  EXPECT_EQ(err, ERR_BAD_INTEGER_CHARACTER);
  bytes_of(rd_zw_n, "G", 1, &err);
  EXPECT_EQ(err, ERR_BAD_INTEGER_CHARACTER);
  bytes_of(rd_zw_n, "-1", 1, &err);
  EXPECT_EQ(err, ERR_BAD_INTEGER_CHARACTER);
}

TEST(LongIntegerInput, TwosComplementAndOrder) {
  int err;
  // 2**64 + 1 in sixteen bytes, little-endian.
  Bytes want(16, 0);
  want[0] = 1;
  want[8] = 1;
  EXPECT_EQ(bytes_of(rd_iw_n, "18446744073709551617", 16, &err), want);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(bytes_of(rd_iw_n, "-1", 16, &err), Bytes(16, 0xff));
  EXPECT_EQ(bytes_of(rd_iw_ch, "258", 3, &err), (Bytes{0, 1, 2}));
  EXPECT_EQ(bytes_of(rd_iw_ch, "-128", 1, &err), (Bytes{0x80}));
  EXPECT_EQ(err, 0);
  bytes_of(rd_iw_ch, "128", 1, &err);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  bytes_of(rd_iw_ch, "-129", 1, &err);
  EXPECT_EQ(err, ERR_INTEGER_OVERFLOW_INPUT);
  EXPECT_EQ(bytes_of(rd_iw_ch, " - 00 ", 2, &err), (Bytes{0, 0}));
  EXPECT_EQ(bytes_of(rd_iw_ch, "FF", 2, &err, modes(16)), (Bytes{0, 0xff}));
}

TEST(LogicalInput, LettersPeriodsAndTails) {
  struct Row {
    const char* text;
    int err;
    int32_t value;
  };
  const std::vector<Row> rows = {
      {"T", 0, 1},
      {" .F.", 0, 0},
      {"TRUE", 0, 1},
      {".false.", 0, 0},
      {"Txyz", 0, 1},
      {"t", 0, 1},
      {"  ", 0, 0},
      {".", 0, 0},
      {". t", 0, 1},
      {"x", ERR_BAD_LOGICAL_CHARACTER, 0},
      {"1", ERR_BAD_LOGICAL_CHARACTER, 0},
  };
  for (const Row& r : rows) {
    Field fd(r.text);
    int32_t v = 5;
    EXPECT_EQ(rd_logical<int32_t>(fd.f, kNoHook, &v), r.err) << r.text;
    if (!r.err) {
      EXPECT_EQ(v, r.value) << r.text;
    }
  }
  int64_t wide = 5;
  Field t("T");
  EXPECT_EQ(rd_logical<int64_t>(t.f, kNoHook, &wide), 0);
  EXPECT_EQ(wide, 1);
}

TEST(CharacterInput, RightmostCharactersAndPadding) {
  char item[6];
  Field fd("abcdef");
  rd_aw(fd.f, 6, item, 3);  // A6 into CHARACTER*3: the rightmost three
  EXPECT_EQ(std::string(item, 3), "def");
  Field shorter("ab");
  memset(item, '?', 6);
  rd_aw(shorter.f, 2, item, 5);  // A2 into CHARACTER*5: blank-padded
  EXPECT_EQ(std::string(item, 5), "ab   ");
  memset(item, '?', 6);
  Field past("ab", 3, true);
  rd_aw(past.f, 5, item, 5);  // past the end under PAD='NO': no padding
  EXPECT_EQ(std::string(item, 5), "ab???");
}

namespace {

struct Scan {
  int err;
  int32_t fp_class, sign, exponent, ndigits, more;
  std::string digits;
};

Scan scan(const std::string& text, int d, InputModes m = modes(), int64_t shortfall = 0,
          bool nopad = false) {
  Field fd(text, shortfall, nopad);
  DecimalRecord rec;
  memset(&rec, 0x55, sizeof rec);
  const int err = rd_decimal_record(fd.f, m, d, kNoHook, &rec);
  Scan s{err, rec.fp_class, rec.sign, rec.exponent, rec.ndigits, rec.more, ""};
  if (!err && rec.ndigits > 0) s.digits = rec.digits;
  return s;
}

}  // namespace

TEST(RealFieldScan, DigitsAndExponents) {
  struct Row {
    const char* text;
    int d;
    InputModes m;
    const char* digits;
    int32_t exponent;
    int32_t sign;
  };
  const std::vector<Row> rows = {
      {"123", 1, modes(), "123", -1, 0},                 // F3.1: an implied point
      {"123", 1, modes(10, false, 2), "123", -3, 0},     // 2P: 0.123
      {"1.23", 1, modes(10, false, 2), "123", -4, 0},    // 0.0123
      {"1.23E1", 1, modes(10, false, 2), "123", -1, 0},  // with an exponent, no P
      {"1.5+3", 0, modes(10, false, 2), "15", 2, 0},     // 1500: the exponent alone
      {"15+3", 1, modes(10, false, 2), "15", 4, 0},      // 150000: P added without a point
      {"1.5E", 0, modes(), "15", 0, 0},                  // a letter alone: 15
      {"1.5E+", 0, modes(), "15", -1, 0},                // a letter and a sign: 1.5
      {"-0.0025", 0, modes(), "25", -4, 1},
      {" 2.5D-3", 5, modes(), "25", -4, 0},
      {"2.5q2", 0, modes(), "25", 1, 0},
      {"1 2", 0, modes(10, true), "102", 0, 0},           // BZ
      {"12", 0, modes(10, true), "12", 2, 0},             // shortfall as zeros (2 below)
      {"1,5", 0, modes(10, false, 0, ','), "15", -1, 0},  // DECIMAL='COMMA'
      {"1E 2", 0, modes(10, true), "1", 2, 0},
      {"007.100", 0, modes(), "71", -1, 0},
  };
  for (const Row& r : rows) {
    const Scan s = scan(r.text, r.d, r.m, std::string(r.text) == "12" ? 2 : 0);
    EXPECT_EQ(s.err, 0) << r.text;
    EXPECT_EQ(s.digits.substr(0, strlen(r.digits)), r.digits) << r.text;
    // Trailing zeros may be kept or not; the value must be the same.
    const int32_t extra = static_cast<int32_t>(s.digits.size() - strlen(r.digits));
    EXPECT_EQ(s.exponent + extra, r.exponent) << r.text;
    EXPECT_EQ(s.sign, r.sign) << r.text;
  }
}

TEST(RealFieldScan, ZeroInfinityNaNAndBadCharacters) {
  Scan s = scan("   ", 2);
  EXPECT_EQ(s.ndigits, 0);
  EXPECT_EQ(s.sign, 0);
  s = scan("  -", 2);  // a sign alone: negative zero
  EXPECT_EQ(s.ndigits, 0);
  EXPECT_EQ(s.sign, 1);
  EXPECT_EQ(scan("  ", 0, modes(), 3, true).ndigits, -1);  // store nothing
  EXPECT_EQ(scan(".000", 0).ndigits, 0);
  for (const char* inf : {"INFINITY", "inf", "Inf  x", "-Infinity"}) {
    s = scan(inf, 0);
    EXPECT_EQ(s.err, 0) << inf;
    EXPECT_EQ(s.fp_class, FPC_INFINITY) << inf;
  }
  EXPECT_EQ(scan("-inf", 0).sign, 1);
  for (const char* nan : {"NaN", "-nan", "nAn(x)"}) EXPECT_EQ(scan(nan, 0).fp_class, FPC_QUIET_NAN);
  for (const char* bad : {"INFINIT", "IN", "INX", "NAX", "1.2.3", "1x", "1E+x", "12-3x"})
    EXPECT_EQ(scan(bad, 0).err, ERR_BAD_REAL_CHARACTER) << bad;
}

TEST(RealFieldScan, BeyondTheDigitCapacity) {
  // 600 integer digits: from the 512th on they are dropped, `more` is set,
  // and the exponent does not follow them.
  std::string many(600, '7');
  Scan s = scan(many, 0);
  EXPECT_EQ(s.ndigits, 511);
  EXPECT_EQ(s.more, 1);
  EXPECT_EQ(s.exponent, 0);
  // In the fraction only a dropped digit other than 0 counts.
  s = scan("0." + std::string(511, '1') + "000", 0);
  EXPECT_EQ(s.more, 0);
  s = scan("0." + std::string(511, '1') + "001", 0);
  EXPECT_EQ(s.more, 1);
  EXPECT_EQ(s.exponent, -511);
}

namespace {

// A hook that answers each offer with the next character of `answers`.
struct ScriptedHook {
  explicit ScriptedHook(std::string a) : answers(std::move(a)) {}
  std::string answers;
  size_t used = 0;
  std::vector<char> offered;
  static int call(void* context, char* bad) {
    auto* h = static_cast<ScriptedHook*>(context);
    h->offered.push_back(*bad);
    if (h->used == h->answers.size()) return ERR_HANDLER_LOOP;
    *bad = h->answers[h->used++];
    return 0;
  }
  BadCharacterHook hook() {
    BadCharacterHook b;
    b.handler = call;
    b.context = this;
    b.separator = ',';
    return b;
  }
};

}  // namespace

TEST(CorrectionAnswerBack, ParseAgainOrFindTheFieldAgain) {
  ScriptedHook h("5");
  Field fd("1x3");
  int32_t v = 0;
  EXPECT_EQ(rd_iw<int32_t>(fd.f, modes(), h.hook(), &v), 0);
  EXPECT_EQ(v, 153);
  EXPECT_EQ(h.offered, std::vector<char>{'x'});
  // A blank or the separator in its place: the caller finds the field again.
  ScriptedHook blank(" ");
  Field again("1x3");
  EXPECT_EQ(rd_iw<int32_t>(again.f, modes(), blank.hook(), &v), kRescanField);
  ScriptedHook logical("T");
  Field l("?");
  EXPECT_EQ(rd_logical<int32_t>(l.f, logical.hook(), &v), 0);
  EXPECT_EQ(v, 1);
  // The hook's own number goes back as it is.
  ScriptedHook none("");
  Field r("1.5x");
  DecimalRecord rec;
  EXPECT_EQ(rd_decimal_record(r.f, modes(), 0, none.hook(), &rec), ERR_HANDLER_LOOP);
  // Behind an Infinity only a hook looks.
  ScriptedHook tail(" ");
  Field t("Inf x");
  EXPECT_EQ(rd_decimal_record(t.f, modes(), 0, tail.hook(), &rec), kRescanField);
  EXPECT_EQ(tail.offered, std::vector<char>{'x'});
}
