// Where our real output differs from gfortran's on purpose, in one list,
// and the texts each case must have.  gfortran_real_oracle_test.cc compares
// everything else with gfortran and keeps clear of these cases.  Each entry
// was checked by running the same statements through gfortran 12.
//
//  1. Negative zero prints as a positive zero under E, D, ES, EN, F and G,
//     SP included ("+0.000E+00"), and list-directed as "0.0E+0".  gfortran
//     writes the minus everywhere ("-0.000E+00", " -0.00", "-.00" under
//     F0.2, "-0.0000000000000000" list-directed), so where the minus does
//     not fit (E8.3, ES10.3E3, EN10.3E3) its field is asterisks and ours is
//     not.  A value that rounds to zero keeps its minus in both: -0.001
//     under F6.2 is " -0.00".
//  2. Infinity: the same fields as gfortran ("Infinity" where it fits with
//     its sign, "Inf" down to three places and the sign, asterisks below),
//     except SP in a field of three: ours is "***", gfortran drops the plus
//     and writes "Inf".
//  3. NaN shows its sign bit ("-NaN") and SP ("+NaN"), and is asterisks
//     where that sign does not fit (E3.1 of -NaN); gfortran never signs a
//     NaN.
//  4. E0.d, D0.d, G0 and G0.d are format errors here (only F has a minimal
//     form); gfortran accepts them.
//  5. F0.d, d above 0, of a value below one after rounding, zero included,
//     writes the zero ahead of the point: "0.50", "-0.250", "0.00".
//     gfortran leaves it out (".50", "-.250", ".00").  F0.0 and Fw.d agree.
//  6. ES of zero in a field with no room for the zero ahead of the point
//     takes the E layout, where that zero is optional: ES8.3 is
//     ".000E+00", gfortran's is asterisks.
//  7. G of zero agrees with gfortran for d above 0.  With d = 0 (which
//     needs 1P) ours is "0.0E+00", gfortran's "0.E+00".
//  8. Gw.0 of a magnitude from 0.05 to below 0.5 takes F editing whatever
//     the scale factor: G8.0 and 1PG8.0 of 0.3 are "  0.    ".  gfortran
//     fails the first and writes "3.E-01" for the second.
//  9. G chooses between F and E in the precision of 10**d, single up to
//     d = 37, so a REAL*8 within a single's rounding of a bound goes the
//     other way: G15.8 of 99999999.0 is E, G25.16 of 0.09999999999999999 is
//     F.  gfortran decides on the exact value.
// 10. Exact decimal ties: E, D, ES, F and G in the default mode (RP) round
//     them to even, and RU, RD and RZ round them by direction, all as
//     gfortran does.  EN differs: it cuts its digits toward zero and rounds
//     again on the first digit cut away, so in RP, RN and RC a tie goes
//     away from zero: EN9.0 of 2.5 is "3.E+00", gfortran's "2.E+00".  In RN
//     the second rounding also catches near ties (2.675 under EN10.2 is
//     2.68).
// 11. RN: E, D and ES round the exact value to even, as gfortran.  F, and
//     G's F part, first step one unit in the last place, toward plus
//     infinity when bit 56 of the upper neighbour's bits is clear and
//     toward minus infinity when it is set.  That bit is the fifth of the
//     exponent, so the direction changes every sixteen binades: magnitudes
//     from 2**-15 to below 2 step down, from 2 to below 2**17 up.  So 2.5
//     under F3.0 is " 3.", 2.675 under F5.2 " 2.68", -0.15 under F4.1
//     "-0.2"; gfortran writes " 2.", " 2.67", "-0.1".  G's bounds move
//     with it: RN,G10.1 of 9.7 is F ("   10.    ") and of 10.2 asterisks,
//     where gfortran takes E.
// 12. RC steps every value one unit in the last place away from zero
//     before converting, a positive power of two toward zero instead.  So
//     near ties round away (1.005 under ES10.2 is 1.01E+00, 0.35 under
//     F4.1 is 0.4) and ties at positive powers of two toward zero (0.125
//     under F5.2 is 0.12, 0.25 under E10.1 0.2E+00); gfortran rounds the
//     exact value half away from zero (1.00, 0.3, 0.13, 0.3).
// 13. EN under RU and RD rounds the cut a second time only when the first
//     digit cut away is not 0, whatever lies behind it: 1.09400001 under
//     RU,EN12.4 stays 1.0940E+00; gfortran writes 1.0941E+00.
// 14. gfortran's fault: F under RU or RD of a value smaller than the last
//     place (1.9E-23 under RU,F22.2) gives zero; ours gives the last place,
//     0.01, as rounding up requires.
// 15. List-directed: the fewest digits that read back ("0.1", gfortran
//     "0.10000000000000001", 17 digits, 9 for REAL*4; a subnormal gets the
//     digits of a full significand, always in E form); fixed form from
//     0.01 to below 1.0E+9 as those digits stand (0.01, 1.0E-3,
//     100000000.0, 1.0E+9), where gfortran fixes from 0.1 to below 1.0E+17
//     (1.0E+9 for REAL*4); as few exponent digits as there are ("1.0E-3",
//     gfortran "1.0000000000000000E-003", "E-03" for REAL*4); "0.0E+0" for
//     either zero; "Inf", "-Inf", "NaN", "-NaN" (gfortran "Infinity" and
//     an unsigned "NaN"); no padding beyond the separating blank; complex
//     "(1.0, -2.5)", gfortran "(1.0000000000000000,-2.5000000000000000)".
#include <math.h>

