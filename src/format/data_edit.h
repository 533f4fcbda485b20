// A data edit descriptor, decoded once from its op words (or made by the
// entries that take descriptors one call at a time), in the terms every
// item dispatch and editor of either direction works with.
#pragma once

#include <stdint.h>

#include "format/format_ops.h"

namespace qal {

struct DataEdit {
  enum Kind : uint8_t { None, Q, A, B, D, E, EN, ES, F, G, I, L, O, Z, Interval };

  Kind kind = None;
  // What the descriptor gave: 0 nothing (bare), 1 w, 2 w.d or w.m, 3 w.d.e.
  uint8_t shape = 0;
  int32_t w = 0;
  int32_t d = 0;
  int32_t e = -1;  // -1: no exponent width given
  int32_t m = 1;   // the minimum digits of I, B, O, Z (1 unless w.m)
  int32_t code = FMT_NONE;

  bool bare() const { return shape == 0; }
  bool has_exponent() const { return shape == 3; }
  // D, E, EN, ES, F: the descriptors that are real editing and nothing else.
  bool real_only() const { return kind >= D && kind <= F; }
  bool integer_family() const { return kind == B || kind == I || kind == O || kind == Z; }
};

namespace data_edit_detail {

struct Family {
  int32_t first, last;
  DataEdit::Kind kind;
  uint8_t m_shape;  // the shape whose second operand is m rather than d (0: none)
};

inline constexpr Family kFamilies[] = {
    {FMT_Q, FMT_Q, DataEdit::Q, 0},          {FMT_A, FMT_A_W, DataEdit::A, 0},
    {FMT_B, FMT_B_W_M, DataEdit::B, 2},      {FMT_D, FMT_D_W_D_E, DataEdit::D, 0},
    {FMT_E, FMT_E_W_D_E, DataEdit::E, 0},    {FMT_EN, FMT_EN_W_D_E, DataEdit::EN, 0},
    {FMT_ES, FMT_ES_W_D_E, DataEdit::ES, 0}, {FMT_F, FMT_F_W_D, DataEdit::F, 0},
    {FMT_G, FMT_G_W_D_E, DataEdit::G, 0},    {FMT_I, FMT_I_W_M, DataEdit::I, 2},
    {FMT_L, FMT_L_W, DataEdit::L, 0},        {FMT_O, FMT_O_W_M, DataEdit::O, 2},
    {FMT_Z, FMT_Z_W_M, DataEdit::Z, 2},
};

}  // namespace data_edit_detail

// The descriptor at `op`, which the walk stopped at; Interval for the
// interval forms, None for anything that is no data edit descriptor.
inline DataEdit decode_data_edit(const int32_t* op) {
  DataEdit de;
  de.code = op[0];
  if (de.code >= FMT_VD_W_D && de.code <= FMT_Y_W_D_E) {
    de.kind = DataEdit::Interval;
    return de;
  }
  for (const auto& family : data_edit_detail::kFamilies) {
    if (de.code < family.first || de.code > family.last) continue;
    de.kind = family.kind;
    de.shape = static_cast<uint8_t>(de.code - family.first);
    // Q takes no operand, and A has no d: their shapes stop at 0 and 1.
    if (de.shape >= 1) de.w = op[1];
    if (de.shape >= 2) {
      if (de.shape == family.m_shape)
        de.m = op[2];
      else
        de.d = op[2];
    }
    if (de.shape >= 3) de.e = op[3];
    return de;
  }
  return de;
}

}  // namespace qal
