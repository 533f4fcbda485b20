// Shortest digits: __f_cvt_real against the free-format digit loop written
// out step by step with plain multi-word integers (the reference below),
// and against std::to_chars, which differs only where a candidate lies
// exactly on the margin.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <charconv>
#include <vector>

#include "convert/oracle.h"

namespace qal::test {
namespace {

// A natural number in 32-bit limbs, least significant first.
struct Nat {
  std::vector<uint32_t> w;

  static Nat power_of_two(int n) {
    Nat x;
    x.w.assign(static_cast<size_t>(n / 32 + 1), 0);
    x.w.back() = 1u << (n % 32);
    return x;
  }
  static Nat of(unsigned __int128 v) {
    Nat x;
    for (; v; v >>= 32) x.w.push_back(static_cast<uint32_t>(v));
    return x;
  }
  void trim() {
    while (!w.empty() && w.back() == 0) w.pop_back();
  }
  Nat& mul(uint32_t m) {
    uint64_t carry = 0;
    for (uint32_t& d : w) {
      carry += static_cast<uint64_t>(d) * m;
      d = static_cast<uint32_t>(carry);
      carry >>= 32;
    }
    if (carry) w.push_back(static_cast<uint32_t>(carry));
    return *this;
  }
  Nat& shl(int n) {
    for (; n >= 32; n -= 32) w.insert(w.begin(), 0);
    if (n) {
      uint32_t carry = 0;
      for (uint32_t& d : w) {
        const uint32_t next = d >> (32 - n);
        d = d << n | carry;
        carry = next;
      }
      if (carry) w.push_back(carry);
    }
    return *this;
  }
  friend Nat operator+(Nat a, const Nat& b) {
    if (a.w.size() < b.w.size()) a.w.resize(b.w.size(), 0);
    uint64_t carry = 0;
    for (size_t i = 0; i < a.w.size(); ++i) {
      carry += a.w[i];
      if (i < b.w.size()) carry += b.w[i];
      a.w[i] = static_cast<uint32_t>(carry);
      carry >>= 32;
    }
    if (carry) a.w.push_back(1);
    return a;
  }
  // a - b for a >= b.
  friend Nat operator-(Nat a, const Nat& b) {
    int64_t borrow = 0;
    for (size_t i = 0; i < a.w.size(); ++i) {
      int64_t t = static_cast<int64_t>(a.w[i]) - borrow - (i < b.w.size() ? b.w[i] : 0);
      borrow = t < 0;
      a.w[i] = static_cast<uint32_t>(t + (borrow << 32));
    }
    a.trim();
    return a;
  }
  friend int cmp(Nat a, Nat b) {
    a.trim();
    b.trim();
    if (a.w.size() != b.w.size()) return a.w.size() < b.w.size() ? -1 : 1;
    for (size_t i = a.w.size(); i-- > 0;)
      if (a.w[i] != b.w[i]) return a.w[i] < b.w[i] ? -1 : 1;
    return 0;
  }
};

struct Shortest {
  std::string digits;
  int k;
  bool operator==(const Shortest&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Shortest& s) {
  return os << s.digits << " k " << s.k;
}

// The loop as described: R/S is the value and M/S half a unit of its last
// bit; k is the power of ten of the digit being generated.  The value must
// read back under ties to even: the upper end counts only for an even
// significand (`stored`, the significand as its format holds it), and a
// power of two above the smallest normal has the narrow lower margin.
Shortest reference(unsigned __int128 mant, int nbits, int e2, bool narrow = false) {
  const int smallest_e2 = nbits == 24 ? -149 : nbits == 53 ? -1074 : -16494;
  const unsigned __int128 stored = e2 < smallest_e2 ? mant >> (smallest_e2 - e2) : mant;
  const bool upper_closed = (stored & 1) == 0;
  if (mant == static_cast<unsigned __int128>(1) << (nbits - 1) && e2 > smallest_e2) narrow = true;
  const int sh = e2 >= 1 ? e2 + 2 : 2;
  Nat r = Nat::of(mant).shl(sh);
  Nat m = Nat::power_of_two(sh - 1);
  Nat s = e2 >= 0 ? Nat::of(4) : Nat::power_of_two(2 - e2);
  int k = 0;
  // R below S/10 (rounded up): scale R up.
  Nat t = s;
  {
    uint64_t rem = 0;
    for (size_t i = t.w.size(); i-- > 0;) {
      const uint64_t cur = rem << 32 | t.w[i];
      t.w[i] = static_cast<uint32_t>(cur / 10);
      rem = cur % 10;
    }
    t.trim();
    if (rem) t = t + Nat::of(1);
  }
  // Nine steps at once while they cannot overshoot.
  constexpr uint32_t kBillion = 1000000000;
  while (cmp(Nat(r).mul(kBillion), t) < 0) {
    r.mul(kBillion);
    k -= 9;
  }
  while (cmp(r, t) < 0) {
    r.mul(10);
    --k;
  }
  for (int i = 0; i < -k / 9; ++i) m.mul(kBillion);
  for (int i = 0; i < -k % 9; ++i) m.mul(10);
  t = r + m;
  while (cmp(t, Nat(s).mul(kBillion)) >= 0) {
    s.mul(kBillion);
    k += 9;
  }
  while (cmp(t, s) >= 0) {
    s.mul(10);
    ++k;
  }
  Shortest out{"", 0};
  for (;;) {
    --k;
    r.mul(10);
    int d = 0;
    Nat ds = s;
    while (cmp(r, ds) >= 0) {
      ++d;
      ds = ds + s;
    }
    r = r - (ds - s);
    m.mul(10);
    // A narrow margin also wants R below M/2.
    const bool low = cmp(r, m) < 0 && (!narrow || cmp(r + r, m) < 0);
    const int upper = cmp(r + m, s);  // R against S - M
    const bool high = upper_closed ? upper >= 0 : upper > 0;
    if (!low && !high) {
      out.digits += static_cast<char>('0' + d);
      continue;
    }
    if (low && high) {
      Nat twice = r + r;
      if (cmp(twice, s) >= 0) ++d;
    } else if (high) {
      ++d;
    }
    out.digits += static_cast<char>('0' + d);
    out.k = k;
    return out;
  }
}

Shortest ours(unsigned __int128 mant, int nbits, int e2, int narrow = 0) {
  uint16_t words[8] = {};
  for (int i = 0; i < 8; ++i) words[i] = static_cast<uint16_t>(mant >> (16 * i));
  char digits[64];
  int n = -1, k = 0;
  __f_cvt_real(words, nbits, e2, narrow, digits, &n, &k);
  return {std::string(digits, static_cast<size_t>(n)), k};
}

int count_from_environment(int fallback) {
  const char* v = getenv("QAL_SHORTEST_VALUES");
  return v ? atoi(v) : scaled_count(fallback);
}

TEST(ShortestDigits, KnownValues) {
  struct Row {
    unsigned __int128 mant;
    int nbits, e2;
    const char* digits;
    int k;
  } rows[] = {
      {uint64_t{1} << 52, 53, -52, "1", 0},                      // 1.0
      {0x152d02c7e14af6ULL, 53, 24, "1", 23},                    // the double just below 1e23
      {1, 53, -1074, "5", -324},                                 // least subnormal, as stored
      {uint64_t{1} << 52, 53, -1126, "4940656458412465", -339},  // the same, normalised
      {0x1999999999999aULL, 53, -56, "1", -1},                   // 0.1
      {0xcccccd, 24, -27, "1", -1},                              // 0.1f
      {uint64_t{1} << 52, 53, 1, "9007199254740992", 0},         // 2**53
      {(static_cast<unsigned __int128>(1) << 112) | 1, 113, -112,
       "10000000000000000000000000000000002", -34},  // 1 + 2**-112
  };
  for (const Row& r : rows) {
    const Shortest want{r.digits, r.k};
    EXPECT_EQ(ours(r.mant, r.nbits, r.e2), want) << r.digits;
    EXPECT_EQ(reference(r.mant, r.nbits, r.e2), want) << r.digits;
  }
}

// Random significands of every width, with power-of-two significands and
// subnormal (unnormalised) ones over-represented.
TEST(ShortestDigits, SameAsTheDigitLoop) {
  Operands ops(11);
  const int count = count_from_environment(150000);
  for (int i = 0; i < count; ++i) {
    unsigned __int128 mant;
    int nbits, e2;
    switch (ops.below(3)) {
      case 0:
        nbits = 24;
        e2 = ops.below(278) - 149 - 23;
        break;
      case 1:
        nbits = 53;
        e2 = ops.below(2046) - 1074 - 52;
        break;
      default:
        nbits = 113;
        e2 = ops.below(i % 16 == 0 ? 32766 : 600) - (i % 16 == 0 ? 16494 : 300) - 112;
        break;
    }
    const unsigned __int128 top = static_cast<unsigned __int128>(1) << (nbits - 1);
    const unsigned __int128 bits = static_cast<unsigned __int128>(ops.bits()) << 64 | ops.bits();
    switch (ops.below(6)) {
      case 0:
        mant = top;  // a power of two: the narrow lower margin
        break;
      case 1:
        mant = (bits & (top - 1)) >> ops.below(nbits);  // subnormal, as stored
        if (mant == 0) mant = 1;
        break;
      default:
        mant = top | (bits & (top - 1));
        break;
    }
    ASSERT_EQ(ours(mant, nbits, e2), reference(mant, nbits, e2))
        << "nbits " << nbits << " e2 " << e2 << " mant " << static_cast<double>(mant);
    if (i % 8 == 0) {
      ASSERT_EQ(ours(mant, nbits, e2, 1), reference(mant, nbits, e2, true))
          << "narrow: nbits " << nbits << " e2 " << e2 << " mant " << static_cast<double>(mant);
    }
  }
}

// c * 10**p == y * 2**f, exactly.
bool same_value(unsigned __int128 c, int p, unsigned __int128 y, int f) {
  Nat left = Nat::of(c), right = Nat::of(y);
  for (int i = 0; i < (p > 0 ? p : 0); ++i) left.mul(10);
  for (int i = 0; i < (p < 0 ? -p : 0); ++i) right.mul(10);
  left.shl(f < 0 ? -f : 0);
  right.shl(f > 0 ? f : 0);
  return cmp(left, right) == 0;
}

// Where the two choices may differ: a candidate exactly at v - m or v + m
// (v = mant * 2**e2, m = 2**(e2-1)), or v exactly halfway between two
// candidates of the same length.
bool margin_or_tie(const Shortest& a, const Shortest& b, uint64_t mant, int e2) {
  for (const Shortest* s : {&a, &b})
    for (int side : {-1, 1})
      if (same_value(std::stoull(s->digits), s->k, 2 * static_cast<unsigned __int128>(mant) + side,
                     e2 - 1))
        return true;
  if (a.k != b.k) return false;
  const unsigned __int128 low = std::min(std::stoull(a.digits), std::stoull(b.digits));
  return same_value(2 * low + 1, a.k, mant, e2 + 1);
}

// std::to_chars chooses among the same candidates, but its interval ends
// are in or out by the parity of the significand, and a tie between two
// candidates goes to the even one where the loop takes the upper.
TEST(ShortestDigits, SameAsToCharsOffTheMargin) {
  Operands ops(12);
  const int count = count_from_environment(2000000) * 4;
  int differ = 0;
  for (int i = 0; i < count; ++i) {
    const double x = __builtin_fabs(std::bit_cast<double>(ops.bits()));
    if (!__builtin_isfinite(x) || x == 0) continue;
    const Unpacked u = unpack_double(x);
    const uint64_t mant = static_cast<uint64_t>(u.mant);
    if ((mant & (mant - 1)) == 0) continue;  // powers of two have a narrower lower margin there
    char buf[64];
    char* end = std::to_chars(buf, buf + sizeof buf, x, std::chars_format::scientific).ptr;
    *end = '\0';
    std::string digits;
    const char* p = buf;
    for (; *p && *p != 'e'; ++p)
      if (*p != '.') digits += *p;
    const Shortest theirs{digits, atoi(p + 1) - static_cast<int>(digits.size()) + 1};
    const Shortest mine = ours(mant, 53, u.exponent);
    if (mine == theirs) continue;
    ++differ;
    ASSERT_TRUE(margin_or_tie(mine, theirs, mant, u.exponent)) << buf << " vs " << mine;
  }
  EXPECT_LT(differ, count / 1000);
}

}  // namespace
}  // namespace qal::test

namespace qal::test {
namespace {

// The digits of a finite non-zero value of `nbits` given by its stored
// significand and biased exponent, as the list-directed writer asks for
// them: subnormals normalised first.
Shortest shortest_of_stored(unsigned __int128 stored, int biased, int nbits) {
  const int bias = nbits == 24 ? 127 : nbits == 53 ? 1023 : 16383;
  int e2 = (biased == 0 ? 1 : biased) - bias - (nbits - 1);
  unsigned __int128 mant = stored;
  if (biased != 0) {
    mant |= static_cast<unsigned __int128>(1) << (nbits - 1);
  } else {
    while (!(mant >> (nbits - 1))) {
      mant <<= 1;
      --e2;
    }
  }
  return ours(mant, nbits, e2);
}

// Reads the digits back through the library's own conversion and through
// the C library's; both must give the value's image again.
void expect_reads_back(unsigned __int128 image, int nbits, const Shortest& s) {
  DecimalRecord rec{};
  rec.fp_class = FPC_NORMAL;
  memcpy(rec.digits, s.digits.data(), s.digits.size());
  rec.ndigits = static_cast<int32_t>(s.digits.size());
  rec.exponent = s.k;
  DecimalMode mode{FPR_NEAREST, DECIMAL_FLOATING, 0};
  unsigned x = 0;
  const std::string text = s.digits + "e" + std::to_string(s.k);
  unsigned __int128 back = 0;
  if (nbits == 24) {
    float f;
    decimal_to_single(&f, &mode, &rec, &x);
    memcpy(&back, &f, 4);
    const float c = strtof(text.c_str(), nullptr);
    ASSERT_EQ(memcmp(&c, &image, 4), 0) << text;
  } else if (nbits == 53) {
    double d;
    decimal_to_double(&d, &mode, &rec, &x);
    memcpy(&back, &d, 8);
    const double c = strtod(text.c_str(), nullptr);
    ASSERT_EQ(memcmp(&c, &image, 8), 0) << text;
  } else {
    x86_decimal_to_quadruple(reinterpret_cast<uint32_t*>(&back), &mode, &rec, &x);
    const __float128 c = strtoflt128(text.c_str(), nullptr);
    ASSERT_EQ(memcmp(&c, &image, 16), 0) << text;
  }
  ASSERT_TRUE(back == image) << text;
}

void check_image(unsigned __int128 image, int nbits) {
  const int exponent_bits = nbits == 24 ? 8 : nbits == 53 ? 11 : 15;
  const int biased = static_cast<int>((image >> (nbits - 1)) & ((1u << exponent_bits) - 1));
  const unsigned __int128 stored = image & ((static_cast<unsigned __int128>(1) << (nbits - 1)) - 1);
  if (biased == (1 << exponent_bits) - 1 || (biased == 0 && stored == 0)) return;
  expect_reads_back(image, nbits, shortest_of_stored(stored, biased, nbits));
}

}  // namespace

// Every list-directed real must read back to itself: random images of
// each format, every power of two, and both sides of the subnormal edge.
TEST(ShortestDigits, EveryValueReadsBack) {
  Operands ops(23);
  const int count = count_from_environment(400000);
  for (int i = 0; i < count; ++i) {
    check_image(static_cast<uint32_t>(ops.bits()) & 0x7fffffffu, 24);
    check_image(ops.bits() & 0x7fffffffffffffffULL, 53);
    // Quads read back mostly the exact way, which is slower: fewer of them.
    if (i % 64 == 0)
      check_image((static_cast<unsigned __int128>(ops.bits()) << 64 | ops.bits()) &
                      ~(static_cast<unsigned __int128>(1) << 127),
                  113);
  }
  for (const int nbits : {24, 53, 113}) {
    const int exponent_bits = nbits == 24 ? 8 : nbits == 53 ? 11 : 15;
    // Every power of two, subnormal and normal (every 16th exponent of the
    // quads, whose far ones take the exact way back).
    const int step = nbits == 113 ? 16 : 1;
    for (int b = 0; b < (1 << exponent_bits) - 1; b += step) {
      if (b == 0) {
        for (int k = 0; k < nbits - 1; ++k)
          check_image(static_cast<unsigned __int128>(1) << k, nbits);
      } else {
        check_image(static_cast<unsigned __int128>(b) << (nbits - 1), nbits);
      }
    }
    // The largest subnormals and the smallest normals.
    const unsigned __int128 edge = static_cast<unsigned __int128>(1) << (nbits - 1);
    const int around = nbits == 113 ? 40 : 300;
    for (int k = -around; k <= around; ++k) check_image(edge + k, nbits);
  }
}

}  // namespace qal::test
