// Real field layout.  A field is reserved at its full width first and then
// written left to right through a cursor; digits past the end of the digit
// string read as zeros.
#include "formatted/real_edit.h"

#include <string.h>

#include "qal/errors.h"

namespace qal {

namespace {

// Longest digit string a front end asks for, with room for a carry.
constexpr int32_t kMaxDigits = 512;

// Short copies and fills stay out of the library calls: two overlapping
// word moves cover any length from 8 to 16, which is what fields mostly are.
inline void copy_bytes(char* to, const char* from, size_t n) {
  if (n > 16) {
    memcpy(to, from, n);
  } else if (n >= 8) {
    uint64_t head, tail;
    memcpy(&head, from, 8);
    memcpy(&tail, from + n - 8, 8);
    memcpy(to, &head, 8);
    memcpy(to + n - 8, &tail, 8);
  } else {
    for (size_t i = 0; i < n; ++i) to[i] = from[i];
  }
}

inline void fill_bytes(char* to, char c, size_t n) {
  if (n > 16) {
    memset(to, c, n);
  } else if (n >= 8) {
    const uint64_t word = 0x0101010101010101ULL * static_cast<unsigned char>(c);
    memcpy(to, &word, 8);
    memcpy(to + n - 8, &word, 8);
  } else {
    for (size_t i = 0; i < n; ++i) to[i] = c;
  }
}

struct Cursor {
  char* at;
  const char* digits;  // the next digit to take
  const char* end;     // behind the last digit

  void put(char c) { *at++ = c; }
  void fill(char c, int64_t n) {
    if (n <= 0) return;
    fill_bytes(at, c, static_cast<size_t>(n));
    at += n;
  }
  __attribute__((always_inline)) void take(int64_t n) {
    if (n <= 0) return;
    const int64_t left = end - digits;
    const int64_t have = n < left ? n : left > 0 ? left : 0;
    copy_bytes(at, digits, static_cast<size_t>(have));
    digits += have;
    fill_bytes(at + have, '0', static_cast<size_t>(n - have));
    at += n;
  }
  void text(const char* s, int64_t n) {
    copy_bytes(at, s, static_cast<size_t>(n));
    at += n;
  }
};

// The cursor of a field that holds no digits of the value.
constexpr char kNoDigits[] = "";

const char* end_of(const DecimalDigits& v) {
  return v.digits + (v.count >= 0 ? v.count : static_cast<int32_t>(strlen(v.digits)));
}

// Reserves the whole field; null with *err set on failure.
char* reserve(FieldWriter& f, int64_t w, int* err) {
  *err = 0;
  return f.allocate_field(f.record, w, err);
}

int asterisks(FieldWriter& f, int64_t w) {
  int err;
  char* p = reserve(f, w, &err);
  if (!p) return err;
  memset(p, '*', static_cast<size_t>(w));
  return 0;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

DecimalDigits without_leading_zeros(const DecimalDigits& v) {
  DecimalDigits r = v;
  while (*r.digits == '0') {
    ++r.digits;
    --r.p;
    if (r.count > 0) --r.count;
  }
  return r;
}

bool shows_sign(const FieldWriter& f, bool negative) {
  return negative || f.sign_mode == SIGN_PLUS;
}

int32_t count_digits(uint32_t m) {
  int32_t n = 1;
  for (; m >= 10; m /= 10) ++n;
  return n;
}

// The exponent part of E, D, EN and ES.  Without a width: letter, sign and
// two digits, or from 100 up the sign and all digits with no letter.  With
// width e: letter, sign and exactly e digits, or no fit.
struct Exponent {
  char text[16];
  int32_t width = 0;
  bool fits = true;
};

Exponent exponent_text(const FieldWriter& f, int32_t x, int32_t e, char letter) {
  Exponent r;
  const char sign = x < 0 ? '-' : '+';
  const uint32_t m = x < 0 ? 0u - static_cast<uint32_t>(x) : static_cast<uint32_t>(x);
  const int32_t n = count_digits(m);
  int32_t at = 0;
  int32_t places;
  if (e == kNoExponentWidth) {
    if (m >= 100) {
      places = n;
    } else {
      r.text[at++] = letter;
      places = 2;
    }
  } else {
    if (n > e || (e == 0 && f.f77)) {
      r.fits = false;
      return r;
    }
    r.text[at++] = letter;
    places = e;
  }
  if (places > 12) {  // no exponent has that many digits: zeros lead
    r.fits = false;
    return r;
  }
  r.text[at++] = sign;
  uint32_t v = m;
  for (int32_t i = places - 1; i >= 0; --i) {
    r.text[at + i] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
  r.width = at + places;
  return r;
}

// E and D with the exponent p - k.
int e_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter,
             const DecimalDigits& value) {
  const DecimalDigits v = without_leading_zeros(value);
  const int32_t k = f.scale_factor;
  const Exponent x = exponent_text(f, v.p - k, e, letter);
  const int32_t s = shows_sign(f, v.negative) ? 1 : 0;
  if (!x.fits) return asterisks(f, w);
  const int64_t needed = int64_t{s} + d + x.width + (k > 0 ? 2 : 1);
  if (needed > w) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, w, &err), v.digits, end_of(v)};
  if (!c.at) return err;
  const bool zero = k <= 0 && w > needed;  // the optional leading zero
  c.fill(' ', w - needed - (zero ? 1 : 0));
  if (s) c.put(v.negative ? '-' : '+');
  if (k > 0) {
    c.take(k);
    c.put(f.separator);
    c.take(int64_t{d} + 1 - k);
  } else {
    if (zero) c.put('0');
    c.put(f.separator);
    c.fill('0', -int64_t{k});
    c.take(int64_t{d} + k);
  }
  c.text(x.text, x.width);
  return 0;
}

int es_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& value) {
  const DecimalDigits v = without_leading_zeros(value);
  if (!is_digit(*v.digits)) return asterisks(f, w);
  const Exponent x = exponent_text(f, v.p - 1, e, 'E');
  const int32_t s = shows_sign(f, v.negative) ? 1 : 0;
  const int64_t needed = int64_t{s} + d + x.width + 2;
  if (!x.fits || needed > w) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, w, &err), v.digits, end_of(v)};
  if (!c.at) return err;
  c.fill(' ', w - needed);
  if (s) c.put(v.negative ? '-' : '+');
  c.take(1);
  c.put(f.separator);
  c.take(d);
  c.text(x.text, x.width);
  return 0;
}