#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"
#include "support/connect.h"
#include "support/scratch.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::test;

namespace {

// A REAL*8 item, or a REAL*4 one held exactly in a double.
struct Real {
  double value;
  bool single = false;
};
Real r4(float v) { return {v, true}; }

const double kInf = HUGE_VAL;
const double kNaN = NAN;
const double kMinusNaN = copysign(NAN, -1.0);

// WRITE(10, format) item.
struct Row {
  std::string format;
  Real item;
  const char* record;
};

int write_item(const std::string& format, Real item) {
  FormattedWrite w(10, format, SF_ERR_RETURN);
  return item.single ? w.all(static_cast<float>(item.value)) : w.all(item.value);
}

// Runs the rows' statements in turn on unit 10, one record each, and
// compares the records.
void expect_records(const std::vector<Row>& rows) {
  ScratchDir dir;
  for (const Row& r : rows) EXPECT_EQ(write_item(r.format, r.item), 0) << r.format;
  close_unit(10);
  std::istringstream file(dir.read("fort.10"));
  std::string record;
  for (const Row& r : rows) {
    std::getline(file, record);
    EXPECT_EQ(record, r.record) << r.format << " of " << r.item.value
                                << (r.item.single ? " (REAL*4)" : "");
  }
}

// One descriptor and item under several rounding modes, a record for each.
template <size_t N>
struct ModeRow {
  const char* descriptor;
  Real item;
  const char* records[N];
};

template <size_t N>
void expect_by_mode(const char* const (&modes)[N], const std::vector<ModeRow<N>>& rows) {
  std::vector<Row> flat;
  for (const ModeRow<N>& r : rows)
    for (size_t m = 0; m < N; ++m)
      flat.push_back({std::string("(") + modes[m] + r.descriptor + ")", r.item, r.records[m]});
  expect_records(flat);
}

}  // namespace

