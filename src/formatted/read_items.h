// One item of a formatted read, for every kind of record: walk to the
// item's data edit descriptor, find the field, choose the editor that the
// descriptor and the item call for, and finish the field.
//
// The input side of a record policy derives from InputWalk and supplies:
//
//   stmt                 the statement head (format, counters, radix,
//                        scale factor, stmt_flags)
//   cursor()             the holder of the record pointers
//   next_record()        take the next record (0, or the failure reported)
//   fail(err, bytes)     the statement's failure exit
//   at_data_edit()       the walk stops for an item
//   count_size(n)        n characters taken by a field (SIZE=)
//   nopad()              PAD='NO'
//   hook()               the answer-back for bad characters
//   end_of_record()      a field passed the record's end under ADVANCE='NO'
//   requires_too_much()  a field passed the record's end under PAD='NO'
//
// The record pointers of a read:
//
//   record_start        record_pos          record_end (the newline)
//        | fields taken    | the next field ... |
//                  record_high: the furthest end of a field so far
#pragma once

#include <string.h>

#include "format/data_edit.h"
#include "format/format_walker.h"
#include "formatted/input_edit.h"
#include "qal/errors.h"
#include "util/digit_scan.h"

namespace qal {

// An item as the read entries hand it over: what it is, where it lives and
// how many bytes it has (a character item's length).
struct ItemRef {
  enum Type : uint8_t { Integer, Unsigned, Logical, Real, Character };
  Type type;
  void* address;
  int64_t size;
};

// A field as found, and where the record position goes after it.
struct FoundField {
  InputField field;
  char* next;
};

template <class Derived>
struct InputWalk {
  static constexpr bool kEndTakesRounding = false;

  // A literal cannot be read into: the old dialect steps over its length.
  int literal(const int32_t* op) {
    if (self().stmt->stmt_flags & SF_F77_READ) {
      self().cursor()->record_pos += op[1];
      return 0;
    }
    return self().fail(op[0] == FMT_STRING ? ERR_STRING_ON_INPUT : ERR_HOLLERITH_ON_INPUT, 0);
  }
  void blank_mode(bool zero) {
    uint32_t& flags = self().stmt->stmt_flags;
    flags = zero ? (flags | SF_BZ) : (flags & ~SF_BZ);
  }
  void sign_mode(int32_t) {}
  int advance_records(int32_t n) {
    self().cursor()->column = 0;
    for (int32_t k = 0; k < n; ++k)
      if (int err = self().next_record()) return err;
    return 0;
  }
  int next_pass() { return self().next_record(); }
  int no_data_edit() const { return ERR_NO_DATA_EDIT; }

