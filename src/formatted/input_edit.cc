// The input editors of integers, logicals and characters, and the scanner
// of real fields.  Each parses its field in place and allocates nothing.
//
// A character an editor cannot take goes to the correction hook when there
// is one.  The hook may put another character in its place: a blank or the
// separator sends the caller to find the field again (kRescanField), any
// other makes the editor start over at the field's first non-blank.
#include "formatted/input_edit.h"

#include <string.h>

#include <array>
#include <type_traits>

#include "qal/abi.h"
#include "qal/errors.h"

namespace qal {

namespace {

template <class T>
constexpr std::array<T, 37> multiplicands(unsigned __int128 limit) {
  std::array<T, 37> t{};
  for (unsigned r = 2; r <= 36; ++r) t[r] = static_cast<T>(limit / r);
  return t;
}

}  // namespace

// Overflow limits of I in radices other than ten: floor(limit / radix),
// indexed by the radix; 0 for the radices 0 and 1, which no format gives.
// Compiled code sees plain arrays of 37 elements (qal/formatted.h).
extern "C" {
QAL_EXPORT extern constinit const std::array<int32_t, 37> __f95_max_multiplicand_4;
QAL_EXPORT extern constinit const std::array<int64_t, 37> __f95_max_multiplicand_8;
QAL_EXPORT extern constinit const std::array<uint32_t, 37> __f95_max_multiplicand_u4;
QAL_EXPORT extern constinit const std::array<uint64_t, 37> __f95_max_multiplicand_u8;
constinit const std::array<int32_t, 37> __f95_max_multiplicand_4 =
    multiplicands<int32_t>(uint64_t{1} << 31);
constinit const std::array<int64_t, 37> __f95_max_multiplicand_8 =
    multiplicands<int64_t>(uint64_t{1} << 63);
constinit const std::array<uint32_t, 37> __f95_max_multiplicand_u4 =
    multiplicands<uint32_t>(0xffffffffu);
constinit const std::array<uint64_t, 37> __f95_max_multiplicand_u8 =
    multiplicands<uint64_t>(~uint64_t{0});
}

namespace {

const char* skip_blanks(const char* p, const char* end) {
  while (p < end && *p == ' ') ++p;
  return p;
}

// What became of a bad character: the hook's error, the field to be found
// again, or a new start at `restart`.
struct Offer {
  int err;  // 0: go on at restart
  const char* restart;
};

// Hands the bad character at `bad` to the hook, or returns `err`.
Offer offer(const InputField& f, const BadCharacterHook& hook, const char* bad, int err) {
  if (!hook.handler) return {err, nullptr};
  char* at = f.begin + (bad - f.begin);
  if (int e = hook.handler(hook.context, at)) return {e, nullptr};
  if (*at == ' ' || *at == hook.separator) return {kRescanField, nullptr};
  return {0, skip_blanks(f.begin, f.end)};
}

// The digit value of `c` in I editing, or -1: letters count 10..35 in
// radices other than ten.
inline int digit_value(char c, int radix) {
  if (c >= '0' && c <= '9') return c - '0';
  if (radix == 10) return -1;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  return -1;
}

// The number of a character that I cannot take, `d` its digit value:
// a digit of too high a value, a letter as a digit in radices up to ten,
// or anything else (`other`).
inline int bad_digit(char c, int d, int radix, int other) {
  if (d < 0) return other;
  if (c >= '0' && c <= '9') return ERR_DIGIT_BEYOND_RADIX;
  return radix > 10 ? ERR_DIGIT_BEYOND_RADIX : ERR_BAD_INTEGER_CHARACTER;
}

// The accumulator of I and its overflow tests by item type: 1- and 2-byte
// items test the value after each digit, 4- and 8-byte items before it,
// against the radix's multiplicand.
template <class T>
struct IntegerRules {
  static constexpr bool kSigned = std::is_signed_v<T>;
  static constexpr bool kSmall = sizeof(T) < 4;
  using Acc = std::conditional_t<(sizeof(T) == 8), uint64_t, uint32_t>;
  // Small items: the most a digit may leave; the sign's extra 1 is taken
  // by the final test.
  static constexpr Acc kAfter = kSigned ? Acc{1} << (8 * sizeof(T) - 1)
                                        : static_cast<Acc>((uint64_t{1} << (8 * sizeof(T))) - 1);
  static Acc before_limit(int radix) {
    if constexpr (kSmall)
      return 0;
    else if constexpr (sizeof(T) == 4 && kSigned)
      return radix == 10 ? 214748364u : static_cast<Acc>(__f95_max_multiplicand_4[radix]);
    else if constexpr (sizeof(T) == 8 && kSigned)
      return radix == 10 ? 922337203685477580u : static_cast<Acc>(__f95_max_multiplicand_8[radix]);
    else if constexpr (sizeof(T) == 4)
      return radix == 10 ? 429496729u : __f95_max_multiplicand_u4[radix];
    else
      return radix == 10 ? 1844674407370955161u : __f95_max_multiplicand_u8[radix];
  }
  static constexpr int kOverflow =
      kSigned ? ERR_INTEGER_OVERFLOW_INPUT : ERR_UNSIGNED_OVERFLOW_INPUT;
  static constexpr int kBad = kSigned ? ERR_BAD_INTEGER_CHARACTER : ERR_BAD_UNSIGNED_CHARACTER;
};

// Adds one digit to `v` under the rules of T; sets `overflow`, which stays.
template <class T>
inline void add_digit(typename IntegerRules<T>::Acc& v, unsigned d, unsigned radix,
                      typename IntegerRules<T>::Acc before, bool& overflow) {
  using R = IntegerRules<T>;
  if constexpr (R::kSmall) {
    v = v * radix + d;
    if (v > R::kAfter) overflow = true;
  } else {
    if (v > before) overflow = true;
    // Unguarded, as the test looked only at the value before the digit.
    v = v * radix + d;
  }
}

}  // namespace

int rd_aw(const InputField& f, int32_t w, char* item, int64_t length) {
  if (length <= 0) return 0;
  const char* from = f.begin;
  if (length < w) from = f.begin + (w - length);  // the rightmost `length` of the w
  const int64_t n = from < f.end ? f.end - from : 0;
  const int64_t copied = n < length ? n : length;
  memcpy(item, from, static_cast<size_t>(copied));
  if (!f.past_end_nopad) memset(item + copied, ' ', static_cast<size_t>(length - copied));
  return 0;
}

template <class T>
int rd_iw(const InputField& f, const InputModes& m, const BadCharacterHook& hook, T* item) {
  using R = IntegerRules<T>;
  using Acc = typename R::Acc;
  const unsigned radix = static_cast<unsigned>(m.radix);
  const Acc before = R::before_limit(m.radix);
  const char* p = skip_blanks(f.begin, f.end);
start:
  Acc v = 0;
  bool negative = false, overflow = false;
  if (p < f.end && (*p == '+' || *p == '-')) {
    if (*p == '-' && !R::kSigned) {
      const Offer o = offer(f, hook, p, R::kBad);
      if (o.err) return o.err;
      p = o.restart;
      goto start;
    }
    negative = *p == '-';
    ++p;
  }
  if (skip_blanks(p, f.end) == f.end) {
    // Blank, or a sign alone: zero, unless the field reached past the
    // record's end under PAD='NO'.
    if (!f.past_end_nopad) *item = 0;
    return 0;
  }
  if (radix == 10 && !m.blank_zero) {
    // The usual case: decimal digits, blanks skipped.
    for (; p < f.end; ++p) {
      const unsigned d = static_cast<unsigned char>(*p) - '0';
      if (d < 10) {
        add_digit<T>(v, d, 10, before, overflow);
      } else if (*p != ' ') {
        const Offer o = offer(f, hook, p, R::kBad);
        if (o.err) return o.err;
        p = o.restart;
        goto start;
      }
    }
  } else {
    for (; p < f.end; ++p) {
      int d;
      if (*p == ' ') {
        if (!m.blank_zero) continue;
        d = 0;
      } else {
        d = digit_value(*p, m.radix);
      }
      if (d < 0 || d >= m.radix) {
        const Offer o = offer(f, hook, p, bad_digit(*p, d, m.radix, R::kBad));
        if (o.err) return o.err;
        p = o.restart;
        goto start;
      }
      add_digit<T>(v, static_cast<unsigned>(d), radix, before, overflow);
    }
    // Positions past the record's end are trailing blanks: zeros under BZ.
    if (m.blank_zero)
      for (int64_t k = 0; k < f.shortfall; ++k) add_digit<T>(v, 0, radix, before, overflow);
  }
  if constexpr (R::kSigned) {
    using U = std::make_unsigned_t<T>;
    const Acc most = static_cast<Acc>(static_cast<U>(~U{0}) >> 1);
    if (v > most + (negative ? 1 : 0)) overflow = true;
    if (overflow) return R::kOverflow;
    *item = static_cast<T>(negative ? Acc{0} - v : v);
  } else {
    if (overflow) return R::kOverflow;
    *item = static_cast<T>(v);
  }
  return 0;
}

template int rd_iw<int8_t>(const InputField&, const InputModes&, const BadCharacterHook&, int8_t*);
template int rd_iw<int16_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                            int16_t*);
template int rd_iw<int32_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                            int32_t*);
template int rd_iw<int64_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                            int64_t*);
template int rd_iw<uint8_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                            uint8_t*);
template int rd_iw<uint16_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                             uint16_t*);
template int rd_iw<uint32_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                             uint32_t*);
template int rd_iw<uint64_t>(const InputField&, const InputModes&, const BadCharacterHook&,
                             uint64_t*);

