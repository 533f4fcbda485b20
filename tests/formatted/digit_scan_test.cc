// The word-at-a-time scanners against a byte loop, and the eight-digit
// word against the pair table.  The scanners get random text of digits,
// blanks, their neighbours in the code ('/', ':', '\x1f', '!') and bytes
// with the top bit set, scanned from random starts to random ends, with
// the load limit at the end, a little after it, or far after it.
#include "util/digit_scan.h"

#include <string.h>

#include <random>
#include <string>

#include "gtest/gtest.h"

using namespace qal;

namespace {

const char* byte_skip_blanks(const char* c, const char* end) {
  while (c < end && *c == ' ') ++c;
  return c;
}

const char* byte_append_digits(const char* c, const char* end, uint64_t& v) {
  while (c < end && *c >= '0' && *c <= '9') v = v * 10 + static_cast<uint64_t>(*c++ - '0');
  return c;
}

char random_byte(std::mt19937_64& rng) {
  static const char kMix[] = "0123456789012345678901234567890123456789     /:\x1f!\x80\xb9\xba\xff";
  return kMix[rng() % (sizeof kMix - 1)];
}

}  // namespace

TEST(DigitScan, WordsAgreeWithTheByteLoop) {
  std::mt19937_64 rng(77);
  for (int k = 0; k < 200000; ++k) {
    std::string text(48, ' ');
    // Runs of one kind, so that long stretches of digits and blanks occur.
    for (size_t i = 0; i < text.size();) {
      const size_t run = 1 + rng() % 12;
      const int kind = static_cast<int>(rng() % 3);
      for (size_t j = 0; j < run && i < text.size(); ++j, ++i)
        text[i] = kind == 0   ? ' '
                  : kind == 1 ? static_cast<char>('0' + rng() % 10)
                              : random_byte(rng);
    }
    const char* base = text.data();
    const size_t from = rng() % 24;
    const size_t end = from + rng() % 20;
    const size_t limit = rng() % 3 == 0 ? end : end + rng() % (text.size() - end + 1);
    const char *c = base + from, *e = base + end, *l = base + limit;
    ASSERT_EQ(skip_blanks(c, e, l), byte_skip_blanks(c, e)) << text << " " << from << " " << end;
    uint64_t ours = rng() % 1000, theirs = ours;
    const char* at = append_digits(c, e, l, ours);
    ASSERT_EQ(at, byte_append_digits(c, e, theirs)) << text << " " << from << " " << end;
    ASSERT_EQ(ours, theirs) << text << " " << from << " " << end;
  }
}

TEST(DigitScan, EveryByteIsClassifiedAlone) {
  // Each byte value in each place of a word of digits: only that byte is
  // marked, whatever its neighbours would carry or borrow.
  for (int place = 0; place < 8; ++place)
    for (int b = 0; b < 256; ++b) {
      char word[8];
      memcpy(word, "73950284", 8);
      word[place] = static_cast<char>(b);
      const uint64_t want = (b >= '0' && b <= '9') ? 0 : uint64_t{0x80} << (8 * place);
      ASSERT_EQ(non_digit_bytes(load_eight(word)), want) << place << " " << b;
    }
}

TEST(DigitWord, EightDigitsAsOneWord) {
  // Every value with its five low digits running through all their
  // values, under a spread of high digits; and random values.
  std::mt19937_64 rng(5);
  auto check = [](uint32_t v) {
    char want[8], got[8];
    eight_digits(v, want);
    const uint64_t word = eight_digit_word(v);
    memcpy(got, &word, 8);
    ASSERT_EQ(std::string(got, 8), std::string(want, 8)) << v;
  };
  for (uint32_t high : {0u, 1u, 99u, 500u, 999u})
    for (uint32_t low = 0; low < 100000; ++low) check(high * 100000 + low);
  for (int k = 0; k < 1000000; ++k) check(static_cast<uint32_t>(rng() % 100000000));
}
