// The text of one non-character list item, shared by the external and
// internal list-directed writers: integers at their natural width, logicals
// as one letter.
#pragma once

#include <stdint.h>

#include <type_traits>

#include "qal/statement.h"
#include "util/decimal.h"

namespace qal {

// A LOGICAL item of the kind of T, told apart from an integer of that kind.
template <class T>
struct LogicalItem {
  T value;
};

// Room for any item's text.
struct ItemText {
  char buf[kMaxDecimalDigits + 1];
  const char* data;
  int length;
};

template <class T>
inline void make_item_text(T value, uint32_t stmt_flags, ItemText& t) {
  char* end = t.buf + sizeof t.buf;
  if constexpr (std::is_same_v<T, LogicalItem<int8_t>>) {
    // The old dialect prints a one-byte logical as the number it holds.
    if (stmt_flags & SF_F77_WRITE) {
      t.data = signed_to_decimal_backward(value.value, end);
      t.length = static_cast<int>(end - t.data);
      return;
    }
  }
  if constexpr (requires { value.value; }) {
    t.data = value.value ? "T" : "F";
    t.length = 1;
  } else {
    (void)stmt_flags;
    if constexpr (std::is_signed_v<T>)
      t.data = signed_to_decimal_backward(value, end);
    else
      t.data = unsigned_to_decimal_backward(value, end);
    t.length = static_cast<int>(end - t.data);
  }
}

}  // namespace qal