namespace {

void reverse_bytes(unsigned char* item, int64_t length) {
  for (int64_t i = 0, j = length - 1; i < j; ++i, --j) {
    const unsigned char t = item[i];
    item[i] = item[j];
    item[j] = t;
  }
}

// I of an item of any length taken as one number, most significant byte
// first; `in_memory_order` reverses it at the end.
int iw_any_length(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
                  unsigned char* item, int64_t length, bool in_memory_order) {
  const unsigned radix = static_cast<unsigned>(m.radix);
  const char* p = skip_blanks(f.begin, f.end);
start:
  memset(item, 0, static_cast<size_t>(length));
  bool negative = false, overflow = false;
  if (p < f.end && (*p == '+' || *p == '-')) negative = *p++ == '-';
  while (p < f.end && (*p == ' ' || *p == '0')) ++p;
  if (p == f.end) return 0;
  // The number's bytes run from item[top] to item[length - 1].
  int64_t top = length;
  auto times_plus = [&](unsigned d) {
    unsigned carry = d;
    int64_t i = length - 1;
    for (; i >= top; --i) {
      const unsigned x = item[i] * radix + carry;
      item[i] = static_cast<unsigned char>(x);
      carry = x >> 8;
    }
    while (carry) {
      if (i < 0) {
        overflow = true;
        break;
      }
      item[i--] = static_cast<unsigned char>(carry);
      carry >>= 8;
      top = i + 1;
    }
  };
  for (; p < f.end; ++p) {
    int d;
    if (*p == ' ') {
      if (!m.blank_zero) continue;
      d = 0;
    } else {
      d = digit_value(*p, m.radix);
    }
    if (d < 0 || d >= m.radix) {
      const Offer o = offer(f, hook, p, bad_digit(*p, d, m.radix, ERR_BAD_INTEGER_CHARACTER));
      if (o.err) return o.err;
      p = o.restart;
      goto start;
    }
    times_plus(static_cast<unsigned>(d));
  }
  if (m.blank_zero)
    for (int64_t k = 0; k < f.shortfall; ++k) times_plus(0);
  if (negative) {
    // Two's complement of the whole item.
    unsigned carry = 1;
    for (int64_t i = length - 1; i >= 0; --i) {
      const unsigned x = static_cast<unsigned char>(~item[i]) + carry;
      item[i] = static_cast<unsigned char>(x);
      carry = x >> 8;
    }
  }
  if (length > 0 && ((item[0] & 0x80) != 0) != negative) overflow = true;
  if (overflow) return ERR_INTEGER_OVERFLOW_INPUT;
  if (in_memory_order) reverse_bytes(item, length);
  return 0;
}

// B, O and Z: 1, 3 or 4 bits a digit, no sign; the number is built from the
// last digit back, most significant byte first in the item.
int boz(const InputField& f, const InputModes& m, const BadCharacterHook& hook, unsigned char* item,
        int64_t length, int bits, bool in_memory_order) {
  const int radix = 1 << bits;
  // The old dialect lets O and Z drop what does not fit; B never.
  const bool drop_excess = m.f77 && bits != 1;
  const char* p = f.begin;
start:
  while (p < f.end && (*p == ' ' || *p == '0')) ++p;
  if (p == f.end) {
    if (!f.past_end_nopad) memset(item, 0, static_cast<size_t>(length));
    return 0;
  }
  for (const char* c = p; c < f.end; ++c) {
    if (*c == ' ') continue;
    const int d = bits == 4 ? digit_value(*c, 16) : (*c >= '0' && *c <= '9' ? *c - '0' : -1);
    if (d >= 0 && d < radix) continue;
    const bool decimal = *c >= '0' && *c <= '9';
    const int err = bits != 4 && decimal ? ERR_DIGIT_BEYOND_RADIX : ERR_BAD_INTEGER_CHARACTER;
    const Offer o = offer(f, hook, c, err);
    if (o.err) return o.err;
    p = o.restart;
    goto start;
  }
  int64_t at = length - 1;  // the byte being filled
  unsigned acc = 0;
  int filled = 0;  // bits in acc
  bool overflow = false;
  auto push = [&](unsigned d) {
    acc |= d << filled;
    filled += bits;
    while (filled >= 8) {
      if (at >= 0)
        item[at--] = static_cast<unsigned char>(acc);
      else if (!drop_excess)
        overflow = true;
      acc >>= 8;
      filled -= 8;
    }
  };
  if (m.blank_zero)
    for (int64_t k = 0; k < f.shortfall; ++k) push(0);
  for (const char* c = f.end; c-- > p;) {
    if (*c == ' ') {
      if (m.blank_zero) push(0);
      continue;
    }
    push(static_cast<unsigned>(bits == 4 ? digit_value(*c, 16) : *c - '0'));
  }
  if (filled > 0 && acc != 0) {
    if (at >= 0)
      item[at--] = static_cast<unsigned char>(acc);
    else if (!drop_excess)
      overflow = true;
  } else if (filled > 0 && at >= 0) {
    item[at--] = 0;
  }
  if (overflow) return ERR_INTEGER_OVERFLOW_INPUT;
  if (at >= 0) memset(item, 0, static_cast<size_t>(at + 1));
  if (in_memory_order) reverse_bytes(item, length);
  return 0;
}

}  // namespace

