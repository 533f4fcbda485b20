// List-directed reals in the old dialect (SF_F77_WRITE): right-justified
// fields of 6, 14 or 35 significant digits, F or E form by the estimated
// decimal exponent, written without a separator, and a wrap test that
// reserves a fixed number of columns rather than the text's length.
#include <fenv.h>
#include <math.h>
#include <quadmath.h>
#include <stdio.h>
#include <string.h>

#include <limits>
#include <random>
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

Quad quad(__float128 x) {
  uint64_t h[2];
  memcpy(h, &x, 16);
  return {h[0], h[1]};
}

template <class T>
struct Row {
  T value;
  std::string text;
};

// Each value through WRITE(10,*) x, one statement a record, and through
// WRITE(line,*) x: both must give the old form after the record's blank.
template <class T>
void expect_both_writers(const std::vector<Row<T>>& rows, uint32_t flags = 0) {
  ScratchDir dir;
  auto r = run_in_child([&] {
    for (const auto& row : rows) {
      if constexpr (std::is_same_v<T, __float128>)
        ListWrite(10, SF_F77_WRITE | flags).all(quad(row.value));
      else
        ListWrite(10, SF_F77_WRITE | flags).all(row.value);
    }
  });
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const std::string file = dir.read("fort.10");
  size_t at = 0;
  for (const auto& row : rows) {
    const size_t end = file.find('\n', at);
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(file.substr(at, end - at), " " + row.text) << "external";
    at = end + 1;

    char line[64];
    if constexpr (std::is_same_v<T, __float128>)
      EXPECT_EQ(InternalListWrite(line, sizeof line, SF_F77_WRITE | flags).all(quad(row.value)), 0);
    else
      EXPECT_EQ(InternalListWrite(line, sizeof line, SF_F77_WRITE | flags).all(row.value), 0);
    std::string expected = " " + row.text;
    expected.resize(sizeof line, ' ');
    EXPECT_EQ(std::string(line, sizeof line), expected) << "internal";
  }
  EXPECT_EQ(at, file.size());
}

std::string zeros(int n) { return std::string(static_cast<size_t>(n), '0'); }

}  // namespace

TEST(F77ListReal, SinglePrecisionForms) {
  const float tiny = std::numeric_limits<float>::denorm_min();
  expect_both_writers<float>({
      {1.0f, "    1.00000"},
      {0.5f, "   0.500000"},
      {123.456f, "    123.456"},
      {-2.5f, "   -2.50000"},
      {-0.75f, "  -0.750000"},
      {999999.0f, "    999999."},
      // The estimate decides: 1.0E6 is estimated a decade low and stays
      // fixed with all its integer digits; 2**20 is estimated right.
      {1.0e6f, "   1000000."},
      {1048576.0f, "    1.04858E+06"},
      // 0.125 is estimated in -1, 0.1 in -2.
      {0.125f, "   0.125000"},
      {0.1f, "    1.00000E-01"},
      // Rounding carries into a second integer digit.
      {9.999999f, "   10.00000"},
      {1.0e-5f, "    1.00000E-05"},
      {-1.0e-5f, "   -1.00000E-05"},
      {std::numeric_limits<float>::max(), "    3.40282E+38"},
      {tiny, "    1.40130E-45"},
      {-tiny, "   -1.40130E-45"},
      {0.0f, "  0."},
      {-0.0f, "  0."},
      {INFINITY, " Inf           "},
      {-INFINITY, " -Inf          "},
      {NAN, " NaN           "},
      {-NAN, " -NaN          "},
  });
}

TEST(F77ListReal, DoublePrecisionForms) {
  expect_both_writers<double>({
      {1.0, "    1.0000000000000"},
      {0.5, "   0.50000000000000"},
      {-1.0 / 3, "  -0.33333333333333"},
      {0.01, "    1.0000000000000E-02"},
      // Estimated 12 and 13: fixed, the point as far right as it goes.
      {1.0e13, "   10000000000000.0"},
      {1.0e14, "   100000000000000."},
      {1.0e15, "    1.0000000000000E+15"},
      {-1.0e15, "   -1.0000000000000E+15"},
      // Three exponent digits past 99.
      {1.0e100, "    1.0000000000000E+100"},
      {9.99999999999999e99, "    1.0000000000000E+100"},
      {-1.0e-100, "   -1.0000000000000E-100"},
      {std::numeric_limits<double>::max(), "    1.7976931348623E+308"},
      {std::numeric_limits<double>::denorm_min(), "    4.9406564584125E-324"},
      {-0.0, "  0."},
      {INFINITY, " Infinity              "},
      {-INFINITY, " -Infinity             "},
      {NAN, " NaN                   "},
  });
}