TEST(RealApartFromGfortran, NegativeZeroHasNoSign) {
  const double z = -0.0;
  expect_records({
      {"(E10.3)", {z}, " 0.000E+00"},
      {"(SP,E10.3)", {z}, "+0.000E+00"},
      // No minus to make room for: the optional zero goes, the field stays.
      {"(E8.3)", {z}, ".000E+00"},
      {"(1PE10.3)", {z}, " 0.000E+00"},
      {"(-1PE10.3)", {z}, " 0.000E+00"},
      {"(E10.3E1)", {z}, "  0.000E+0"},
      {"(D10.3)", {z}, " 0.000D+00"},
      {"(ES10.3)", {z}, " 0.000E+00"},
      {"(ES10.3E3)", {z}, "0.000E+000"},
      {"(EN10.3)", {z}, " 0.000E+00"},
      {"(SP,EN10.3)", {z}, "+0.000E+00"},
      {"(EN10.3E3)", {z}, "0.000E+000"},
      {"(F6.2)", {z}, "  0.00"},
      {"(SP,F6.2)", {z}, " +0.00"},
      {"(F3.1)", {z}, "0.0"},
      {"(F0.2)", {z}, "0.00"},
      {"(F0.0)", {z}, "0."},
      {"(SP,F0.1)", {z}, "+0.0"},
      {"(DC,F6.2)", {z}, "  0,00"},
      {"(G10.3)", {z}, "  0.00    "},
      {"(SP,G10.3)", {z}, " +0.00    "},
      {"(E10.3)", r4(-0.0f), " 0.000E+00"},
      {"(F6.2)", r4(-0.0f), "  0.00"},
      {"(G10.3)", r4(-0.0f), "  0.00    "},
      // A value that rounds to zero is not a zero: it keeps its minus.
      {"(F6.2)", {-0.001}, " -0.00"},
      {"(SP,F6.2)", {-0.001}, " -0.00"},
      {"(F3.0)", {-0.4}, "-0."},
  });
}

TEST(RealApartFromGfortran, InfinityAndNaNFields) {
  expect_records({
      {"(F10.2)", {kInf}, "  Infinity"},
      {"(F10.2)", {-kInf}, " -Infinity"},
      {"(F9.2)", {-kInf}, "-Infinity"},
      {"(F8.2)", {kInf}, "Infinity"},
      {"(F8.2)", {-kInf}, "    -Inf"},
      {"(F7.2)", {kInf}, "    Inf"},
      {"(F4.2)", {-kInf}, "-Inf"},
      {"(F3.2)", {kInf}, "Inf"},
      {"(F3.2)", {-kInf}, "***"},
      {"(F2.1)", {kInf}, "**"},
      {"(SP,F9.2)", {kInf}, "+Infinity"},
      {"(SP,F8.2)", {kInf}, "    +Inf"},
      {"(SP,F4.2)", {kInf}, "+Inf"},
      // The plus counts like a minus: no room for it, no field.
      {"(SP,F3.2)", {kInf}, "***"},
      {"(F0.2)", {-kInf}, "-Inf"},
      {"(SP,F0.2)", {kInf}, "+Inf"},
      {"(E10.3)", {-kInf}, " -Infinity"},
      {"(ES9.3)", {kInf}, " Infinity"},
      {"(EN9.3)", {-kInf}, "-Infinity"},
      {"(D8.1)", {kInf}, "Infinity"},
      {"(G10.3)", {-kInf}, " -Infinity"},
      {"(G3.1)", {-kInf}, "***"},
      {"(F10.2)", r4(-HUGE_VALF), " -Infinity"},
      {"(E10.3)", {kNaN}, "       NaN"},
      {"(E10.3)", {kMinusNaN}, "      -NaN"},
      {"(SP,E10.3)", {kNaN}, "      +NaN"},
      {"(E4.1)", {kMinusNaN}, "-NaN"},
      {"(E3.1)", {kNaN}, "NaN"},
      {"(E3.1)", {kMinusNaN}, "***"},
      {"(SP,E3.1)", {kNaN}, "***"},
      {"(E2.1)", {kNaN}, "**"},
      {"(F0.2)", {kNaN}, "NaN"},
      {"(F0.2)", {kMinusNaN}, "-NaN"},
      {"(SP,F0.1)", {kNaN}, "+NaN"},
      {"(G10.3)", {kMinusNaN}, "      -NaN"},
      {"(G3.1)", {kMinusNaN}, "***"},
      {"(ES10.3)", r4(copysignf(NAN, -1.0f)), "      -NaN"},
  });
}

