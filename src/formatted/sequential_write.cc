// Formatted output to sequential and stream units: WRITE(u,fmt), PRINT fmt.
//
// The record is composed in place in the unit's buffer; fields go straight
// to record_pos.  Finished records stay in the buffer until it fills, so a
// file sees whole blocks.  A record is never split between two fills of the
// buffer: when a field does not fit, the finished records go out, the open
// record slides to the front, and if that is not enough the buffer grows.
//
//   buffer   flush_ptr       data_ptr  record_start          data_end
//     | written | finished records |  kept  | open record    |  free  |
//
// "kept" is what a non-advancing statement or `$` left of the current line;
// the open record of this statement starts behind it, so T counts from
// where the statement began.
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <initializer_list>

#include "formatted/write_items.h"
#include "frame/frame.h"
#include "qal/formatted.h"

using namespace qal;

namespace {

using Stmt = IoStatementSfw;

constexpr int64_t kMinimumBuffer = 256;

int fail(Stmt* s, int err, uint64_t bytes = 0) {
  FailureDetail d;
  d.bytes_line = err == ERR_OUT_OF_MEMORY;
  d.bytes = bytes;
  return fail_output_statement(statement_ref(s), s->unit_ptr, err, d);
}

struct SequentialRecord : OutputWalk<SequentialRecord> {
  Stmt* stmt;
  uint64_t failed_bytes = 0;

  Unit* cursor() const { return stmt->unit_ptr; }

  int fail(int err, uint64_t bytes) { return ::fail(stmt, err, bytes ? bytes : failed_bytes); }

  // Room for `size` bytes at record_pos: first by writing the finished
  // records and sliding the open one to the front, then by growing.
  __attribute__((noinline)) bool make_room(int64_t size, int* err) {
    Unit* u = stmt->unit_ptr;
    if (u->flush_ptr < u->record_start) {
      if (int e = push_out(u, u->record_start)) {
        *err = e;
        return false;
      }
      slide_to_front(u, u->record_start);
      if (size <= u->buffer_end - u->record_pos) return true;
    }
    // Whole blocks, enough for the field wherever record_pos stands.
    const int64_t block = static_cast<int64_t>(u->blocksize ? u->blocksize : kMinimumBuffer);
    const int64_t short_by = (u->record_pos + size) - u->buffer_end;
    const int64_t growth = (short_by / block + 1) * block;
    const uint64_t new_size = static_cast<uint64_t>((u->buffer_end - u->buffer) + growth);
    if (!resize_buffer(u, new_size)) {
      failed_bytes = new_size;
      *err = ERR_OUT_OF_MEMORY;
      return false;
    }
    return true;
  }

  __attribute__((always_inline)) char* allocate_field(int64_t size, int* err) {
    Unit* u = stmt->unit_ptr;
    if (size < 0) {
      *err = ERR_NEGATIVE_FIELD_WIDTH;
      return nullptr;
    }
    if (size > u->buffer_end - u->record_pos && !make_room(size, err)) return nullptr;
    if (u->record_pos > u->record_high) [[unlikely]]
      memset(u->record_high, ' ', static_cast<size_t>(u->record_pos - u->record_high));
    char* field = u->record_pos;
    u->record_pos += size;
    if (u->record_pos > u->record_high)
      u->record_high = u->record_end = u->data_end = u->record_pos;
    return field;
  }

  // Carriage control of a FORM='PRINT' unit: the record's first byte is
  // the control character.  Returns false when the record's newline must be
  // lost, which happens when an empty record drops a byte already gone.
  bool apply_carriage_control() {
    Unit* u = stmt->unit_ptr;
    char* first = u->record_start;
    // An empty record looks at whatever stands where it would begin.
    const char control = first < u->buffer_end ? *first : ' ';
    if (control == '0') {
      *first = '\n';
      return true;
    }
    if (control == '1') {
      *first = '\f';
      return true;
    }
    if (control == '+') {
      // Overprint: the previous record's newline becomes a return, or, when
      // it has gone to the file already, the file steps back over it.
      if (first > u->flush_ptr)
        first[-1] = '\r';
      else if (u->stream)
        fseeko(u->stream, -1, SEEK_CUR);
      else
        lseek(u->fd, -1, SEEK_CUR);
    }
    // The control byte goes: the record moves one to the left.
    if (u->data_end > first) {
      memmove(first, first + 1, static_cast<size_t>(u->data_end - first - 1));
      u->data_end--;
      return true;
    }
    if (u->data_end > u->flush_ptr) {
      u->data_end--;
      return true;
    }
    return false;
  }

