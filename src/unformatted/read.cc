// Unformatted input from sequential and stream units: READ(u).
//
// The start entry reads a record's leading marker into record_remaining;
// items take bytes from the read-ahead in the unit's buffer, or, when a
// large item wants more than the buffer holds, straight from the file into
// the item; the end entry passes over what the list left of the record and
// its trailing marker.  Stream and FORM='BINARY' units have no markers:
// record_remaining is then -1, which sets no limit.
//
//   buffer        data_ptr                  data_end       buffer_end
//     | taken       |  read ahead, not taken  |   free       |
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "qal/unformatted.h"
#include "unformatted/unformatted.h"
#include "util/byte_order.h"

using namespace qal;
using namespace qal::unformatted;

namespace {

using Stmt = IoStatementSur;

int fail(Stmt* s, int err, uint64_t bytes = 0) {
  FailureDetail d;
  d.bytes_line = err == ERR_OUT_OF_MEMORY;
  d.bytes = bytes;
  return fail_statement(statement_ref(s), s->unit_ptr, err, d);
}

// The file ended: the position is behind its last byte, and the buffer,
// holding nothing more, goes.
int end_of_file(Stmt* s, int err = ERR_END_OF_FILE) {
  Unit* u = s->unit_ptr;
  if (u->stream) clearerr(u->stream);
  u->flags |= UF_AFTER_ENDFILE;
  drop_buffer(u);
  return fail(s, err);
}

// `n` bytes of the file into `to`: 0, ERR_END_OF_FILE when the file ends
// first (what came stays in `to`), or an errno value.
[[gnu::noinline]] int copy_in(Unit* u, char* to, uint64_t n) {
  for (;;) {
    const uint64_t have = static_cast<uint64_t>(u->data_end - u->data_ptr);
    const uint64_t k = n < have ? n : have;
    memcpy(to, u->data_ptr, k);
    u->data_ptr += k;
    to += k;
    n -= k;
    if (n == 0) return 0;
    if (!u->stream && !(u->flags & UF_AT_EOF_DATA) &&
        n >= static_cast<uint64_t>(u->buffer_end - u->buffer)) {
      // As much as the buffer holds, or more: into the item directly.  The
      // buffer is emptied first: what it holds must stay the bytes just
      // before the position (BACKSPACE steps back over them).
      reset_cursors(u);
      const ssize_t got = read(u->fd, to, n);
      if (got < 0) {
        if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
        return errno ? errno : EIO;
      }
      if (got == 0) {
        u->flags |= UF_AT_EOF_DATA;
        return ERR_END_OF_FILE;
      }
      to += got;
      n -= static_cast<uint64_t>(got);
      if (n == 0) return 0;
      continue;
    }
    int err = 0;
    const int64_t got = fill_block(u, &err);
    if (got < 0) return err;
    if (got == 0) return ERR_END_OF_FILE;
  }
}

// Passes over `n` bytes of the file.  A long way on a regular file is a
// seek, when the file is that long.
int skip(Unit* u, uint64_t n) {
  for (;;) {
    const uint64_t have = static_cast<uint64_t>(u->data_end - u->data_ptr);
    if (n <= have) {
      u->data_ptr += n;
      return 0;
    }
    n -= have;
    u->data_ptr = u->data_end;
    if ((u->flags & UF_REGULAR_FILE) && !u->stream && !(u->flags & UF_AT_EOF_DATA) &&
        n > static_cast<uint64_t>(u->buffer_end - u->buffer)) {
      struct stat st;
      const off_t here = lseek(u->fd, 0, SEEK_CUR);
      if (here >= 0 && fstat(u->fd, &st) == 0 && static_cast<uint64_t>(st.st_size - here) >= n) {
        reset_cursors(u);
        if (lseek(u->fd, static_cast<off_t>(n), SEEK_CUR) < 0) return errno;
        return 0;
      }
    }
    int err = 0;
    const int64_t got = fill_block(u, &err);
    if (got < 0) return err;
    if (got == 0) return ERR_END_OF_FILE;
  }
}

// The record ended before the list: its trailing marker is passed over
// and the statement ends with 1010, or with end of file when the file ends
// inside the marker (1010 again under SF_SHORT_FILE_IS_TOO_LONG).
int record_exhausted(Stmt* s) {
  s->record_remaining = 0;
  const int err = skip(s->unit_ptr, 4);
  if (err == ERR_END_OF_FILE)
    return end_of_file(
        s, (s->stmt_flags & SF_SHORT_FILE_IS_TOO_LONG) ? ERR_RECORD_TOO_LONG : ERR_END_OF_FILE);
  return fail(s, err ? err : ERR_RECORD_TOO_LONG);
}

// `n` bytes of the record into `to`, the long way.
[[gnu::noinline]] int take_slow(Stmt* s, char* to, uint64_t n) {
  Unit* u = s->unit_ptr;
  const int64_t left = s->record_remaining;
  if (left >= 0 && static_cast<uint64_t>(left) < n) {
    // What the record has goes to the item, then the record is over.
    if (int err = copy_in(u, to, static_cast<uint64_t>(left)))
      return err == ERR_END_OF_FILE ? end_of_file(s) : fail(s, err);
    return record_exhausted(s);
  }
  if (int err = copy_in(u, to, n)) return err == ERR_END_OF_FILE ? end_of_file(s) : fail(s, err);
  s->record_remaining -= static_cast<int64_t>(n);
  return 0;
}

inline int take(Stmt* s, void* to, uint64_t n) {
  Unit* u = s->unit_ptr;
  // A negative remainder (no limit) is a huge one unsigned.
  if (static_cast<uint64_t>(s->record_remaining) >= n &&
      static_cast<uint64_t>(u->data_end - u->data_ptr) >= n) {
    memcpy(to, u->data_ptr, n);
    u->data_ptr += n;
    s->record_remaining -= static_cast<int64_t>(n);
    return 0;
  }
  return take_slow(s, static_cast<char*>(to), n);
}

// Buffer, then the leading marker: the part of a start that follows the
// connection checks.
[[gnu::noinline]] int open_record_slow(Stmt* s, Unit* u) {
  s->record_remaining = -1;
  if (!u->buffer) {
    struct stat st;
    if (fstat(u->fd, &st) != 0) return fail(s, errno);
    int64_t size = st.st_blksize;
    if (S_ISREG(st.st_mode)) size *= 2;
    if (size < 8) size = 8;
    if (!allocate_buffer(u, static_cast<uint64_t>(size)))
      return fail(s, ERR_OUT_OF_MEMORY, static_cast<uint64_t>(size));
    u->buffer_size = static_cast<uint64_t>(size);
    u->flags &= ~(UF_RECORD_LOADED | UF_BUFFER_GROWN);
  }
  if (marker_less(u)) return 0;
  uint32_t marker;
  if (int err = copy_in(u, reinterpret_cast<char*>(&marker), 4)) {
    // A marker cut short is the end of the file as much as none at all.
    return err == ERR_END_OF_FILE ? end_of_file(s) : fail(s, err);
  }
  if (byte_swapped(u)) marker = __builtin_bswap32(marker);
  s->record_remaining = static_cast<int32_t>(marker);
  return 0;
}

// The usual start: the leading marker in the read-ahead, machine order.
inline int open_record(Stmt* s, Unit* u) {
  constexpr uint32_t kUnusual = UF_STREAM | UF_BINARY;
  const char* at = u->data_ptr;
  if (!(u->flags & kUnusual) && !byte_swapped(u) && u->buffer && u->data_end - at >= 4) [[likely]] {
    int32_t marker;
    memcpy(&marker, at, 4);
    u->data_ptr = const_cast<char*>(at) + 4;
    s->record_remaining = marker;
    return 0;
  }
  return open_record_slow(s, u);
}

template <uint32_t Size, uint32_t Element>
[[gnu::noinline]] int read_value_slow(Stmt* s, void* item) {
  if (int err = take_slow(s, static_cast<char*>(item), Size)) return err;
  if constexpr (Element > 1) {
    if (byte_swapped(s->unit_ptr)) {
      char* p = static_cast<char*>(item);
      reverse_each<Element>(p, p, Size);
    }
  }
  return 0;
}

// The usual item: in the read-ahead, inside the record, no byte swap.
template <uint32_t Size, uint32_t Element>
inline int read_value(Stmt* s, void* item) {
  Unit* u = s->unit_ptr;
  const char* at = u->data_ptr;
  // A negative remainder (no limit) is a huge one unsigned.
  if (static_cast<uint64_t>(s->record_remaining) >= Size && u->data_end - at >= Size &&
      (Element == 1 || !byte_swapped(u))) [[likely]] {
    memcpy(item, at, Size);
    u->data_ptr = const_cast<char*>(at) + Size;
    s->record_remaining -= Size;
    return 0;
  }
  return read_value_slow<Size, Element>(s, item);
}

// Every other end: a marker-less unit, nothing to pass over, or more than
// the read-ahead holds.
[[gnu::noinline]] int end_record(Stmt* s) {
  Unit* u = s->unit_ptr;
  if (!marker_less(u)) {
    if (s->stmt_flags & SF_F77_READ) s->stmt_flags |= SF_SHORT_FILE_IS_TOO_LONG;
    // What the list left of the record, and the trailing marker, which is
    // not compared with the leading one.
    const int64_t rest = s->record_remaining + 4;
    if (rest > 0)
      if (int err = skip(u, static_cast<uint64_t>(rest))) {
        if (err != ERR_END_OF_FILE) return fail(s, err);
        return end_of_file(
            s, (s->stmt_flags & SF_SHORT_FILE_IS_TOO_LONG) ? ERR_RECORD_TOO_LONG : ERR_END_OF_FILE);
      }
  }
  release_unit(u);
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_ssur(Stmt* s) { return start_then<kUnformattedRead, open_record>(s); }

QAL_EXPORT int __f90_ssur_pos(Stmt* s, int64_t pos) {
  if (int err = start_stream(statement_ref(s), pos, kUnformattedRead)) return err;
  return open_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_sur_1(Stmt* s, void* v) { return read_value<1, 1>(s, v); }
QAL_EXPORT int __f90_sur_2(Stmt* s, void* v) { return read_value<2, 2>(s, v); }
QAL_EXPORT int __f90_sur_4(Stmt* s, void* v) { return read_value<4, 4>(s, v); }
QAL_EXPORT int __f90_sur_8(Stmt* s, void* v) { return read_value<8, 8>(s, v); }
QAL_EXPORT int __f90_sur_16(Stmt* s, void* v) { return read_value<16, 16>(s, v); }
QAL_EXPORT int __f90_sur_32(Stmt* s, void* v) { return read_value<32, 16>(s, v); }

QAL_EXPORT int __f90_sur_n(Stmt* s, void* data, int64_t bytes) {
  if (bytes <= 0) return 0;
  const BulkPlan plan = plan_bulk(s->stmt_flags, s->unit_ptr);
  if (plan.error) return fail(s, plan.error);
  if (int err = take(s, data, static_cast<uint64_t>(bytes))) return err;
  if (plan.element) reverse_elements(data, data, static_cast<uint64_t>(bytes), plan.element);
  return 0;
}

QAL_EXPORT int __f90_sur_pad(Stmt* s, const int32_t* table) {
  const int32_t n = table[alignment_code(s->unit_ptr)];
  if (n <= 0) return 0;
  s->record_remaining -= n;
  if (int err = skip(s->unit_ptr, static_cast<uint64_t>(n)))
    return err == ERR_END_OF_FILE ? end_of_file(s) : fail(s, err);
  return 0;
}

QAL_EXPORT int __f90_esur(Stmt* s) {
  Unit* u = s->unit_ptr;
  // The usual end: the rest of the record and its trailing marker are in
  // the read-ahead.
  const int64_t rest = s->record_remaining + 4;
  if (!marker_less(u) && rest > 0 && rest <= u->data_end - u->data_ptr) [[likely]] {
    u->data_ptr += rest;
    release_unit(u);
    return 0;
  }
  return end_record(s);
}

}  // extern "C"
}  // namespace qal