  InputModes modes() const {
    const auto* s = self().stmt;
    InputModes m;
    m.radix = s->radix;
    m.scale_factor = s->scale_factor;
    m.blank_zero = (s->stmt_flags & SF_BZ) != 0;
    m.decimal = (s->stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA ? ',' : '.';
    m.f77 = (s->stmt_flags & SF_F77_READ) != 0;
    return m;
  }

  // The field of width w at record_pos.  A numeric field ends early at the
  // separator, whose byte is then stepped over; a character field does not
  // look for one.
  FoundField find_field(int32_t w, bool separated) {
    auto* r = self().cursor();
    char* const begin = r->record_pos;
    char* next = begin + w;
    char* const record_end = r->record_end;
    char* end = next < record_end ? next : record_end;
    if (end < begin) end = begin;  // a position past the record's end
    if (separated && end > begin) {
      const char separator = self().separator();
      if (char* sep =
              static_cast<char*>(memchr(begin, separator, static_cast<size_t>(end - begin)))) {
        end = sep;
        next = sep + 1;
      }
    }
    FoundField f{{begin, end, 0, false}, next};
    if (next > record_end) {
      f.field.shortfall = next - record_end;
      f.field.past_end_nopad = self().nopad();
    }
    if (end > begin) self().count_size(end - begin);
    return f;
  }

  // The end of the bytes a field's scanner may load: the record's, unless
  // the policy knows of more readable text behind it.
  const char* load_limit() const { return self().cursor()->record_end; }

  char separator() const {
    return (self().stmt->stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA ? ';' : ',';
  }

  // Moves past a field: a field that reached past the record's end is the
  // end of the record under ADVANCE='NO', and too much under PAD='NO'.
  int finish_field(char* next) {
    auto* r = self().cursor();
    r->record_pos = next;
    if (next > r->record_high) r->record_high = next;
    if (next <= r->record_end) return 0;
    if (self().stmt->stmt_flags & SF_NO_ADVANCE) return self().end_of_record();
    if (self().nopad()) return self().requires_too_much();
    return 0;
  }

 private:
  Derived& self() { return static_cast<Derived&>(*this); }
  const Derived& self() const { return static_cast<const Derived&>(*this); }
};

namespace read_detail {

// Widths of descriptors without w, by the item's size in bytes.
inline int32_t bare_ioz_width(int64_t size) {
  return size <= 2 ? 7 : size == 4 ? 12 : size == 8 ? 23 : 44;
}
inline int32_t bare_b_width(int64_t size) { return static_cast<int32_t>(8 * size); }

// The widths of a character item of `length` under B, O, Z, I without w.
inline int32_t bare_character_width(DataEdit::Kind kind, int64_t length) {
  if (length == 0) return kind == DataEdit::I ? 0 : 1;
  switch (kind) {
    case DataEdit::B:
      return static_cast<int32_t>(8 * length);
    case DataEdit::O:
      return static_cast<int32_t>((8 * length + 2) / 3);
    case DataEdit::Z:
      return static_cast<int32_t>(2 * length);
    default:
      return length == 1 ? 4 : static_cast<int32_t>(3 * length);
  }
}

// Runs a numeric editor over the field of width w, finding the field again
// when a corrected character asks for it.
template <class P, class Edit>
int numeric_field(P& p, int32_t w, Edit edit) {
  if (w <= 0) return p.fail(w == 0 ? ERR_ZERO_FIELD_WIDTH : ERR_NEGATIVE_FIELD_WIDTH, 0);
  for (;;) {
    const FoundField f = p.find_field(w, true);
    const int err = edit(f.field);
    if (err == kRescanField) continue;
    if (err) return p.fail(err, 0);
    return p.finish_field(f.next);
  }
}

// A and Aw: the item's bytes, whatever its type.
template <class P>
int text_field(P& p, int32_t w, char* item, int64_t length) {
  if (w < 0) return p.fail(ERR_NEGATIVE_FIELD_WIDTH, 0);
  const FoundField f = p.find_field(w, false);
  rd_aw(f.field, w, item, length);
  return p.finish_field(f.next);
}

template <class T, class P>
int integer_field(P& p, int32_t w, void* item) {
  const InputModes m = p.modes();
  return numeric_field(
      p, w, [&](const InputField& f) { return rd_iw<T>(f, m, p.hook(), static_cast<T*>(item)); });
}

// I of a signed or unsigned item of 1, 2, 4 or 8 bytes, any other size as
// one number.
template <class P>
int i_field(P& p, int32_t w, void* item, int64_t size, bool is_unsigned) {
  switch (size) {
    case 1:
      return is_unsigned ? integer_field<uint8_t>(p, w, item) : integer_field<int8_t>(p, w, item);
    case 2:
      return is_unsigned ? integer_field<uint16_t>(p, w, item) : integer_field<int16_t>(p, w, item);
    case 4:
      return is_unsigned ? integer_field<uint32_t>(p, w, item) : integer_field<int32_t>(p, w, item);
    case 8:
      return is_unsigned ? integer_field<uint64_t>(p, w, item) : integer_field<int64_t>(p, w, item);
    default: {
      const InputModes m = p.modes();
      return numeric_field(p, w, [&](const InputField& f) {
        return rd_iw_n(f, m, p.hook(), static_cast<unsigned char*>(item), size);
      });
    }
  }
}

// B, O, Z of any item; `in_order` keeps the first byte most significant
// (character items), otherwise the result is in the machine's order.
template <class P>
int boz_field(P& p, DataEdit::Kind kind, int32_t w, void* item, int64_t size, bool in_order) {
  using Editor = int (*)(const InputField&, const InputModes&, const BadCharacterHook&,
                         unsigned char*, int64_t);
  const Editor editor = kind == DataEdit::B   ? (in_order ? rd_bw_ch : rd_bw_n)
                        : kind == DataEdit::O ? (in_order ? rd_ow_ch : rd_ow_n)
                                              : (in_order ? rd_zw_ch : rd_zw_n);
  const InputModes m = p.modes();
  return numeric_field(p, w, [&](const InputField& f) {
    return editor(f, m, p.hook(), static_cast<unsigned char*>(item), size);
  });
}

template <class T, class P>
int logical_field(P& p, int32_t w, void* item) {
  return numeric_field(
      p, w, [&](const InputField& f) { return rd_logical<T>(f, p.hook(), static_cast<T*>(item)); });
}

template <class P>
int l_field(P& p, int32_t w, void* item, int64_t size) {
  switch (size) {
    case 1:
      return logical_field<int8_t>(p, w, item);
    case 2:
      return logical_field<int16_t>(p, w, item);
    case 4:
      return logical_field<int32_t>(p, w, item);
    default: {
      // Other sizes (the old dialect) read into an eight-byte logical.
      if (size == 8) return logical_field<int64_t>(p, w, item);
      int64_t scratch;
      return logical_field<int64_t>(p, w, &scratch);
    }
  }
}

// Q: the characters left in the record, if the item can hold the count.
template <class P>
int q_count(P& p, void* item, int64_t size, bool is_unsigned) {
  auto* r = p.cursor();
  const int64_t left = r->record_end > r->record_pos ? r->record_end - r->record_pos : 0;
  uint64_t limit = ~uint64_t{0};
  if (size < 8)
    limit = (uint64_t{1} << (8 * size - (is_unsigned ? 0 : 1))) - 1;
  else if (!is_unsigned)
    limit = INT64_MAX;
  if (static_cast<uint64_t>(left) > limit)
    return p.fail(is_unsigned ? ERR_UNSIGNED_OVERFLOW_INPUT : ERR_INTEGER_OVERFLOW_INPUT, 0);
  const uint64_t v = static_cast<uint64_t>(left);
  memcpy(item, &v, static_cast<size_t>(size < 8 ? size : 8));
  return 0;
}

}  // namespace read_detail

// The plain real field of the usual writing, read the fast way: defined
// with the real input.
template <class P>
bool read_plain_real(P& p, const DataEdit& de, const ItemRef& item);

// The real family on a real item (or on integers holding a real's bits),
// bare descriptors taking the widths of `size`: defined with the real
// input, where the conversions live.
template <class P>
int real_field(P& p, const DataEdit& de, void* item, int64_t size);

// The dispatch of one item on one descriptor, by the item's type; 1215 for
// a descriptor the item cannot take.
template <class P>
int read_on_descriptor(P& p, const DataEdit& de, const ItemRef& item) {
  using namespace read_detail;
  const int64_t size = item.size;
  const bool is_unsigned = item.type == ItemRef::Unsigned;
  const auto width = [&](int32_t bare) { return de.bare() ? bare : de.w; };
  switch (item.type) {
    case ItemRef::Integer:
    case ItemRef::Unsigned:
    case ItemRef::Logical: {
      const bool logical = item.type == ItemRef::Logical;
      switch (de.kind) {
        case DataEdit::Q:
          return q_count(p, item.address, size, is_unsigned);
        case DataEdit::A:
          return text_field(p, width(static_cast<int32_t>(size)), static_cast<char*>(item.address),
                            size);
        case DataEdit::B:
          return boz_field(p, DataEdit::B, width(bare_b_width(size)), item.address, size, false);
        case DataEdit::O:
        case DataEdit::Z:
          return boz_field(p, de.kind, width(bare_ioz_width(size)), item.address, size, false);
        case DataEdit::I:
          return i_field(p, width(bare_ioz_width(size)), item.address, size, is_unsigned);
        case DataEdit::G:
          if (logical) return l_field(p, width(2), item.address, size);
          return i_field(p, width(bare_ioz_width(size)), item.address, size, is_unsigned);
        case DataEdit::L:
          if (logical) return l_field(p, width(2), item.address, size);
          break;
        default:
          if (!logical && de.real_only() && de.code != FMT_D_W_D_E)
            return real_field(p, de, item.address, size);
          break;
      }
      break;
    }
    case ItemRef::Real:
      switch (de.kind) {
        case DataEdit::A:
          return text_field(p, width(static_cast<int32_t>(size)), static_cast<char*>(item.address),
                            size);
        case DataEdit::B:
          return boz_field(p, DataEdit::B, width(bare_b_width(size)), item.address, size, false);
        case DataEdit::O:
        case DataEdit::Z:
          return boz_field(p, de.kind, width(bare_ioz_width(size)), item.address, size, false);
        case DataEdit::I:
          return i_field(p, width(bare_ioz_width(size)), item.address, size, false);
        case DataEdit::G:
          return real_field(p, de, item.address, size);
        default:
          if (de.real_only() && de.code != FMT_D_W_D_E)
            return real_field(p, de, item.address, size);
          break;
      }
      break;
    case ItemRef::Character: {
      char* text = static_cast<char*>(item.address);
      switch (de.kind) {
        case DataEdit::A:
        case DataEdit::G:
          return text_field(p, width(static_cast<int32_t>(size)), text, size);
        case DataEdit::I: {
          const InputModes m = p.modes();
          return numeric_field(
              p, width(bare_character_width(DataEdit::I, size)), [&](const InputField& f) {
                return rd_iw_ch(f, m, p.hook(), reinterpret_cast<unsigned char*>(text), size);
              });
        }
        case DataEdit::B:
        case DataEdit::O:
        case DataEdit::Z:
          return boz_field(p, de.kind, width(bare_character_width(de.kind, size)), text, size,
                           true);
        default:
          break;
      }
      break;
    }
  }
  return p.fail(ERR_EDIT_TYPE_MISMATCH, 0);
}

// The old dialect's dispatch: the item's type is ignored, its size decides.
template <class P>
int read_on_descriptor_f77(P& p, const DataEdit& de, void* item, int64_t size) {
  using namespace read_detail;
  const auto width = [&](int32_t bare) { return de.bare() ? bare : de.w; };
  const bool fixed = size == 1 || size == 2 || size == 4 || size == 8 || size == 16;
  switch (de.kind) {
    case DataEdit::Q:
      // Sizes without an integer of their own take nothing.
      if (size == 1 || size == 2 || size == 4 || size == 8) return q_count(p, item, size, false);
      return 0;
    case DataEdit::A:
      return text_field(p, width(size < 0 ? 0 : static_cast<int32_t>(size)),
                        static_cast<char*>(item), size);
    case DataEdit::B:
      return boz_field(p, DataEdit::B, width(bare_b_width(size)), item, size, false);
    case DataEdit::I:
      // A sixteen-byte item is read as its first eight.
      if (size == 16) return i_field(p, width(23), item, 8, false);
      return i_field(p, width(fixed ? bare_ioz_width(size) : static_cast<int32_t>(3 * size)), item,
                     size, false);
    case DataEdit::O:
    case DataEdit::Z:
      return boz_field(p, de.kind,
                       width(fixed ? bare_ioz_width(size) : bare_character_width(de.kind, size)),
                       item, size, false);
    case DataEdit::L:
      return l_field(p, width(2), item, size);
    case DataEdit::None:
    case DataEdit::Interval:
      break;
    default:
      return real_field(p, de, item, size);
  }
  return p.fail(ERR_EDIT_TYPE_MISMATCH, 0);
}

// Brings the walk to the next item's data edit descriptor and returns it.
template <RecordPolicy P>
[[gnu::always_inline]] inline int walk_to_item(P& p, const int32_t** op_out) {
  auto* s = p.stmt;
  p.cursor()->item_count++;
  const int32_t* op = s->format + s->format_index;
  if (!is_data_edit(op[0])) {
    // The next round of a repeated descriptor (4I12) needs no walk.
    int32_t* counter = op[0] == FMT_END_REPEAT ? s->format_counters + op[1] : nullptr;
    if (counter && *counter > 1 && is_data_edit(s->format[op[2]])) {
      --*counter;
      s->format_index = op[2];
      p.at_data_edit();
    } else if (int err = walk_to_data_edit_descriptor(p)) {
      return err;
    }
    op = s->format + s->format_index;
  }
  *op_out = op;
  return 0;
}

// The usual integer field, blanks, perhaps a sign, and one to seven digits
// ending the field, from the one word that ends it: the word may begin
// before the field, as far back as `lower`.  False for any other field, with
// nothing changed.
[[gnu::always_inline]] inline bool right_aligned_integer(const char* begin, const char* end,
                                                         const char* lower, const char* limit,
                                                         uint64_t* value, bool* negative) {
  if (end - 8 < lower) return false;
  const uint64_t y = load_eight(end - 8) ^ (kEveryByte * '0');
  const uint64_t stop = non_digit_values(y);
  if (stop == 0) return false;  // eight digits or more
  int digits = __builtin_clzll(stop) >> 3;
  if (digits > end - begin) digits = static_cast<int>(end - begin);
  if (digits == 0) return false;
  const char* const first = end - digits;
  const char* c = skip_blanks(begin, first, limit);
  if (c < first) {
    if (c + 1 != first || (*c != '-' && *c != '+')) return false;
    *negative = *c == '-';
  }
  *value = eight_digit_value(y & (~uint64_t{0} << (64 - 8 * digits)));
  return true;
}

// Iw of a four- or eight-byte integer in decimal, the commonest field of
// all: a field wholly inside the record of blanks, a sign and at most 18
// digits, taken in one pass.  Anything else (a separator, a bad character,
// BZ, the record's end, a correction hook) is left to the general path,
// before anything is changed.
template <class P>
[[gnu::always_inline]] inline bool read_plain_integer(P& p, int32_t w, const ItemRef& item) {
  constexpr uint32_t kUnusual = SF_BZ | SF_F77_READ;
  auto* r = p.cursor();
  char* const begin = r->record_pos;
  if (w <= 0 || w > r->record_end - begin || p.stmt->radix != 10 ||
      (p.stmt->stmt_flags & kUnusual) || p.has_hook())
    return false;
  const char* const end = begin + w;
  const char* const limit = p.load_limit();
  bool negative = false;
  uint64_t v = 0;
  if (!right_aligned_integer(begin, end, r->record_start, limit, &v, &negative)) {
    const char* c = skip_blanks(begin, end, limit);
    if (c < end && (*c == '-' || *c == '+')) negative = *c++ == '-';
    const char* const first = c;
    c = append_digits(c, end, limit, v);
    const ptrdiff_t digits = c - first;
    // Blanks between digits, and anything else, take the general path.
    if (skip_blanks(c, end, limit) != end || digits > 18) return false;
  }
  const int64_t value = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
  if (item.size == 4) {
    if (value != static_cast<int32_t>(value)) return false;
    const int32_t v32 = static_cast<int32_t>(value);
    memcpy(item.address, &v32, 4);
  } else {
    memcpy(item.address, &value, 8);
  }
  p.count_size(w);
  r->record_pos = begin + w;
  if (r->record_pos > r->record_high) r->record_high = r->record_pos;
  return true;
}

// Everything but the plain integer field: decode the descriptor, try the
// plain real field, else the editor the descriptor and the item call for.
template <RecordPolicy P>
[[gnu::noinline]] int read_item_general(P& p, const int32_t* op, const ItemRef& item) {
  const DataEdit de = decode_data_edit(op);
  if (item.type == ItemRef::Real && (item.size == 4 || item.size == 8) &&
      ((de.real_only() && de.code != FMT_D_W_D_E) || de.kind == DataEdit::G) &&
      read_plain_real(p, de, item)) {
    p.stmt->format_index += op_words(op);
    return 0;
  }
  if (int err = read_on_descriptor(p, de, item)) return err;
  p.stmt->format_index += op_words(op);
  return 0;
}

// Walk, read, step past the descriptor.  On failure the descriptor stays
// the current one and the statement is over.  Inlined into each entry, so
// that the item's type and size are constants there.
template <RecordPolicy P>
[[gnu::always_inline]] inline int read_item(P& p, const ItemRef& item) {
  const int32_t* op;
  if (int err = walk_to_item(p, &op)) return err;
  if (op[0] == FMT_I_W && item.type == ItemRef::Integer && (item.size == 4 || item.size == 8) &&
      read_plain_integer(p, op[1], item)) {
    p.stmt->format_index += 3;
    return 0;
  }
  return read_item_general(p, op, item);
}

template <RecordPolicy P>
int read_item_f77(P& p, void* item, int64_t size) {
  const int32_t* op;
  if (int err = walk_to_item(p, &op)) return err;
  if (int err = read_on_descriptor_f77(p, decode_data_edit(op), item, size)) return err;
  p.stmt->format_index += op_words(op);
  return 0;
}

}  // namespace qal
