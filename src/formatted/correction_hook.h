// The correction hook of formatted input: a routine of the program's that
// is offered every character an input editor cannot take, and may put
// another in its place, in the record or in the file too.
#pragma once

#include <stdint.h>

#include "formatted/input_edit.h"
#include "qal/location.h"
#include "qal/unit.h"

namespace qal {

// What the hook is told of the statement besides the character.
struct CorrectionSite {
  Unit* unit;
  int64_t unit_number;
  const Location* location;
};

// The editors' answer-back for `site`: the hook when the unit has one, the
// plain error numbers otherwise.
BadCharacterHook correction_hook(CorrectionSite* site, char separator);

// The unit's tried-character set goes with its connection.
void forget_correction_state(Unit* u);

}  // namespace qal
