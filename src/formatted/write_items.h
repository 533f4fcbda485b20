// One item of a formatted write, for every kind of record: walk to the
// item's data edit descriptor, choose the editor the descriptor and the
// item's type call for, and step past the descriptor once the field is
// written.  The item types:
//
//   IntegerItem<T>   INTEGER and UNSIGNED of 1, 2, 4 or 8 bytes, by value
//   LogicalItem<T>   LOGICAL of 1, 2, 4 or 8 bytes, by value
//   RealItem<N>      REAL of N bytes, by address
//   CharacterItem    CHARACTER*(length)
//   IntervalItem<N>  an interval: two bounds of N bytes, by address
//
// A descriptor an item cannot take is 1215.  Descriptors without w use the
// widths of the item's size; Iw, Bw, Ow and Zw are m = 1.
#pragma once

#include <string.h>

#include <type_traits>

#include "format/data_edit.h"
#include "format/format_walker.h"
#include "formatted/output_edit.h"
#include "formatted/real_front.h"
#include "qal/errors.h"

namespace qal {

template <class T>
struct IntegerItem {
  T value;
};
template <class T>
struct LogicalItem {
  T value;
};
template <int N>
struct RealItem {
  const void* bytes;
};
struct CharacterItem {
  const char* text;
  int64_t length;
};
template <int N>
struct IntervalItem {
  const void* bytes;
};

template <class Item>
inline constexpr bool is_integer_item = false;
template <class T>
inline constexpr bool is_integer_item<IntegerItem<T>> = true;

// What the walk asks of every output record alike: literals are copied
// into the record, the sign modes are the statement's, BN and BZ mean
// nothing, and a slash or the format's end closes records.  Derived
// supplies `stmt`, `allocate_field`, `end_record` and `fail`.
template <class Derived>
struct OutputWalk {
  static constexpr bool kEndTakesRounding = true;

  int literal(const int32_t* op) {
    int err = 0;
    char* field = self().allocate_field(op[1], &err);
    if (!field) return self().fail(err, 0);
    memcpy(field, op + 2, static_cast<size_t>(op[1]));
    return 0;
  }
  void blank_mode(bool) {}
  void sign_mode(int32_t mode) { self().stmt->sign_mode = mode; }
  void at_data_edit() {}
  int advance_records(int32_t n) { return self().end_record(n); }
  int next_pass() { return self().end_record(1); }
  int no_data_edit() const {
    return (self().stmt->stmt_flags & SF_F77_WRITE) ? ERR_FORMAT : ERR_NO_DATA_EDIT;
  }

