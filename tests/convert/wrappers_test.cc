// The classic digit entries, the %g-like text and the image moves, as the
// edit descriptors and list-directed output call them.
#include <gtest/gtest.h>
#include <math.h>

#include "convert/oracle.h"

namespace qal::test {
namespace {

struct Text {
  std::string digits;
  int decpt, sign;
  bool operator==(const Text&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Text& t) {
  return os << '"' << t.digits << "\" decpt " << t.decpt << " sign " << t.sign;
}

template <class F>
Text call(F f) {
  char buf[600];
  int decpt = -99, sign = -1;
  const char* r = f(buf, &decpt, &sign);
  EXPECT_EQ(r, buf);
  return {buf, decpt, sign};
}

TEST(DigitEntries, EconvertAndFconvert) {
  struct Row {
    bool e_form;
    double value;
    int ndigit;
    Text want;
  } rows[] = {
      {true, 1.5, 3, {"150", 1, 0}},
      {true, -0.000123456, 2, {"12", -3, 1}},
      {true, 9.99, 2, {"10", 2, 0}},  // carried out of the digits
      {true, 0.0, 3, {"000", 1, 0}},
      {true, -0.0, 2, {"00", 1, 1}},
      {true, 0.1, 20, {"10000000000000000555", 0, 0}},
      {false, 3.14159, 2, {"314", 1, 0}},
      {false, 0.001234, 3, {"001", 0, 0}},
      {false, 0.5, 0, {"0", 1, 0}},  // a tie: to even
      {false, 1.5, 0, {"2", 1, 0}},
      {false, 9.99, 1, {"100", 2, 0}},
      {false, 12345.0, -2, {"12300", 5, 0}},
      {false, 40.0, -2, {"0", 1, 0}},
      {false, 0.0, 3, {"000", 0, 0}},
      {false, 0.0, 0, {"0", 0, 0}},
  };
  for (const Row& r : rows) {
    const Text got = call([&](char* b, int* d, int* s) {
      return r.e_form ? econvert(r.value, r.ndigit, d, s, b) : fconvert(r.value, r.ndigit, d, s, b);
    });
    EXPECT_EQ(got, r.want) << r.value << " " << r.ndigit;
  }
}

TEST(DigitEntries, FollowTheCurrentDirection) {
  const double third = 1.0 / 3;
  const float f = -2.0f / 3;
  {
    Direction up(FPR_UP);
    EXPECT_EQ(call([&](char* b, int* d, int* s) { return econvert(third, 3, d, s, b); }),
              (Text{"334", 0, 0}));
    EXPECT_EQ(call([&](char* b, int* d, int* s) { return seconvert(&f, 3, d, s, b); }),
              (Text{"666", 0, 1}));
  }
  {
    Direction down(FPR_DOWN);
    EXPECT_EQ(call([&](char* b, int* d, int* s) { return sfconvert(&f, 2, d, s, b); }),
              (Text{"67", 0, 1}));
    uint32_t q[4];
    quad_words(static_cast<__float128>(1) / 3, q);
    EXPECT_EQ(call([&](char* b, int* d, int* s) { return x86_qeconvert(q, 30, d, s, b); }),
              (Text{"333333333333333333333333333333", 0, 0}));
    EXPECT_EQ(call([&](char* b, int* d, int* s) { return x86_qfconvert(q, 5, d, s, b); }),
              (Text{"33333", 0, 0}));
  }
}

TEST(DigitEntries, InfinityAndNanTexts) {
  __inf_written = __nan_written = 0;
  const double inf = __builtin_inf(), nan = __builtin_nan("");
  EXPECT_EQ(call([&](char* b, int* d, int* s) { return econvert(inf, 7, d, s, b); }),
            (Text{"Inf", 0, 0}));
  EXPECT_EQ(__inf_written, 1);
  EXPECT_EQ(__nan_written, 0);
  EXPECT_EQ(call([&](char* b, int* d, int* s) { return econvert(-inf, 8, d, s, b); }),
            (Text{"Infinity", 0, 1}));
  EXPECT_EQ(call([&](char* b, int* d, int* s) { return fconvert(nan, 8, d, s, b); }),
            (Text{"NaN", 0, 0}));
  EXPECT_EQ(__nan_written, 1);
  char buf[16];
  __infnanstring(FPC_SIGNALING_NAN, 20, buf);
  EXPECT_STREQ(buf, "NaN");
  __infnanstring(FPC_INFINITY, 8, buf);
  EXPECT_STREQ(buf, "Infinity");
}

// sgconvert is %g (%#g with trailing) of the float's digits.
TEST(GConvert, MatchesPrintfG) {
  Operands ops(31);
  const int count = scaled_count(20000);
  for (int i = 0; i < count; ++i) {
    const float f = ops.below(8) ? ops.next_float() : 0.0f;
    const int ndigit = 1 + ops.below(12);
    const int trailing = ops.below(2);
    char got[128], want[128];
    sgconvert(&f, ndigit, trailing, got);
    snprintf(want, sizeof want, trailing ? "%#.*g" : "%.*g", ndigit, static_cast<double>(f));
    ASSERT_STREQ(got, want) << f << " " << ndigit;
  }
  char buf[32];
  const float inf = -__builtin_inff();
  sgconvert(&inf, 4, 0, buf);
  EXPECT_STREQ(buf, "-Inf");
}

TEST(ImageMoves, ExtendedAndQuadRoundTrip) {
  Operands ops(32);
  for (int i = 0; i < scaled_count(10000); ++i) {
    const long double x = ops.next_extended();
    uint32_t ext[3] = {};
    memcpy(ext, &x, 10);
    if ((ext[2] & 0x7fff) == 0) continue;  // the integer bit is rebuilt as 1
    uint32_t quad[4], back[3];
    ldouble2quadruple(ext, quad);
    __float128 widened = x;
    uint32_t want[4];
    quad_words(widened, want);
    ASSERT_EQ(0, memcmp(quad, want, 16)) << static_cast<double>(x);
    quadruple2ldouble(quad, back);
    ASSERT_EQ(0, memcmp(back, ext, 10));
  }
  // No rounding: the low 49 fraction bits just go.
  uint32_t quad[4] = {0xffffffff, 0xffffffff, 0xffffffff, 0x3fffffff}, ext[3];
  quadruple2ldouble(quad, ext);
  EXPECT_EQ(ext[2], 0x3fffu);
  EXPECT_EQ(ext[1], 0xffffffffu);
  EXPECT_EQ(ext[0], 0xffffffffu);
}

}  // namespace
}  // namespace qal::test
