// Unformatted output to sequential and stream units: WRITE(u).
//
// A record goes to the file as its length, the payload, and the length
// again, and the length is only known at the statement's end.  Its leading
// marker is reserved in the unit's buffer and filled in last.  A record
// that outgrows the buffer continues in a secondary buffer:
//
//   - on a regular file, one block of secondary_size bytes; when that fills
//     too, the head of the record goes to the file with its marker still
//     blank, and the end entry writes the marker in place (pwrite);
//   - on a pipe or terminal nothing can be taken back, so the record stays
//     in memory, in a chain of blocks, until its end.
//
//   buffer   flush_ptr        data_ptr             data_end      buffer_end
//     | written | finished records | marker, payload |   free      |
//
// Between statements data_ptr = data_end, and finished records wait in the
// buffer for a full block, a flush, a read, a reposition or the end.  Large
// items on regular files go from the caller's memory to write(2) without a
// copy, and what goes to the file at a record's end is a whole number of
// blocks, the tail staying in the buffer.
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

using Stmt = IoStatementSuw;

constexpr uint64_t kMinimumBuffer = 1024;
// The scratch area through which bulk data is reversed.
constexpr uint64_t kSwapPiece = 32768;

// A block of the chain that keeps a record in memory on a file that cannot
// seek back: a link, then secondary_size bytes.
struct ChainBlock {
  ChainBlock* next;
  char* data() { return reinterpret_cast<char*>(this + 1); }
};

bool regular(const Unit* u) { return (u->flags & UF_REGULAR_FILE) != 0; }

// The secondary blocks are whole numbers of blocksize, at most 64 KiB
// unless one block is more.
uint64_t secondary_size_for(uint64_t blocksize) {
  if (blocksize == 0) blocksize = kMinimumBuffer;
  if (blocksize >= 65536) return blocksize;
  return 65535 / blocksize * blocksize;
}

// secondary_size is set ahead of the allocation, so that a failure can
// report what was asked for.
int allocate_secondary(Unit* u) {
  const uint64_t size = secondary_size_for(u->blocksize);
  u->secondary_size = size;
  char* data;
  if (regular(u)) {
    data = static_cast<char*>(malloc(size));
    if (!data) return ERR_OUT_OF_MEMORY;
  } else {
    auto* block = static_cast<ChainBlock*>(malloc(sizeof(ChainBlock) + size));
    if (!block) return ERR_OUT_OF_MEMORY;
    block->next = nullptr;
    u->secondary_head = u->secondary_tail = block;
    data = block->data();
  }
  u->secondary_buffer = u->secondary_ptr = data;
  u->secondary_end = data + size;
  return 0;
}

int add_another_secondary(Unit* u) {
  auto* block = static_cast<ChainBlock*>(malloc(sizeof(ChainBlock) + u->secondary_size));
  if (!block) return ERR_OUT_OF_MEMORY;
  block->next = nullptr;
  static_cast<ChainBlock*>(u->secondary_tail)->next = block;
  u->secondary_tail = block;
  u->secondary_buffer = u->secondary_ptr = block->data();
  u->secondary_end = u->secondary_buffer + u->secondary_size;
  return 0;
}

void free_secondaries(Unit* u) {
  if (u->secondary_head) {
    for (auto* b = static_cast<ChainBlock*>(u->secondary_head); b;) {
      ChainBlock* next = b->next;
      free(b);
      b = next;
    }
  } else {
    free(u->secondary_buffer);
  }
  u->secondary_head = u->secondary_tail = nullptr;
  u->secondary_buffer = u->secondary_ptr = u->secondary_end = nullptr;
}

// The start of the record's secondary part: the first block of a chain.
char* first_secondary(Unit* u) {
  return u->secondary_head ? static_cast<ChainBlock*>(u->secondary_head)->data()
                           : u->secondary_buffer;
}

// Everything pending in the buffer goes to the file; the cursors return to
// the buffer's start.
int flush_buffer(Unit* u) {
  if (int err = push_out(u, u->data_end)) return err;
  reset_cursors(u);
  return 0;
}

