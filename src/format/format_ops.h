// Reading a format table: how long each op is, and which ops take data.
#pragma once

#include <stdint.h>

#include "qal/format.h"

namespace qal {

// Words of each op with its operands; 0 marks a code no table may hold.
// The string ops (19, 20) are longer by their packed characters.
inline constexpr uint8_t kOpWords[FMT_LAST_OP + 1] = {
    0,                             // 0
    2, 3, 3, 1, 1, 1, 1, 2, 2, 1,  // 1 end .. 10
    1, 1, 1, 2, 2, 2, 2, 2, 2, 2,  // 11 .. 20
    2, 2, 3, 2, 3, 4, 2, 3, 4, 5,  // 21 Q .. 30 Dw.dEe
    2, 3, 4, 5, 2, 3, 4, 5, 2, 3,  // 31 E .. 40 ESw
    4, 5, 2, 3, 4, 2, 3, 4, 5, 2,  // 41 .. 50 I
    3, 4, 2, 3, 2, 3, 4, 2, 3, 4,  // 51 .. 60 Zw.m
    0, 0, 4, 5, 0, 0, 4, 5, 0, 0,  // 61 .. 70
    4, 5, 0, 0, 4, 5, 0, 0, 4, 0,  // 71 .. 80
    0, 4, 5, 4, 5, 1, 1, 1, 1, 1,  // 81 .. 90
    1, 1, 1,                       // 91 .. 93
};

// Words of the op at `op`, or 0 for a corrupt code.
inline int32_t op_words(const int32_t* op) {
  const int32_t code = op[0];
  if (code < 0 || code > FMT_LAST_OP) return 0;
  if (code == FMT_STRING || code == FMT_HOLLERITH) return op[1] < 0 ? 0 : 2 + (op[1] + 3) / 4;
  return kOpWords[code];
}

// The ops at which a walk stops to take an item.
inline bool is_data_edit(int32_t code) {
  return (code >= FMT_Q && code <= FMT_Z_W_M) ||
         (code >= FMT_VD_W_D && code <= FMT_Y_W_D_E && kOpWords[code] != 0);
}

}  // namespace qal
