// The output editors of integers, logicals and characters, writing into a
// record held in a string.
#include "formatted/output_edit.h"

#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "formatted/record.h"
#include "gtest/gtest.h"
#include "qal/errors.h"

using namespace qal;
using qal::test::StringRecord;

namespace {

template <class T>
std::string iwm(T v, int32_t w, int32_t m = 0, int32_t mode = SIGN_SUPPRESS, int32_t radix = 10) {
  StringRecord r(mode, radix);
  EXPECT_EQ(wrt_iwm<T>(r.f, w, m, v), 0);
  return r.text;
}

template <class Edit, class... Args>
std::string edit(Edit e, Args... args) {
  StringRecord r;
  EXPECT_EQ(e(r.f, args...), 0);
  return r.text;
}

std::string bytes_edit(int (*e)(FieldWriter&, int32_t, int32_t, const unsigned char*, int64_t),
                       std::vector<unsigned char> b, int32_t w, int32_t m = 0,
                       int32_t mode = SIGN_SUPPRESS) {
  StringRecord r(mode);
  EXPECT_EQ(e(r.f, w, m, b.data(), static_cast<int64_t>(b.size())), 0);
  return r.text;
}

TEST(IntegerEdit, WidthMinimumDigitsAndAsterisks) {
  EXPECT_EQ(iwm(-123, 5), " -123");
  EXPECT_EQ(iwm(-123, 3), "***");
  EXPECT_EQ(iwm(12, 4, 4), "0012");
  EXPECT_EQ(iwm(-12, 4, 4), "****");
  EXPECT_EQ(iwm(-12, 0), "-12");
  EXPECT_EQ(iwm(0, 0), " ");
  EXPECT_EQ(iwm(0, 0, 3), "000");
  EXPECT_EQ(iwm(0, 0, 3, SIGN_PLUS), "+000");
  EXPECT_EQ(iwm(0, 3, 0, SIGN_PLUS), "   ");
  EXPECT_EQ(iwm(0, 4, 3, SIGN_PLUS), "+000");
  EXPECT_EQ(iwm(0, 3, 3, SIGN_PLUS), "***");
  EXPECT_EQ(iwm(0, 3, 3), "000");
  EXPECT_EQ(iwm(7, 3, 0, SIGN_PLUS), " +7");
  EXPECT_EQ(iwm(INT32_MIN, 11), "-2147483648");
  EXPECT_EQ(iwm(INT64_MIN, 0), "-9223372036854775808");
  EXPECT_EQ(iwm(-1, 3, 0, SIGN_UNSIGNED), "***");
  EXPECT_EQ(iwm(-1, 12, 0, SIGN_UNSIGNED), "  4294967295");
  EXPECT_EQ(iwm(int64_t{-1}, 0, 0, SIGN_UNSIGNED), "18446744073709551615");
  EXPECT_EQ(iwm(255, 8, 0, SIGN_SUPPRESS, 16), "      FF");
  EXPECT_EQ(iwm(-35, 0, 0, SIGN_SUPPRESS, 36), "-Z");
}

TEST(IntegerEdit, UnsignedValuesTakeThePlusAsADigit) {
  EXPECT_EQ(iwm(12u, 5, 4, SIGN_PLUS), " 0+12");
  EXPECT_EQ(iwm(12u, 3, 0, SIGN_PLUS), "+12");
  EXPECT_EQ(iwm(12u, 2, 0, SIGN_PLUS), "**");
  EXPECT_EQ(iwm(UINT64_MAX, 20), "18446744073709551615");
  EXPECT_EQ(iwm(0u, 4, 2, SIGN_PLUS), " +00");
}

TEST(IntegerEdit, OldDialectWritesNothingForWidthZero) {
  StringRecord r(SIGN_SUPPRESS, 10, true);
  EXPECT_EQ(wrt_iwm_i4(r.f, 0, 0, 5), 0);
  EXPECT_EQ(wrt_iwm_i4(r.f, 0, 0, 0), 0);
  EXPECT_EQ(wrt_zwm_i4(r.f, 0, 2, 5), 0);
  EXPECT_EQ(r.text, "");
  EXPECT_EQ(wrt_iwm_i4(r.f, -1, 0, 5), ERR_NEGATIVE_FIELD_WIDTH);
  EXPECT_EQ(wrt_iwm_i4(r.f, -1, 0, 0), ERR_NEGATIVE_FIELD_WIDTH);
  EXPECT_EQ(r.text, "");
}

TEST(RadixEdit, BinaryOctalHexOfIntegers) {
  EXPECT_EQ(edit(wrt_bwm_i4, 8, 0, 5), "     101");
  EXPECT_EQ(edit(wrt_bwm_i4, 8, 4, 5), "    0101");
  EXPECT_EQ(edit(wrt_zwm_i4, 4, 0, -1), "****");
  EXPECT_EQ(edit(wrt_zwm_i4, 0, 0, -1), "FFFFFFFF");
  EXPECT_EQ(edit(wrt_zwm_i8, 0, 0, int64_t{-1}), "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(edit(wrt_owm_i8, 0, 0, INT64_MIN), "1000000000000000000000");
  EXPECT_EQ(edit(wrt_owm_u4, 6, 0, 8u), "    10");
  EXPECT_EQ(edit(wrt_bwm_i4, 0, 0, 0), " ");
  EXPECT_EQ(edit(wrt_zwm_i4, 3, 2, 0), " 00");
  // B, O and Z never sign, whatever the mode.
  StringRecord r(SIGN_PLUS);
  EXPECT_EQ(wrt_zwm_i4(r.f, 0, 3, 0), 0);
  EXPECT_EQ(wrt_zwm_i4(r.f, 3, 0, 10), 0);
  EXPECT_EQ(r.text, "000  A");
}

TEST(RadixEdit, ByteStringsAreOneBigNumber) {
  EXPECT_EQ(bytes_edit(wrt_zwm_ch, {'A'}, 3), " 41");
  EXPECT_EQ(bytes_edit(wrt_zwm_ch, {'A'}, 0), "41");
  EXPECT_EQ(bytes_edit(wrt_owm_ch, {1, 0}, 5), "  400");
  EXPECT_EQ(bytes_edit(wrt_zwm_ch, {0, 0, 0x0a, 0xbc}, 0), "ABC");
  EXPECT_EQ(bytes_edit(wrt_bwm_ch, {0, 3, 0x80}, 0), "1110000000");
  EXPECT_EQ(bytes_edit(wrt_bwm_ch, {0, 0}, 2), "  ");
  EXPECT_EQ(bytes_edit(wrt_zwm_ch, {}, 0, 2), "00");
  // Octal groups three bytes from the right, eight digits a group.
  EXPECT_EQ(bytes_edit(wrt_owm_ch, {0xff, 0xff, 0xff, 0xff}, 0), "37777777777");
  EXPECT_EQ(bytes_edit(wrt_owm_ch, {1, 0, 0, 0, 0, 0, 7}, 0), "10000000000000007");
  EXPECT_EQ(bytes_edit(wrt_zwm_ch, {0x12, 0x34}, 3), "***");
  // Numeric items come in memory order, lowest byte first.
  StringRecord r;
  unsigned char n[4] = {0x78, 0x56, 0x34, 0x12};
  EXPECT_EQ(wrt_zwm_n(r.f, 0, 0, n, 4), 0);
  EXPECT_EQ(r.text, "12345678");
}

TEST(RadixEdit, ByteStringsInDecimalAsTwosComplement) {
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0xff, 0xff, 0x85}, 0), "-123");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x00, 0x00, 0x85}, 0), "133");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x85}, 0, 0, SIGN_UNSIGNED), "133");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x85}, 0, 0, SIGN_PLUS), "-123");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x7b}, 6, 5, SIGN_PLUS), "+00123");
  // Bare I (w = -1): two wider than the digits; three for a zero.
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x01, 0x00}, -1), "  256");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x00, 0x00}, -1), "   ");
  // Longer than any machine integer: 2**80.
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0),
            "1208925819614629174706176");
  EXPECT_EQ(bytes_edit(wrt_iwm_ch, {0x80, 0, 0, 0, 0, 0, 0, 0, 0}, 0), "-2361183241434822606848");
  StringRecord r(SIGN_SUPPRESS, 2);
  unsigned char big[8] = {0xff, 0, 0, 0, 0, 0, 0, 0x7f};  // memory order
  EXPECT_EQ(wrt_iwm_n(r.f, 0, 0, big, 8), 0);
  EXPECT_EQ(r.text, "111111100000000000000000000000000000000000000000000000011111111");
}

