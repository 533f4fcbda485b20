// Layout of real fields from given digits: E, D, ES, EN, F, the zero,
// infinity and NaN fields, with scale factors, signs, separators and the
// old dialect.  The digits are what a conversion would hand over.
#include "formatted/real_edit.h"

#include <string>
#include <vector>

#include "formatted/record.h"
#include "gtest/gtest.h"
#include "qal/errors.h"

using namespace qal;
using qal::test::StringRecord;

namespace {

struct Modes {
  int32_t k = 0;
  int32_t sign_mode = SIGN_SUPPRESS;
  bool f77 = false;
  char separator = '.';
  int32_t round = ROUND_NEAREST;
  bool g = false;
};

template <class Edit>
std::string field(const Modes& m, Edit edit, int expected_status = 0) {
  StringRecord r(m.sign_mode, 10, m.f77);
  r.f.scale_factor = m.k;
  r.f.separator = m.separator;
  r.f.round = m.round;
  r.f.g_editing = m.g;
  EXPECT_EQ(edit(r.f), expected_status);
  return r.text;
}

DecimalDigits value(const char* digits, int32_t p, bool negative = false) {
  return {negative, p, digits};
}

// One editor call with its arguments bound, waiting for the record.
template <class Edit, class... Args>
auto edit(Edit e, Args... args) {
  return [=](FieldWriter& f) { return e(f, args...); };
}

}  // namespace

TEST(RealLayout, ExponentForms) {
  const Modes plain;
  Modes scaled;
  scaled.k = 1;
  Modes comma;
  comma.separator = ',';
  // E12.4 and E9.4 of 1234.6: the leading zero only where there is room.
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 12, 4, 'E', value("1235", 4))), "  0.1235E+04");
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 9, 4, 'E', value("1235", 4))), ".1235E+04");
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 8, 4, 'E', value("1235", 4))), "********");
  // Three exponent digits drop the letter; a width for them keeps it.
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 10, 3, 'E', value("100", 101))), " 0.100+101");
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 11, 3, 'E', value("100", -99))), "  0.100E-99");
  EXPECT_EQ(field(plain, edit(wrt_ewde_normal, 10, 3, 3, 'E', value("100", 101))), "0.100E+101");
  EXPECT_EQ(field(plain, edit(wrt_ewde_normal, 9, 3, 1, 'E', value("100", 101))), "*********");
  EXPECT_EQ(field(plain, edit(wrt_ewd_normal, 10, 3, 'D', value("1", 1))), " 0.100D+01");
  // 1PE10.3 of 1.5; -2PE10.3 of -2 has two zeros behind the point.
  EXPECT_EQ(field(scaled, edit(wrt_ewd_normal, 10, 3, 'E', value("1500", 1))), " 1.500E+00");
  Modes back;
  back.k = -2;
  EXPECT_EQ(field(back, edit(wrt_ewd_normal, 10, 3, 'E', value("2", 1, true))), "-0.002E+03");
  EXPECT_EQ(field(comma, edit(wrt_ewd_normal, 10, 3, 'E', value("0125", 1))), " 0,125E+00");
  Modes plus;
  plus.sign_mode = SIGN_PLUS;
  EXPECT_EQ(field(plus, edit(wrt_ewd_normal, 10, 3, 'E', value("125", 1))), "+0.125E+01");
}

TEST(RealLayout, ScaledAndEngineeringForms) {
  const Modes plain;
  EXPECT_EQ(field(plain, edit(wrt_eswd_normal, 10, 3, value("1235", 4))), " 1.235E+03");
  EXPECT_EQ(field(plain, edit(wrt_eswd_normal, 10, 3, value("x", 4))), "**********");
  // EN takes d + 4 digits and rounds the cut a second time.
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 10, 3, value("1234600", 4))), " 1.235E+03");
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 10, 3, value("1200000", -2))), " 1.200E-03");
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 11, 3, value("1200000", -3))), "120.000E-06");
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 10, 3, value("1200000", -3))), "**********");
  // 999.9999 carries to a fourth digit ahead, which starts a new group.
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 10, 2, value("999999900", 3))), "  1.00E+03");
  EXPECT_EQ(field(plain, edit(wrt_enwd_normal, 10, 2, value("999499900", 3))), "999.50E+00");
  // The second rounding by direction: up on any non-zero cut for the
  // value's own direction, never on a cut zero.
  Modes up;
  up.round = ROUND_UP;
  EXPECT_EQ(field(up, edit(wrt_enwd_normal, 10, 2, value("1231", 1))), "  1.24E+00");
  EXPECT_EQ(field(up, edit(wrt_enwd_normal, 10, 2, value("1230999", 1))), "  1.23E+00");
  EXPECT_EQ(field(up, edit(wrt_enwd_normal, 10, 2, value("1231", 1, true))), " -1.23E+00");
  Modes zero;
  zero.round = ROUND_ZERO;
  EXPECT_EQ(field(zero, edit(wrt_enwd_normal, 10, 2, value("1239", 1))), "  1.23E+00");
}

