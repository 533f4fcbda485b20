// REWIND, BACKSPACE, ENDFILE, FLUSH and WAIT: the unit's position and
// buffer change, nothing is transferred, and the next start entry finds
// the unit in a state it knows (last read, last written, or neither).
//
// BACKSPACE finds the start of the record before the position: on a
// formatted file the newline before the one that ends it, read backwards a
// block at a time; on an unformatted file the length in the record's
// trailing marker.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "qal/connect.h"
#include "qal/diagnostics.h"

using namespace qal;

namespace {

using Block = IoStatementPos;

constexpr uint32_t kEndState = UF_RECORD_LOADED | UF_AT_EOF_DATA | UF_AFTER_ENDFILE;

int last_errno() { return errno ? errno : EIO; }

bool direct_access(const Unit* u) { return !(u->flags & UF_SEQUENTIAL_LIKE); }

// The failure exit: release and return the number, or report and abort.
// REWIND and ENDFILE put the Location line ahead of the message.
int fail(const Block* b, Unit* u, int err, bool location_first = false, uint64_t bytes = 0) {
  if (b->stmt_flags & SF_ERR_RETURN) {
    if (u) __f90_release_unit(u);
    return err;
  }
  char name[kNameCopySize];
  const char* file = u ? __f90_copy_filename(u, name) : nullptr;
  if (u) __f90_release_unit(u);
  if (!location_first) report_and_abort(err, b->location, true, b->unit, file, bytes != 0, bytes);
  __f90_banner();
  if (b->location) __f90_write_loc(b->location);
  __f90_write_message(err);
  __f90_write_unit_number(b->unit);
  __f90_write_filename(file);
  abort();
}

// Initialise, then take the unit by number (never `*`); null on failure,
// with *err set (under abort the take reports itself).
Unit* take(const Block* b, int* err) {
  const bool returns = (b->stmt_flags & SF_ERR_RETURN) != 0;
  if (!initio_done()) {
    if (returns)
      __f90_initio_r();
    else
      __f90_initio_a(b->location);
  }
  Unit* u = nullptr;
  *err = take_numbered_unit(&u, b->unit, b->location, returns ? OnError::Return : OnError::Abort);
  if (*err) {
    if (*err == ERR_OUT_OF_MEMORY && !returns)
      report_and_abort(*err, b->location, false, 0, nullptr, true, sizeof(Unit));
    return nullptr;
  }
  return u;
}

// take, for the statements that leave an unconnected unit alone: null
// when the statement is over, with *result the failure or 0.
Unit* take_connected(const Block* b, int* result) {
  Unit* u = take(b, result);
  if (u && !(u->flags & UF_CONNECTED)) {
    __f90_release_unit(u);
    return nullptr;
  }
  return u;
}

// Every pointer into the buffer back at its start.
void point_at_start(Unit* u) {
  u->flush_ptr = u->data_ptr = u->data_end = u->buffer;
  u->record_start = u->record_pos = u->record_high = u->record_end = u->buffer;
}

void free_buffer(Unit* u) {
  free(u->buffer);
  u->buffer = u->buffer_end = nullptr;
  u->flags &= ~UF_BUFFER_GROWN;
}

off_t tell(Unit* u) { return u->stream ? ftello(u->stream) : lseek(u->fd, 0, SEEK_CUR); }

// Moves the file back over what the unit has read ahead; the position
// behind the last byte taken, or -1.
off_t give_back_read_ahead(Unit* u) {
  const off_t back = u->data_ptr && u->data_end ? u->data_ptr - u->data_end : 0;
  if (back >= 0) return tell(u);
  if (u->stream) return fseeko(u->stream, back, SEEK_CUR) == 0 ? ftello(u->stream) : -1;
  return lseek(u->fd, back, SEEK_CUR);
}
bool seek(Unit* u, off_t to) {
  return u->stream ? fseeko(u->stream, to, SEEK_SET) == 0 : lseek(u->fd, to, SEEK_SET) >= 0;
}

// `n` bytes of the file from the current position; fewer at its end.
ssize_t read_some(Unit* u, char* to, size_t n) {
  if (u->stream) {
    const size_t got = fread(to, 1, n, u->stream);
    if (got < n && ferror(u->stream)) return -1;
    return static_cast<ssize_t>(got);
  }
  size_t got = 0;
  while (got < n) {
    const ssize_t k = read(u->fd, to + got, n - got);
    if (k < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (k == 0) break;
    got += static_cast<size_t>(k);
  }
  return static_cast<ssize_t>(got);
}

// BACKSPACE without touching the file.  While a unit reads, its buffer
// holds the file's bytes up to the position (the read paths keep it so), so
// a record that lies wholly in the buffer before data_ptr is stepped back
// over by moving data_ptr.  False when the record is not all there.
bool backspace_in_buffer(Unit* u, bool formatted, bool inside_record) {
  if (!(u->flags & UF_LAST_READ) || u->stream || !u->buffer) return false;
  char* const p = u->data_ptr;
  if (!p || p <= u->buffer || p > u->data_end) return false;
  if (formatted) {
    // The record ends with the newline before p, unless a non-advancing
    // READ stopped inside it; it starts behind the newline before that.
    const char* before = p;
    if (!inside_record) {
      if (p[-1] != '\n') return false;
      --before;
    }
    const void* nl = memrchr(u->buffer, '\n', static_cast<size_t>(before - u->buffer));
    if (!nl) return false;
    u->data_ptr = static_cast<char*>(const_cast<void*>(nl)) + 1;
  } else {
    // The trailing marker before p, and the leading one it points back
    // to, must agree.
    const uint64_t room = static_cast<uint64_t>(p - u->buffer);
    if (room < 8) return false;
    uint32_t tail, head;
    memcpy(&tail, p - 4, 4);
    if (u->flags2 & UF2_BYTE_SWAP) tail = __builtin_bswap32(tail);
    if (tail > room - 8) return false;
    char* start = p - 8 - tail;
    memcpy(&head, start, 4);
    if (u->flags2 & UF2_BYTE_SWAP) head = __builtin_bswap32(head);
    if (head != tail) return false;
    u->data_ptr = start;
  }
  u->flags &= ~kEndState;
  return true;
}

// BACKSPACE on a formatted file: read the blocks before the position until
// the newline ahead of the current record shows; the block that holds it
// stays in the buffer as read-ahead.
int backspace_formatted(const Block* b, Unit* u, bool inside_record) {
  if (u->flags & UF_LAST_READ) {
    if (give_back_read_ahead(u) < 0) return fail(b, u, last_errno());
  } else if (u->flags & UF_LAST_WRITE) {
    if (int err = flush_raw(u)) return fail(b, u, err);
    u->flags &= ~UF_LAST_WRITE;
  }
  const uint64_t block = u->blocksize ? u->blocksize : 8192;
  if (u->buffer && static_cast<uint64_t>(u->buffer_end - u->buffer) != block) free_buffer(u);
  u->flags &= ~UF_BUFFER_GROWN;
  if (!u->buffer && !allocate_buffer(u, block)) return fail(b, u, ERR_OUT_OF_MEMORY, false, block);
  point_at_start(u);
  const off_t pos = tell(u);
  if (pos < 0) return fail(b, u, last_errno());
  if (pos == 0) {
    u->flags &= ~kEndState;
    return 0;
  }
  // The byte before the position ends the record being stepped over,
  // unless a non-advancing READ stopped inside the current record: then
  // its start is the newline before the position.
  off_t end = pos;
  bool skip_last = !inside_record;
  for (;;) {
    const off_t offset = end > static_cast<off_t>(block) ? end - static_cast<off_t>(block) : 0;
    if (!seek(u, offset)) return fail(b, u, last_errno());
    const ssize_t got = read_some(u, u->buffer, static_cast<size_t>(end - offset));
    if (got < 0) return fail(b, u, last_errno());
    if (got == 0) {
      if (u->stream) clearerr(u->stream);
      u->flags = (u->flags & ~(UF_LAST_READ | UF_LAST_WRITE | UF_RECORD_LOADED)) | UF_AT_EOF_DATA |
                 UF_AFTER_ENDFILE;
      return fail(b, u, ERR_EOF_WHILE_BACKSPACING);
    }
    u->data_end = u->buffer + got;
    const char* from = u->data_end - (skip_last ? 1 : 0);
    skip_last = false;
    const void* nl =
        memrchr(u->buffer, '\n', static_cast<size_t>(from > u->buffer ? from - u->buffer : 0));
    if (nl || offset == 0) {
      // The file stays behind the block read: from the record's start on,
      // the block is read-ahead.
      u->data_ptr = nl ? static_cast<char*>(const_cast<void*>(nl)) + 1 : u->buffer;
      u->flush_ptr = u->buffer;
      u->flags = (u->flags & ~kEndState) | UF_LAST_READ;
      return 0;
    }
    end = offset;
  }
}

// BACKSPACE on an unformatted sequential file: the trailing marker before
// the position gives the record's length.
int backspace_unformatted(const Block* b, Unit* u) {
  if (u->flags & UF_LAST_READ) {
    if (give_back_read_ahead(u) < 0) return fail(b, u, last_errno());
    u->flags &= ~UF_LAST_READ;
  } else if (u->flags & UF_LAST_WRITE) {
    if (int err = flush_raw(u)) return fail(b, u, err);
    u->flags &= ~UF_LAST_WRITE;
  }
  if (u->buffer) point_at_start(u);
  const off_t pos = tell(u);
  if (pos < 0) return fail(b, u, last_errno());
  if (pos == 0) {
    u->flags &= ~kEndState;
    return 0;
  }
  uint32_t marker;
  if (pos < 4 || !seek(u, pos - 4)) return fail(b, u, pos < 4 ? EINVAL : last_errno());
  const ssize_t got = read_some(u, reinterpret_cast<char*>(&marker), 4);
  if (got < 0) return fail(b, u, last_errno());
  if (got < 4) return fail(b, u, ERR_EOF_WHILE_BACKSPACING);
  if (u->flags2 & UF2_BYTE_SWAP) marker = __builtin_bswap32(marker);
  const off_t start = pos - 8 - static_cast<int32_t>(marker);
  if (start < 0 || !seek(u, start)) return fail(b, u, start < 0 ? EINVAL : last_errno());
  u->flags &= ~kEndState;
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_rewind(Block* b) {
  int err;
  Unit* u = take_connected(b, &err);
  if (!u) return err;
  if (direct_access(u)) {
    u->record_number = 1;
    __f90_release_unit(u);
    return 0;
  }
  if (u->flags & UF_LAST_WRITE)
    if (int e = flush_raw(u)) return fail(b, u, e, true);
  if ((u->flags & UF_BUFFER_GROWN) ||
      (u->buffer && static_cast<uint64_t>(u->buffer_end - u->buffer) != u->blocksize))
    free_buffer(u);
  if (!seek(u, 0)) return fail(b, u, last_errno(), true);
  u->flags &= ~(kEndState | UF_LAST_READ | UF_LAST_WRITE);
  u->column = 0;
  point_at_start(u);
  __f90_release_unit(u);
  return 0;
}

QAL_EXPORT int __f90_endfile(Block* b) {
  int err;
  Unit* u = take(b, &err);
  if (!u) return err;
  if (!(u->flags & UF_CONNECTED)) {
    // The file the unit would be connected to is made empty; the unit
    // stays unconnected.
    char* name = implicit_file_name(b->unit);
    if (!name) return fail(b, u, ERR_OUT_OF_MEMORY, true, 32);
    const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    free(name);
    if (fd < 0) return fail(b, u, last_errno(), true);
    close(fd);
    __f90_release_unit(u);
    return 0;
  }
  if (direct_access(u)) return fail(b, u, ERR_ENDFILE_ON_DIRECT, true);
  if (!(u->flags & UF_WRITABLE)) return fail(b, u, ERR_ENDFILE_NOT_WRITABLE, true);
  off_t pos;
  if (u->flags & UF_LAST_READ) {
    // The read-ahead goes back to the file at once, so that a truncation
    // that fails leaves the unit reading on from the position.
    pos = give_back_read_ahead(u);
    point_at_start(u);
    u->flags &= ~(UF_LAST_READ | UF_RECORD_LOADED);
  } else {
    if (u->flags & UF_LAST_WRITE)
      if (int e = flush_raw(u)) return fail(b, u, e, true);
    pos = tell(u);
  }
  if (pos < 0) return fail(b, u, last_errno(), true);
  // Only a file can be cut; on a pipe or terminal the end is where it is.
  if ((u->flags & UF_REGULAR_FILE) && ftruncate(u->fd, pos) != 0)
    return fail(b, u, last_errno(), true);
  if (u->flags & UF_BUFFER_GROWN) free_buffer(u);
  point_at_start(u);
  u->column = 0;
  u->flags = (u->flags & ~UF_RECORD_LOADED) | UF_AT_EOF_DATA | UF_AFTER_ENDFILE | UF_LAST_WRITE;
  __f90_release_unit(u);
  return 0;
}

QAL_EXPORT int __f90_backspace(Block* b) {
  int err;
  Unit* u = take_connected(b, &err);
  if (!u) return err;
  if (direct_access(u)) {
    if (u->record_number >= 2) --u->record_number;
    __f90_release_unit(u);
    return 0;
  }
  const bool formatted = (u->flags & UF_FORMATTED_LIKE) != 0;
  if (u->flags & UF_BINARY) return fail(b, u, ERR_BACKSPACE_BINARY);
  if ((u->flags & UF_STREAM) && !formatted) return fail(b, u, ERR_BACKSPACE_UNFORMATTED_STREAM);
  const bool inside_record =
      (u->flags & (UF_RECORD_LOADED | UF_LAST_READ)) == (UF_RECORD_LOADED | UF_LAST_READ);
  u->flags &= ~UF_RECORD_LOADED;
  u->column = 0;
  if (u->flags & UF_AFTER_ENDFILE) {
    // Only the end of the file is stepped back over.
    if (u->stream) clearerr(u->stream);
    u->flags &= ~kEndState;
    __f90_release_unit(u);
    return 0;
  }
  if (!(u->flags & UF_REGULAR_FILE)) return fail(b, u, ERR_NO_BACKSPACE);
  if (!(u->flags & UF_READABLE)) return fail(b, u, ERR_BACKSPACE_NOT_READABLE);
  if (!backspace_in_buffer(u, formatted, inside_record)) {
    const int e =
        formatted ? backspace_formatted(b, u, inside_record) : backspace_unformatted(b, u);
    if (e) return e;  // the unit went with the failure
  }
  __f90_release_unit(u);
  return 0;
}

QAL_EXPORT int __f2003_flush(Block* b) {
  int err;
  Unit* u = take_connected(b, &err);
  if (!u) return err;
  if (int e = flush_raw(u)) return fail(b, u, e);
  // What was read ahead is dropped with the rest: the pointers go back to
  // the buffer's start without a seek.
  point_at_start(u);
  __f90_release_unit(u);
  return 0;
}

QAL_EXPORT int __f95_wait(void) { return 0; }

}  // extern "C"
}  // namespace qal
