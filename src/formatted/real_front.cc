// The front ends of real editing.  A value is taken apart into sign,
// biased exponent and fraction by the layout of its precision; the
// neighbours that the rounding modes ask for are found by stepping the
// magnitude as an integer, which is what the next representable value is.
#include "formatted/real_front.h"

#include <string.h>

#include <array>
#include <bit>

#include "formatted/real_edit.h"
#include "qal/convert.h"
#include "qal/errors.h"
#include "qal/format.h"
#include "util/binary_format.h"
#include "util/rounding.h"

namespace qal {

namespace {

using u128 = unsigned __int128;

// Most digits a request may ask for: significant digits of E, D, EN and
// ES, and digits behind the point of F.  Beyond them come zeros.
constexpr int32_t kMaxSignificant = 511;
constexpr int32_t kMaxFractional = 1055;

// A value of N bytes: its image as an integer and its fields.
template <int N>
struct Real {
  using L = RealFormat<N>;
  static constexpr int kFractionBits = L::kFractionBits;
  static constexpr int kMaxBiased = L::kMaxBiased;
  static constexpr int kBits = 8 * N;
  static constexpr int32_t kDefaultW = N == 4 ? 15 : N == 8 ? 25 : 42;
  static constexpr int32_t kDefaultD = N == 4 ? 7 : N == 8 ? 16 : 33;

  u128 image = 0;

  static Real load(const void* p) {
    Real r;
    memcpy(&r.image, p, N);
    return r;
  }
  typename L::Bits bits() const { return static_cast<typename L::Bits>(image); }
  bool negative() const { return L::negative(bits()); }
  u128 magnitude() const { return bits() & L::kMagnitude; }
  int biased() const { return L::biased(bits()); }
  u128 fraction() const { return L::fraction(bits()); }
  bool is_zero() const { return L::is_zero(bits()); }
  bool is_infinity() const { return L::is_infinity(bits()); }
  bool is_nan() const { return L::is_nan(bits()); }

  Real with_magnitude(u128 m, bool minus) const {
    Real r;
    r.image = m | (minus ? u128{L::kSign} : 0);
    return r;
  }
  // The next value toward plus or minus infinity (finite non-zero x).
  Real next(bool up) const {
    const bool away = up != negative();
    return with_magnitude(away ? magnitude() + 1 : magnitude() - 1, negative());
  }

  // The neighbour that COMPATIBLE rounding starts from: one unit in the
  // last place away from zero, unless the gap below is the smaller, as at
  // a positive power of two (and below the largest value, whose gap above
  // is infinite).  A negative value always moves away from zero.
  Real compatible_neighbour() const {
    if (negative()) return next(false);
    const bool power_of_two = fraction() == 0 && biased() > 1;
    const bool largest = biased() == kMaxBiased - 1 && fraction() == L::kFractionMask;
    return next(!(power_of_two || largest));
  }
  // The same for a negative value, except that the step to infinity below
  // the most negative value is not taken.
  Real compatible_neighbour_finite() const {
    const Real r = compatible_neighbour();
    return r.is_infinity() ? *this : r;
  }

  // Bit 56 of the value's leading 64 bits (of the double it widens to for
  // REAL*4): the bit the NEAREST choice of F looks at.
  bool bit56() const {
    uint64_t top;
    if constexpr (N == 4) {
      top = std::bit_cast<uint64_t>(static_cast<double>(std::bit_cast<float>(uint32_t(image))));
    } else {
      top = static_cast<uint64_t>(image >> (kBits - 64));
    }
    return (top >> 56) & 1;
  }

  void store(uint32_t words[4]) const { memcpy(words, &image, 16); }

  unsigned to_decimal(int rounding, int form, int32_t ndigits, DecimalRecord& rec) const {
    DecimalMode mode{rounding, form, ndigits};
    unsigned exceptions = 0;
    if constexpr (N == 4) {
      const float x = std::bit_cast<float>(static_cast<uint32_t>(image));
      single_to_decimal(&x, &mode, &rec, &exceptions);
    } else if constexpr (N == 8) {
      const double x = std::bit_cast<double>(static_cast<uint64_t>(image));
      double_to_decimal(&x, &mode, &rec, &exceptions);
    } else {
      uint32_t words[4];
      store(words);
      x86_quadruple_to_decimal(words, &mode, &rec, &exceptions);
    }
    return exceptions;
  }