TEST(F77ListReal, QuadPrecisionForms) {
  expect_both_writers<__float128>({
      {1, "    1." + zeros(34)},
      {-2.5Q, "   -2.5" + zeros(33)},
      // The nearest quad to 1/3 is 0.33...331728 (34 threes).
      {1 / 3.0Q, "   0." + std::string(34, '3') + "2"},
      // At least three exponent digits, four from 1000 on.
      {scalbnq(1, -20), "    9.5367431640625" + zeros(21) + "E-007"},
      {-scalbnq(1, 3000), "   -1.2302319221611171769315588132767525E+903"},
      {scalbnq(1, 3330), "    2.6908256633981014546882468423629944E+1002"},
      {-scalbnq(1, -3330), "   -3.7163314353749431478770517144765575E-1003"},
      {FLT128_DENORM_MIN, "    6.4751751194380251109244389582276466E-4966"},
      {0, "  0."},
      {-__builtin_infq(), " -Infinity" + std::string(35, ' ')},
      {__builtin_nanq(""), " NaN" + std::string(41, ' ')},
  });
}

TEST(F77ListReal, DecimalComma) {
  expect_both_writers<float>({{1.5f, "    1,50000"},
                              {0.25f, "   0,250000"},
                              {1.0e-5f, "    1,00000E-05"},
                              {-0.0f, "  0,"},
                              {INFINITY, " Inf           "}},
                             SF_DECIMAL_COMMA);
  expect_both_writers<double>({{1.0e13, "   10000000000000,0"}, {1.0e14, "   100000000000000,"}},
                              SF_DECIMAL_COMMA);
}

