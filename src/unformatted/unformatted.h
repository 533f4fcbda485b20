// What the unformatted writer and reader share: the kinds of connection,
// the element size of each item entry, and the byte-swap and UNION gates of
// the bulk entries.
#pragma once

#include <stdint.h>

#include "qal/errors.h"
#include "qal/statement.h"
#include "qal/unit.h"

namespace qal::unformatted {

// Records are at most this long, in both directions.
inline constexpr int64_t kMaxRecord = 2147483647;

// Stream and FORM='BINARY' files hold the payload alone: no markers, no
// record length, no limit but the file's end.
inline bool marker_less(const Unit* u) { return (u->flags & (UF_STREAM | UF_BINARY)) != 0; }
inline bool byte_swapped(const Unit* u) { return (u->flags2 & UF2_BYTE_SWAP) != 0; }
inline uint32_t alignment_code(const Unit* u) { return (u->flags2 & UF2_ALIGNMENT) >> 10; }

// How an _n block goes through a byte-swapped file: reversed by elements
// of `element` bytes (0: as it is), or refused with an error number.
struct BulkPlan {
  int error = 0;
  uint32_t element = 0;
};

inline BulkPlan plan_bulk(uint32_t stmt_flags, const Unit* u) {
  BulkPlan p;
  const uint32_t item_class = stmt_flags & SF_ITEM_CLASS;
  if (byte_swapped(u)) {
    if (item_class == SF_ITEM_CLASS_UNION) {
      p.error = ERR_UNION_INCOMPATIBLE;
    } else if (item_class != SF_ITEM_CLASS_NEVER_SWAPPED) {
      const uint32_t log2 = (stmt_flags & SF_ITEM_LOG2_SIZE) >> SF_ITEM_LOG2_SIZE_SHIFT;
      // Elements wider than a REAL*16 are complex or interval pairs of them.
      p.element = log2 == 0 ? 0 : log2 >= 4 ? 16 : 1u << log2;
    }
  } else if (item_class == SF_ITEM_CLASS_UNION && alignment_code(u) != 4) {
    // A UNION's layout is only the compiler's where it aligns as it does.
    p.error = ERR_UNION_INCOMPATIBLE;
  }
  return p;
}

// An item entry's value: its size, and the element a byte-swapped file
// reverses (complex and interval items by component; 1: never).
struct ItemShape {
  uint32_t size;
  uint32_t element;
};

}  // namespace qal::unformatted