  // The magnitude in the widest hardware precision, for G's choice.
  long double wide_magnitude() const {
    const Real positive = with_magnitude(magnitude(), false);
    if constexpr (N == 4) return std::bit_cast<float>(static_cast<uint32_t>(positive.image));
    if constexpr (N == 8) return std::bit_cast<double>(static_cast<uint64_t>(positive.image));
    uint32_t words[4], extended[3];
    positive.store(words);
    quadruple2ldouble(words, extended);
    long double x = 0;
    memcpy(&x, extended, 10);
    return x;
  }
};

// Digits of x, `ndigits` significant (floating) or behind the point
// (fixed), in `rounding`; a request too long for the record falls back to
// the most significant digits there is room for, and zeros follow.
template <int N>
DecimalDigits digits_of(const Real<N>& x, int rounding, int form, int32_t ndigits,
                        DecimalRecord& rec) {
  unsigned exceptions = x.to_decimal(rounding, form, ndigits, rec);
  if (exceptions & FPX_OVERFLOW) x.to_decimal(rounding, DECIMAL_FLOATING, kMaxSignificant, rec);
  // A neighbour below the smallest value is zero: no digits at all.
  if (rec.fp_class == FPC_ZERO) rec.ndigits = rec.exponent = 0;
  rec.digits[rec.ndigits < 0 ? 0 : rec.ndigits] = '\0';
  return {x.negative(), rec.exponent + rec.ndigits, rec.digits, rec.ndigits < 0 ? 0 : rec.ndigits};
}

// EN rounds toward zero first (or in the direction of the value's own
// side), and again when it cuts the digits.
template <int N>
int en_direction(const FieldWriter& f, Real<N>& x) {
  if (f.round == ROUND_COMPATIBLE) x = x.compatible_neighbour_finite();
  if (f.round == ROUND_UP && !x.negative()) return FPR_UP;
  if (f.round == ROUND_DOWN && x.negative()) return FPR_DOWN;
  if (f.round == ROUND_NEAREST) return FPR_NEAREST;
  return FPR_ZERO;
}

// The direction of the conversion for E, D and ES (significant digits) and
// for F (`fixed`), after COMPATIBLE, and NEAREST under F, have moved the
// value to a neighbour.  F's ZERO and NEAREST work through the fixed-form
// converters of each side, which is why they differ.
template <int N>
int direction(const FieldWriter& f, Real<N>& x, bool fixed) {
  switch (f.round) {
    case ROUND_UP:
      return FPR_UP;
    case ROUND_DOWN:
      return FPR_DOWN;
    case ROUND_ZERO:
      return !fixed ? FPR_ZERO : x.negative() ? FPR_UP : FPR_DOWN;
    case ROUND_NEAREST:
      if (!fixed) return FPR_NEAREST;
      x = x.next(true).bit56() ? x.next(false) : x.next(true);
      return rounding_direction();
    case ROUND_COMPATIBLE:
      x = x.compatible_neighbour_finite();
      return rounding_direction();
    default:
      return rounding_direction();
  }
}

// In the order of DataEdit's kinds.
enum class Form { D, E, EN, ES, F, G };

struct RealDescriptor {
  Form form;
  int32_t w, d, e;  // e is kNoExponentWidth when not given
};

// The descriptor's widths; bare forms get the precision's.
bool describe_real(const DataEdit& de, int32_t default_w, int32_t default_d, RealDescriptor& r) {
  if (de.kind < DataEdit::D || de.kind > DataEdit::G) return false;
  r.form = static_cast<Form>(de.kind - DataEdit::D);
  r.w = de.bare() ? default_w : de.w;
  r.d = de.bare() ? default_d : de.shape == 1 ? 0 : de.d;
  r.e = de.has_exponent() ? de.e : kNoExponentWidth;
  return true;
}

// 10**0 .. 10**27, exact in the x87 format.
constexpr auto kExactTens = [] {
  std::array<long double, 28> t{};
  t[0] = 1;
  for (size_t k = 1; k < t.size(); ++k) t[k] = t[k - 1] * 10;
  return t;
}();

// 10**D in the precision the G choice is made in, by repeated squaring.
template <class T>
T power_of_ten(int32_t D) {
  T result = 1, base = 10;
  for (int32_t n = D; n > 0; n >>= 1) {
    if (n & 1) result *= base;
    base *= base;
  }
  return result;
}

template <int N>
class RealEditor {
 public:
  RealEditor(FieldWriter& f, const Real<N>& x) : f_(f), x_(x) {}