 private:
  Derived& self() { return static_cast<Derived&>(*this); }
  const Derived& self() const { return static_cast<const Derived&>(*this); }
};

namespace write_detail {

// Bare widths by the item's size in bytes.
inline int32_t bare_b_width(int64_t size) { return static_cast<int32_t>(8 * size + 1); }
inline int32_t bare_ioz_width(int64_t size) {
  return size <= 2 ? 7 : size == 4 ? 12 : size == 8 ? 23 : 44;
}

// 1- and 2-byte values widen to 4 bytes by their sign.
template <class T>
using Widened = std::conditional_t<(sizeof(T) < 4),
                                   std::conditional_t<std::is_signed_v<T>, int32_t, uint32_t>, T>;
template <class T>
Widened<T> widened(T value) {
  return static_cast<Widened<T>>(value);
}

// I, B, O, Z of an integer value.
template <class T>
int edit_integer(FieldWriter& f, DataEdit::Kind kind, int32_t w, int32_t m, T value) {
  using U = std::make_unsigned_t<T>;
  using WideU = std::make_unsigned_t<Widened<T>>;
  const WideU bits = static_cast<WideU>(static_cast<U>(value));
  switch (kind) {
    case DataEdit::I:
      return wrt_iwm<Widened<T>>(f, w, m, widened(value));
    case DataEdit::B:
      return wrt_bwm<WideU>(f, w, m, bits);
    case DataEdit::O:
      return wrt_owm<WideU>(f, w, m, bits);
    default:
      return wrt_zwm<WideU>(f, w, m, bits);
  }
}

// I, B, O, Z of a numeric item's bytes, lowest address least significant.
inline int edit_numeric_bytes(FieldWriter& f, DataEdit::Kind kind, int32_t w, int32_t m,
                              const void* bytes, int64_t size) {
  unsigned char copy[16];
  memcpy(copy, bytes, static_cast<size_t>(size));
  switch (kind) {
    case DataEdit::I:
      return wrt_iwm_n(f, w, m, copy, size);
    case DataEdit::B:
      return wrt_bwm_n(f, w, m, copy, size);
    case DataEdit::O:
      return wrt_owm_n(f, w, m, copy, size);
    default:
      return wrt_zwm_n(f, w, m, copy, size);
  }
}

// I, B, O, Z of a character string taken as one number, first byte most
// significant.  The bare widths follow the length; bare I sizes itself.
inline int edit_string_number(FieldWriter& f, const DataEdit& d, const char* text, int64_t length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  int32_t w = d.w;
  if (d.bare()) {
    switch (d.kind) {
      case DataEdit::I:
        w = -1;
        break;
      case DataEdit::B:
        w = length == 0 ? 2 : bare_b_width(length);
        break;
      case DataEdit::O:
        w = static_cast<int32_t>(8 * length / 3 + (length % 3 ? 2 : length == 0 ? 2 : 1));
        break;
      default:
        w = length == 0 ? 2 : static_cast<int32_t>(2 * length + 1);
    }
  }
  switch (d.kind) {
    case DataEdit::I:
      return wrt_iwm_ch(f, w, d.m, bytes, length);
    case DataEdit::B:
      return wrt_bwm_ch(f, w, d.m, bytes, length);
    case DataEdit::O:
      return wrt_owm_ch(f, w, d.m, bytes, length);
    default:
      return wrt_zwm_ch(f, w, d.m, bytes, length);
  }
}

// D, E, EN, ES and F as the conforming dialect takes them: Dw.dEe is the
// old dialect's alone.
inline bool is_real_edit(const DataEdit& d) { return d.real_only() && d.code != FMT_D_W_D_E; }

inline int32_t bare_width(DataEdit::Kind k, int64_t size) {
  return k == DataEdit::B ? bare_b_width(size) : bare_ioz_width(size);
}

template <class T>
int edit(FieldWriter& f, const DataEdit& d, const IntegerItem<T>& item) {
  if (d.kind == DataEdit::A)
    return d.bare() ? wrt_a(f, reinterpret_cast<const char*>(&item.value), sizeof(T))
                    : wrt_aw(f, d.w, reinterpret_cast<const char*>(&item.value), sizeof(T));
  if (d.kind == DataEdit::G)  // G of an integer is I
    return edit_integer(f, DataEdit::I, d.bare() ? bare_ioz_width(sizeof(T)) : d.w, 1, item.value);
  if (d.integer_family())
    return edit_integer(f, d.kind, d.bare() ? bare_width(d.kind, sizeof(T)) : d.w, d.m, item.value);
  if (is_real_edit(d)) {
    // The bits as a real of the same size; one or two bytes are the low
    // end of a REAL*16.
    if constexpr (sizeof(T) >= 4) return edit_real(f, d, &item.value, sizeof(T));
    unsigned char quad[16] = {};
    memcpy(quad, &item.value, sizeof(T));
    return edit_real(f, d, quad, 16);
  }
  return ERR_EDIT_TYPE_MISMATCH;
}

template <class T>
int edit(FieldWriter& f, const DataEdit& d, const LogicalItem<T>& item) {
  if (d.kind == DataEdit::A)
    return d.bare() ? wrt_a(f, reinterpret_cast<const char*>(&item.value), sizeof(T))
                    : wrt_aw(f, d.w, reinterpret_cast<const char*>(&item.value), sizeof(T));
  if (d.kind == DataEdit::L || d.kind == DataEdit::G) {
    const int32_t w = d.bare() ? 2 : d.w;
    if constexpr (sizeof(T) == 8) return wrt_logical_l8(f, w, item.value);
    return wrt_logical_l4(f, w, item.value);
  }
  if (d.integer_family())
    return edit_integer(f, d.kind, d.bare() ? bare_width(d.kind, sizeof(T)) : d.w, d.m, item.value);
  return ERR_EDIT_TYPE_MISMATCH;
}

template <int N>
int edit(FieldWriter& f, const DataEdit& d, const RealItem<N>& item) {
  const char* bytes = static_cast<const char*>(item.bytes);
  if (d.kind == DataEdit::A) return d.bare() ? wrt_a(f, bytes, N) : wrt_aw(f, d.w, bytes, N);
  if (d.integer_family())
    return edit_numeric_bytes(f, d.kind, d.bare() ? bare_width(d.kind, N) : d.w, d.m, bytes, N);
  if (is_real_edit(d) || d.kind == DataEdit::G) return edit_real(f, d, bytes, N);
  return ERR_EDIT_TYPE_MISMATCH;
}

inline int edit(FieldWriter& f, const DataEdit& d, const CharacterItem& item) {
  const bool a_like = d.kind == DataEdit::A || d.kind == DataEdit::G;
  if (a_like)
    return d.bare() ? wrt_a(f, item.text, item.length) : wrt_aw(f, d.w, item.text, item.length);
  if (d.integer_family()) return edit_string_number(f, d, item.text, item.length);
  return ERR_EDIT_TYPE_MISMATCH;
}

// How intervals are edited is not settled: their bytes go out under A, and
// every other descriptor refuses them.
template <int N>
int edit(FieldWriter& f, const DataEdit& d, const IntervalItem<N>& item) {
  const char* bytes = static_cast<const char*>(item.bytes);
  if (d.kind == DataEdit::A)
    return d.bare() ? wrt_a(f, bytes, 2 * N) : wrt_aw(f, d.w, bytes, 2 * N);
  return ERR_EDIT_TYPE_MISMATCH;
}

// The item as the old dialect sees it: its address and size.
struct ItemBytes {
  const void* address;
  int64_t size;
};

template <class T>
ItemBytes bytes_of(const IntegerItem<T>& item) {
  return {&item.value, sizeof(T)};
}
template <class T>
ItemBytes bytes_of(const LogicalItem<T>& item) {
  return {&item.value, sizeof(T)};
}
template <int N>
ItemBytes bytes_of(const RealItem<N>& item) {
  return {item.bytes, N};
}
inline ItemBytes bytes_of(const CharacterItem& item) {
  return {item.text, item.length < 0 ? 0 : item.length};
}
template <int N>
ItemBytes bytes_of(const IntervalItem<N>& item) {
  return {item.bytes, 2 * N};
}

// The old dialect's editing: the item's type is ignored, its size decides.
// B and anything outside this table is a format error.
inline int edit_f77(FieldWriter& f, const DataEdit& d, const void* address, int64_t size) {
  const char* bytes = static_cast<const char*>(address);
  if (d.kind == DataEdit::A) return d.bare() ? wrt_a(f, bytes, size) : wrt_aw(f, d.w, bytes, size);
  if (d.real_only() || d.kind == DataEdit::G) {
    if (size == 4 || size == 8) return edit_real(f, d, bytes, static_cast<int>(size));
    unsigned char quad[16] = {};
    memcpy(quad, bytes, static_cast<size_t>(size < 16 ? size : 16));
    // Bare D and E of any other size are the REAL*16 bare E.
    if (d.code == FMT_D || d.code == FMT_E) return wrt_e_r16(f, quad);
    return edit_real(f, d, quad, 16);
  }
  if (d.kind == DataEdit::I || d.kind == DataEdit::O || d.kind == DataEdit::Z) {
    const int32_t w = d.bare() ? bare_ioz_width(size) : d.w;
    switch (size) {
      case 1:
        return edit_integer(f, d.kind, w, d.m, *reinterpret_cast<const int8_t*>(bytes));
      case 2: {
        int16_t v;
        memcpy(&v, bytes, 2);
        return edit_integer(f, d.kind, w, d.m, v);
      }
      case 4: {
        int32_t v;
        memcpy(&v, bytes, 4);
        return edit_integer(f, d.kind, w, d.m, v);
      }
      case 8: {
        int64_t v;
        memcpy(&v, bytes, 8);
        return edit_integer(f, d.kind, w, d.m, v);
      }
      default:
        return edit_string_number(f, d, bytes, size);
    }
  }
  if (d.kind == DataEdit::L) {
    const int32_t w = d.bare() ? 2 : d.w;
    if (size < 8) {
      uint32_t low = 0;
      memcpy(&low, bytes, static_cast<size_t>(size < 4 ? size : 4));
      return wrt_logical_l4(f, w, static_cast<int32_t>(low));
    }
    if (size == 8) {
      int64_t v;
      memcpy(&v, bytes, 8);
      return wrt_logical_l8(f, w, v);
    }
    return wrt_lwm_ch(f, w, reinterpret_cast<const unsigned char*>(bytes), size);
  }
  return ERR_FORMAT;
}

template <class P>
char* allocate_for_editor(void* policy, int64_t size, int* err) {
  return static_cast<P*>(policy)->allocate_field(size, err);
}

template <class P>
FieldWriter field_writer(P& p) {
  FieldWriter f;
  f.radix = p.stmt->radix;
  f.sign_mode = p.stmt->sign_mode;
  const uint32_t flags = p.stmt->stmt_flags;
  f.f77 = (flags & SF_F77_WRITE) != 0;
  f.scale_factor = p.stmt->scale_factor;
  f.separator = (flags & SF_DECIMAL) == SF_DECIMAL_COMMA ? ',' : '.';
  const int32_t round = static_cast<int32_t>((flags & SF_ROUND) / SF_ROUND_UP);
  f.round = round >= ROUND_UP && round <= ROUND_PROCESSOR_DEFINED ? round : ROUND_PROCESSOR_DEFINED;
  f.allocate_field = allocate_for_editor<P>;
  f.record = &p;
  return f;
}

}  // namespace write_detail

// Walk, edit, step past the descriptor.  On failure the descriptor stays
// the current one and the statement is over.
template <RecordPolicy P, class Item>
int write_item(P& p, const Item& item) {
  using namespace write_detail;
  auto* s = p.stmt;
  const int32_t* op = s->format + s->format_index;
  // The previous item left the walk here when nothing stands between its
  // descriptor and this one.
  if (!is_data_edit(op[0])) {
    // The next round of a repeated descriptor (4I12) needs no walk either.
    int32_t* counter = op[0] == FMT_END_REPEAT ? s->format_counters + op[1] : nullptr;
    if (counter && *counter > 1 && is_data_edit(s->format[op[2]])) {
      --*counter;
      s->format_index = op[2];
    } else if (int err = walk_to_data_edit_descriptor(p)) {
      return err;
    }
    op = s->format + s->format_index;
  }
  if constexpr (is_integer_item<Item>) {
    // Iw in decimal, the most common of all: straight into the field.
    if (op[0] == FMT_I_W && op[1] > 0 && s->radix == 10 && !(s->stmt_flags & SF_F77_WRITE)) {
      const auto d = decimal_iw(widened(item.value), s->sign_mode, op[1]);
      if (d.fits) {
        int err = 0;
        char* field = p.allocate_field(op[1], &err);
        if (!field) return p.fail(err, 0);
        store_decimal_iw(field, op[1], d);
        s->format_index += 3;
        return 0;
      }
    }
  }
  FieldWriter f = field_writer(p);
  int err;
  if (p.stmt->stmt_flags & SF_F77_WRITE) {
    const auto b = bytes_of(item);
    err = edit_f77(f, decode_data_edit(op), b.address, b.size);
  } else {
    err = edit(f, decode_data_edit(op), item);
  }
  if (err) return p.fail(err, f.failed_bytes);
  p.stmt->format_index += op_words(op);
  return 0;
}

// A complex item is two reals, each with its own data edit descriptor.
template <int N, RecordPolicy P>
int write_complex(P& p, const void* value) {
  if (int err = write_item(p, RealItem<N>{value})) return err;
  return write_item(p, RealItem<N>{static_cast<const char*>(value) + N});
}

}  // namespace qal
