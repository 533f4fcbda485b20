// The start of a statement with POS= on a stream unit, shared by every
// mode: no default unit, no implicit connection, and the file moved to the
// byte asked for before anything is buffered.
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"

namespace qal {

namespace {

int fail(const StatementRef& s, Unit* u, int err) { return fail_statement(s, u, err); }

}  // namespace

int start_stream(const StatementRef& s, int64_t pos, const ModeTraits& mode) {
  uint32_t& flags = *s.stmt_flags;
  if (!initio_done()) __f90_initio_r();
  *s.unit_ptr = nullptr;
  if (flags & SF_DEFAULT_UNIT) {
    *s.unit = -1;
    return fail(s, nullptr, ERR_STREAM_DEFAULT_UNIT);
  }
  Unit* u;
  if (int err = take_numbered_unit(&u, *s.unit, s.location, OnError::Return)) {
    FailureDetail d;
    d.bytes_line = err == ERR_OUT_OF_MEMORY;
    d.bytes = sizeof(Unit);
    return fail_statement(s, nullptr, err, d);
  }
  *s.unit_ptr = u;
  const uint32_t uf = u->flags;
  if (!(uf & UF_CONNECTED)) return fail(s, u, ERR_STREAM_UNCONNECTED);
  if (!mode.write) u->item_count = 0;
  if (!(uf & (mode.write ? UF_WRITABLE : UF_READABLE)))
    return fail(s, u, mode.write ? ERR_WRITING_NOT_ALLOWED : ERR_READING_NOT_ALLOWED);
  const bool formatted = (uf & UF_FORMATTED_LIKE) != 0;
  const int form_error =
      mode.formatted ? ERR_FORMATTED_ON_UNFORMATTED : ERR_UNFORMATTED_ON_FORMATTED;
  if (mode.stream_checks_form_first() && formatted != mode.formatted) return fail(s, u, form_error);
  if (!(uf & UF_STREAM)) return fail(s, u, ERR_STREAM_ON_RECORD_UNIT);
  if (formatted != mode.formatted) return fail(s, u, form_error);
  if ((flags & SF_ASYNCHRONOUS) && !(uf & UF_ASYNCHRONOUS)) return fail(s, u, ERR_ASYNC_ON_SYNC);
  resolve_modes(flags, uf, mode);

  if (uf & UF_LAST_WRITE)
    if (int err = flush_raw(u)) return fail(s, u, err);
  struct stat st;
  if (fstat(u->fd, &st) != 0) return fail(s, u, errno);
  if (pos < 1 || (pos - 1 > st.st_size && !mode.pos_beyond_end)) return fail(s, u, ERR_BAD_POS);
  const bool seek_failed =
      u->stream ? fseeko(u->stream, pos - 1, SEEK_SET) != 0 : lseek(u->fd, pos - 1, SEEK_SET) < 0;
  if (seek_failed) return fail(s, u, errno);
  // Nothing is cut off behind the position: a stream file keeps its tail.
  if (u->buffer) reset_cursors(u);
  u->flags &=
      ~(UF_RECORD_LOADED | UF_AT_EOF_DATA | UF_AFTER_ENDFILE | UF_LAST_READ | UF_LAST_WRITE);
  u->flags |= mode.write ? UF_LAST_WRITE : UF_LAST_READ;
  return 0;
}

}  // namespace qal