int rd_iw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length) {
  return iw_any_length(f, m, hook, item, length, true);
}
int rd_iw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length) {
  return iw_any_length(f, m, hook, item, length, false);
}
int rd_bw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 1, true);
}
int rd_bw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 1, false);
}
int rd_ow_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 3, true);
}
int rd_ow_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 3, false);
}
int rd_zw_n(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
            unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 4, true);
}
int rd_zw_ch(const InputField& f, const InputModes& m, const BadCharacterHook& hook,
             unsigned char* item, int64_t length) {
  return boz(f, m, hook, item, length, 4, false);
}

template <class T>
int rd_logical(const InputField& f, const BadCharacterHook& hook, T* item) {
  const char* p = skip_blanks(f.begin, f.end);
start:
  if (p == f.end) {
    if (!f.past_end_nopad) *item = 0;
    return 0;
  }
  if (*p == '.') {
    p = skip_blanks(p + 1, f.end);
    if (p == f.end) {
      *item = 0;
      return 0;
    }
  }
  // What follows the letter is not looked at: TRUE, .FALSE. and Txyz alike.
  if (*p == 'T' || *p == 't' || *p == 'F' || *p == 'f') {
    *item = (*p == 'T' || *p == 't') ? 1 : 0;
    return 0;
  }
  const Offer o = offer(f, hook, p, ERR_BAD_LOGICAL_CHARACTER);
  if (o.err) return o.err;
  p = o.restart;
  goto start;
}

