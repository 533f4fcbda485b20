// Units in the state a program leaves them in before it stops: output
// still in the buffer, and a scratch file on disk.
#pragma once

#include "qal/qal.h"
#include "support/statements.h"

namespace qal::test {

// WRITE(unit,*) text: the record stays in the unit's buffer until the unit
// is flushed.
inline void write_pending(int64_t unit, const char* text) { ListWrite(unit).all(text); }

// Unit `unit` connected to fort.<unit> as if opened STATUS='SCRATCH'.
inline void make_scratch(int64_t unit) {
  ListWrite(unit).all("scratch");
  Unit* u = nullptr;
  __f90_get_numbered_unit_r(&u, unit);
  u->flags |= UF_SCRATCH;
  __f90_release_unit(u);
}

}  // namespace qal::test