// The failure exit: the open record is dropped from memory (what already
// reached a regular file stays there, its marker blank), then the frame's
// exit releases the unit and returns the number or reports.
// Out of memory, the Bytes line shows `bytes`, by default the size of a
// secondary block.
int fail(Stmt* s, int err, uint64_t bytes = 0) {
  Unit* u = s->unit_ptr;
  u->data_end = u->data_ptr;
  if (u->secondary_buffer) free_secondaries(u);
  FailureDetail d;
  d.bytes_line = err == ERR_OUT_OF_MEMORY;
  d.bytes = bytes ? bytes : u->secondary_size;
  return fail_statement(statement_ref(s), u, err, d);
}

// Bytes into the buffer alone, flushing it whenever it is full (the
// trailing marker, after the secondary part has gone).
int put_primary(Unit* u, const char* p, uint64_t n) {
  while (n > 0) {
    if (u->data_end == u->buffer_end)
      if (int err = flush_buffer(u)) return err;
    const uint64_t room = static_cast<uint64_t>(u->buffer_end - u->data_end);
    const uint64_t k = n < room ? n : room;
    memcpy(u->data_end, p, k);
    u->data_end += k;
    p += k;
    n -= k;
  }
  return 0;
}

// Payload bytes that do not fit where the record's cursor is.
[[gnu::noinline]] int put_slow(Unit* u, const char* p, uint64_t n) {
  if (!u->secondary_buffer) {
    const uint64_t room = static_cast<uint64_t>(u->buffer_end - u->data_end);
    if (n <= room) {
      memcpy(u->data_end, p, n);
      u->data_end += n;
      return 0;
    }
    memcpy(u->data_end, p, room);
    u->data_end = u->buffer_end;
    p += room;
    n -= room;
    if (marker_less(u)) {
      // No marker to come back for: the buffer goes, whole buffers of the
      // item go straight from the caller, the tail waits in the buffer.
      if (int err = flush_buffer(u)) return err;
      const uint64_t size = static_cast<uint64_t>(u->buffer_end - u->buffer);
      const uint64_t direct = n - n % size;
      if (direct)
        if (int err = write_raw(u, p, direct)) return err;
      memcpy(u->data_end, p + direct, n - direct);
      u->data_end += n - direct;
      return 0;
    }
    if (int err = allocate_secondary(u)) return err;
  }
  for (;;) {
    const uint64_t room = static_cast<uint64_t>(u->secondary_end - u->secondary_ptr);
    if (n <= room) {
      memcpy(u->secondary_ptr, p, n);
      u->secondary_ptr += n;
      return 0;
    }
    memcpy(u->secondary_ptr, p, room);
    u->secondary_ptr = u->secondary_end;
    p += room;
    n -= room;
    if (regular(u)) {
      // The head goes to the file, its marker blank; both buffers empty.
      if (u->flush_ptr < u->data_end)
        if (int err = flush_buffer(u)) return err;
      if (int err = write_raw(u, u->secondary_buffer,
                              static_cast<uint64_t>(u->secondary_ptr - u->secondary_buffer)))
        return err;
      u->secondary_ptr = u->secondary_buffer;
      const uint64_t direct = n - n % u->secondary_size;
      if (direct) {
        if (int err = write_raw(u, p, direct)) return err;
        p += direct;
        n -= direct;
      }
    } else if (int err = add_another_secondary(u)) {
      return err;
    }
  }
}

inline int put(Unit* u, const char* p, uint64_t n) {
  if (!u->secondary_buffer && static_cast<uint64_t>(u->buffer_end - u->data_end) >= n) {
    memcpy(u->data_end, p, n);
    u->data_end += n;
    return 0;
  }
  return put_slow(u, p, n);
}