template int rd_logical<int8_t>(const InputField&, const BadCharacterHook&, int8_t*);
template int rd_logical<int16_t>(const InputField&, const BadCharacterHook&, int16_t*);
template int rd_logical<int32_t>(const InputField&, const BadCharacterHook&, int32_t*);
template int rd_logical<int64_t>(const InputField&, const BadCharacterHook&, int64_t*);

namespace {

inline bool letter_is(char c, char upper) { return (c & ~0x20) == upper; }

// Scans a real field; the hook and the start over are its caller's.
class RealScanner {
 public:
  RealScanner(const InputField& f, const InputModes& m, int32_t d, DecimalRecord* rec)
      : f_(f), m_(m), d_(d), rec_(rec) {}

  // 0 with the record filled, or the bad character in *bad and its number.
  int scan(const char* p, const char** bad) {
    DecimalRecord& r = *rec_;
    r.fp_class = FPC_NORMAL;
    r.sign = 0;
    r.exponent = 0;
    r.ndigits = 0;
    r.more = 0;
    r.digits[0] = '\0';
    if (p < f_.end && (*p == '+' || *p == '-')) r.sign = *p++ == '-';
    if (p < f_.end && (letter_is(*p, 'I') || letter_is(*p, 'N'))) return special(p, bad);
    while (p < f_.end && (*p == ' ' || *p == '0')) ++p;
    uint32_t frac = 0;  // wraps, as the exponent arithmetic does
    bool point = false;
    // The integer part: digits beyond the capacity are dropped and the
    // exponent does not follow them.
    for (; p < f_.end; ++p) {
      if (*p >= '0' && *p <= '9') {
        store(*p, true);
      } else if (*p == ' ') {
        if (m_.blank_zero && r.ndigits > 0) store('0', true);
      } else {
        break;
      }
    }
    if (p < f_.end && *p == m_.decimal) {
      point = true;
      for (++p; p < f_.end; ++p) {
        char c = *p;
        if (c == ' ') {
          if (!m_.blank_zero) continue;
          c = '0';
        } else if (c < '0' || c > '9') {
          break;
        }
        if (r.ndigits == 0 && c == '0') {
          --frac;  // zeros ahead of the first significant digit
        } else if (r.ndigits < kCapacity) {
          r.digits[r.ndigits++] = c;
          --frac;
        } else if (c != '0') {
          r.more = 1;
        }
      }
    }
    r.digits[r.ndigits] = '\0';
    if (r.ndigits == 0 && point) frac = 0;
    if (p == f_.end) {
      if (point) {
        r.exponent = static_cast<int32_t>(frac - static_cast<uint32_t>(m_.scale_factor));
      } else {
        const int64_t trailing = m_.blank_zero && r.ndigits > 0 ? f_.shortfall : 0;
        r.exponent = static_cast<int32_t>(static_cast<uint32_t>(trailing) -
                                          static_cast<uint32_t>(m_.scale_factor) -
                                          static_cast<uint32_t>(d_));
      }
      return 0;
    }
    if (!point) frac = static_cast<uint32_t>(-d_);
    const bool letter = letter_is(*p, 'E') || letter_is(*p, 'D') || letter_is(*p, 'Q');
    if (!letter && *p != '+' && *p != '-') {
      *bad = p;
      return ERR_BAD_REAL_CHARACTER;
    }
    if (letter) {
      p = skip_blanks(p + 1, f_.end);
      // A letter with nothing behind it leaves the exponent as it began.
      if (p == f_.end) return 0;
    }
    const bool minus = *p == '-';
    if (*p == '+' || *p == '-') ++p;
    uint32_t value = 0;
    for (; p < f_.end; ++p) {
      if (*p >= '0' && *p <= '9') {
        value = value * 10 + static_cast<uint32_t>(*p - '0');
      } else if (*p == ' ') {
        if (m_.blank_zero) value *= 10;
      } else {
        *bad = p;
        return ERR_BAD_REAL_CHARACTER;
      }
    }
    if (m_.blank_zero)
      for (int64_t k = 0; k < f_.shortfall; ++k) value *= 10;
    uint32_t e = minus ? frac - value : frac + value;
    // Without a letter and without a point the scale factor is added.
    if (!letter && !point) e += static_cast<uint32_t>(m_.scale_factor);
    r.exponent = static_cast<int32_t>(e);
    return 0;
  }