  int end_record(int32_t n) {
    Unit* u = stmt->unit_ptr;
    u->column = 0;
    bool newline = true;
    if ((u->flags & (UF_SEQUENTIAL | UF_PRINT_FORM)) == (UF_SEQUENTIAL | UF_PRINT_FORM))
      newline = apply_carriage_control();
    for (int32_t k = 0; k < n; ++k) {
      if (k == 0 && !newline) {
        u->record_number++;
        continue;
      }
      if (u->data_end >= u->buffer_end) {
        if (int err = push_out(u, u->data_end)) return fail(err, 0);
        reset_cursors(u);
      }
      *u->data_end++ = '\n';
      u->record_number++;
    }
    u->data_ptr = u->record_start = u->record_pos = u->record_high = u->record_end = u->data_end;
    return 0;
  }

  // The record stays open for the next statement, as after ADVANCE='NO'.
  void keep_open() {
    Unit* u = stmt->unit_ptr;
    u->column += u->record_end - u->record_start;
    u->data_end = u->data_ptr = u->record_end;
  }

  int stop_at_dollar() {
    keep_open();
    return 0;
  }

  int finish_record() {
    if (stmt->stmt_flags & SF_NON_ADVANCING) {
      keep_open();
      return 0;
    }
    return end_record(1);
  }
};

static_assert(RecordPolicy<SequentialRecord>);

// Buffer, format and edit modes: the part of a start that follows the
// connection checks.
int open_record(Stmt* s, Unit* u) {
  if (u->flags & UF_BUFFER_GROWN) {
    free(u->buffer);
    u->buffer = u->buffer_end = nullptr;
    u->flags &= ~UF_BUFFER_GROWN;
  }
  if (!u->buffer) {
    struct stat st;
    if (fstat(u->fd, &st) != 0) return fail(s, errno);
    const int64_t size = st.st_blksize < kMinimumBuffer ? kMinimumBuffer : st.st_blksize;
    u->blocksize = static_cast<uint64_t>(size);
    if (!allocate_buffer(u, static_cast<uint64_t>(size)))
      return fail(s, ERR_OUT_OF_MEMORY, static_cast<uint64_t>(size));
  }
  if (!(s->stmt_flags & SF_NO_PARSED_FORMAT)) {
    const int32_t* f = s->format;
    if (!f || (reinterpret_cast<uintptr_t>(f) & 3) || f[FMT_WORD_MAGIC] != FMT_MAGIC)
      return fail(s, ERR_CORRUPTED_FORMAT);
    s->format_index = f[FMT_WORD_FIRST_OP];
  }
  s->stmt_flags &= ~SF_AT_FORMAT_END;
  s->radix = 10;
  s->scale_factor = 0;
  s->sign_mode = 2;
  u->record_start = u->record_pos = u->record_high = u->record_end = u->data_end;
  return 0;
}

// ADVANCE=: "YES" or "NO" in any case, then nothing but blanks.
bool advance_is(const char* text, int64_t length, const char* word) {
  const int64_t n = static_cast<int64_t>(strlen(word));
  if (length < n) return false;
  for (int64_t i = 0; i < n; ++i)
    if ((text[i] & ~0x20) != word[i]) return false;
  for (int64_t i = n; i < length; ++i)
    if (text[i] != ' ') return false;
  return true;
}

template <class Item>
int write_one(Stmt* s, const Item& item) {
  SequentialRecord p{{}, s};
  return write_item(p, item);
}

template <int N>
int write_complex_item(Stmt* s, const void* value) {
  SequentialRecord p{{}, s};
  return write_complex<N>(p, value);
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_ssfw(Stmt* s) {
  if (int err = start_statement<kSequentialFormattedWrite>(s)) return err;
  return open_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_ssfw_pos(Stmt* s, int64_t pos) {
  if (int err = start_stream(statement_ref(s), pos, kSequentialFormattedWrite)) return err;
  return open_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_sfw_advance(Stmt* s, const char* text, int64_t length) {
  if (!text) return fail(s, ERR_UNASSOCIATED_ADVANCE);
  if (advance_is(text, length, "NO")) {
    s->stmt_flags |= SF_NON_ADVANCING;
  } else if (advance_is(text, length, "YES")) {
    s->stmt_flags &= ~SF_NON_ADVANCING;
  } else {
    return fail(s, ERR_BAD_ADVANCE);
  }
  return 0;
}

QAL_EXPORT int __f90_sfw_i1(Stmt* s, int8_t v) { return write_one(s, IntegerItem<int8_t>{v}); }
QAL_EXPORT int __f90_sfw_i2(Stmt* s, int16_t v) { return write_one(s, IntegerItem<int16_t>{v}); }
QAL_EXPORT int __f90_sfw_i4(Stmt* s, int32_t v) { return write_one(s, IntegerItem<int32_t>{v}); }
QAL_EXPORT int __f90_sfw_i8(Stmt* s, int64_t v) { return write_one(s, IntegerItem<int64_t>{v}); }
QAL_EXPORT int __f90_sfw_u1(Stmt* s, uint8_t v) { return write_one(s, IntegerItem<uint8_t>{v}); }
QAL_EXPORT int __f90_sfw_u2(Stmt* s, uint16_t v) { return write_one(s, IntegerItem<uint16_t>{v}); }
QAL_EXPORT int __f90_sfw_u4(Stmt* s, uint32_t v) { return write_one(s, IntegerItem<uint32_t>{v}); }
QAL_EXPORT int __f90_sfw_u8(Stmt* s, uint64_t v) { return write_one(s, IntegerItem<uint64_t>{v}); }
QAL_EXPORT int __f90_sfw_l1(Stmt* s, int8_t v) { return write_one(s, LogicalItem<int8_t>{v}); }
QAL_EXPORT int __f90_sfw_l2(Stmt* s, int16_t v) { return write_one(s, LogicalItem<int16_t>{v}); }
QAL_EXPORT int __f90_sfw_l4(Stmt* s, int32_t v) { return write_one(s, LogicalItem<int32_t>{v}); }
QAL_EXPORT int __f90_sfw_l8(Stmt* s, int64_t v) { return write_one(s, LogicalItem<int64_t>{v}); }
QAL_EXPORT int __f90_sfw_r4(Stmt* s, float v) { return write_one(s, RealItem<4>{&v}); }
QAL_EXPORT int __f90_sfw_r8(Stmt* s, double v) { return write_one(s, RealItem<8>{&v}); }
QAL_EXPORT int __f90_sfw_r16(Stmt* s, uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return write_one(s, RealItem<16>{v});
}
QAL_EXPORT int __f90_sfw_r16_ref(Stmt* s, const void* v) { return write_one(s, RealItem<16>{v}); }
QAL_EXPORT int __f90_sfw_c4(Stmt* s, const void* v) { return write_complex_item<4>(s, v); }
QAL_EXPORT int __f90_sfw_c8(Stmt* s, const void* v) { return write_complex_item<8>(s, v); }
QAL_EXPORT int __f90_sfw_c16(Stmt* s, const void* v) { return write_complex_item<16>(s, v); }
QAL_EXPORT int __f90_sfw_ch(Stmt* s, const char* text, int64_t length) {
  return write_one(s, CharacterItem{text, length});
}
QAL_EXPORT int __f90_sfw_ia8(Stmt* s, const void* v) { return write_one(s, IntervalItem<8>{v}); }
QAL_EXPORT int __f90_sfw_ia16(Stmt* s, const void* v) { return write_one(s, IntervalItem<16>{v}); }

QAL_EXPORT int __f90_esfw(Stmt* s) {
  Unit* u = s->unit_ptr;
  if (u->flags & UF_NESTED) return fail(s, ERR_REENTRANT_IO);
  if (!(s->stmt_flags & SF_NO_PARSED_FORMAT)) {
    SequentialRecord p{{}, s};
    if (int err = finish_format(p)) return err;
  }
  if (s->stmt_flags & SF_FREE_FORMAT) {
    free(const_cast<int32_t*>(s->format));
    s->format = nullptr;
  }
  if (int err = end_push(statement_ref(s), u)) return err;
  if (u->flags & UF_BUFFER_GROWN) {
    free(u->buffer);
    u->buffer = u->buffer_end = nullptr;
    u->flush_ptr = u->data_ptr = u->data_end = nullptr;
    u->flags &= ~UF_BUFFER_GROWN;
  }
  release_unit(u);
  return 0;
}

}  // extern "C"
}  // namespace qal