// The same forms built from the C library's digits: %E for the E form
// with four blanks ahead of an unsigned value, %f in the F field, for
// random values of every magnitude and values at the decades' edges, in
// each rounding direction.
namespace {

template <class T>
struct Precision;

// float and double take printf's digits.
template <class T>
struct LibcDigits {
  static std::string printed(const char* format, int width, int digits, T x) {
    char buf[80];
    snprintf(buf, sizeof buf, format, width, digits, static_cast<double>(x));
    return buf;
  }
  static T from_bits(uint64_t bits) {
    T x;
    memcpy(&x, &bits, sizeof x);
    return x;
  }
};
template <>
struct Precision<float> : LibcDigits<float> {
  static constexpr int kDigits = 6;
  static int estimate(float x) { return __f90_silog(&x); }
  static int entry(IoStatementIl* s, float x) { return __f90_ilw_r4(s, x); }
};
template <>
struct Precision<double> : LibcDigits<double> {
  static constexpr int kDigits = 14;
  static int estimate(double x) { return __f90_ilog(x); }
  static int entry(IoStatementIl* s, double x) { return __f90_ilw_r8(s, x); }
};
template <>
struct Precision<__float128> {
  static constexpr int kDigits = 35;
  static int estimate(__float128 x) { return __f90_qilog(&x); }
  static std::string printed(const char* format, int width, int digits, __float128 x) {
    // The same conversion with Q added to the length.
    const size_t n = strlen(format);
    char f[16];
    snprintf(f, sizeof f, "%.*sQ%c", static_cast<int>(n - 1), format, format[n - 1]);
    char buf[120];
    quadmath_snprintf(buf, sizeof buf, f, width, digits, x);
    // Three exponent digits at least.
    const char* e = strchr(buf, 'E');
    if (!e || strlen(e) >= 5) return buf;
    return std::string(buf, static_cast<size_t>(e + 2 - buf)) + "0" + (e + 2);
  }
  static int entry(IoStatementIl* s, __float128 x) {
    uint64_t h[2];
    memcpy(h, &x, 16);
    return __f90_ilw_r16(s, h[0], h[1]);
  }
  static __float128 from_bits(uint64_t bits) {
    // Random sign, exponent and top fraction bits; the low half scrambled.
    const uint64_t h[2] = {bits * 0x9e3779b97f4a7c15u, bits};
    __float128 x;
    memcpy(&x, h, 16);
    return x;
  }
};

template <class T>
std::string expected_text(T x) {
  using P = Precision<T>;
  constexpr int S = P::kDigits;
  const int estimate = P::estimate(x);
  if (estimate < -1 || estimate >= S)
    return std::string(x < 0 ? 3 : 4, ' ') + P::printed("%*.*E", 0, S - 1, x);
  return P::printed("%#*.*f", S + 5, estimate + 1 <= 0 ? S : S - 1 - estimate, x);
}

template <class T>
std::string written_text(T x) {
  char line[64];
  InternalListWrite w(line, sizeof line, SF_F77_WRITE);
  w.start();
  EXPECT_EQ(Precision<T>::entry(&w.stmt(), x), 0);
  w.end();
  std::string text(line + 1, sizeof line - 1);
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

template <class T>
T power_of_ten(int k) {
  T p = 1;
  for (int i = 0; i < (k < 0 ? -k : k); ++i) p = k < 0 ? p / 10 : p * 10;
  return p;
}

template <class T>
std::vector<T> sample_values(uint64_t seed) {
  constexpr int S = Precision<T>::kDigits;
  std::mt19937_64 random(seed);
  std::vector<T> values;
  // Any bits: mostly E forms, over the whole exponent range.
  while (values.size() < 2000) {
    const T x = Precision<T>::from_bits(random());
    if (x == 0 || x != x || x - x != 0) continue;
    values.push_back(x);
  }
  // The decades where F forms live, and one on either side.
  for (int i = 0; i < 3000; ++i) {
    const int k = static_cast<int>(random() % (S + 4)) - 3;
    const T x = (1 + static_cast<T>(random() >> 11) / 9007199254740992.0 * 9) * power_of_ten<T>(k);
    values.push_back(random() & 1 ? -x : x);
  }
  // Either side of each power of ten, where the estimate and the rounding
  // decide the form and the number of integer digits.
  for (int k = -3; k <= S + 2; ++k) {
    const T p = power_of_ten<T>(k);
    for (T f : {T(1) - T(1e-7), T(1), T(1) + T(1e-7), T(1) - T(1e-15), T(1) + T(1e-15)}) {
      values.push_back(p * f);
      values.push_back(-p * f);
    }
  }
  return values;
}

template <class T>
void compare_with_library_digits(int rounding, uint64_t seed) {
  const std::vector<T> values = sample_values<T>(seed);
  ASSERT_EQ(fesetround(rounding), 0);
  int mismatches = 0;
  for (T x : values) {
    const std::string ours = written_text(x), theirs = expected_text(x);
    if (ours != theirs && ++mismatches <= 10)
      ADD_FAILURE() << "rounding " << rounding << "\n  ours:     [" << ours << "]\n  expected: ["
                    << theirs << "]";
  }
  fesetround(FE_TONEAREST);
  EXPECT_EQ(mismatches, 0);
}

}  // namespace

TEST(F77ListRealDigits, SingleAgainstPrintf) {
  compare_with_library_digits<float>(FE_TONEAREST, 1);
  compare_with_library_digits<float>(FE_UPWARD, 2);
  compare_with_library_digits<float>(FE_DOWNWARD, 3);
  compare_with_library_digits<float>(FE_TOWARDZERO, 4);
}

TEST(F77ListRealDigits, DoubleAgainstPrintf) {
  compare_with_library_digits<double>(FE_TONEAREST, 5);
  compare_with_library_digits<double>(FE_UPWARD, 6);
  compare_with_library_digits<double>(FE_DOWNWARD, 7);
  compare_with_library_digits<double>(FE_TOWARDZERO, 8);
}

TEST(F77ListRealDigits, QuadAgainstQuadmath) {
  compare_with_library_digits<__float128>(FE_TONEAREST, 9);
  compare_with_library_digits<__float128>(FE_UPWARD, 10);
  compare_with_library_digits<__float128>(FE_DOWNWARD, 11);
  compare_with_library_digits<__float128>(FE_TOWARDZERO, 12);
}

namespace {

const std::string F1 = "    1.00000", F2 = "    2.00000", D1 = "    1.0000000000000",
                  Q1 = "    1." + zeros(34);

std::string xs(int n) { return std::string(static_cast<size_t>(n), 'x'); }

}  // namespace

TEST(F77ListRealRecords, WrapReservesAFixedWidth) {
  ScratchDir dir;
  auto r = run_in_child([] {
    // Eleven columns a REAL*4, seven reserved: the eighth no longer fits
    // at column 78.
    ListWrite(10, SF_F77_WRITE).all(1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f);
    // At column 73 the reservation just fits and the text runs to column
    // 84; integers and text after a real wrap by their own rules.
    ListWrite(10, SF_F77_WRITE).all(xs(72).c_str(), 1.0f, 2.0f, 5, "ab");
    // Zero reserves four columns.
    ListWrite(10, SF_F77_WRITE).all(xs(75).c_str(), 0.0f, 0.0f, xs(72).c_str(), 1.0f);
    // REAL*8 reserves 15, REAL*16 36.
    ListWrite(10, SF_F77_WRITE).all(xs(64).c_str(), 1.0, 1.0, quad(1), quad(1), "xxx", quad(1));
  });
  ASSERT_EQ(r.exit_code, 0) << r.err;
  std::string first;
  for (int i = 0; i < 7; ++i) first += F1;
  EXPECT_EQ(dir.read("fort.10"), " " + first + "\n " + F1 + "\n" +                 //
                                     " " + xs(72) + F1 + "\n " + F2 + "  5ab\n" +  //
                                     " " + xs(75) + "  0.\n   0." + xs(72) + "\n " + F1 + "\n" +
                                     " " + xs(64) + D1 + "\n " + D1 + Q1 + "\n " + Q1 + "xxx" + Q1 +
                                     "\n");
}

TEST(F77ListRealRecords, FullBufferIsFlushed) {
  // A 16-byte block, so a 32-byte buffer: REAL*4 texts fill it, and a
  // REAL*16 text is longer than all of it.
  ScratchDir dir;
  auto r = run_in_child([] {
    CHILD_CHECK(Open(10).file("fort.10").fileopt("BUFFER=16").run() == 0);
    ListWrite w(10, SF_F77_WRITE);
    w.start();
    const Unit* u = w.stmt().unit_ptr;
    CHILD_CHECK(u->buffer_end - u->buffer == 32);
    auto item = [&](auto x) {
      w.item(x);
      CHILD_CHECK(u->data_end <= u->buffer_end);
    };
    item(1.0f), item(2.0f), item(-3.0f), item(quad(1)), item(1.0), item(4.0f);
    w.end();
    ListWrite(10, SF_F77_WRITE).all(quad(1), quad(1), quad(1));
    CHILD_CHECK(close_unit(10) == 0);
  });
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("fort.10"), " " + F1 + F2 + "   -3.00000" + Q1 + "\n " + D1 + "    4.00000\n" +
                                     " " + Q1 + Q1 + "\n " + Q1 + "\n");
}