 private:
  static constexpr int kCapacity = DECIMAL_RECORD_DIGITS - 1;

  void store(char c, bool integer_part) {
    DecimalRecord& r = *rec_;
    if (r.ndigits < kCapacity)
      r.digits[r.ndigits++] = c;
    else if (integer_part || c != '0')
      r.more = 1;
  }

  // Infinity and NaN: the word, then whatever the field holds behind it,
  // which the caller looks at only with a hook.
  int special(const char* p, const char** bad) {
    DecimalRecord& r = *rec_;
    const bool inf = letter_is(*p, 'I');
    const char* word = inf ? "INF" : "NAN";
    if (f_.end - p < 3) {
      *bad = p;
      return ERR_BAD_REAL_CHARACTER;
    }
    for (int k = 1; k < 3; ++k)
      if (!letter_is(p[k], word[k])) {
        *bad = p + k;
        return ERR_BAD_REAL_CHARACTER;
      }
    p += 3;
    if (inf && p < f_.end && *p != ' ') {
      if (f_.end - p < 5) {
        *bad = p;
        return ERR_BAD_REAL_CHARACTER;
      }
      for (int k = 0; k < 5; ++k)
        if (!letter_is(p[k], "INITY"[k])) {
          *bad = p + k;
          return ERR_BAD_REAL_CHARACTER;
        }
      p += 5;
    }
    r.fp_class = inf ? FPC_INFINITY : FPC_QUIET_NAN;
    tail_ = p;
    return 0;
  }