// The second rounding of EN, on the first digit cut away.
bool en_rounds_up(const FieldWriter& f, char cut, bool negative) {
  const bool nearest =
      f.round == ROUND_NEAREST || f.round == ROUND_COMPATIBLE || f.round == ROUND_PROCESSOR_DEFINED;
  if (nearest) return cut >= '5' && cut <= '9';
  const bool away = (f.round == ROUND_UP && !negative) || (f.round == ROUND_DOWN && negative);
  return away && cut >= '1' && cut <= '9';
}

int en_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& value) {
  const DecimalDigits v = without_leading_zeros(value);
  if (!is_digit(*v.digits)) return asterisks(f, w);
  int32_t exponent = v.p > 0 ? 3 * ((v.p - 1) / 3) : 3 * (v.p / 3) - 3;
  int32_t ahead = v.p - exponent;
  // Keep ahead + d digits, rounding on the next one.
  const int64_t keep = int64_t{ahead} + d;
  if (keep >= kMaxDigits) return asterisks(f, w);
  char kept[kMaxDigits + 1];
  const char* src = v.digits;
  for (int64_t i = 0; i < keep; ++i) kept[i] = *src ? *src++ : '0';
  kept[keep] = '\0';
  if (en_rounds_up(f, *src, v.negative)) {
    int64_t i = keep - 1;
    for (; i >= 0 && kept[i] == '9'; --i) kept[i] = '0';
    if (i >= 0) {
      kept[i]++;
    } else {
      // All nines: 10...0, one more digit ahead of the point.
      kept[0] = '1';
      if (++ahead == 4) {
        ahead = 1;
        exponent += 3;
      }
    }
  }
  const Exponent x = exponent_text(f, exponent, e, 'E');
  const int32_t s = shows_sign(f, v.negative) ? 1 : 0;
  const int64_t needed = int64_t{s} + ahead + 1 + d + x.width;
  if (!x.fits || needed > w) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, w, &err), kept, kept + keep};
  if (!c.at) return err;
  c.fill(' ', w - needed);
  if (s) c.put(v.negative ? '-' : '+');
  c.take(ahead);
  c.put(f.separator);
  c.take(d);
  c.text(x.text, x.width);
  return 0;
}

}  // namespace

int check_scale_factor(const FieldWriter& f, int32_t w, int32_t& d) {
  const int32_t k = f.scale_factor;
  const bool ok = k > 0 ? k < int64_t{d} + 2 : k > -int64_t{d};
  if (ok) return 0;
  if (!f.f77) return ERR_BAD_SCALE_FACTOR;
  d = w;
  return 0;
}