TEST(RealApartFromGfortran, FixedFormBelowOne) {
  expect_records({
      // The minimal field always has the zero ahead of the point.
      {"(F0.2)", {0.5}, "0.50"},
      {"(F0.3)", {0.05}, "0.050"},
      {"(F0.3)", {-0.25}, "-0.250"},
      {"(SP,F0.2)", {0.5}, "+0.50"},
      {"(DC,F0.2)", {0.5}, "0,50"},
      {"(F0.1)", {0.04}, "0.0"},
      {"(F0.1)", {-0.04}, "-0.0"},
      {"(F0.2)", {-0.001}, "-0.00"},
      {"(SP,F0.2)", {0.001}, "+0.00"},
      {"(F0.2)", {0.0}, "0.00"},
      {"(F0.1)", {0.96}, "1.0"},
      {"(F0.0)", {0.4}, "0."},
      {"(F0.0)", {-0.4}, "-0."},
      {"(F0.0)", {0.6}, "1."},
      {"(RU,F0.2)", {0.001}, "0.01"},
      {"(2PF0.1)", {0.004}, "0.4"},
      {"(-1PF0.1)", {0.4}, "0.0"},
      // A given width has the zero only where there is room.
      {"(F3.2)", {0.25}, ".25"},
      {"(F4.2)", {0.25}, "0.25"},
      {"(F4.2)", {-0.25}, "-.25"},
      {"(F3.2)", {-0.25}, "***"},
      {"(F5.2)", {-0.001}, "-0.00"},
      {"(F4.2)", {-0.001}, "-.00"},
      {"(F3.2)", {-0.001}, "***"},
      {"(F3.2)", {0.001}, ".00"},
      {"(F2.0)", {0.4}, "0."},
      {"(F1.0)", {0.4}, "*"},
      {"(F3.0)", {-0.4}, "-0."},
      {"(F2.0)", {-0.4}, "**"},
      {"(SP,F4.1)", {0.04}, "+0.0"},
      {"(-2PF8.2)", {0.4}, "    0.00"},
      {"(-2PF8.2)", {-0.6}, "   -0.01"},
      // Rounding away from zero never gives zero: the last place stands,
      // however far below it the value lies.
      {"(RU,F22.2)", {1.9e-23}, "                  0.01"},
      {"(RD,F22.2)", {-1.9e-23}, "                 -0.01"},
      {"(RU,F5.2)", r4(1.9e-23f), " 0.01"},
      {"(RU,F5.2)", {-0.001}, "-0.00"},
  });
}

TEST(RealApartFromGfortran, GOfZeroAndWithoutFraction) {
  expect_records({
      {"(G10.3)", {0.0}, "  0.00    "},
      {"(G7.3)", {0.0}, ".00    "},
      {"(G6.3)", {0.0}, "******"},
      {"(SP,G8.3)", {0.0}, "+.00    "},
      {"(SP,G7.3)", {0.0}, "*******"},
      {"(G10.3E1)", {0.0}, "   0.00   "},
      {"(G12.3E4)", {0.0}, "  0.00      "},
      {"(2PG10.3)", {0.0}, "  0.00    "},
      {"(G8.1)", {0.0}, "  0.    "},
      {"(G6.1)", {0.0}, "0.    "},
      {"(G5.1)", {0.0}, "*****"},
      {"(SP,G8.1)", {0.0}, " +0.    "},
      // No fraction digits: zero is in E form, one zero behind the point.
      {"(1PG8.0)", {0.0}, " 0.0E+00"},
      {"(SP,1PG9.0)", {0.0}, " +0.0E+00"},
      {"(1PG7.0E1)", {0.0}, " 0.0E+0"},
      {"(1PG6.0)", {0.0}, "******"},
      // A value G puts in F form, the scale factor playing no part.
      {"(G8.0)", {0.3}, "  0.    "},
      {"(1PG8.0)", {0.3}, "  0.    "},
  });
  // Without 1P there is no E form of no fraction digits; E0.d, D0.d and
  // G0 are not descriptors at all.
  struct Failing {
    const char* format;
    double value;
    int status;
  };
  const Failing failing[] = {
      {"(G8.0)", 0.0, ERR_BAD_SCALE_FACTOR},
      {"(2PG8.0)", 0.0, ERR_BAD_SCALE_FACTOR},
      {"(G8.0)", 1.0, ERR_BAD_SCALE_FACTOR},
      {"(G8.0)", 0.04, ERR_BAD_SCALE_FACTOR},
      {"(E0.3)", 1.0, ERR_FORMAT},
      {"(D0.3)", 1.0, ERR_FORMAT},
      {"(G0)", 1.0, ERR_FORMAT},
      {"(G0.3)", 0.0, ERR_FORMAT},
  };
  ScratchDir dir;
  for (const Failing& c : failing) EXPECT_EQ(write_item(c.format, {c.value}), c.status) << c.format;
  close_unit(10);
}

