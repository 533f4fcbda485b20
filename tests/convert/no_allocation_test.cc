// Decimal input never allocates: the longest records, at the far ends of
// every format's range and in every direction, convert the same while every
// allocation fails.  The test binary's own malloc refuses while `refusing`
// is set and counts what it was asked for.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <random>

#include "qal/convert.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QAL_OWN_MALLOC 0
#else
#define QAL_OWN_MALLOC 1
#endif

namespace {
thread_local bool refusing = false;
thread_local int refused = 0;
}  // namespace

#if QAL_OWN_MALLOC
extern "C" void* __libc_malloc(size_t);
extern "C" void* malloc(size_t n) {
  if (refusing) {
    ++refused;
    return nullptr;
  }
  return __libc_malloc(n);
}
#endif

namespace qal {
namespace {

struct Results {
  uint32_t single, extended[3], quad[4];
  uint64_t dbl;
  unsigned exceptions[4];
  bool operator==(const Results& o) const { return memcmp(this, &o, sizeof *this) == 0; }
};

Results convert_all(DecimalRecord r, int rounding) {
  Results out{};
  DecimalMode mode{rounding, 1, 0};
  decimal_to_single(reinterpret_cast<float*>(&out.single), &mode, &r, &out.exceptions[0]);
  decimal_to_double(reinterpret_cast<double*>(&out.dbl), &mode, &r, &out.exceptions[1]);
  decimal_to_extended(out.extended, &mode, &r, &out.exceptions[2]);
  decimal_to_quadruple(out.quad, &mode, &r, &out.exceptions[3]);
  return out;
}

TEST(DecimalInput, LongestRecordsConvertWithEveryAllocationRefused) {
  if (!QAL_OWN_MALLOC) GTEST_SKIP() << "the sanitizer owns malloc";
  std::mt19937_64 rng(511);
  // Exponents at and around the coarse limits of each format, where the
  // exact way works on its largest numbers.
  const int exponents[] = {-12841, -12330, -5400, -4966, -1100, -771, -400, -130,
                           -97,    0,      200,   300,   771,   4900, 12330};
  for (int exponent : exponents) {
    for (int rounding = 0; rounding < 4; ++rounding) {
      DecimalRecord r;
      memset(&r, 0, sizeof r);
      r.fp_class = FPC_NORMAL;
      r.sign = static_cast<int>(rng() & 1);
      r.more = static_cast<int>(rng() & 1);
      r.digits[0] = static_cast<char>('1' + rng() % 9);
      for (int i = 1; i < DECIMAL_RECORD_DIGITS - 1; ++i)
        r.digits[i] = static_cast<char>('0' + rng() % 10);
      r.ndigits = DECIMAL_RECORD_DIGITS - 1;
      r.exponent = exponent - r.ndigits;
      const Results free_to_allocate = convert_all(r, rounding);
      refusing = true;
      const Results refused_all = convert_all(r, rounding);
      refusing = false;
      EXPECT_TRUE(refused_all == free_to_allocate) << "exponent " << exponent;
      EXPECT_EQ(refused, 0) << "exponent " << exponent;
    }
  }
}

}  // namespace
}  // namespace qal
