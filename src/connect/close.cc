// CLOSE: write out what the unit still buffers, close the file, dispose of
// it by STATUS= and give the record back.  The three default units are
// only unbound from their numbers: their records stay connected to the
// standard streams and go on serving `*`.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "connect/connect.h"
#include "formatted/correction_hook.h"

using namespace qal;

namespace {

int last_errno() { return errno ? errno : EIO; }

int close_file(Unit* u) {
  if (u->stream) {
    int err = fflush(u->stream) != 0 ? last_errno() : 0;
    if (fclose(u->stream) != 0 && !err) err = last_errno();
    return err;
  }
  return close(u->fd) != 0 ? last_errno() : 0;
}

int remove_file(const char* name) {
  if (!name) return EFAULT;  // the name went with a cleanup (PAUSE)
  return unlink(name) != 0 ? last_errno() : 0;
}

// The file is closed: remove it or keep it as STATUS= and the unit say.
int dispose(Unit* u, uint32_t word) {
  const bool old = old_dialect(word);
  switch (word & CF_STATUS) {
    case 0:
      if (!(u->flags & UF_SCRATCH)) return 0;
      [[fallthrough]];
    case CF_STATUS_DELETE: {
      const int err = remove_file(u->file_name);
      return old ? 0 : err;
    }
    case CF_STATUS_KEEP:
      return (u->flags & UF_SCRATCH) && !old ? ERR_KEEP_SCRATCH : 0;
    default:
      return ERR_IMPOSSIBLE_STATUS;
  }
}

void forget_connection(Unit* u) {
  free(u->file_name);
  free(u->buffer);
  forget_correction_state(u);
  memset(&u->flags, 0, sizeof(Unit) - offsetof(Unit, flags));
}

int fail(int64_t unit, Unit* u, int err, const Location* location, OnError mode) {
  if (mode == OnError::Return) {
    __f90_release_unit(u);
    return err;
  }
  // The name is shown from the record itself, after the banner's cleanup.
  __f90_banner();
  __f90_write_message(err);
  if (location) __f90_write_loc(location);
  __f90_write_unit_number(unit);
  __f90_write_filename(u->file_name);
  __f90_release_unit(u);
  abort();
}

int close_statement(int64_t unit, uint32_t word, const Location* location, OnError mode) {
  initialise_for(mode == OnError::Return ? OF_ERR_RETURN : 0, location);
  if (unit < 0 || unit > INT32_MAX || (unit == 0 && old_dialect(word))) {
    if (mode == OnError::Return) return ERR_ILLEGAL_UNIT;
    report_and_abort(ERR_ILLEGAL_UNIT, location, true, unit, nullptr);
  }
  Unit* u;
  if (int err = take_unit_for_close(&u, static_cast<int32_t>(unit))) {
    if (mode == OnError::Return) return err;
    report_and_abort(err, location, true, unit, nullptr);
  }
  if (!u) return 0;  // a number never used
  if (is_default_record(u)) {
    if (mode == OnError::Abort) {
      __f90_flush_unit_a(u, unit, location);
    } else if (int err = __f90_flush_unit_r(u)) {
      return err;
    }
    __f90_release_unit(u);
    return 0;
  }
  if (u->flags & UF_CONNECTED)
    if (int err = close_unit(unit, u, word, location, mode)) return err;
  __f90_release_unit(u);
  return 0;
}

}  // namespace

namespace qal {

int close_unit(int64_t unit, Unit* u, uint32_t word, const Location* location, OnError mode) {
  // Data that cannot be written keeps the connection, so nothing is lost.
  if (int err = flush_raw(u)) return fail(unit, u, err, location, mode);
  if (int err = close_file(u)) {
    if (mode == OnError::Abort) return fail(unit, u, err, location, mode);
    forget_connection(u);  // the descriptor is gone either way
    return fail(unit, u, err, location, mode);
  }
  const int err = dispose(u, word);
  if (err && mode == OnError::Abort) return fail(unit, u, err, location, mode);
  forget_connection(u);
  return err ? fail(unit, u, err, location, mode) : 0;
}

}  // namespace qal

namespace qal {
extern "C" {

QAL_EXPORT int __f90_close(uint32_t word, int64_t unit, const Location* location) {
  return close_statement(unit, word, location, error_mode(word));
}
QAL_EXPORT void __f90_close_a(int64_t unit, uint32_t word, const Location* location) {
  close_statement(unit, word, location, OnError::Abort);
}
QAL_EXPORT int __f90_close_r(int64_t unit, uint32_t word) {
  return close_statement(unit, word, nullptr, OnError::Return);
}
QAL_EXPORT void __f90_close_unit_a(int64_t unit, Unit* u, uint32_t word, const Location* location) {
  close_unit(unit, u, word, location, OnError::Abort);
}
QAL_EXPORT int __f90_close_unit_r(int64_t unit, Unit* u, uint32_t word) {
  return close_unit(unit, u, word, nullptr, OnError::Return);
}

}  // extern "C"
}  // namespace qal