TEST(RealApartFromGfortran, GChoosesInTheWidthOfItsPowerOfTen) {
  expect_records({
      // 99999999.0 is 1.0E8 in single precision: not below 10**8 - 0.5.
      {"(G15.8)", {99999999.0}, " 0.99999999E+08"},
      {"(G15.8)", {9999999.0}, "  9999999.0    "},
      {"(G12.3)", {999.49999999}, "   0.999E+03"},
      {"(G12.3)", {999.4999}, "    999.    "},
      // Both are 0.1 in single precision: at the lower bound, so F.
      {"(RD,G12.3)", {0.0999999999}, "   0.099    "},
      {"(G25.16)", {0.09999999999999999}, "   0.1000000000000000    "},
  });
}

TEST(RealApartFromGfortran, ExactTiesByRoundingMode) {
  // Default, RU, RD, RZ, RN, RC, RP.  F under RN steps to a neighbour by
  // the upper neighbour's bit 56: up from 2.5 (bits 4004...) and -2.5
  // (C003...), down from 0.125, 0.375, 0.5 (3FC..., 3FD8..., 3FE...),
  // -0.125 and -0.5 (BFBF..., BFDF...).  RC steps away from zero, but
  // toward zero from the positive powers of two 0.0625 to 0.5.  EN rounds
  // a second time on its first cut digit.
  const char* const modes[] = {"", "RU,", "RD,", "RZ,", "RN,", "RC,", "RP,"};
  const std::vector<ModeRow<7>> rows = {
      {"F5.2", {0.125}, {" 0.12", " 0.13", " 0.12", " 0.12", " 0.12", " 0.12", " 0.12"}},
      {"F5.2", {-0.125}, {"-0.12", "-0.12", "-0.13", "-0.12", "-0.13", "-0.13", "-0.12"}},
      {"F5.2", {0.375}, {" 0.38", " 0.38", " 0.37", " 0.37", " 0.37", " 0.38", " 0.38"}},
      {"F3.0", {2.5}, {" 2.", " 3.", " 2.", " 2.", " 3.", " 3.", " 2."}},
      {"F3.0", {-2.5}, {"-2.", "-2.", "-3.", "-2.", "-2.", "-3.", "-2."}},
      // Halfway between zero and one: a minus stays on a zero.
      {"F3.0", {0.5}, {" 0.", " 1.", " 0.", " 0.", " 0.", " 0.", " 0."}},
      {"F3.0", {-0.5}, {"-0.", "-0.", "-1.", "-0.", "-1.", "-1.", "-0."}},
      {"ES9.1",
       {0.125},
       {"  1.2E-01", "  1.3E-01", "  1.2E-01", "  1.2E-01", "  1.2E-01", "  1.2E-01", "  1.2E-01"}},
      {"ES9.0",
       {2.5},
       {"   2.E+00", "   3.E+00", "   2.E+00", "   2.E+00", "   2.E+00", "   3.E+00", "   2.E+00"}},
      {"ES9.0",
       {0.25},
       {"   2.E-01", "   3.E-01", "   2.E-01", "   2.E-01", "   2.E-01", "   2.E-01", "   2.E-01"}},
      {"EN9.0",
       {2.5},
       {"   3.E+00", "   3.E+00", "   2.E+00", "   2.E+00", "   3.E+00", "   3.E+00", "   3.E+00"}},
      {"EN9.0",
       {0.0625},
       {"  63.E-03", "  63.E-03", "  62.E-03", "  62.E-03", "  63.E-03", "  62.E-03", "  63.E-03"}},
      {"EN10.2",
       {-1.125},
       {" -1.13E+00", " -1.12E+00", " -1.13E+00", " -1.12E+00", " -1.13E+00", " -1.13E+00",
        " -1.13E+00"}},
      {"E10.1",
       {0.25},
       {"   0.2E+00", "   0.3E+00", "   0.2E+00", "   0.2E+00", "   0.2E+00", "   0.2E+00",
        "   0.2E+00"}},
      {"D10.1",
       {-0.75},
       {"  -0.8D+00", "  -0.7D+00", "  -0.8D+00", "  -0.7D+00", "  -0.8D+00", "  -0.8D+00",
        "  -0.8D+00"}},
      {"G10.1",
       {2.5},
       {"    2.    ", "    3.    ", "    2.    ", "    2.    ", "    3.    ", "    3.    ",
        "    2.    "}},
      {"G10.2",
       {0.125},
       {"  0.12    ", "  0.13    ", "  0.12    ", "  0.12    ", "  0.12    ", "  0.12    ",
        "  0.12    "}},
  };
  expect_by_mode(modes, rows);
}

