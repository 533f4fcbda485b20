// Internal view of OPEN and CLOSE: the pieces they share.
#pragma once

#include "frame/frame.h"
#include "qal/connect.h"

namespace qal {

inline bool old_dialect(uint32_t word) { return (word & OF_F77) != 0; }

inline OnError error_mode(uint32_t word) {
  return (word & OF_ERR_RETURN) ? OnError::Return : OnError::Abort;
}

// Initialise the default units if no statement has yet, by the twin the
// word asks for.
void initialise_for(uint32_t word, const Location* location);

// Write out, close and dispose of a taken, connected unit, leaving the
// record unconnected and zeroed.  Under Return a failure releases the unit.
int close_unit(int64_t unit, Unit* u, uint32_t word, const Location* location, OnError mode);

// Choose the byte order and element alignment of a connection that OPEN
// made from the option lists (scratch units never swap).
void apply_byte_swap_options(Unit* u);
// The byte order and alignment of a connection made implicitly to `unit`.
void set_bsw_on_unit(Unit* u, int64_t unit);

}  // namespace qal