  int edit(const RealDescriptor& r) {
    // An exponent width below zero comes from a format whose exponent digits
    // began with something else, as in E12.3E-5; it is refused like a
    // negative w or d before any field is laid out with it.
    if (r.w < 0 || r.d < 0 || (r.e < 0 && r.e != kNoExponentWidth)) return ERR_NEGATIVE_FIELD_WIDTH;
    if (r.form == Form::G) return g(r);
    const char letter = r.form == Form::D ? 'D' : 'E';
    const int32_t e2 = r.e == kNoExponentWidth ? 2 : r.e;
    if (x_.is_zero()) {
      switch (r.form) {
        case Form::F:
          return wrt_fwd_zero(f_, r.w, r.d, false);
        case Form::EN:
          return wrt_enwde_zero(f_, r.w, r.d, r.e);
        case Form::ES: {
          // ES ignores the scale factor, zero or not.
          const int32_t k = f_.scale_factor;
          f_.scale_factor = 0;
          const int err = wrt_ewde_zero(f_, r.w, r.d, e2, 'E');
          f_.scale_factor = k;
          return err;
        }
        default:
          return wrt_ewde_zero(f_, r.w, r.d, e2, letter);
      }
    }
    if (r.w == 0 && (r.form != Form::F || f_.f77)) return f_.f77 ? 0 : ERR_ZERO_FIELD_WIDTH;
    if (x_.is_infinity()) return wrt_flt_infinity(f_, r.w, r.d, x_.negative());
    if (x_.is_nan()) return wrt_flt_nan(f_, r.w, x_.negative());
    switch (r.form) {
      case Form::F:
        return fixed(r.w, r.d);
      case Form::EN:
        return engineering(r);
      case Form::ES:
        return scientific(r);
      default:
        return exponential(r.w, r.d, r.e, letter);
    }
  }

 private:
  int exponential(int32_t w, int32_t d, int32_t e, char letter) {
    if (int err = check_scale_factor(f_, w, d)) return err;
    const int32_t k = f_.scale_factor;
    const int32_t wanted = k > 0 ? d + 1 : d + k;
    Real<N> x = x_;
    const int rounding = direction(f_, x, false);
    const DecimalDigits v = digits_of(x, rounding, DECIMAL_FLOATING, capped(wanted), rec_);
    return e == kNoExponentWidth ? wrt_ewd_normal(f_, w, d, letter, v)
                                 : wrt_ewde_normal(f_, w, d, e, letter, v);
  }

  int scientific(const RealDescriptor& r) {
    Real<N> x = x_;
    const int rounding = direction(f_, x, false);
    const DecimalDigits v = digits_of(x, rounding, DECIMAL_FLOATING, capped(r.d + 1), rec_);
    return r.e == kNoExponentWidth ? wrt_eswd_normal(f_, r.w, r.d, v)
                                   : wrt_eswde_normal(f_, r.w, r.d, r.e, v);
  }

  int engineering(const RealDescriptor& r) {
    Real<N> x = x_;
    const int rounding = en_direction(f_, x);
    const DecimalDigits v = digits_of(x, rounding, DECIMAL_FLOATING, capped(r.d + 4), rec_);
    return r.e == kNoExponentWidth ? wrt_enwd_normal(f_, r.w, r.d, v)
                                   : wrt_enwde_normal(f_, r.w, r.d, r.e, v);
  }

  int fixed(int32_t w, int32_t d) {
    const int64_t behind = f_.g_editing ? d : int64_t{d} + f_.scale_factor;
    const int32_t n = behind > kMaxFractional ? kMaxFractional : static_cast<int32_t>(behind);
    Real<N> x = x_;
    const int rounding = direction(f_, x, true);
    DecimalDigits v = digits_of(x, rounding, DECIMAL_FIXED, n, rec_);
    // The value may round up to one more digit ahead of the point than G
    // planned for: one digit fewer behind it keeps the width.
    if (f_.g_editing && v.p > f_.scale_factor && d > 0) --d;
    return wrt_fwd_normal(f_, w, d, v);
  }

  static int32_t capped(int64_t n) {
    return n > kMaxSignificant ? kMaxSignificant : static_cast<int32_t>(n);
  }

