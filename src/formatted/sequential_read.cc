// Formatted input from sequential and stream units: READ(u,fmt), READ fmt.
//
// Records are found in place in the unit's buffer and fields are parsed
// there; nothing is copied.  A record is the text up to a newline, or up to
// the end of the file for a last line without one.
//
//   buffer   record_start     record_end  data_ptr           data_end
//     | taken |  the current record  | \n |  read ahead       |  free  |
//
// After ADVANCE='NO' the record stays loaded and data_ptr marks where the
// statement stopped (the furthest field end); the next statement goes on
// from there.  The buffer grows by 8192 bytes for a record longer than it
// and gives the memory back at the next statement boundary.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "formatted/correction_hook.h"
#include "formatted/read_items.h"
#include "formatted/real_input.h"
#include "frame/frame.h"
#include "qal/formatted.h"

using namespace qal;

namespace {

using Stmt = IoStatementSfr;

int fail(Stmt* s, int err, uint64_t bytes = 0) {
  FailureDetail d;
  d.bytes_line = err == ERR_OUT_OF_MEMORY;
  d.bytes = bytes;
  return fail_statement(statement_ref(s), s->unit_ptr, err, d);
}

struct SequentialInput : InputWalk<SequentialInput> {
  Stmt* stmt;

  explicit SequentialInput(Stmt* s) : stmt(s) {}

  Unit* cursor() const { return stmt->unit_ptr; }
  int fail(int err, uint64_t bytes) { return ::fail(stmt, err, bytes); }
  void at_data_edit() { cursor()->handler_pos = 0; }
  void count_size(int64_t n) { stmt->size_count += n; }
  bool nopad() const { return (cursor()->flags & UF_NOPAD) != 0; }
  // The buffer holds the file's bytes up to data_end, past the record.
  const char* load_limit() const { return cursor()->data_end; }
  bool has_hook() const { return stmt->unit_ptr->io_error_handler != nullptr; }
  BadCharacterHook hook() {
    BadCharacterHook h;
    h.separator = separator();
    if (!has_hook()) [[likely]]
      return h;
    site = {stmt->unit_ptr, stmt->unit, stmt->location};
    return correction_hook(&site, h.separator);
  }
  CorrectionSite site{};

  void load_record(char* start, char* end) {
    Unit* u = cursor();
    u->flags |= UF_RECORD_LOADED;
    u->record_start = u->record_pos = u->record_high = start;
    u->record_end = end;
  }

  // The file has no more records: the buffer goes, and the statement ends.
  int end_of_file() {
    Unit* u = cursor();
    u->flags |= UF_AT_EOF_DATA | UF_AFTER_ENDFILE;
    drop_buffer(u);
    return fail(ERR_END_OF_FILE, 0);
  }

  // The next record: the text up to the next newline, reading more of the
  // file while the buffer holds none.
  int next_record() {
    Unit* u = cursor();
    int64_t scanned = 0;  // bytes behind data_ptr known to hold no newline
    for (;;) {
      if (u->data_ptr + scanned < u->data_end) {
        char* from = u->data_ptr + scanned;
        if (char* nl =
                static_cast<char*>(memchr(from, '\n', static_cast<size_t>(u->data_end - from)))) {
          load_record(u->data_ptr, nl);
          u->data_ptr = nl + 1;
          return 0;
        }
        scanned = u->data_end - u->data_ptr;
      }
      if (u->flags & UF_AT_EOF_DATA) {
        if (u->data_ptr >= u->data_end) return end_of_file();
        // A last line without its newline.
        load_record(u->data_ptr, u->data_end);
        u->data_ptr = u->data_end + 1;
        return 0;
      }
      int err = 0;
      uint64_t size = 0;
      const int64_t got = fill_buffer(u, &err, &size);
      if (got < 0) {
        // What was buffered is lost; the file stays behind it.
        if (err != ERR_OUT_OF_MEMORY) drop_buffer(u);
        return fail(err, size);
      }
      if (got == 0) u->flags |= UF_AT_EOF_DATA;
    }
  }

  // The statement's end: after ADVANCE='NO' the record stays, and the next
  // statement starts at the furthest field end; otherwise the record is
  // done.
  int finish_record() {
    Unit* u = cursor();
    if (stmt->stmt_flags & SF_NO_ADVANCE) {
      u->data_ptr = u->record_high;
    } else {
      leave_record();
    }
    return 0;
  }
  int stop_at_dollar() { return finish_record(); }

  void leave_record() {
    Unit* u = cursor();
    u->data_ptr = u->record_end + 1;
    u->flags &= ~UF_RECORD_LOADED;
    u->column = 0;
  }

  int end_of_record() {
    leave_record();
    return fail(ERR_END_OF_RECORD, 0);
  }