TEST(F77ListRealRecords, PlainEntriesHandOver) {
  ScratchDir dir;
  auto r = run_in_child([] {
    const __float128 minus = -2.5Q;
    const double pair[2] = {1.0, 2.0};
    ListWrite a(10, SF_F77_WRITE);
    a.start();
    IoStatementSlw* s = &a.stmt();
    CHILD_CHECK(__f90_slw_r4(s, 0.5f) == 0);
    CHILD_CHECK(__f90_slw_r8(s, 1.0) == 0);
    CHILD_CHECK(__f90_slw_r16(s, quad(2.5Q).low, quad(2.5Q).high) == 0);
    CHILD_CHECK(__f90_slw_r16_ref(s, &minus) == 0);
    // Complex items keep the usual form, with the dialect's two blanks.
    CHILD_CHECK(__f90_slw_c8(s, pair) == 0);
    a.end();
    // The _f77compat entries do not look at the flag.
    ListWrite b(10);
    b.start();
    s = &b.stmt();
    CHILD_CHECK(__f90_slw_r4_f77compat(s, 0.5f) == 0);
    CHILD_CHECK(__f90_slw_r4(s, 0.5f) == 0);
    CHILD_CHECK(__f90_slw_r8_f77compat(s, -1.0e15) == 0);
    CHILD_CHECK(__f90_slw_r16_f77compat(s, 0, 0) == 0);
    b.end();
  });
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(dir.read("fort.10"), "    0.500000" + D1 + "    2.5" + zeros(33) + "\n    -2.5" +
                                     zeros(33) + "  (1.0,  2.0)\n" +
                                     "    0.500000 0.5   -1.0000000000000E+15  0.\n");
}

