// A data edit descriptor, decoded once from its op words (or made by the
// entries that take descriptors one call at a time), in the terms every
// item dispatch and editor of either direction works with.
#pragma once

#include <stdint.h>

#include <array>

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

// Per op code: the kind, the shape, and whether the second operand is m.
struct Entry {
  DataEdit::Kind kind;
  uint8_t shape;
  bool second_is_m;
};

struct Family {
  int32_t first, last;
  DataEdit::Kind kind;
  bool has_m;  // I, B, O, Z: w.m rather than w.d
};

inline constexpr Family kFamilies[] = {
    {FMT_Q, FMT_Q, DataEdit::Q, false},          {FMT_A, FMT_A_W, DataEdit::A, false},
    {FMT_B, FMT_B_W_M, DataEdit::B, true},       {FMT_D, FMT_D_W_D_E, DataEdit::D, false},
    {FMT_E, FMT_E_W_D_E, DataEdit::E, false},    {FMT_EN, FMT_EN_W_D_E, DataEdit::EN, false},
    {FMT_ES, FMT_ES_W_D_E, DataEdit::ES, false}, {FMT_F, FMT_F_W_D, DataEdit::F, false},
    {FMT_G, FMT_G_W_D_E, DataEdit::G, false},    {FMT_I, FMT_I_W_M, DataEdit::I, true},
    {FMT_L, FMT_L_W, DataEdit::L, false},        {FMT_O, FMT_O_W_M, DataEdit::O, true},
    {FMT_Z, FMT_Z_W_M, DataEdit::Z, true},
};

inline constexpr auto kEntries = [] {
  std::array<Entry, FMT_LAST_OP + 1> t{};
  for (const Family& f : kFamilies)
    for (int32_t code = f.first; code <= f.last; ++code)
      t[static_cast<size_t>(code)] = {f.kind, static_cast<uint8_t>(code - f.first), f.has_m};
  for (int32_t code = FMT_VD_W_D; code <= FMT_Y_W_D_E; ++code)
    if (kOpWords[code] != 0) t[static_cast<size_t>(code)] = {DataEdit::Interval, 0, false};
  return t;
}();

}  // namespace data_edit_detail

// The descriptor at `op`, which the walk stopped at; Interval for the
// interval forms, None for anything that is no data edit descriptor.
inline DataEdit decode_data_edit(const int32_t* op) {
  DataEdit de;
  de.code = op[0];
  if (de.code < 0 || de.code > FMT_LAST_OP) return de;
  const data_edit_detail::Entry entry = data_edit_detail::kEntries[static_cast<size_t>(de.code)];
  de.kind = entry.kind;
  de.shape = entry.shape;
  if (de.shape >= 1) de.w = op[1];
  if (de.shape >= 2) (entry.second_is_m ? de.m : de.d) = op[2];
  if (de.shape >= 3) de.e = op[3];
  return de;
}

}  // namespace qal
