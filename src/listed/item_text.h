// The text of one non-character list item, shared by the external and
// internal list-directed writers: integers at their natural width, logicals
// as one letter.
#pragma once

#include <stdint.h>

#include <type_traits>

#include "listed/real_text.h"
#include "qal/statement.h"
#include "util/decimal.h"

namespace qal {

// A LOGICAL item of the kind of T, told apart from an integer of that kind.
template <class T>
struct LogicalItem {
  T value;
};

template <int N>
inline int text_of(const ListReal<N>& r, bool comma, char* out) {
  return real_text<N>(r.bits, comma, out);
}
template <int N>
inline int text_of(const ListComplexPart<N>& c, bool comma, char* out) {
  return complex_part_text<N>(c, comma, out);
}

// A complex item is two blocks, "(re," and "im)": the line may break
// between them, and the separator blank stands after the comma.
template <int N, class Write>
int write_complex_parts(const void* value, Write write) {
  if (int err = write(ListComplexPart<N>{value, true})) return err;
  return write(ListComplexPart<N>{static_cast<const char*>(value) + N, false});
}

// Room for any item's text.
struct ItemText {
  char buf[kMaxRealText];
  const char* data;
  int length;
};

template <class T>
inline void make_item_text(T value, uint32_t stmt_flags, ItemText& t) {
  char* end = t.buf + sizeof t.buf;
  const bool comma = (stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA;
  if constexpr (requires { text_of(value, comma, t.buf); }) {
    t.data = t.buf;
    t.length = text_of(value, comma, t.buf);
  } else if constexpr (requires { value.value; }) {
    // The old dialect prints a one-byte logical as the number it holds.
    if (std::is_same_v<T, LogicalItem<int8_t>> && (stmt_flags & SF_F77_WRITE)) {
      t.data = signed_to_decimal_backward(value.value, end);
      t.length = static_cast<int>(end - t.data);
      return;
    }
    t.data = value.value ? "T" : "F";
    t.length = 1;
  } else {
    if constexpr (std::is_signed_v<T>)
      t.data = signed_to_decimal_backward(value, end);
    else
      t.data = unsigned_to_decimal_backward(value, end);
    t.length = static_cast<int>(end - t.data);
  }
}

}  // namespace qal
