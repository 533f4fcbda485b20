// List-directed output of reals and complexes: the shortest digits that
// read back as the same value, fixed or E form by where the point falls,
// and the complex pair as two blocks.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "qal/qal.h"

using namespace qal;

namespace {

constexpr Location kWhere = {LOC_WRITE, 3, "real.f90"};

// The record an internal WRITE(v,*) of one item leaves, trailing blanks
// and the leading blank dropped.
template <class Item>
std::string internal_text(Item item, uint32_t flags = 0) {
  char v[200];
  IoStatementIl s{};
  s.stmt_flags = flags;
  s.location = &kWhere;
  s.element_length = sizeof v;
  s.internal_unit = v;
  EXPECT_EQ(__f90_silw(&s), 0);
  EXPECT_EQ(item(&s), 0);
  EXPECT_EQ(__f90_eilw(&s), 0);
  std::string text(v, sizeof v);
  text.erase(text.find_last_not_of(' ') + 1);
  return text.substr(1);
}

std::string of_double(double x, uint32_t flags = 0) {
  return internal_text([x](IoStatementIl* s) { return __f90_ilw_r8(s, x); }, flags);
}

}  // namespace

TEST(ListReal, FixedOrExponentForm) {
  struct Row {
    double value;
    const char* text;
  };
  const Row rows[] = {
      {1.0e9, "1.0E+9"},
      {1.0e8, "100000000.0"},
      {0.01, "0.01"},
      {0.001, "1.0E-3"},
      {-0.0, "0.0E+0"},
      {0.0, "0.0E+0"},
      {1.5, "1.5"},
      {-2.25, "-2.25"},
      {123456789.0, "123456789.0"},
      {0.1, "0.1"},
      {1.0 / 3, "0.3333333333333333"},
      {1e23, "1.0E+23"},
      {-1.7976931348623157e308, "-1.7976931348623157E+308"},
      {INFINITY, "Inf"},
      {-INFINITY, "-Inf"},
      {NAN, "NaN"},
      {-NAN, "-NaN"},
      {5e-324, "4.940656458412465E-324"},
  };
  for (const Row& r : rows) EXPECT_EQ(of_double(r.value), r.text) << r.value;
  EXPECT_EQ(of_double(1.5, SF_DECIMAL_COMMA), "1,5");
  EXPECT_EQ(internal_text([](IoStatementIl* s) { return __f90_ilw_r4(s, 0.1f); }), "0.1");
  EXPECT_EQ(internal_text([](IoStatementIl* s) { return __f90_ilw_r4(s, 16777216.0f); }),
            "16777216.0");
  EXPECT_EQ(internal_text([](IoStatementIl* s) { return __f90_ilw_r4(s, 1.6777216e10f); }),
            "1.6777216E+10");
}

TEST(ListReal, ShortestDigitsReadBack) {
  // Random doubles and floats of every magnitude: the text reads back as
  // the same value, and no shorter text would (as the C library's
  // shortest round-trip search finds it).
  std::mt19937_64 random(5);
  for (int i = 0; i < 20000; ++i) {
    uint64_t bits = random();
    double x;
    memcpy(&x, &bits, 8);
    if (!isfinite(x) || x == 0) continue;
    const std::string text = of_double(x);
    // The digits may stand exactly halfway to the next value away from
    // zero, the upper end of the interval that reads back as x; a reader
    // that rounds ties to even may then take the neighbour.
    const long double halfway =
        (static_cast<long double>(x) + nextafter(x, x > 0 ? INFINITY : -INFINITY)) / 2;
    if (strtod(text.c_str(), nullptr) != x) {
      EXPECT_EQ(strtold(text.c_str(), nullptr), halfway) << text;
      continue;
    }
    if (fabs(x) < 2.3e-308) continue;  // subnormals are given more digits
    int shortest = 1;
    char buf[40];
    for (; shortest < 17; ++shortest) {
      snprintf(buf, sizeof buf, "%.*e", shortest - 1, x);
      if (strtod(buf, nullptr) == x) break;
    }
    std::string digits;
    for (char c : text.substr(0, text.find('E')))
      if (c >= '0' && c <= '9') digits += c;
    digits.erase(0, digits.find_first_not_of('0'));
    digits.erase(digits.find_last_not_of('0') + 1);
    EXPECT_LE(digits.size(), static_cast<size_t>(shortest)) << text;
  }
}