TEST(F77ListRealRecords, InternalRecordsTakeTheSameTexts) {
  // WRITE(line,*) 'ab', 1.0, 'cd', 2: reals touch the text as text does;
  // integers keep their blank.
  char v[40];
  EXPECT_EQ(InternalListWrite(v, sizeof v, SF_F77_WRITE).all("ab", 1.0f, "cd", 2), 0);
  EXPECT_EQ(std::string(v, sizeof v), " ab" + F1 + "cd 2" + std::string(22, ' '));
  // By address as by value; complex items keep the usual form.
  char q[56];
  InternalListWrite w(q, sizeof q, SF_F77_WRITE);
  w.start().item(Quad{quad(1).low, quad(1).high, true});
  const float pair[2] = {1.0f, 2.0f};
  EXPECT_EQ(__f90_ilw_c4(&w.stmt(), pair), 0);
  w.end();
  EXPECT_EQ(std::string(q, sizeof q), " " + Q1 + " (1.0, 2.0)    ");
  // A real that does not fit breaks the line inside the record, then is
  // cut: past the end of a scalar, too long for an array element.
  char s[20];
  EXPECT_EQ(InternalListWrite(s, sizeof s, SF_F77_WRITE | SF_ERR_RETURN).all(1.0f, 2.0f),
            ERR_PAST_INTERNAL_END);
  EXPECT_EQ(std::string(s, sizeof s), " " + F1 + "\n     2.");
  char a[2][20];
  EXPECT_EQ(InternalListWrite(a[0], 20, {2}, {20}, SF_F77_WRITE | SF_ERR_RETURN).all(1.0f, 2.0f),
            ERR_RECORD_TOO_LONG);
  EXPECT_EQ(std::string(a[0], 20), " " + F1 + "\n     2.");
}

TEST(F77ListRealWidths, WidthsFollowTheFormButAtTheEdgesOfTheEstimate) {
  // The width is the text's less its leading blank (the E width for an
  // exponent of more digits); zero takes the F width.
  const float zero = 0, one = 1.0f, inf = INFINITY;
  EXPECT_EQ(__f90_width_f77compat(&zero), 10);
  EXPECT_EQ(__f90_width_f77compat(&one), 10);
  EXPECT_EQ(__f90_width_f77compat(&inf), 14);
  EXPECT_EQ(__f90_dwidth_f77compat(-0.0), 18);
  EXPECT_EQ(__f90_dwidth_f77compat(NAN), 22);
  EXPECT_EQ(__f90_qwidth_f77compat(0, uint64_t{1} << 63), 39);

  // At an estimate of -1 the text is in F form but the width is wide; at
  // an estimate of `digits` the text is in E form but the width narrow.
  const float half = 0.5f, estimated_six = 1048576.0f;
  EXPECT_EQ(written_text(half).size(), 11u);
  EXPECT_EQ(__f90_width_f77compat(&half), 14);
  EXPECT_EQ(written_text(estimated_six).size(), 15u);
  EXPECT_EQ(__f90_width_f77compat(&estimated_six), 10);
  EXPECT_EQ(__f90_dwidth_f77compat(0.25), 22);
  EXPECT_EQ(__f90_dwidth_f77compat(1.0e14), 18);

  for (float x : sample_values<float>(21)) {
    const int e = __f90_silog(&x);
    if (e == -1 || e == 6) continue;
    EXPECT_EQ(__f90_width_f77compat(&x), std::min<int>(written_text(x).size(), 15) - 1) << x;
  }
  for (double x : sample_values<double>(22)) {
    const int e = __f90_ilog(x);
    if (e == -1 || e == 14) continue;
    EXPECT_EQ(__f90_dwidth_f77compat(x), std::min<int>(written_text(x).size(), 23) - 1) << x;
  }
  for (__float128 x : sample_values<__float128>(23)) {
    const int e = __f90_qilog(&x);
    if (e == -1 || e == 35) continue;
    const Quad h = quad(x);
    EXPECT_EQ(__f90_qwidth_f77compat(h.low, h.high), std::min<int>(written_text(x).size(), 45) - 1);
  }
}
