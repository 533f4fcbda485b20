// What sets one transfer mode's statement frame apart from another's, as
// data: the start, the start at POS=, the end and the failure exit of every
// mode are the same code, given its ModeTraits.
#pragma once

#include <stdint.h>

#include "qal/statement.h"

namespace qal {

struct ModeTraits {
  bool write;
  bool formatted;
  bool list_directed;  // list-directed writes leave rounding unresolved
  bool direct;         // REC= rather than sequential or stream access
  // The statement bit of ADVANCE='NO' (0 where the mode has none).
  uint32_t non_advancing;
  // A write with POS= may start beyond the file's end (the gap reads as
  // zeros); elsewhere POS= must lie within the file.
  bool pos_beyond_end = false;

  uint32_t default_unit() const { return write ? 6 : 5; }
  // The f77 bit that turns `*` into unit 5 or 6 by number.
  uint32_t f77_bit() const { return write ? SF_F77_WRITE : SF_F77_READ; }
  // With POS=, reads check the form before the access and writes after.
  bool stream_checks_form_first() const { return !write; }
};

inline constexpr ModeTraits kSequentialFormattedWrite{true, true, false, false, SF_NON_ADVANCING};
inline constexpr ModeTraits kSequentialFormattedRead{false, true, false, false, SF_NO_ADVANCE};
inline constexpr ModeTraits kListWrite{true, true, true, false, 0};
inline constexpr ModeTraits kUnformattedWrite{true, false, false, false, 0, true};
inline constexpr ModeTraits kUnformattedRead{false, false, false, false, 0};

}  // namespace qal