TEST(ListReal, ComplexPairsAndQuads) {
  const double c[2] = {1.0, -2.5};
  EXPECT_EQ(internal_text([&](IoStatementIl* s) { return __f90_ilw_c8(s, c); }), "(1.0, -2.5)");
  EXPECT_EQ(internal_text([&](IoStatementIl* s) { return __f90_ilw_c8(s, c); }, SF_DECIMAL_COMMA),
            "(1,0; -2,5)");
  const float z[2] = {0.0f, 1e10f};
  EXPECT_EQ(internal_text([&](IoStatementIl* s) { return __f90_ilw_c4(s, z); }),
            "(0.0E+0, 1.0E+10)");
  // REAL*16: one and one tenth, by value and by address.
  const __float128 tenth = 0.1Q;
  uint64_t q[2];
  memcpy(q, &tenth, 16);
  EXPECT_EQ(internal_text([&](IoStatementIl* s) { return __f90_ilw_r16(s, q[0], q[1]); }), "0.1");
  const __float128 big = 1e100Q / 3;
  EXPECT_EQ(internal_text([&](IoStatementIl* s) { return __f90_ilw_r16_ref(s, &big); }),
            "3.3333333333333333333333333333333333E+99");
}

TEST(ListReal, ExternalUnitSeparatesAndWraps) {
  IoStatementSlw s{};
  s.stmt_flags = SF_DEFAULT_UNIT;
  s.location = &kWhere;
  testing::internal::CaptureStdout();
  const double c[2] = {0.5, 2.0};
  ASSERT_EQ(__f90_sslw(&s), 0);
  ASSERT_EQ(__f90_slw_r8(&s, 1e-5), 0);
  ASSERT_EQ(__f90_slw_c8(&s, c), 0);
  ASSERT_EQ(__f90_slw_r4(&s, -3.0f), 0);
  ASSERT_EQ(__f90_eslw(&s), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " 1.0E-5 (0.5, 2.0) -3.0\n");
}

TEST(ListReal, EstimatesAndOldWidths) {
  // The estimate is floor(log10) away from the decade boundaries; near
  // them it may be one off, by design.
  const float f[] = {1.0f, 2.0f, 150.0f, 0.5f, 3.0e7f};
  const int32_t f_log[] = {0, 0, 2, -1, 7};
  for (size_t i = 0; i < std::size(f); ++i) EXPECT_EQ(__f90_silog(&f[i]), f_log[i]) << f[i];
  EXPECT_EQ(__f90_ilog(1.0), 0);
  EXPECT_EQ(__f90_ilog(2.5e10), 10);
  EXPECT_EQ(__f90_ilog(-3.0e-5), -5);
  const __float128 q = 4.0e40Q;
  EXPECT_EQ(__f90_qilog(&q), 40);
  const float zero = 0.0f, small = 12.0f, big = 1.0e8f, tiny = 1.0e-3f;
  EXPECT_EQ(__f90_width_f77compat(&zero), 10);
  EXPECT_EQ(__f90_width_f77compat(&small), 10);
  EXPECT_EQ(__f90_width_f77compat(&big), 14);
  EXPECT_EQ(__f90_width_f77compat(&tiny), 14);  // an estimate below -1 takes E form
  EXPECT_EQ(__f90_dwidth_f77compat(-0.0), 18);
  EXPECT_EQ(__f90_dwidth_f77compat(1.0e14), 18);
  EXPECT_EQ(__f90_dwidth_f77compat(1.0e16), 22);
  uint64_t h[2];
  memcpy(h, &q, 16);
  EXPECT_EQ(__f90_qwidth_f77compat(h[0], h[1]), 44);
  const __float128 one = 1;
  memcpy(h, &one, 16);
  EXPECT_EQ(__f90_qwidth_f77compat(h[0], h[1]), 39);
}