TEST(RealApartFromGfortran, NearestAndCompatibleNearTies) {
  // Default, RN, RC, on values a little below a decimal tie (2.675, 0.15,
  // 0.35, 1.005, 1.0005).  F under RN steps up from 2.675 (bits 4005...)
  // and -2.675 (C005...), down from 0.15 (3FC3...), -0.15 and -1.005
  // (BFC3..., BFF0...); RC steps all of them away from zero, and 1.0, a
  // power of two, toward it.
  const char* const modes[] = {"", "RN,", "RC,"};
  const std::vector<ModeRow<3>> rows = {
      {"F5.2", {2.675}, {" 2.67", " 2.68", " 2.68"}},
      {"F5.2", {-2.675}, {"-2.67", "-2.67", "-2.68"}},
      {"F4.1", {0.15}, {" 0.1", " 0.1", " 0.2"}},
      {"F4.1", {-0.15}, {"-0.1", "-0.2", "-0.2"}},
      {"F4.1", {0.35}, {" 0.3", " 0.3", " 0.4"}},
      {"F5.2", {-1.005}, {"-1.00", "-1.01", "-1.01"}},
      {"F6.3", {1.0005}, {" 1.000", " 1.000", " 1.001"}},
      {"F5.2", r4(2.675f), {" 2.67", " 2.68", " 2.68"}},
      {"ES10.2", {1.005}, {"  1.00E+00", "  1.00E+00", "  1.01E+00"}},
      {"E10.3", {2.675}, {" 0.267E+01", " 0.267E+01", " 0.268E+01"}},
      {"E10.2", {1.0}, {"  0.10E+01", "  0.10E+01", "  0.10E+01"}},
      // RN: to nearest in six digits, 2.67500, then the cut rounds again.
      {"EN10.2", {2.675}, {"  2.67E+00", "  2.68E+00", "  2.68E+00"}},
      {"G10.3", {2.675}, {"  2.67    ", "  2.68    ", "  2.68    "}},
      // RN widens G's F range to below 10.5: 10.2 has two digits ahead of
      // the point and no fraction digit to take them from.
      {"G10.1", {10.2}, {"   0.1E+02", "**********", "   0.1E+02"}},
      // 9.7 rounds up to 10 where no fraction digit is left to give up:
      // the F part grows by one, still inside its six places.
      {"G10.1", {9.7}, {"   0.1E+02", "   10.    ", "   0.1E+02"}},
  };
  expect_by_mode(modes, rows);
}