TEST(CharacterEdit, AAndAw) {
  EXPECT_EQ(edit(wrt_aw, 3, "abcde", int64_t{5}), "abc");
  EXPECT_EQ(edit(wrt_aw, 7, "abcde", int64_t{5}), "  abcde");
  EXPECT_EQ(edit(wrt_aw, 0, "abcde", int64_t{5}), "");
  EXPECT_EQ(edit(wrt_a, "abc", int64_t{3}), "abc");
  EXPECT_EQ(edit(wrt_a, "abc", int64_t{0}), "");
  StringRecord r;
  EXPECT_EQ(wrt_aw(r.f, -1, "x", 1), ERR_NEGATIVE_FIELD_WIDTH);
}

TEST(LogicalEdit, AnyNonzeroIsTrue) {
  EXPECT_EQ(edit(wrt_logical_l4, 1, 2), "T");
  EXPECT_EQ(edit(wrt_logical_l4, 3, 0), "  F");
  EXPECT_EQ(edit(wrt_logical_l8, 2, int64_t{1} << 40), " T");
  const unsigned char bytes[3] = {0, 0, 4};
  EXPECT_EQ(edit(wrt_lwm_ch, 2, bytes, int64_t{3}), " T");
  EXPECT_EQ(edit(wrt_lwm_ch, 2, bytes, int64_t{2}), " F");
  StringRecord r;
  EXPECT_EQ(wrt_logical_l4(r.f, 0, 1), ERR_ZERO_FIELD_WIDTH);
  EXPECT_EQ(wrt_logical_l4(r.f, -2, 1), ERR_NEGATIVE_FIELD_WIDTH);
  StringRecord old(SIGN_SUPPRESS, 10, true);
  EXPECT_EQ(wrt_logical_l4(old.f, 0, 1), 0);
  EXPECT_EQ(old.text, "T");
}

}  // namespace