int wrt_ewd_normal(FieldWriter& f, int32_t w, int32_t d, char letter, const DecimalDigits& v) {
  return e_normal(f, w, d, kNoExponentWidth, letter, v);
}
int wrt_ewde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter,
                    const DecimalDigits& v) {
  return e_normal(f, w, d, e, letter, v);
}
int wrt_eswd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& v) {
  return es_normal(f, w, d, kNoExponentWidth, v);
}
int wrt_eswde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& v) {
  return es_normal(f, w, d, e, v);
}
int wrt_enwd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& v) {
  return en_normal(f, w, d, kNoExponentWidth, v);
}
int wrt_enwde_normal(FieldWriter& f, int32_t w, int32_t d, int32_t e, const DecimalDigits& v) {
  return en_normal(f, w, d, e, v);
}

int wrt_fwd_normal(FieldWriter& f, int32_t w, int32_t d, const DecimalDigits& value) {
  const DecimalDigits v = without_leading_zeros(value);
  if (*v.digits == '\0') return wrt_fwd_zero(f, w, d, v.negative);
  const int32_t s = shows_sign(f, v.negative) ? 1 : 0;
  const int64_t p = f.g_editing ? v.p : int64_t{v.p} + f.scale_factor;
  const int64_t needed = p > 0 ? s + p + 1 + d : int64_t{s} + d + 1;
  // w = 0 is the narrowest field that holds the value; it always has the
  // zero ahead of a point that no digit precedes.
  const bool minimal = w == 0;
  const bool zero = p <= 0 && (minimal || w > needed);
  const int64_t width = minimal ? needed + (zero ? 1 : 0) : w;
  if (needed > width) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, width, &err), v.digits, end_of(v)};
  if (!c.at) return err;
  c.fill(' ', width - needed - (zero ? 1 : 0));
  if (s) c.put(v.negative ? '-' : '+');
  if (p > 0) {
    c.take(p);
    c.put(f.separator);
    c.take(d);
  } else {
    if (zero) c.put('0');
    c.put(f.separator);
    const int64_t zeros = -p < d ? -p : d;
    c.fill('0', zeros);
    c.take(d - zeros);
  }
  return 0;
}

int wrt_fwd_zero(FieldWriter& f, int32_t w, int32_t d, bool negative) {
  // The old dialect never shows a minus on a zero; only SP gives a sign.
  const bool minus = negative && !f.f77;
  const int32_t s = (minus || f.sign_mode == SIGN_PLUS) ? 1 : 0;
  const char sign = minus ? '-' : '+';
  const int64_t needed = d == 0 ? s + 2 : int64_t{s} + 1 + d;
  const bool zero = d == 0 || w == 0 || w > needed;
  const int64_t width = w == 0 ? needed + (d == 0 ? 0 : 1) : w;
  if (needed > width) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, width, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  c.fill(' ', width - needed - (zero && d != 0 ? 1 : 0));
  if (s) c.put(sign);
  if (zero) c.put('0');
  c.put(f.separator);
  c.fill('0', d);
  return 0;
}

int wrt_ewde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter) {
  if (w == 0) {
    if (!f.f77) return ERR_ZERO_FIELD_WIDTH;
    int err;
    Cursor c{reserve(f, int64_t{e} + 2, &err), kNoDigits, kNoDigits};
    if (!c.at) return err;
    c.put(letter);
    c.put('+');
    c.fill('0', e);
    return 0;
  }
  if (int err = check_scale_factor(f, w, d)) return err;
  const int32_t k = f.scale_factor;
  const int32_t s = f.sign_mode == SIGN_PLUS ? 1 : 0;
  const int64_t needed = int64_t{s} + d + e + (k > 0 ? 4 : 3);
  if (needed > w) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, w, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  const bool zero = k <= 0 && w > needed;
  c.fill(' ', w - needed - (zero ? 1 : 0));
  if (s) c.put('+');
  if (k > 0) {
    c.fill('0', k);
    c.put(f.separator);
    c.fill('0', int64_t{d} - k + 1);
  } else {
    if (zero) c.put('0');
    c.put(f.separator);
    c.fill('0', d);
  }
  c.put(letter);
  c.put('+');
  c.fill('0', e);
  return 0;
}