  // G chooses F editing for values whose magnitude lies between 0.1 and
  // 10**d, each bound moved by the rounding term of the mode.
  int g(const RealDescriptor& r) {
    if (r.w == 0) return f_.f77 ? 0 : ERR_ZERO_FIELD_WIDTH;
    const int32_t e = r.e == kNoExponentWidth ? 2 : r.e;
    if (x_.is_zero()) return wrt_gwde_zero(f_, r.w, r.d, e);
    if (x_.is_infinity()) return wrt_flt_infinity(f_, r.w, r.d, x_.negative());
    if (x_.is_nan()) return wrt_flt_nan(f_, r.w, x_.negative());
    // The magnitude in the widest hardware precision, for the choice and
    // the count of integer digits (for REAL*16 a conversion of its own).
    const long double m = x_.wide_magnitude();
    if (!chooses_fixed(r.d, m)) return exponential(r.w, r.d, r.e, 'E');
    const int32_t n = m < 1.0L ? 0 : digits_ahead_of_point(m);
    const int32_t field = r.w - (e + 2);
    if (field <= 0 || r.d - n < 0) return fill_field(r.w, '*');
    const int32_t k = f_.scale_factor;
    f_.scale_factor = n;
    f_.g_editing = true;
    LastField last(f_);
    int err = fixed(field, r.d - n);
    last.restore(f_);
    f_.g_editing = false;
    f_.scale_factor = k;
    if (err) return err;
    return fill_field(e + 2, last.ends_in_asterisk() ? '*' : ' ');
  }

  // The digits of the integer part, floor(log10 N) + 1, exactly.  Powers
  // of ten to 10**27 are exact in the x87 format, and the magnitude in it
  // is exact or (for REAL*16) cut toward zero, so comparing with them
  // decides; beyond, the point's place after one digit cut toward zero.
  int32_t digits_ahead_of_point(long double m) {
    if (m < 1e27L) {
      // m lies in [2**b, 2**(b+1)), whose decimal logarithm spans less
      // than one: floor(b log10 2) or one more.
      u128 image = 0;
      memcpy(&image, &m, X87Extended::kBytes);
      const int32_t b = X87Extended::biased(image) - X87Extended::kBias;
      int32_t n = (b * 1233) >> 12;
      n += m >= kExactTens[n + 1];
      return n + 1;
    }
    x_.to_decimal(FPR_ZERO, DECIMAL_FLOATING, 1, rec_);
    return rec_.exponent + rec_.ndigits;
  }

  bool chooses_fixed(int32_t d, long double N_) const {
    long double rterm;
    switch (f_.round) {
      case ROUND_UP:
        rterm = 1.0L;
        break;
      case ROUND_DOWN:
        rterm = 0.0L;
        break;
      case ROUND_ZERO:
        rterm = x_.negative() ? 0.0L : 1.0L;
        break;
      case ROUND_NEAREST:
        rterm = x_.next(true).bit56() ? 0.5L : -0.5L;
        break;
      default:
        rterm = 0.5L;
    }
    const int32_t D = d > 509 ? 509 : d;
    if (D <= 37) return in_fixed_range<float>(N_, rterm, D);
    if (D <= 307) return in_fixed_range<double>(N_, rterm, D);
    return in_fixed_range<long double>(N_, rterm, D);
  }

  template <class T>
  static bool in_fixed_range(long double magnitude, long double rterm, int32_t D) {
    const T P = power_of_ten<T>(D);
    const T N_ = static_cast<T>(magnitude);
    const T r = static_cast<T>(rterm);
    return static_cast<T>(static_cast<T>(0.1) - r / (10 * P)) <= N_ && N_ < static_cast<T>(P - r);
  }

  int fill_field(int32_t w, char c) {
    int err = 0;
    char* p = f_.allocate_field(f_.record, w, &err);
    if (!p) return err;
    memset(p, c, static_cast<size_t>(w));
    return 0;
  }

  // Watches the fields that F editing reserves, so that G can tell whether
  // its F part came out as asterisks.
  class LastField {
   public:
    explicit LastField(FieldWriter& f) : outer_(f.allocate_field), record_(f.record) {
      f.allocate_field = &LastField::reserve;
      f.record = this;
    }
    void restore(FieldWriter& f) {
      f.allocate_field = outer_;
      f.record = record_;
    }
    bool ends_in_asterisk() const { return last_ && size_ > 0 && last_[size_ - 1] == '*'; }

   private:
    static char* reserve(void* self, int64_t size, int* err) {
      auto* l = static_cast<LastField*>(self);
      l->last_ = l->outer_(l->record_, size, err);
      l->size_ = size;
      return l->last_;
    }
    char* (*outer_)(void*, int64_t, int*);
    void* record_;
    char* last_ = nullptr;
    int64_t size_ = 0;
  };