 public:
  const char* tail_ = nullptr;  // behind an Infinity or NaN word

 private:
  const InputField& f_;
  const InputModes& m_;
  int32_t d_;
  DecimalRecord* rec_;
};

}  // namespace

int rd_decimal_record(const InputField& f, const InputModes& m, int32_t d,
                      const BadCharacterHook& hook, DecimalRecord* rec) {
  const char* p = skip_blanks(f.begin, f.end);
  for (;;) {
    if (p == f.end) {
      rec->fp_class = FPC_NORMAL;
      rec->sign = 0;
      rec->exponent = 0;
      rec->more = 0;
      rec->digits[0] = '\0';
      rec->ndigits = f.past_end_nopad ? -1 : 0;
      return 0;
    }
    RealScanner scanner(f, m, d, rec);
    const char* bad = nullptr;
    int err = scanner.scan(p, &bad);
    // Behind an Infinity or NaN only a hook looks, and only past blanks.
    if (!err && scanner.tail_ && hook.handler) {
      const char* t = skip_blanks(scanner.tail_, f.end);
      if (t < f.end) {
        bad = t;
        err = ERR_BAD_REAL_CHARACTER;
      }
    }
    if (!err) return 0;
    const Offer o = offer(f, hook, bad, err);
    if (o.err) return o.err;
    p = o.restart;
  }
}

}  // namespace qal