// Buffer, then the reserved leading marker: the part of a start that
// follows the connection checks.  No secondary block outlives its record
// (the end and every failure free it), so there is none here.
[[gnu::noinline]] int open_record_slow(Stmt* s, Unit* u) {
  if (u->flags & UF_BUFFER_GROWN) {
    if (u->buffer)
      if (int err = push_out(u, u->data_end)) return fail(s, err);
    free(u->buffer);
    u->buffer = u->buffer_end = nullptr;
    u->flush_ptr = u->data_ptr = u->data_end = nullptr;
    u->flags &= ~UF_BUFFER_GROWN;
  }
  if (!u->buffer) {
    if (u->blocksize == 0) {
      struct stat st;
      if (fstat(u->fd, &st) != 0) return fail(s, errno);
      u->blocksize = st.st_blksize > 0 ? static_cast<uint64_t>(st.st_blksize) : kMinimumBuffer;
    }
    uint64_t size = u->blocksize;
    if (size < kMinimumBuffer) size = (kMinimumBuffer + size - 1) / size * size;
    if (!allocate_buffer(u, size)) return fail(s, ERR_OUT_OF_MEMORY, size);
    u->buffer_size = size;
  }
  u->flags &= ~(UF_RECORD_LOADED | UF_AT_EOF_DATA | UF_AFTER_ENDFILE);
  if (marker_less(u)) return 0;
  // The leading marker, blank until the end.  A record never starts at the
  // very end of the buffer; one that starts within 4 bytes of it has its
  // marker split with the secondary buffer.
  if (u->data_end == u->buffer_end)
    if (int err = flush_buffer(u)) return fail(s, err);
  const uint64_t room = static_cast<uint64_t>(u->buffer_end - u->data_end);
  if (room >= 4) {
    memset(u->data_end, 0, 4);
    u->data_end += 4;
    return 0;
  }
  memset(u->data_end, 0, room);
  u->data_end = u->buffer_end;
  if (int err = allocate_secondary(u)) return fail(s, err);
  memset(u->secondary_ptr, 0, 4 - room);
  u->secondary_ptr += 4 - room;
  return 0;
}

// The usual start: a buffer with room for the marker, on a unit with
// markers.
inline int open_record(Stmt* s, Unit* u) {
  constexpr uint32_t kUnusual = UF_BUFFER_GROWN | UF_STREAM | UF_BINARY;
  if (!(u->flags & kUnusual) && u->buffer && u->buffer_end - u->data_end >= 4) [[likely]] {
    u->flags &= ~(UF_RECORD_LOADED | UF_AT_EOF_DATA | UF_AFTER_ENDFILE);
    memset(u->data_end, 0, 4);
    u->data_end += 4;
    return 0;
  }
  return open_record_slow(s, u);
}

// The record's length, 4 bytes in the file's order.
void marker_bytes(const Stmt* s, const Unit* u, char m[4]) {
  uint32_t v = static_cast<uint32_t>(s->record_written);
  if (byte_swapped(u)) v = __builtin_bswap32(v);
  memcpy(m, &v, 4);
}

// The secondary part goes to the file: every chain block but the last in
// full, then of the last block (or the one buffer) whole blocks of
// blocksize; the tail moves to the emptied buffer.
int write_secondary_part(Unit* u) {
  char* last = u->secondary_buffer;
  for (auto* b = static_cast<ChainBlock*>(u->secondary_head); b && b->data() != last; b = b->next)
    if (int err = write_raw(u, b->data(), u->secondary_size)) return err;
  const uint64_t n = static_cast<uint64_t>(u->secondary_ptr - last);
  const uint64_t block = u->blocksize ? u->blocksize : 1;
  const uint64_t tail = n % block;
  if (n > tail)
    if (int err = write_raw(u, last, n - tail)) return err;
  memcpy(u->data_end, last + (n - tail), tail);
  u->data_end += tail;
  return 0;
}

// The end of a record whose head is still in memory.
int finish_in_memory(Unit* u, const char m[4]) {
  const uint64_t head = static_cast<uint64_t>(u->data_end - u->data_ptr);
  if (head >= 4) {
    memcpy(u->data_ptr, m, 4);
  } else {
    memcpy(u->data_ptr, m, head);
    memcpy(first_secondary(u), m + head, 4 - head);
  }
  if (!u->secondary_buffer) return put_primary(u, m, 4);
  if (int err = flush_buffer(u)) return err;
  const uint64_t room = static_cast<uint64_t>(u->secondary_end - u->secondary_ptr);
  const uint64_t t = room < 4 ? room : 4;
  memcpy(u->secondary_ptr, m, t);
  u->secondary_ptr += t;
  if (int err = write_secondary_part(u)) return err;
  free_secondaries(u);
  return put_primary(u, m + t, 4 - t);
}