TEST(RealLayout, FixedForm) {
  const Modes plain;
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 5, 2, value("100", 1))), " 1.00");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 3, 2, value("25", 0))), ".25");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 4, 2, value("25", 0))), "0.25");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 0, 2, value("50", 0))), "0.50");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 0, 1, value("12345", 4, true))), "-1234.5");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 0, 3, value("5", -1))), "0.050");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 4, 2, value("12345", 3))), "****");
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 2, 0, value("4", 0))), "0.");
  // The scale factor moves the point, except when a G editor runs.
  Modes scaled;
  scaled.k = 2;
  EXPECT_EQ(field(scaled, edit(wrt_fwd_normal, 8, 2, value("12345", 1))), "  123.45");
  scaled.g = true;
  EXPECT_EQ(field(scaled, edit(wrt_fwd_normal, 8, 2, value("12345", 1))), "    1.23");
  // Values that rounded to zero keep their minus, except in the old
  // dialect; a true zero comes with a sign only under SP.
  EXPECT_EQ(field(plain, edit(wrt_fwd_normal, 6, 2, value("", 0, true))), " -0.00");
  Modes old;
  old.f77 = true;
  EXPECT_EQ(field(old, edit(wrt_fwd_normal, 6, 2, value("", 0, true))), "  0.00");
  EXPECT_EQ(field(plain, [](FieldWriter& f) { return wrt_fwd_zero(f, 0, 0, false); }), "0.");
  EXPECT_EQ(field(plain, [](FieldWriter& f) { return wrt_fwd_zero(f, 6, 2, false); }), "  0.00");
  EXPECT_EQ(field(plain, [](FieldWriter& f) { return wrt_fwd_zero(f, 3, 2, false); }), ".00");
  EXPECT_EQ(field(plain, [](FieldWriter& f) { return wrt_fwd_zero(f, 2, 2, false); }), "**");
  Modes plus;
  plus.sign_mode = SIGN_PLUS;
  plus.separator = ',';
  EXPECT_EQ(field(plus, [](FieldWriter& f) { return wrt_fwd_zero(f, 0, 1, false); }), "+0,0");
}

TEST(RealLayout, ZeroFields) {
  const Modes plain;
  EXPECT_EQ(field(plain, edit(wrt_ewde_zero, 10, 3, 2, 'E')), " 0.000E+00");
  EXPECT_EQ(field(plain, edit(wrt_ewde_zero, 8, 3, 2, 'E')), ".000E+00");
  EXPECT_EQ(field(plain, edit(wrt_ewde_zero, 7, 3, 2, 'E')), "*******");
  Modes scaled;
  scaled.k = 2;
  EXPECT_EQ(field(scaled, edit(wrt_ewde_zero, 10, 3, 2, 'E')), " 00.00E+00");
  scaled.k = 5;
  EXPECT_EQ(field(scaled, edit(wrt_ewde_zero, 10, 3, 2, 'E'), ERR_BAD_SCALE_FACTOR), "");
  EXPECT_EQ(field(plain, edit(wrt_ewde_zero, 0, 3, 2, 'E'), ERR_ZERO_FIELD_WIDTH), "");
  Modes old;
  old.f77 = true;
  EXPECT_EQ(field(old, edit(wrt_ewde_zero, 0, 3, 2, 'E')), "E+00");
  EXPECT_EQ(field(plain, [](FieldWriter& f) { return wrt_enwde_zero(f, 10, 3, kNoExponentWidth); }),
            " 0.000E+00");
  // G of zero: F form with the exponent's place blank, E form at d = 0.
  EXPECT_EQ(field(plain, edit(wrt_gwde_zero, 10, 3, 2)), "  0.00    ");
  EXPECT_EQ(field(plain, edit(wrt_gwde_zero, 7, 3, 2)), ".00    ");
  EXPECT_EQ(field(plain, edit(wrt_gwde_zero, 6, 3, 2)), "******");
  EXPECT_EQ(field(plain, edit(wrt_gwde_zero, 8, 1, 2)), "  0.    ");
  EXPECT_EQ(field(plain, edit(wrt_gwde_zero, 8, 0, 2), ERR_BAD_SCALE_FACTOR), "");
  Modes one;
  one.k = 1;
  EXPECT_EQ(field(one, edit(wrt_gwde_zero, 8, 0, 2)), " 0.0E+00");
}

TEST(RealLayout, InfinityAndNaN) {
  const Modes plain;
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 10, 2, false)), "  Infinity");
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 7, 2, false)), "    Inf");
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 3, 2, false)), "Inf");
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 2, 1, false)), "**");
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 3, 2, true)), "***");
  EXPECT_EQ(field(plain, edit(wrt_flt_infinity, 0, 2, true)), "-Inf");
  Modes plus;
  plus.sign_mode = SIGN_PLUS;
  EXPECT_EQ(field(plus, edit(wrt_flt_infinity, 3, 2, false)), "***");
  EXPECT_EQ(field(plain, edit(wrt_flt_nan, 10, false)), "       NaN");
  EXPECT_EQ(field(plain, edit(wrt_flt_nan, 10, true)), "      -NaN");
  EXPECT_EQ(field(plus, edit(wrt_flt_nan, 4, false)), "+NaN");
  EXPECT_EQ(field(plain, edit(wrt_flt_nan, 3, true)), "***");
  EXPECT_EQ(field(plain, edit(wrt_flt_nan, 0, false)), "NaN");
  // The old dialect: left-justified, "inity" only for eight digits or more.
  Modes old;
  old.f77 = true;
  EXPECT_EQ(field(old, edit(wrt_flt_infinity, 10, 8, false)), "Infinity  ");
  EXPECT_EQ(field(old, edit(wrt_flt_infinity, 10, 7, false)), "Inf       ");
  EXPECT_EQ(field(old, edit(wrt_flt_infinity, 6, 9, true)), "-Infin");
  EXPECT_EQ(field(old, edit(wrt_flt_infinity, 0, 9, true)), "");
  EXPECT_EQ(field(old, edit(wrt_flt_nan, 5, false)), "NaN  ");
  EXPECT_EQ(field(old, edit(wrt_flt_nan, 3, false)), "***");
  EXPECT_EQ(field(old, edit(wrt_flt_nan, 0, false)), "");
}