int wrt_enwde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e) {
  const int32_t s = f.sign_mode == SIGN_PLUS ? 1 : 0;
  const int32_t places = e == kNoExponentWidth ? 2 : e;
  const int64_t needed = int64_t{s} + d + places + 4;
  if (needed > w) return asterisks(f, w);
  int err;
  Cursor c{reserve(f, w, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  c.fill(' ', w - needed);
  if (s) c.put('+');
  c.put('0');
  c.put(f.separator);
  c.fill('0', d);
  c.put('E');
  c.put('+');
  c.fill('0', places);
  return 0;
}

int wrt_gwde_zero(FieldWriter& f, int32_t w, int32_t d, int32_t e) {
  const int32_t s = f.sign_mode == SIGN_PLUS ? 1 : 0;
  int err;
  if (f.f77) {
    // The number's part of the field, ahead of the exponent's blanks.
    const int64_t width = int64_t{w} - e - 2;
    const int64_t body = width == 0 ? s + 2 : width;
    if (width != 0 && width < s + 2) return asterisks(f, w);
    Cursor c{reserve(f, body + e + 2, &err), kNoDigits, kNoDigits};
    if (!c.at) return err;
    c.fill(' ', body - s - 2);
    if (s) c.put('+');
    c.put('0');
    c.put(f.separator);
    c.fill(' ', int64_t{e} + 2);
    return 0;
  }
  if (d == 0) {
    // Zero under G with no fraction digits is in E form, one zero behind
    // the point.
    if (f.scale_factor != 1) return ERR_BAD_SCALE_FACTOR;
    return wrt_enwde_zero(f, w, 1, e);
  }
  const int64_t needed = d == 1 ? int64_t{s} + e + 4 : int64_t{s} + d + e + 2;
  if (needed > w) return asterisks(f, w);
  // With one digit the zero is always written; with more, only when the
  // field has room for it beyond what is needed.
  const bool zero = d == 1 || w > needed;
  Cursor c{reserve(f, w, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  c.fill(' ', w - needed - (d > 1 && zero ? 1 : 0));
  if (s) c.put('+');
  if (zero) c.put('0');
  c.put(f.separator);
  c.fill('0', int64_t{d} - 1);
  c.fill(' ', int64_t{e} + 2);
  return 0;
}

int wrt_flt_infinity(FieldWriter& f, int32_t w, int32_t d, bool negative) {
  const int32_t s = shows_sign(f, negative) ? 1 : 0;
  const char sign = negative ? '-' : '+';
  int err;
  if (w == 0) {
    if (f.f77) return 0;
    Cursor c{reserve(f, s + 3, &err), kNoDigits, kNoDigits};
    if (!c.at) return err;
    if (s) c.put(sign);
    c.text("Inf", 3);
    return 0;
  }
  if (w < s + 3) return asterisks(f, w);
  Cursor c{reserve(f, w, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  if (!f.f77) {
    const int32_t n = w >= s + 8 ? 8 : 3;
    c.fill(' ', w - s - n);
    if (s) c.put(sign);
    c.text("Infinity", n);
    return 0;
  }
  // Left-justified; the rest of the word only where the descriptor asked
  // for at least eight digits.
  const int32_t k = f.scale_factor;
  const int64_t places = k > 0 ? int64_t{d} + 1 : int64_t{d} + (k <= 0 && !f.g_editing ? k : 0);
  if (s) c.put(sign);
  c.text("Inf", 3);
  int64_t used = s + 3;
  if (w >= 4 && places >= 8) {
    const int64_t more = w - used < 5 ? w - used : 5;
    c.text("inity", more);
    used += more;
  }
  c.fill(' ', w - used);
  return 0;
}

int wrt_flt_nan(FieldWriter& f, int32_t w, bool negative) {
  const bool s = negative || f.sign_mode == SIGN_PLUS;
  const char sign = negative ? '-' : '+';
  const int32_t n = s ? 4 : 3;
  int err;
  if (w == 0) {
    if (f.f77) return 0;
    Cursor c{reserve(f, n, &err), kNoDigits, kNoDigits};
    if (!c.at) return err;
    if (s) c.put(sign);
    c.text("NaN", 3);
    return 0;
  }
  if (w < n || (f.f77 && !s && w == 3)) return asterisks(f, w);
  Cursor c{reserve(f, w, &err), kNoDigits, kNoDigits};
  if (!c.at) return err;
  if (!f.f77) c.fill(' ', w - n);
  if (s) c.put(sign);
  c.text("NaN", 3);
  if (f.f77) c.fill(' ', w - n);
  return 0;
}

}  // namespace qal