// The end of a record whose head went to the file (regular files only):
// the secondary buffer's whole blocks go out, then the leading marker is
// written in place, leaving the file's position where it was.
int finish_on_file(Stmt* s, Unit* u, const char m[4]) {
  const uint64_t room = static_cast<uint64_t>(u->secondary_end - u->secondary_ptr);
  const uint64_t t = room < 4 ? room : 4;
  memcpy(u->secondary_ptr, m, t);
  u->secondary_ptr += t;
  const uint64_t held = static_cast<uint64_t>(u->secondary_ptr - u->secondary_buffer);
  const uint64_t tail = held % (u->blocksize ? u->blocksize : 1);
  if (int err = write_secondary_part(u)) return err;
  if (u->stream && fflush(u->stream) != 0) return errno ? errno : EIO;
  const off_t here = lseek(u->fd, 0, SEEK_CUR);
  if (here < 0) return errno;
  // The file holds the marker, the payload and t bytes of the trailing
  // marker, less the tail kept back.
  const off_t head =
      here - static_cast<off_t>(t + static_cast<uint64_t>(s->record_written) + 4 - tail);
  for (;;) {
    const ssize_t n = pwrite(u->fd, m, 4, head);
    if (n == 4) break;
    if (n < 0 && errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
    return n < 0 ? errno : EIO;
  }
  free_secondaries(u);
  return put_primary(u, m + t, 4 - t);
}

template <ItemShape shape>
[[gnu::noinline]] int write_value_slow(Stmt* s, const void* value) {
  Unit* u = s->unit_ptr;
  if (s->record_written > kMaxRecord - shape.size && !marker_less(u))
    return fail(s, ERR_RECORD_TOO_LONG);
  s->record_written += shape.size;
  const char* p = static_cast<const char*>(value);
  char swapped[shape.size];
  if constexpr (shape.element > 1) {
    if (byte_swapped(u)) {
      reverse_each<shape.element>(swapped, p, shape.size);
      p = swapped;
    }
  }
  if (int err = put(u, p, shape.size)) return fail(s, err);
  return 0;
}

// The usual item: room in the buffer, no byte swap, far from the limit.
template <ItemShape shape>
inline int write_value(Stmt* s, const void* value) {
  Unit* u = s->unit_ptr;
  char* at = u->data_end;
  if (s->record_written <= kMaxRecord - shape.size && !u->secondary_buffer &&
      u->buffer_end - at >= static_cast<ptrdiff_t>(shape.size) &&
      (shape.element == 1 || !byte_swapped(u))) [[likely]] {
    memcpy(at, value, shape.size);
    u->data_end = at + shape.size;
    s->record_written += shape.size;
    return 0;
  }
  return write_value_slow<shape>(s, value);
}

// Every other end: a record with a secondary part or one that went to the
// file, a byte-swapped or marker-less unit, a full buffer, or a unit that
// wants its bytes at once.
[[gnu::noinline]] int end_record(Stmt* s) {
  Unit* u = s->unit_ptr;
  if (u->flags & UF_NESTED) return fail(s, ERR_REENTRANT_IO);
  if (!marker_less(u)) {
    char m[4];
    marker_bytes(s, u, m);
    const int err = u->data_ptr < u->data_end ? finish_in_memory(u, m) : finish_on_file(s, u, m);
    if (err) return fail(s, err);
  }
  u->data_ptr = u->data_end;
  if (u->data_end == u->buffer_end)
    if (int err = flush_buffer(u)) return fail_statement(statement_ref(s), u, err);
  if (int err = end_push(statement_ref(s), u)) return err;
  release_unit(u);
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_ssuw(Stmt* s) {
  s->record_written = 0;
  return start_then<kUnformattedWrite, open_record>(s);
}

QAL_EXPORT int __f90_ssuw_pos(Stmt* s, int64_t pos) {
  s->record_written = 0;
  if (int err = start_stream(statement_ref(s), pos, kUnformattedWrite)) return err;
  return open_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_suw_i1(Stmt* s, int8_t v) { return write_value<ItemShape{1, 1}>(s, &v); }
QAL_EXPORT int __f90_suw_i2(Stmt* s, int16_t v) { return write_value<ItemShape{2, 2}>(s, &v); }
QAL_EXPORT int __f90_suw_i4(Stmt* s, int32_t v) { return write_value<ItemShape{4, 4}>(s, &v); }
QAL_EXPORT int __f90_suw_i8(Stmt* s, int64_t v) { return write_value<ItemShape{8, 8}>(s, &v); }
QAL_EXPORT int __f90_suw_r4(Stmt* s, float v) { return write_value<ItemShape{4, 4}>(s, &v); }
QAL_EXPORT int __f90_suw_r8(Stmt* s, double v) { return write_value<ItemShape{8, 8}>(s, &v); }
QAL_EXPORT int __f90_suw_r16(Stmt* s, uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return write_value<ItemShape{16, 16}>(s, v);
}
QAL_EXPORT int __f90_suw_r16_ref(Stmt* s, const void* v) {
  return write_value<ItemShape{16, 16}>(s, v);
}
QAL_EXPORT int __f90_suw_c4(Stmt* s, const void* v) { return write_value<ItemShape{8, 4}>(s, v); }
QAL_EXPORT int __f90_suw_c8(Stmt* s, const void* v) { return write_value<ItemShape{16, 8}>(s, v); }
QAL_EXPORT int __f90_suw_c16(Stmt* s, const void* v) {
  return write_value<ItemShape{32, 16}>(s, v);
}
QAL_EXPORT int __f90_suw_ia8(Stmt* s, const void* v) { return write_value<ItemShape{8, 4}>(s, v); }
QAL_EXPORT int __f90_suw_ia16(Stmt* s, const void* v) {
  return write_value<ItemShape{16, 8}>(s, v);
}
QAL_EXPORT int __f90_suw_ia32(Stmt* s, const void* v) {
  return write_value<ItemShape{32, 16}>(s, v);
}

QAL_EXPORT int __f90_suw_n(Stmt* s, const void* data, int64_t bytes) {
  Unit* u = s->unit_ptr;
  if (bytes <= 0) return 0;
  if (!marker_less(u) && (bytes > kMaxRecord || s->record_written > kMaxRecord - bytes))
    return fail(s, ERR_RECORD_TOO_LONG);
  const BulkPlan plan = plan_bulk(s->stmt_flags, u);
  if (plan.error) return fail(s, plan.error);
  s->record_written += bytes;
  const char* p = static_cast<const char*>(data);
  uint64_t n = static_cast<uint64_t>(bytes);
  if (!plan.element) {
    if (int err = put(u, p, n)) return fail(s, err);
    return 0;
  }
  char scratch[kSwapPiece];
  while (n > 0) {
    const uint64_t k = n < kSwapPiece ? n : kSwapPiece;
    reverse_elements(scratch, p, k, plan.element);
    if (int err = put(u, scratch, k)) return fail(s, err);
    p += k;
    n -= k;
  }
  return 0;
}

QAL_EXPORT int __f90_suw_pad(Stmt* s, const int32_t* table) {
  Unit* u = s->unit_ptr;
  const int32_t n = table[alignment_code(u)];
  if (n <= 0) return 0;
  if (!marker_less(u) && s->record_written > kMaxRecord - n) return fail(s, ERR_RECORD_TOO_LONG);
  s->record_written += n;
  static const char zeros[256] = {};
  for (int32_t left = n; left > 0;) {
    const int32_t k = left < 256 ? left : 256;
    if (int err = put(u, zeros, static_cast<uint64_t>(k))) return fail(s, err);
    left -= k;
  }
  return 0;
}

QAL_EXPORT int __f90_esuw(Stmt* s) {
  Unit* u = s->unit_ptr;
  // The usual end: a record in the buffer with room behind it for its
  // trailing marker, on a unit that takes its bytes a buffer at a time.
  constexpr uint32_t kUnusual = UF_NESTED | UF_STREAM | UF_BINARY;
  if (!(u->flags & kUnusual) && !u->secondary_buffer && u->buffer_end - u->data_end > 4 &&
      !byte_swapped(u) && !end_push_needed(u)) [[likely]] {
    const uint32_t marker = static_cast<uint32_t>(s->record_written);
    memcpy(u->data_ptr, &marker, 4);
    memcpy(u->data_end, &marker, 4);
    u->data_ptr = u->data_end += 4;
    release_unit(u);
    return 0;
  }
  return end_record(s);
}

}  // extern "C"
}  // namespace qal