TEST(RealApartFromGfortran, EngineeringDirectedCutRoundsOnlyOnNonZero) {
  expect_records({
      {"(RU,EN12.4)", {1.09400001}, "  1.0940E+00"},
      {"(RU,EN12.4)", {1.09400589e51}, "  1.0940E+51"},
      {"(RD,EN12.4)", {-1.09400001}, " -1.0940E+00"},
      {"(RU,EN12.4)", {1.09401}, "  1.0941E+00"},
      {"(RU,EN12.4)", {-1.09409}, " -1.0940E+00"},
      {"(RU,ES12.4)", {1.09400001}, "  1.0941E+00"},
  });
}

namespace {

// One item of a list-directed WRITE: a REAL*8, a REAL*4 or a COMPLEX*16.
struct ListItem {
  enum Kind { kDouble, kFloat, kComplex } kind;
  double re, im = 0;
};
ListItem dbl(double v) { return {ListItem::kDouble, v}; }
ListItem flt(float v) { return {ListItem::kFloat, v}; }
ListItem cplx(double re, double im) { return {ListItem::kComplex, re, im}; }

int put(IoStatementSlw* s, const ListItem& i) {
  const double pair[2] = {i.re, i.im};
  switch (i.kind) {
    case ListItem::kFloat:
      return __f90_slw_r4(s, static_cast<float>(i.re));
    case ListItem::kComplex:
      return __f90_slw_c8(s, pair);
    default:
      return __f90_slw_r8(s, i.re);
  }
}

}  // namespace

TEST(RealApartFromGfortran, ListDirectedText) {
  struct ListRow {
    std::vector<ListItem> items;
    const char* record;
  };
  const std::vector<ListRow> rows = {
      {{dbl(1.0e9)}, " 1.0E+9"},
      {{dbl(1.0e8)}, " 100000000.0"},
      {{dbl(999999999.0)}, " 999999999.0"},
      {{dbl(1234567890.0)}, " 1.23456789E+9"},
      {{dbl(0.01)}, " 0.01"},
      {{dbl(0.0123)}, " 0.0123"},
      {{dbl(0.001)}, " 1.0E-3"},
      {{dbl(0.00123)}, " 1.23E-3"},
      {{dbl(0.1)}, " 0.1"},
      {{dbl(-2.25)}, " -2.25"},
      {{dbl(1e23)}, " 1.0E+23"},
      {{flt(0.1f)}, " 0.1"},
      {{flt(1.0e9f)}, " 1.0E+9"},
      {{dbl(-0.0)}, " 0.0E+0"},
      {{flt(-0.0f)}, " 0.0E+0"},
      {{dbl(kInf)}, " Inf"},
      {{dbl(-kInf)}, " -Inf"},
      {{flt(-HUGE_VALF)}, " -Inf"},
      {{dbl(kNaN)}, " NaN"},
      {{dbl(kMinusNaN)}, " -NaN"},
      {{cplx(1.0, -2.5)}, " (1.0, -2.5)"},
      {{cplx(-0.0, 1.0e10)}, " (0.0E+0, 1.0E+10)"},
      {{cplx(kInf, kNaN)}, " (Inf, NaN)"},
      {{dbl(1.5), dbl(-0.0), flt(0.25f)}, " 1.5 0.0E+0 0.25"},
  };
  ScratchDir dir;
  for (const ListRow& r : rows) {
    ListWrite w(10, SF_ERR_RETURN);
    w.start();
    for (const ListItem& i : r.items) EXPECT_EQ(put(&w.stmt(), i), 0) << r.record;
    w.end();
    EXPECT_EQ(w.status(), 0) << r.record;
  }
  close_unit(10);
  std::istringstream file(dir.read("fort.10"));
  std::string record;
  for (const ListRow& r : rows) {
    std::getline(file, record);
    EXPECT_EQ(record, r.record);
  }
}
