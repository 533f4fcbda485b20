// The run-time format parser: FORMAT text, from a character scalar or from a
// character array read as one text, becomes a ParsedFormat table (layout in
// qal/format.h).  One pass, no lookahead: every scanning function consumes
// its text and leaves the first character it did not use in `cur_`, and the
// group loop dispatches on that character.
//
// Every character read after the opening parenthesis is kept in the text
// buffer, blanks included, so the table carries the text as scanned and an
// error report can show what came just before the offending character.
#include <stdlib.h>
#include <string.h>

#include "qal/diagnostics.h"
#include "qal/errors.h"
#include "qal/format.h"

using namespace qal;

namespace {

constexpr int32_t kTextStep = 1024;  // bytes
constexpr int32_t kOpStep = 1024;    // words
constexpr int kEnd = -1;             // get_c past the last character

bool is_digit(int c) { return c >= '0' && c <= '9'; }
bool is_blank(int c) { return c == ' ' || c == '\t'; }
int upper(int c) { return (c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c; }

// ---- the source text ----

struct __attribute__((packed)) Dimension {
  int32_t extent;
  int32_t stride;  // bytes, signed
  int32_t index;
  const char* row;  // first element of the current row of this dimension
};

// The scanner's place in the source.  An array is walked element by element
// with the first dimension varying fastest, and its elements run together
// with no separator.
struct __attribute__((packed)) FormatSource {
  const char* element;
  int32_t position;  // next character within the element
  int32_t length;    // characters per element
  int32_t rank;      // -1 once a character was needed and the text had ended

  // `rank` entries stand right behind the record.
  Dimension* dims() { return reinterpret_cast<Dimension*>(this + 1); }
};

int32_t low_word(uint64_t w) { return static_cast<int32_t>(static_cast<uint32_t>(w)); }

int get_c(FormatSource* s) {
  if (s->rank < 0) return kEnd;
  if (s->position < s->length) return static_cast<unsigned char>(s->element[s->position++]);
  if (s->rank == 0 || s->length < 1) {
    s->rank = -1;
    return kEnd;
  }
  int32_t k = 0;
  ++s->dims()[0].index;
  while (s->dims()[k].index >= s->dims()[k].extent) {
    s->dims()[k].index = 0;
    if (++k == s->rank) {
      s->rank = -1;
      return kEnd;
    }
    ++s->dims()[k].index;
  }
  const char* next = s->dims()[k].row + s->dims()[k].stride;
  for (int32_t j = 0; j <= k; ++j) s->dims()[j].row = next;
  s->element = next;
  s->position = 1;
  return static_cast<unsigned char>(next[0]);
}

static_assert(sizeof(FormatSource) == 20 && sizeof(Dimension) == 20, "packed scanner records");

// ---- the real descriptor families ----

enum class ZeroWidth { Always, CompatOnly, Never };

// Op codes of one family by form; -1 where the form does not exist.
struct RealFamily {
  int32_t bare, w, wd, wde;
  int32_t interval_wd, interval_wde;  // the forms after V
  ZeroWidth zero_width;
  bool point_before_e;  // compatibility mode takes Ew.d.e for Ew.dEe
};

// D, E, EN, ES and G: bare, w, w.d and w.dEe forms in consecutive codes,
// and the two interval forms likewise.
constexpr RealFamily four_forms(int32_t bare, int32_t interval_wd, ZeroWidth zero_width,
                                bool point_before_e) {
  return {bare,        bare + 1,        bare + 2,   bare + 3,
          interval_wd, interval_wd + 1, zero_width, point_before_e};
}

constexpr RealFamily kFamilyD = four_forms(FMT_D, FMT_VD_W_D, ZeroWidth::CompatOnly, true);
constexpr RealFamily kFamilyE = four_forms(FMT_E, FMT_VE_W_D, ZeroWidth::CompatOnly, true);
constexpr RealFamily kFamilyEN = four_forms(FMT_EN, FMT_VEN_W_D, ZeroWidth::Never, false);
constexpr RealFamily kFamilyES = four_forms(FMT_ES, FMT_VES_W_D, ZeroWidth::Never, false);
constexpr RealFamily kFamilyG = four_forms(FMT_G, FMT_VG_W_D, ZeroWidth::CompatOnly, true);
constexpr RealFamily kFamilyF = {FMT_F,      FMT_F_W, FMT_F_W_D,         -1,
                                 FMT_VF_W_D, -1,      ZeroWidth::Always, false};
constexpr RealFamily kFamilyY = {-1,        -1,          FMT_Y_W_D,        FMT_Y_W_D_E,
                                 FMT_Y_W_D, FMT_Y_W_D_E, ZeroWidth::Never, false};

// ---- the parser ----

enum BadFormatKind { BAD_FORMAT_EMPTY = 1, BAD_FORMAT_AT = 2, BAD_FORMAT_NO_PAREN = 3 };

class FormatBuilder {
 public:
  FormatBuilder(bool compat, bool err_return, const Location* location)
      : compat_(compat), err_return_(err_return), location_(location) {}

  int32_t parse(int32_t** format, int32_t** counters, const void* source, int32_t element_length,
                int32_t rank);

 private:
  // Setting up and finishing.
  bool open_source(const void* source, int32_t element_length, int32_t rank);
  bool finish(int32_t** format, int32_t** counters);
  int32_t fail();
  [[noreturn]] void report_and_abort();
  void show_bad_position();
  void release();

  // Failures: each records the number and returns false.
  bool bad_format() { return failed(ERR_FORMAT); }
  bool out_of_memory(uint64_t bytes) {
    bytes_ = bytes;
    return failed(ERR_OUT_OF_MEMORY);
  }
  bool failed(int32_t error) {
    error_ = error;
    return false;
  }

  // The buffers.
  template <typename T>
  bool grow(T*& buffer, int32_t& capacity, int32_t wanted, uint64_t reported_bytes);
  bool save_c(int c);
  bool insert_op(int32_t word);
  bool insert_ops(int32_t a, int32_t b) { return insert_op(a) && insert_op(b); }
  bool insert_string(const char* chars, int32_t length);

  // Scanning.
  bool next();
  bool skip_blanks();
  bool next_non_blank() { return next() && skip_blanks(); }
  bool op_then_next(int32_t op) { return insert_op(op) && next(); }
  bool get_number(int32_t& value);
  bool get_sign_number(int32_t& value);
  bool get_string();
  bool get_hollerith(int32_t count);
  bool get_tabulator();
  bool get_character_edit_descriptor();
  bool get_integer_edit_descriptor();
  bool get_logical_edit_descriptor();
  bool get_real_edit_descriptor();
  bool get_data_edit_descriptor();
  bool parse_group(int32_t start, int level);
  bool counted_item(int32_t count, int level);
  template <typename Body>
  bool repeated(int32_t count, Body body);

  const bool compat_;
  const bool err_return_;
  const Location* const location_;
  int32_t element_length_ = 0;
  FormatSource* source_ = nullptr;
  uint64_t source_bytes_ = 0;

  char* text_ = nullptr;
  int32_t text_used_ = 0;
  int32_t text_capacity_ = 0;
  int32_t* ops_ = nullptr;
  int32_t ops_used_ = 0;
  int32_t ops_capacity_ = 0;

  int32_t depth_ = 0;
  int32_t deepest_ = 0;
  int32_t reversion_ = FMT_HEADER_WORDS;
  int cur_ = 0;

  int32_t error_ = 0;
  uint64_t bytes_ = 0;  // the request that failed, for the report
};

template <typename T>
bool FormatBuilder::grow(T*& buffer, int32_t& capacity, int32_t wanted, uint64_t reported_bytes) {
  void* p = realloc(buffer, static_cast<size_t>(wanted) * sizeof(T));
  if (p == nullptr) return out_of_memory(reported_bytes);
  buffer = static_cast<T*>(p);
  capacity = wanted;
  return true;
}

// Keeps `c` in the text.  The end of the text is kept too, as byte 0xff, and
// is a failure: the format stopped before its closing parenthesis.
bool FormatBuilder::save_c(int c) {
  if (text_used_ == text_capacity_) {
    const int32_t wanted = text_capacity_ + kTextStep;
    if (!grow(text_, text_capacity_, wanted, static_cast<uint64_t>(wanted))) return false;
  }
  text_[text_used_++] = static_cast<char>(c);
  return c >= 0 || bad_format();
}

bool FormatBuilder::insert_op(int32_t word) {
  if (ops_used_ == ops_capacity_) {
    const int32_t wanted = ops_capacity_ + kOpStep;
    if (!grow(ops_, ops_capacity_, wanted, static_cast<uint64_t>(wanted) * 4)) return false;
  }
  ops_[ops_used_++] = word;
  return true;
}

// Characters four to a word in byte order, the last word zero-padded.
bool FormatBuilder::insert_string(const char* chars, int32_t length) {
  const int32_t words = static_cast<int32_t>((static_cast<int64_t>(length) + 3) / 4);
  if (ops_used_ + words >= ops_capacity_) {
    const int32_t wanted = ops_used_ + words + kOpStep;
    if (!grow(ops_, ops_capacity_, wanted, static_cast<uint64_t>(wanted) * 4)) return false;
  }
  if (words > 0) ops_[ops_used_ + words - 1] = 0;
  memcpy(ops_ + ops_used_, chars, static_cast<size_t>(length));
  ops_used_ += words;
  return true;
}

bool FormatBuilder::next() {
  cur_ = get_c(source_);
  return save_c(cur_);
}

bool FormatBuilder::skip_blanks() {
  while (is_blank(cur_))
    if (!next()) return false;
  return true;
}

// A digit string starting at `cur_`, which the caller has vetted or, behind
// the point of a real descriptor, deliberately not: its code less '0' starts
// the value whatever it is.  Blanks between digits and behind the last one
// are swallowed.  Values beyond 2147483647 are bad.
bool FormatBuilder::get_number(int32_t& value) {
  int32_t v = cur_ - '0';
  for (;;) {
    if (!next_non_blank()) return false;
    if (!is_digit(cur_)) break;
    const int digit = cur_ - '0';
    if (v >= 214748364 && (v > 214748364 || digit > 7)) return bad_format();
    if (v <= -214748364) return bad_format();  // an unvetted start went negative
    v = v * 10 + (v < 0 ? -digit : digit);
  }
  value = v;
  return true;
}

// `+n` or `-n`.  The older dialect lets the digits go: `-P` is `-1P`.
bool FormatBuilder::get_sign_number(int32_t& value) {
  const bool negative = cur_ == '-';
  if (!next_non_blank()) return false;
  int32_t v = 1;
  if (is_digit(cur_)) {
    if (!get_number(v)) return false;
  } else if (!compat_) {
    return bad_format();
  }
  value = negative ? -v : v;
  return true;
}

// 'text' or "text"; a doubled delimiter stands for one.
bool FormatBuilder::get_string() {
  const int delimiter = cur_;
  if (!insert_ops(FMT_STRING, 0)) return false;
  const int32_t length_word = ops_used_ - 1;
  int32_t length = 0;
  unsigned char group[4] = {0, 0, 0, 0};
  for (;;) {
    if (!next()) return false;
    if (cur_ == delimiter) {
      if (!next()) return false;
      if (cur_ != delimiter) break;
    }
    group[length % 4] = static_cast<unsigned char>(cur_);
    ++length;
    if (length % 4 == 0) {
      int32_t word;
      memcpy(&word, group, 4);
      if (!insert_op(word)) return false;
    }
  }
  if (length % 4 != 0) {
    memset(group + length % 4, 0, static_cast<size_t>(4 - length % 4));
    int32_t word;
    memcpy(&word, group, 4);
    if (!insert_op(word)) return false;
  }
  ops_[length_word] = length;
  return true;
}

// nH: the next `count` characters, whatever they are.
bool FormatBuilder::get_hollerith(int32_t count) {
  if (count == 0 && !compat_) return bad_format();
  const int32_t start = text_used_;
  for (int32_t i = 0; i < count; ++i)
    if (!next()) return false;
  return insert_ops(FMT_HOLLERITH, count) && insert_string(text_ + start, count) && next();
}

// Tn, TLn, TRn.  A missing or zero n means different columns in the older
// dialect.
bool FormatBuilder::get_tabulator() {
  if (!next_non_blank()) return false;
  const int letter = upper(cur_);
  const bool relative = letter == 'L' || letter == 'R';
  if (relative && !next_non_blank()) return false;
  int32_t n = relative ? (compat_ ? 0 : 1) : (compat_ ? 9 : 1);
  if (is_digit(cur_)) {
    if (!get_number(n)) return false;
    if (n == 0) {
      if (!compat_) return bad_format();
      if (!relative) n = 9;
    }
  }
  const int32_t op = !relative ? FMT_T : letter == 'L' ? FMT_TL : FMT_TR;
  return insert_ops(op, n);
}

// A or Aw.  A bare A must be followed by something that ends an item, so
// `AI3` is refused rather than read as A and I3.
bool FormatBuilder::get_character_edit_descriptor() {
  const int32_t pos = text_used_;
  if (!next_non_blank()) return false;
  switch (cur_) {
    case '$':
    case ')':
    case ',':
    case '/':
    case ':':
      return insert_ops(FMT_A, pos);
  }
  int32_t w;
  if (!is_digit(cur_)) return bad_format();
  return get_number(w) && insert_op(FMT_A_W) && insert_ops(w, pos);
}

// B, I, O, Z with optional w and .m; BN and BZ come through here too.
bool FormatBuilder::get_integer_edit_descriptor() {
  const int letter = upper(cur_);
  const int32_t pos = text_used_;
  if (!next_non_blank()) return false;
  if (letter == 'B') {
    const int c = upper(cur_);
    if (c == 'Z') return op_then_next(FMT_BZ);
    if (c == 'N') return op_then_next(FMT_BN);
    if (compat_ && !is_digit(cur_)) return insert_op(FMT_BN);
  }
  const int32_t bare = letter == 'B'   ? FMT_B
                       : letter == 'I' ? FMT_I
                       : letter == 'O' ? FMT_O
                                       : FMT_Z;
  if (!is_digit(cur_)) return insert_ops(bare, pos);
  int32_t w;
  if (!get_number(w)) return false;
  if (cur_ != '.') return insert_op(bare + 1) && insert_ops(w, pos);
  int32_t m;
  if (!next_non_blank()) return false;
  if (!is_digit(cur_)) return bad_format();
  return get_number(m) && insert_ops(bare + 2, w) && insert_ops(m, pos);
}

bool FormatBuilder::get_logical_edit_descriptor() {
  const int32_t pos = text_used_;
  if (!next_non_blank()) return false;
  if (!is_digit(cur_)) return insert_ops(FMT_L, pos);
  int32_t w;
  return get_number(w) && insert_op(FMT_L_W) && insert_ops(w, pos);
}

// D, E, EN, ES, F, G, the interval forms after V, and Y; DC and DP as well.
bool FormatBuilder::get_real_edit_descriptor() {
  const int32_t pos = text_used_;
  int letter = upper(cur_);
  bool interval = false;
  if (letter == 'V') {
    if (!next()) return false;
    letter = upper(cur_);
    if (letter != 'E' && letter != 'F' && letter != 'G') return bad_format();
    interval = true;
  }
  if (!next_non_blank()) return false;
  const RealFamily* family = letter == 'D'   ? &kFamilyD
                             : letter == 'E' ? &kFamilyE
                             : letter == 'F' ? &kFamilyF
                             : letter == 'G' ? &kFamilyG
                                             : &kFamilyY;
  if (letter == 'D') {
    const int c = upper(cur_);
    if (c == 'C' || c == 'P') return insert_op(c == 'C' ? FMT_DC : FMT_DP) && next_non_blank();
  } else if (letter == 'E') {
    const int c = upper(cur_);
    if (c == 'N' || c == 'S') {
      family = c == 'N' ? &kFamilyEN : &kFamilyES;
      if (!next_non_blank()) return false;
    }
  }
  if (!is_digit(cur_)) return family->bare >= 0 ? insert_ops(family->bare, pos) : bad_format();

  int32_t w;
  if (!get_number(w)) return false;
  if (w == 0 && family->zero_width != ZeroWidth::Always &&
      !(compat_ && family->zero_width == ZeroWidth::CompatOnly))
    return bad_format();
  if (cur_ != '.')
    return family->w >= 0 ? insert_op(family->w) && insert_ops(w, pos) : bad_format();

  int32_t d;
  if (!next_non_blank() || !get_number(d)) return false;
  const int32_t wd = interval ? family->interval_wd : family->wd;
  const int32_t wde = interval ? family->interval_wde : family->wde;
  const bool exponent =
      wde >= 0 && (upper(cur_) == 'E' || (compat_ && family->point_before_e && cur_ == '.'));
  if (!exponent) return insert_ops(wd, w) && insert_ops(d, pos);
  int32_t e;
  if (!next_non_blank() || !get_number(e)) return false;
  return insert_ops(wde, w) && insert_ops(d, e) && insert_op(pos);
}

bool FormatBuilder::get_data_edit_descriptor() {
  switch (upper(cur_)) {
    case 'A':
      return get_character_edit_descriptor();
    case 'B':
    case 'I':
    case 'O':
    case 'Z':
      return get_integer_edit_descriptor();
    case 'L':
      return get_logical_edit_descriptor();
    default:
      return get_real_edit_descriptor();
  }
}

// Op 2, the body, op 3.  The counter slot is the repeat depth, so siblings
// share slots and the counter area is as long as the deepest nesting.
template <typename Body>
bool FormatBuilder::repeated(int32_t count, Body body) {
  const int32_t start = ops_used_;
  const int32_t slot = depth_;
  if (!insert_op(FMT_REPEAT) || !insert_ops(slot, count)) return false;
  if (++depth_ > deepest_) deepest_ = depth_;
  if (!body(start)) return false;
  --depth_;
  return insert_op(FMT_END_REPEAT) && insert_ops(slot, start + 3);
}

// What may follow a count or a signed number, with `cur_` on it.
bool FormatBuilder::counted_item(int32_t count, int level) {
  switch (upper(cur_)) {
    case '(': {
      if (count == 0) return bad_format();
      auto group = [&](int32_t start) { return parse_group(start, level + 1); };
      if (count == 1 ? !group(ops_used_) : !repeated(count, group)) return false;
      return next();
    }
    case '/':
      if (count == 0) return bad_format();
      return insert_ops(FMT_SLASH, count) && next();
    case 'A':
    case 'B':
    case 'D':
    case 'E':
    case 'F':
    case 'G':
    case 'I':
    case 'L':
    case 'O':
    case 'V':
    case 'Y':
    case 'Z':
      // A count of 1 is dropped; a count of 0 still runs the item once, as
      // the walker tests the count only behind the body.
      if (count == 1) return get_data_edit_descriptor();
      return repeated(count, [&](int32_t) { return get_data_edit_descriptor(); });
    case 'H':
      return get_hollerith(count);
    case 'P':
      return insert_ops(FMT_P, count) && next();
    case 'R':
      if (!compat_ || count < 2 || count > 36) return bad_format();
      return insert_ops(FMT_RADIX, count) && next();
    case 'X':
      return insert_ops(FMT_X, count) && next();
    default:
      return bad_format();
  }
}

// One parenthesised group, `cur_` on its "(", up to its ")".  Groups at the
// first two levels move the reversion target to their start, so the last
// group opened directly inside the outermost one is where the format
// reverts.
bool FormatBuilder::parse_group(int32_t start, int level) {
  if (level < 3) reversion_ = start;
  if (!next()) return false;
  for (;;) {
    switch (upper(cur_)) {
      case ' ':
      case '\t':
      case ',':
        if (!next()) return false;
        break;
      case '"':
      case '\'':
        if (!get_string()) return false;
        break;
      case '$':
        if (!op_then_next(FMT_DOLLAR)) return false;
        break;
      case '(':
        if (!parse_group(ops_used_, level + 1) || !next()) return false;
        break;
      case ')':
        return true;
      case '+':
      case '-': {
        int32_t n;
        if (!get_sign_number(n)) return false;
        const int c = upper(cur_);
        if (c != 'P' && c != 'X' && c != 'R') return bad_format();
        if (!counted_item(n, level)) return false;
        break;
      }
      case '0':
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
      case '6':
      case '7':
      case '8':
      case '9': {
        int32_t n;
        if (!get_number(n) || !counted_item(n, level)) return false;
        break;
      }
      case '/':
        if (!insert_ops(FMT_SLASH, 1) || !next()) return false;
        break;
      case ':':
        if (!op_then_next(FMT_COLON)) return false;
        break;
      case 'A':
      case 'B':
      case 'I':
      case 'O':
      case 'Z':
      case 'D':
      case 'E':
      case 'F':
      case 'G':
      case 'V':
      case 'Y':
      case 'L':
        if (!get_data_edit_descriptor()) return false;
        break;
      case 'P':
        if (!compat_) return bad_format();
        if (!counted_item(0, level)) return false;
        break;
      case 'X':
        if (!counted_item(1, level)) return false;
        break;
      case 'Q':
        if (!insert_ops(FMT_Q, 1) || !next()) return false;
        break;
      case 'R': {
        static constexpr char kModes[] = "UDZNCP";
        if (!next_non_blank()) return false;
        const char* mode = cur_ > 0 ? strchr(kModes, upper(cur_)) : nullptr;
        if (mode != nullptr) {
          if (!op_then_next(FMT_RU + static_cast<int32_t>(mode - kModes))) return false;
        } else if (!compat_) {
          return bad_format();
        } else if (!insert_ops(FMT_RADIX, 10)) {
          return false;
        }
        break;
      }
      case 'S': {
        if (!next_non_blank()) return false;
        const int c = upper(cur_);
        const bool known = c == 'P' || c == 'S' || c == 'U';
        const int32_t op = c == 'P' ? FMT_SP : c == 'U' ? FMT_SU : FMT_SS;
        if (!insert_op(op) || (known && !next())) return false;
        break;
      }
      case 'T':
        if (!get_tabulator()) return false;
        break;
      default:
        return bad_format();
    }
  }
}

bool FormatBuilder::open_source(const void* source, int32_t element_length, int32_t rank) {
  if (rank < 0) rank = 0;
  source_bytes_ = sizeof(FormatSource) + sizeof(Dimension) * static_cast<uint64_t>(rank);
  source_ = static_cast<FormatSource*>(malloc(source_bytes_));
  if (source_ == nullptr) return out_of_memory(source_bytes_);
  source_->position = 0;
  source_->length = element_length;
  source_->rank = rank;
  source_->element = static_cast<const char*>(source);
  if (source == nullptr) return failed(ERR_UNASSOCIATED_FMT);
  if (rank == 0) return true;
  // Above rank 0 the source is an array record: the base address, then the
  // extents, then the strides, 8 bytes each, of which the low 32 bits count.
  const char* base = *static_cast<const char* const*>(source);
  const uint64_t* words = static_cast<const uint64_t*>(source) + 1;
  if (base == nullptr) return failed(ERR_UNASSOCIATED_FMT);
  source_->element = base;
  for (int32_t k = 0; k < rank; ++k) {
    Dimension& d = source_->dims()[k];
    d.extent = low_word(words[k]);
    d.stride = low_word(words[rank + k]);
    d.index = 0;
    d.row = base;
    if (d.extent < 1) source_->rank = -1;  // no elements: the text is empty
  }
  return true;
}

bool FormatBuilder::finish(int32_t** format, int32_t** counters) {
  if (!insert_ops(FMT_END, reversion_) || !save_c('\0')) return false;
  const int32_t op_end = ops_used_;
  const int32_t text_words = (text_used_ + 3) / 4;
  const int32_t total = op_end + deepest_ + text_words;
  if (!grow(ops_, ops_capacity_, total, static_cast<uint64_t>(total) * 4)) return false;
  ops_[FMT_WORD_BODY_WORDS] = op_end + deepest_ - FMT_HEADER_WORDS;
  ops_[FMT_WORD_TEXT_BYTES] = text_used_;
  int32_t* text_copy = ops_ + op_end + deepest_;
  memset(ops_ + op_end, 0, static_cast<size_t>(deepest_ + text_words) * 4);
  memcpy(text_copy, text_, static_cast<size_t>(text_used_));
  *format = ops_;
  *counters = ops_ + op_end;
  ops_ = nullptr;
  release();
  return true;
}

void FormatBuilder::release() {
  free(source_);
  free(text_);
  free(ops_);
  source_ = nullptr;
  text_ = nullptr;
  ops_ = nullptr;
}

// The two report lines show up to 16 scanned characters, the last being the
// offending one, and behind them as much unread text as makes 31; the
// caret line puts "^" under the offending character.
void FormatBuilder::show_bad_position() {
  char shown[32];
  char blanks[16];
  const int32_t scanned = text_used_ < 16 ? text_used_ : 16;
  memcpy(shown, text_ + text_used_ - scanned, static_cast<size_t>(scanned));
  int32_t n = scanned;
  for (int c; n < 31 && (c = get_c(source_)) != kEnd;) shown[n++] = static_cast<char>(c);
  for (int32_t i = 0; i < n; ++i)
    if (shown[i] == '\0' || static_cast<unsigned char>(shown[i]) == 0x90) shown[i] = '?';
  shown[n] = '\0';
  memset(blanks, ' ', static_cast<size_t>(scanned - 1));
  blanks[scanned - 1] = '\0';
  __f90_write_bad_format(BAD_FORMAT_AT, shown, blanks);
}

void FormatBuilder::report_and_abort() {
  __f90_banner();
  __f90_write_message(error_);
  __f90_write_loc(location_);
  if (error_ == ERR_OUT_OF_MEMORY) {
    __f90_write_bytes_requested(bytes_);
  } else if (error_ == ERR_FORMAT) {
    if (element_length_ < 1) {
      __f90_write_bad_format(BAD_FORMAT_EMPTY, nullptr, nullptr);
    } else if (source_->rank < 0) {
      __f90_write_bad_format(BAD_FORMAT_NO_PAREN, nullptr, nullptr);
    } else {
      show_bad_position();
    }
  }
  release();
  abort();
}

int32_t FormatBuilder::fail() {
  if (!err_return_) report_and_abort();
  release();
  return error_;
}

int32_t FormatBuilder::parse(int32_t** format, int32_t** counters, const void* source,
                             int32_t element_length, int32_t rank) {
  element_length_ = element_length;
  if (!open_source(source, element_length, rank)) return fail();
  if (!grow(text_, text_capacity_, kTextStep, kTextStep)) return fail();
  do cur_ = get_c(source_);
  while (is_blank(cur_));
  if (!save_c(cur_)) return fail();
  if (cur_ != '(') return bad_format(), fail();
  // A failed first op buffer reports 1024 bytes, not the 4096 asked for:
  // the figure users of this library have always been shown.
  if (!grow(ops_, ops_capacity_, kOpStep, 1024)) return fail();
  ops_[FMT_WORD_MAGIC] = FMT_MAGIC;
  ops_[FMT_WORD_FIRST_OP] = FMT_HEADER_WORDS;
  ops_used_ = FMT_HEADER_WORDS;
  if (!parse_group(FMT_HEADER_WORDS, 1) || !finish(format, counters)) return fail();
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int32_t __f90_parse_format(int32_t** format, int32_t** counters, int32_t err_return,
                                      const Location* location, const void* source,
                                      int32_t element_length, int32_t rank) {
  return FormatBuilder(false, err_return != 0, location)
      .parse(format, counters, source, element_length, rank);
}

QAL_EXPORT int32_t __f90_parse_format_f77compat(int32_t** format, int32_t** counters,
                                                int32_t err_return, const Location* location,
                                                const void* source, int32_t element_length,
                                                int32_t rank) {
  return FormatBuilder(true, err_return != 0, location)
      .parse(format, counters, source, element_length, rank);
}

}  // extern "C"
}  // namespace qal