  // The old dialect takes a short record under PAD='NO' as the end of the
  // file.
  int requires_too_much() {
    leave_record();
    return fail((stmt->stmt_flags & SF_F77_READ) ? ERR_END_OF_FILE : ERR_RECORD_TOO_SHORT, 0);
  }
};

static_assert(RecordPolicy<SequentialInput>);

// Gives back what the record getter grew, between statements.
int shrink_between_statements(Stmt* s, Unit* u) {
  if (!(u->flags & UF_BUFFER_GROWN) || (u->flags & UF_RECORD_LOADED)) return 0;
  uint64_t size = 0;
  if (shrink_buffer(u, &size)) return fail(s, ERR_OUT_OF_MEMORY, size);
  return 0;
}

// The part of a start that follows the connection checks and the turn of
// the unit: the buffer, the format, the modes, and the first record.
int open_statement(Stmt* s, Unit* u) {
  if (int err = shrink_between_statements(s, u)) return err;
  if (!u->buffer) {
    if (u->blocksize == 0) u->blocksize = 8192;
    if (!allocate_buffer(u, u->blocksize)) return fail(s, ERR_OUT_OF_MEMORY, u->blocksize);
    u->flags &= ~(UF_RECORD_LOADED | UF_BUFFER_GROWN);
  }
  if (!(s->stmt_flags & SF_NO_PARSED_FORMAT)) {
    const int32_t* f = s->format;
    if (!f || (reinterpret_cast<uintptr_t>(f) & 3) || f[FMT_WORD_MAGIC] != FMT_MAGIC)
      return fail(s, ERR_CORRUPTED_FORMAT);
    s->format_index = f[FMT_WORD_FIRST_OP];
  }
  s->stmt_flags &= ~SF_FORMAT_WRAPPED;
  s->radix = 10;
  s->scale_factor = 0;
  if (!(u->flags & UF_BLANK_NULL) &&
      ((u->flags & UF_BLANK_ZERO) || (s->stmt_flags & SF_BLANK_ZERO_DEFAULT)))
    s->stmt_flags |= SF_BZ;
  SequentialInput p(s);
  if ((u->flags & UF_RECORD_LOADED) && u->data_ptr < u->record_end) {
    // The rest of a record that a non-advancing statement left.
    u->record_start = u->record_pos = u->record_high = u->data_ptr;
    return 0;
  }
  return p.next_record();
}

[[gnu::noinline]] int read_one_f77(Stmt* s, void* item, int64_t size) {
  SequentialInput p(s);
  return read_item_f77(p, item, size);
}

[[gnu::always_inline]] inline int read_one(Stmt* s, const ItemRef& item) {
  if (s->stmt_flags & SF_F77_READ) [[unlikely]]
    return read_one_f77(s, item.address, item.size);
  SequentialInput p(s);
  return read_item(p, item);
}

template <class T>
int read_integer(Stmt* s, T* item) {
  return read_one(s, {std::is_signed_v<T> ? ItemRef::Integer : ItemRef::Unsigned, item, sizeof(T)});
}

// A complex item is two reals, the second at the next data edit
// descriptor; it counts as one item.
int read_complex(Stmt* s, void* item, int64_t half) {
  if (int err = read_one(s, {ItemRef::Real, item, half})) return err;
  s->unit_ptr->item_count--;
  return read_one(s, {ItemRef::Real, static_cast<char*>(item) + half, half});
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

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_ssfr(Stmt* s) {
  if (int err = start_statement<kSequentialFormattedRead>(s)) return err;
  return open_statement(s, s->unit_ptr);
}

QAL_EXPORT int __f90_ssfr_pos(Stmt* s, int64_t pos) {
  if (int err = start_stream(statement_ref(s), pos, kSequentialFormattedRead)) return err;
  return open_statement(s, s->unit_ptr);
}

// Before the start entry: no unit is taken yet, so its errors name none.
QAL_EXPORT int __f90_sfr_advance(Stmt* s, const char* text, int64_t length) {
  FailureDetail d;
  d.unit_line = false;
  int err = 0;
  if (!text) {
    err = ERR_UNASSOCIATED_ADVANCE;
  } else if (length >= 2 && advance_is(text, length, "NO")) {
    s->stmt_flags |= SF_NO_ADVANCE;
  } else if (length >= 3 && advance_is(text, length, "YES")) {
    if (s->stmt_flags & SF_EOR_GIVEN)
      err = ERR_EOR_WITH_ADVANCING;
    else if (s->stmt_flags & SF_SIZE_GIVEN)
      err = ERR_SIZE_WITH_ADVANCING;
    else
      s->stmt_flags &= ~SF_NO_ADVANCE;
  } else {
    err = ERR_BAD_ADVANCE;
  }
  return err ? fail_statement(statement_ref(s), nullptr, err, d) : 0;
}

QAL_EXPORT int __f90_sfr_i1(Stmt* s, int8_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_i2(Stmt* s, int16_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_i4(Stmt* s, int32_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_i8(Stmt* s, int64_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_u1(Stmt* s, uint8_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_u2(Stmt* s, uint16_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_u4(Stmt* s, uint32_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_u8(Stmt* s, uint64_t* v) { return read_integer(s, v); }
QAL_EXPORT int __f90_sfr_l1(Stmt* s, int8_t* v) { return read_one(s, {ItemRef::Logical, v, 1}); }
QAL_EXPORT int __f90_sfr_l2(Stmt* s, int16_t* v) { return read_one(s, {ItemRef::Logical, v, 2}); }
QAL_EXPORT int __f90_sfr_l4(Stmt* s, int32_t* v) { return read_one(s, {ItemRef::Logical, v, 4}); }
QAL_EXPORT int __f90_sfr_l8(Stmt* s, int64_t* v) { return read_one(s, {ItemRef::Logical, v, 8}); }
QAL_EXPORT int __f90_sfr_r4(Stmt* s, float* v) { return read_one(s, {ItemRef::Real, v, 4}); }
QAL_EXPORT int __f90_sfr_r8(Stmt* s, double* v) { return read_one(s, {ItemRef::Real, v, 8}); }
QAL_EXPORT int __f90_sfr_r16(Stmt* s, void* v) { return read_one(s, {ItemRef::Real, v, 16}); }
QAL_EXPORT int __f90_sfr_c4(Stmt* s, void* v) { return read_complex(s, v, 4); }
QAL_EXPORT int __f90_sfr_c8(Stmt* s, void* v) { return read_complex(s, v, 8); }
QAL_EXPORT int __f90_sfr_c16(Stmt* s, void* v) { return read_complex(s, v, 16); }
QAL_EXPORT int __f90_sfr_ch(Stmt* s, char* text, int64_t length) {
  return read_one(s, {ItemRef::Character, text, length < 0 ? 0 : length});
}

QAL_EXPORT int __f90_esfr(Stmt* s) {
  Unit* u = s->unit_ptr;
  // The usual end: an advancing statement whose format has nothing left
  // but its end (perhaps behind the ends of finished repeats) leaves the
  // record, and the buffer has not grown.
  constexpr uint32_t kUnusual = SF_NO_PARSED_FORMAT | SF_FREE_FORMAT | SF_NO_ADVANCE;
  if (!(s->stmt_flags & kUnusual) && !(u->flags & UF_BUFFER_GROWN)) {
    const int32_t* op = s->format + s->format_index;
    while (op[0] == FMT_END_REPEAT && s->format_counters[op[1]] <= 1) op += 3;
    if (op[0] == FMT_END) {
      SequentialInput(s).leave_record();
      release_unit(u);
      return 0;
    }
  }
  if (!(s->stmt_flags & SF_NO_PARSED_FORMAT)) {
    SequentialInput p(s);
    if (int err = finish_format(p)) return err;
  }
  if (s->stmt_flags & SF_FREE_FORMAT) {
    free(const_cast<int32_t*>(s->format));
    s->format = nullptr;
    s->stmt_flags &= ~SF_FREE_FORMAT;
  }
  if (int err = shrink_between_statements(s, u)) return err;
  release_unit(u);
  return 0;
}

QAL_EXPORT int __f90_read_sf_record(Unit* u, int32_t flags, int64_t unit,
                                    const Location* location) {
  int err = 0;
  uint64_t size = 0;
  int64_t scanned = 0;
  if (!u->buffer) {
    size = u->blocksize ? u->blocksize : 8192;
    if (!allocate_buffer(u, size)) err = ERR_OUT_OF_MEMORY;
  }
  while (!err) {
    char* from = u->data_ptr + scanned;
    if (from < u->data_end) {
      if (char* nl =
              static_cast<char*>(memchr(from, '\n', static_cast<size_t>(u->data_end - from)))) {
        u->record_start = u->record_pos = u->record_high = u->data_ptr;
        u->record_end = nl;
        u->data_ptr = nl + 1;
        return 0;
      }
      scanned = u->data_end - u->data_ptr;
    }
    const int64_t got = fill_buffer(u, &err, &size);
    if (got < 0) break;
    if (got == 0) {
      u->flags |= UF_AFTER_ENDFILE;
      err = ERR_END_OF_FILE;
      break;
    }
  }
  const bool returned = err == ERR_END_OF_FILE ? (flags & 2) != 0 : (flags & 1) != 0;
  char name[kNameCopySize];
  const char* file = __f90_copy_filename(u, name);
  __f90_release_unit(u);
  if (returned) return err;
  report_and_abort(err, location, true, unit, file, err == ERR_OUT_OF_MEMORY, size);
}

}  // extern "C"
}  // namespace qal