  FieldWriter& f_;
  Real<N> x_;
  DecimalRecord rec_;
};

template <int N>
int edit_as(FieldWriter& f, Form form, int32_t w, int32_t d, int32_t e, const void* value) {
  return RealEditor<N>(f, Real<N>::load(value)).edit({form, w, d, e});
}

// A descriptor of the table goes to the front end of its family.
template <int N>
int edit_precision(FieldWriter& f, const DataEdit& de, const void* value) {
  RealDescriptor r;
  if (!describe_real(de, Real<N>::kDefaultW, Real<N>::kDefaultD, r)) return ERR_EDIT_TYPE_MISMATCH;
  const bool with_e = r.e != kNoExponentWidth;
  switch (r.form) {
    case Form::E:
    case Form::D: {
      const char letter = r.form == Form::D ? 'D' : 'E';
      return with_e ? wrt_ewde<N>(f, r.w, r.d, r.e, letter, value)
                    : wrt_ewd<N>(f, r.w, r.d, letter, value);
    }
    case Form::EN:
      return with_e ? wrt_enwde<N>(f, r.w, r.d, r.e, value) : wrt_enwd<N>(f, r.w, r.d, value);
    case Form::ES:
      return with_e ? wrt_eswde<N>(f, r.w, r.d, r.e, value) : wrt_eswd<N>(f, r.w, r.d, value);
    case Form::F:
      return wrt_fwd<N>(f, r.w, r.d, value);
    default:
      return with_e ? wrt_gwde<N>(f, r.w, r.d, r.e, value) : wrt_gwd<N>(f, r.w, r.d, value);
  }
}

}  // namespace

template <int N>
int wrt_ewd(FieldWriter& f, int32_t w, int32_t d, char letter, const void* value) {
  return edit_as<N>(f, letter == 'D' ? Form::D : Form::E, w, d, kNoExponentWidth, value);
}
template <int N>
int wrt_ewde(FieldWriter& f, int32_t w, int32_t d, int32_t e, char letter, const void* value) {
  return edit_as<N>(f, letter == 'D' ? Form::D : Form::E, w, d, e, value);
}
template <int N>
int wrt_enwd(FieldWriter& f, int32_t w, int32_t d, const void* value) {
  return edit_as<N>(f, Form::EN, w, d, kNoExponentWidth, value);
}
template <int N>
int wrt_enwde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value) {
  return edit_as<N>(f, Form::EN, w, d, e, value);
}
template <int N>
int wrt_eswd(FieldWriter& f, int32_t w, int32_t d, const void* value) {
  return edit_as<N>(f, Form::ES, w, d, kNoExponentWidth, value);
}
template <int N>
int wrt_eswde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value) {
  return edit_as<N>(f, Form::ES, w, d, e, value);
}
template <int N>
int wrt_fwd(FieldWriter& f, int32_t w, int32_t d, const void* value) {
  return edit_as<N>(f, Form::F, w, d, kNoExponentWidth, value);
}
template <int N>
int wrt_gwd(FieldWriter& f, int32_t w, int32_t d, const void* value) {
  return edit_as<N>(f, Form::G, w, d, kNoExponentWidth, value);
}
template <int N>
int wrt_gwde(FieldWriter& f, int32_t w, int32_t d, int32_t e, const void* value) {
  return edit_as<N>(f, Form::G, w, d, e, value);
}

int wrt_e_r16(FieldWriter& f, const void* value) {
  return wrt_ewd<16>(f, Real<16>::kDefaultW, Real<16>::kDefaultD, 'E', value);
}

// The three precisions of every front end.
#define QAL_REAL_FRONT_ENDS(N)                                                          \
  template int wrt_ewd<N>(FieldWriter&, int32_t, int32_t, char, const void*);           \
  template int wrt_ewde<N>(FieldWriter&, int32_t, int32_t, int32_t, char, const void*); \
  template int wrt_enwd<N>(FieldWriter&, int32_t, int32_t, const void*);                \
  template int wrt_enwde<N>(FieldWriter&, int32_t, int32_t, int32_t, const void*);      \
  template int wrt_eswd<N>(FieldWriter&, int32_t, int32_t, const void*);                \
  template int wrt_eswde<N>(FieldWriter&, int32_t, int32_t, int32_t, const void*);      \
  template int wrt_fwd<N>(FieldWriter&, int32_t, int32_t, const void*);                 \
  template int wrt_gwd<N>(FieldWriter&, int32_t, int32_t, const void*);                 \
  template int wrt_gwde<N>(FieldWriter&, int32_t, int32_t, int32_t, const void*);
QAL_REAL_FRONT_ENDS(4)
QAL_REAL_FRONT_ENDS(8)
QAL_REAL_FRONT_ENDS(16)
#undef QAL_REAL_FRONT_ENDS

int edit_real(FieldWriter& f, const DataEdit& de, const void* value, int size) {
  switch (size) {
    case 4:
      return edit_precision<4>(f, de, value);
    case 8:
      return edit_precision<8>(f, de, value);
    default:
      return edit_precision<16>(f, de, value);
  }
}

}  // namespace qal
