// Arithmetic on BigFloat: products with the rows of powers, the change of
// base from 65536 to 10000, and the shifts the conversions need.
#include "convert/big_float.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "convert/digits.h"
#include "convert/tables.h"

namespace qal {

namespace {

// r[0 .. na+nb) = a * b in base `Base`, column by column: a column's
// products are summed in 64 bits and the carry goes once per column.
// Returns the length without top zero words.
template <uint32_t Base>
int multiply_words(const uint16_t* a, int na, const uint16_t* b, int nb, uint16_t* r) {
  uint64_t carry = 0;
  const int n = na + nb - 1;
  for (int k = 0; k < n; ++k) {
    uint64_t acc = carry;
    const int lo = std::max(0, k - nb + 1), hi = std::min(k, na - 1);
    for (int i = lo; i <= hi; ++i) acc += static_cast<uint32_t>(a[i]) * b[k - i];
    r[k] = static_cast<uint16_t>(acc % Base);
    carry = acc / Base;
  }
  r[n] = static_cast<uint16_t>(carry);
  int len = n + 1;
  while (len > 0 && r[len - 1] == 0) --len;
  return len;
}

struct Row {
  const uint16_t* words;
  int length;
};

// The rows whose product is radix**p: small, big, huge; rows equal to 1
// are left out.
int power_rows(int base, int p, Row rows[3]) {
  int n = 0;
  auto add = [&](const auto& table, int r) {
    if (r) rows[n++] = {table.row(r), table.length(r)};
  };
  if (base == 10) {
    add(__tbl_10_small, p % 64);
    add(__tbl_10_big, (p / 64) % 16);
    add(__tbl_10_huge, p / 1024);
  } else {
    add(__tbl_2_small, p % 176);
    add(__tbl_2_big, (p / 176) % 16);
    add(__tbl_2_huge, p / 2816);
  }
  return n;
}

// Scratch words: on the stack up to kStackWords, else from malloc.
class Scratch {
 public:
  explicit Scratch(int words) {
    if (words > kStackWords) heap_ = static_cast<uint16_t*>(malloc(2 * static_cast<size_t>(words)));
  }
  ~Scratch() { free(heap_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  uint16_t* get() { return heap_ ? heap_ : local_; }
  bool failed(int words) const { return words > kStackWords && !heap_; }

 private:
  uint16_t local_[kStackWords];
  uint16_t* heap_ = nullptr;
};

struct Product {
  int length = 0;
  int exponent = 0;      // in words dropped (16 bits or 4 digits each)
  bool dropped = false;  // a non-zero word fell off the low end
};

// Multiplies `words` by the rows, keeping at most `keep` words (all when
// keep is 0) after each product.  The result is left in `out`, which has
// room for the largest product.  Returns false when scratch room could not
// be had.
template <uint32_t Base>
bool multiply_rows(const uint16_t* words, int length, const Row* rows, int nrows, int keep,
                   uint16_t* out, int room, Product* result) {
  Scratch tmp(room);
  if (tmp.failed(room)) return false;
  uint16_t* cur = out;
  uint16_t* next = tmp.get();
  // The last product must land in `out`: start in whichever buffer makes
  // that so.
  if (nrows % 2 == 1) std::swap(cur, next);
  memcpy(cur, words, 2 * static_cast<size_t>(length));
  Product p;
  p.length = length;
  for (int i = 0; i < nrows; ++i) {
    int len = multiply_words<Base>(cur, p.length, rows[i].words, rows[i].length, next);
    if (keep && len > keep) {
      const int drop = len - keep;
      for (int j = 0; j < drop && !p.dropped; ++j) p.dropped = next[j] != 0;
      memmove(next, next + drop, 2 * static_cast<size_t>(keep));
      len = keep;
      p.exponent += drop;
    }
    p.length = len;
    std::swap(cur, next);
  }
  *result = p;
  return true;
}

// Keeps the top `keep` words of an exact number; the lowest kept word is
// made odd when a dropped word was not zero.
void truncate_sticky(uint16_t* w, Product* p, int keep) {
  if (p->length <= keep) return;
  const int drop = p->length - keep;
  bool lost = p->dropped;
  for (int j = 0; j < drop && !lost; ++j) lost = w[j] != 0;
  memmove(w, w + drop, 2 * static_cast<size_t>(keep));
  p->length = keep;
  p->exponent += drop;
  if (lost) w[0] |= 1;
  p->dropped = lost;
}

}  // namespace

void __free_big_float(BigFloat* x) { free(x); }

void _split_shorten(BigFloat* x, int word_exponent) {
  int z = 0;
  while (z < x->length && x->words[z] == 0) ++z;
  if (z == x->length) {
    x->length = 0;
    return;
  }
  if (z) {
    memmove(x->words, x->words + z, 2 * static_cast<size_t>(x->length - z));
    x->length = static_cast<uint16_t>(x->length - z);
    x->exponent = static_cast<int16_t>(x->exponent + z * word_exponent);
  }
}

void big_float_from_bits(BigFloat* x, unsigned __int128 value, int exponent) {
  int n = 0;
  for (; value; value >>= 16) x->words[n++] = static_cast<uint16_t>(value);
  x->length = static_cast<uint16_t>(n);
  x->exponent = static_cast<int16_t>(exponent);
  _split_shorten(x, 16);
}

int big_bit_length(const BigFloat* x) {
  if (x->length == 0) return 0;
  return 16 * (x->length - 1) + std::bit_width(static_cast<unsigned>(x->words[x->length - 1]));
}

// Guard words kept below the requested precision while products are
// truncated.  After at most three truncated products the kept value is
// below the exact one by less than (B*B + B + 1) units of its lowest word
// (B the word base), so unless the top guard word is B - 1 no carry from
// the lost part can reach the words above the guard.
constexpr int kGuardWords = 4;

void __big_float_times_power(BigFloat* x, int base, int p, int precision, BigFloat** out) {
  if (p == 0 || x->length == 0) {
    *out = x;
    return;
  }
  const bool binary = base == 10;
  if (p < 0 || (binary && p >= 5120) || (!binary && p >= 16896)) {
    *out = kPowerOverflow;
    return;
  }
  Row rows[3];
  const int nrows = power_rows(base, p, rows);
  const int word_units = binary ? 16 : 4;
  const int wanted = precision / (binary ? 16 : 4) + 2;
  int full = x->length;
  for (int i = 0; i < nrows; ++i) full += rows[i].length;
  const int keep = std::min(full, wanted + kGuardWords);
  int room = full;

  Scratch result_words(room);
  if (result_words.failed(room)) {
    *out = nullptr;
    return;
  }
  uint16_t* w = result_words.get();
  Product prod;
  auto run = [&](int keep_words) {
    return binary
               ? multiply_rows<65536>(x->words, x->length, rows, nrows, keep_words, w, room, &prod)
               : multiply_rows<10000>(x->words, x->length, rows, nrows, keep_words, w, room, &prod);
  };
  if (!run(keep < full ? keep : 0)) {
    *out = nullptr;
    return;
  }
  if (prod.dropped) {
    const uint32_t top_guard = w[kGuardWords - 1];
    if (top_guard == (binary ? 0xffffu : 9999u)) {
      // A carry from below may reach the kept words: do it exactly.
      if (!run(0)) {
        *out = nullptr;
        return;
      }
    } else {
      // The guard words are uncertain; what they stood for is not zero.
      prod.length -= kGuardWords;
      memmove(w, w + kGuardWords, 2 * static_cast<size_t>(prod.length));
      prod.exponent += kGuardWords;
      w[0] |= 1;
    }
  }
  truncate_sticky(w, &prod, std::max(wanted, 1));
  const long exponent =
      x->exponent + (binary ? p : 0) + static_cast<long>(prod.exponent) * word_units;
  BigFloat* r = x;
  if (prod.length > x->capacity) {
    r = static_cast<BigFloat*>(malloc(2 * (3 + static_cast<size_t>(prod.length))));
    if (!r) {
      *out = nullptr;
      return;
    }
    r->capacity = static_cast<uint16_t>(prod.length);
  }
  memcpy(r->words, w, 2 * static_cast<size_t>(prod.length));
  r->length = static_cast<uint16_t>(prod.length);
  r->exponent = static_cast<int16_t>(exponent);
  *out = r;
}

void __big_binary_to_big_decimal(const BigFloat* bin, BigFloat* dec) {
  // Horner's rule 32 bits at a time into limbs of base 10**8 (two decimal
  // words each): limb * 2**32 + carry stays below 2**63.
  constexpr uint64_t kLimb = 100000000;
  const int nbits = big_bit_length(bin);
  const int limbs_room = nbits / 26 + 2;  // 10**8 > 2**26
  uint32_t local[kStackWords];
  uint32_t* limbs = limbs_room <= kStackWords
                        ? local
                        : static_cast<uint32_t*>(malloc(4 * static_cast<size_t>(limbs_room)));
  if (!limbs) {
    errno = ENOMEM;
    abort();
  }
  int n = 0;
  auto feed = [&](uint64_t chunk, int bits) {
    uint64_t carry = chunk;
    for (int i = 0; i < n; ++i) {
      const uint64_t t = (static_cast<uint64_t>(limbs[i]) << bits) + carry;
      limbs[i] = static_cast<uint32_t>(t % kLimb);
      carry = t / kLimb;
    }
    for (; carry; carry /= kLimb) limbs[n++] = static_cast<uint32_t>(carry % kLimb);
  };
  int i = bin->length;
  if (i & 1) {
    --i;
    feed(bin->words[i], 16);
  }
  while (i > 0) {
    i -= 2;
    feed(static_cast<uint64_t>(bin->words[i + 1]) << 16 | bin->words[i], 32);
  }
  int len = 0;
  for (int j = 0; j < n; ++j) {
    dec->words[len++] = static_cast<uint16_t>(limbs[j] % 10000);
    dec->words[len++] = static_cast<uint16_t>(limbs[j] / 10000);
  }
  while (len > 0 && dec->words[len - 1] == 0) --len;
  dec->length = static_cast<uint16_t>(len);
  dec->exponent = 0;
  if (limbs != local) free(limbs);
  // A positive binary exponent is a final multiplication by 2**exponent.
  for (int e = bin->exponent; e > 0 && dec->length;) {
    const int step = std::min(e, 16);
    uint32_t carry = 0;
    for (int j = 0; j < dec->length; ++j) {
      const uint32_t t = (static_cast<uint32_t>(dec->words[j]) << step) + carry;
      dec->words[j] = static_cast<uint16_t>(t % 10000);
      carry = t / 10000;
    }
    for (; carry; carry /= 10000) dec->words[dec->length++] = static_cast<uint16_t>(carry % 10000);
    e -= step;
  }
}

bool __right_shift_base_two(BigFloat* x) {
  if (x->exponent >= 0 || x->length == 0) return false;
  const int shift = -x->exponent;
  const int words = shift / 16, bits = shift % 16;
  bool lost = false;
  if (words >= x->length) {
    lost = x->length != 0;
    x->length = 0;
    x->exponent = 0;
    return lost;
  }
  for (int j = 0; j < words && !lost; ++j) lost = x->words[j] != 0;
  int n = x->length - words;
  memmove(x->words, x->words + words, 2 * static_cast<size_t>(n));
  if (bits) {
    lost = lost || (x->words[0] & ((1u << bits) - 1)) != 0;
    for (int j = 0; j < n; ++j) {
      const uint32_t hi = j + 1 < n ? x->words[j + 1] : 0;
      x->words[j] = static_cast<uint16_t>((x->words[j] >> bits) | (hi << (16 - bits)));
    }
  }
  while (n > 0 && x->words[n - 1] == 0) --n;
  x->length = static_cast<uint16_t>(n);
  x->exponent = 0;
  return lost;
}

int big_decimal_text(const BigFloat* dec, char* out) {
  if (dec->length == 0) return 0;
  char four[4];
  __four_digits_quick(dec->words[dec->length - 1], four);
  int skip = 0;
  while (skip < 3 && four[skip] == '0') ++skip;
  int n = 4 - skip;
  memcpy(out, four + skip, static_cast<size_t>(n));
  for (int j = dec->length - 2; j >= 0; --j, n += 4) __four_digits_quick(dec->words[j], out + n);
  return n;
}

}  // namespace qal
