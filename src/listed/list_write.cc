// List-directed output to a unit: PRINT *, WRITE(u,*).
//
// Items are written at their natural width.  A record is broken only when
// the next item would pass record_length (the line length on the standard
// units, no limit worth the name on files opened without RECL=).  Adjacent
// undelimited character items touch; every other pair gets one blank.  The
// old dialect (SF_F77_WRITE) separates with two blanks and wraps at
// line_limit, and starts every continuation record with a blank; its reals
// stand in fixed fields whose leading blanks separate them.
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "listed/f77_real_text.h"
#include "listed/item_text.h"

using namespace qal;

namespace {

using Stmt = IoStatementSlw;

inline int fail(Stmt* s, int err, FailureDetail d = {}) {
  return fail_output_statement(statement_ref(s), s->unit_ptr, err, d);
}

// Write flush_ptr..data_end out and start the buffer afresh.
int flush_buffer(Stmt* s, Unit* u) {
  if (int err = push_out(u, u->data_end)) return fail(s, err);
  reset_cursors(u);
  return 0;
}

inline int make_room(Stmt* s, Unit* u, int64_t n) {
  if (u->buffer_end - u->data_end < n) return flush_buffer(s, u);
  return 0;
}

inline int put_char(Stmt* s, Unit* u, char c) {
  if (int err = make_room(s, u, 1)) return err;
  *u->data_end++ = c;
  return 0;
}

int end_record(Stmt* s, Unit* u) {
  if (s->stmt_flags & SF_F77_WRITE) {
    if (int err = make_room(s, u, 2)) return err;
    if (u->column > 1) {
      u->data_end[0] = '\n';
      u->data_end[1] = ' ';
      u->data_end += 2;
      u->column = 1;
    }
    return 0;
  }
  if (int err = make_room(s, u, 1)) return err;
  *u->data_end++ = '\n';
  u->column = 0;
  return 0;
}

// Append raw text to the record.  Text longer than the free space skips the
// buffer: what the buffer holds goes first, then whole blocks straight to
// the file, and the remainder is copied.
int copy_text(Stmt* s, Unit* u, const char* data, uint64_t length) {
  u->column += static_cast<int64_t>(length);
  if (u->data_end == u->flush_ptr && u->data_end != u->buffer) reset_cursors(u);
  uint64_t space = static_cast<uint64_t>(u->buffer_end - u->data_end);
  if (length > space) {
    if (u->data_end > u->flush_ptr) {
      memcpy(u->data_end, data, space);
      u->data_end += space;
      data += space;
      length -= space;
      if (int err = flush_buffer(s, u)) return err;
    }
    const uint64_t block = u->blocksize;
    while (length >= block) {
      if (int err = write_raw(u, data, block)) return fail(s, err);
      data += block;
      length -= block;
    }
  }
  memcpy(u->data_end, data, length);
  u->data_end += length;
  return 0;
}

// Separator, wrap and copy: the path of every number and logical.
int buffer_block(Stmt* s, Unit* u, const char* data, int length) {
  if (static_cast<uint64_t>(length) + 1 > u->record_length) return fail(s, ERR_RECORD_TOO_LONG);
  uint32_t& flags = s->stmt_flags;
  if ((flags & (SF_FIRST_ITEM | SF_F77_WRITE)) == SF_FIRST_ITEM) {
    flags &= ~(SF_FIRST_ITEM | SF_STICKY_SEPARATOR);
  } else {
    const bool f77 = flags & SF_F77_WRITE;
    const uint64_t limit = f77 ? u->line_limit : u->record_length;
    const int blanks = f77 ? 2 : 1;
    flags &= ~(SF_FIRST_ITEM | SF_STICKY_SEPARATOR);
    if (static_cast<uint64_t>(blanks + length + u->column) > limit)
      if (int err = end_record(s, u)) return err;
    if (int err = make_room(s, u, blanks)) return err;
    memset(u->data_end, ' ', static_cast<size_t>(blanks));
    u->data_end += blanks;
    u->column += blanks;
  }
  if (u->buffer_end - u->data_end >= length) {  // the usual case: no call at all
    for (int i = 0; i < length; ++i) u->data_end[i] = data[i];
    u->data_end += length;
    u->column += length;
    return 0;
  }
  return copy_text(s, u, data, static_cast<uint64_t>(length));
}

// Copy `length` bytes of text, breaking the record whenever it is full; a
// continuation record may start with a blank.
int copy_split(Stmt* s, Unit* u, const char*& text, int64_t length, bool continuation_blank) {
  while (length > 0) {
    const int64_t room = static_cast<int64_t>(u->record_length) - u->column;
    if (room >= length) {
      if (int err = copy_text(s, u, text, static_cast<uint64_t>(length))) return err;
      text += length;
      return 0;
    }
    if (room > 0) {
      if (int err = copy_text(s, u, text, static_cast<uint64_t>(room))) return err;
      text += room;
      length -= room;
    }
    if (int err = end_record(s, u)) return err;
    if (continuation_blank) {
      if (int err = put_char(s, u, ' ')) return err;
      u->column = 1;
    }
  }
  return 0;
}

int write_character(Stmt* s, const char* text, int64_t length) {
  Unit* u = s->unit_ptr;
  uint32_t& flags = s->stmt_flags;
  const uint32_t delim = u->flags & UF_DELIM;
  const bool delimited = delim != 0;
  if (length < 1 && !delimited &&
      (flags & (SF_FIRST_ITEM | SF_STICKY_SEPARATOR | SF_NO_CHARACTER_SEPARATOR)))
    return 0;
  if (u->record_length < 2) return fail(s, ERR_RECORD_TOO_LONG);
  if (length < 0) length = 0;

  if (flags & SF_F77_WRITE) {
    flags = (flags & ~SF_FIRST_ITEM) | SF_STICKY_SEPARATOR;
    if (static_cast<uint64_t>(u->column + length) > u->line_limit)
      if (int err = end_record(s, u)) return err;
    return copy_text(s, u, text, static_cast<uint64_t>(length));
  }

  const bool separator =
      !((flags & SF_FIRST_ITEM) ||
        (!delimited && (flags & (SF_STICKY_SEPARATOR | SF_NO_CHARACTER_SEPARATOR))));
  flags &= ~(SF_FIRST_ITEM | SF_STICKY_SEPARATOR);
  if (!delimited) flags |= SF_STICKY_SEPARATOR;

  const int64_t record_length = static_cast<int64_t>(u->record_length);
  if (record_length <= u->column + (separator ? 1 : 0)) {
    if (int err = end_record(s, u)) return err;
    if (!(flags & SF_NO_FIRST_BLANK)) {
      if (int err = put_char(s, u, ' ')) return err;
      u->column++;
    }
  } else if (separator) {
    if (int err = put_char(s, u, ' ')) return err;
    u->column++;
  }

  if (!delimited) return copy_split(s, u, text, length, true);

  // Delimited: quotes inside the text are doubled, and a doubled pair is
  // never split across records.
  const char quote = (delim & 0x80000) ? '"' : '\'';
  if (int err = put_char(s, u, quote)) return err;
  u->column++;
  const char* end = text + length;
  while (text < end) {
    const char* q = static_cast<const char*>(memchr(text, quote, static_cast<size_t>(end - text)));
    const char* run_end = q ? q : end;
    if (int err = copy_split(s, u, text, run_end - text, false)) return err;
    if (!q) break;
    if (record_length <= u->column + 1)
      if (int err = end_record(s, u)) return err;
    if (int err = make_room(s, u, 2)) return err;
    u->data_end[0] = quote;
    u->data_end[1] = quote;
    u->data_end += 2;
    u->column += 2;
    text = q + 1;
  }
  if (record_length <= u->column)
    if (int err = end_record(s, u)) return err;
  if (int err = put_char(s, u, quote)) return err;
  u->column++;
  return 0;
}

template <class T>
int write_item(Stmt* s, T value) {
  if constexpr (std::is_integral_v<T>) {
    // The usual case: separator (none for the first item) and digits go
    // straight into the buffer when the record and the buffer have room.
    using U = std::make_unsigned_t<T>;
    Unit* u = s->unit_ptr;
    const bool negative = std::is_signed_v<T> && value < 0;
    const U magnitude = negative ? U(0) - static_cast<U>(value) : static_cast<U>(value);
    const int64_t n = decimal_length(magnitude) + negative;
    char* p = u->data_end;
    const uint32_t flags = s->stmt_flags;
    if (!(flags & SF_F77_WRITE) && static_cast<uint64_t>(u->column + 1 + n) <= u->record_length &&
        u->buffer_end - p > n) {
      s->stmt_flags = flags & ~(SF_FIRST_ITEM | SF_STICKY_SEPARATOR);
      // The blank is stored either way; for a first item the digits then
      // start on top of it, which saves a branch.
      *p = ' ';
      p += (flags & SF_FIRST_ITEM) ? 0 : 1;
      char* end = p + n;
      unsigned_to_decimal_backward(magnitude, end);
      if (negative) *p = '-';
      u->column += end - u->data_end;
      u->data_end = end;
      return 0;
    }
  }
  ItemText t;
  make_item_text(value, s->stmt_flags, t);
  return buffer_block(s, s->unit_ptr, t.data, t.length);
}

// A real in the old dialect: the wrap test reserves a fixed number of
// columns rather than the text's length, and the text goes in without a
// separator, its own leading blanks standing for one.
template <int N>
int write_f77_real(Stmt* s, const void* bits) {
  Unit* u = s->unit_ptr;
  char text[kMaxF77RealText];
  const int length = f77_real_text<N>(bits, (s->stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA, text);
  if (static_cast<uint64_t>(u->column + f77_wrap_width<N>(bits)) > u->line_limit)
    if (int err = end_record(s, u)) return err;
  s->stmt_flags &= ~(SF_FIRST_ITEM | SF_STICKY_SEPARATOR);
  return copy_text(s, u, text, static_cast<uint64_t>(length));
}

template <int N>
int write_real(Stmt* s, const void* bits) {
  if (s->stmt_flags & SF_F77_WRITE) return write_f77_real<N>(s, bits);
  return write_item(s, ListReal<N>{bits});
}

// Buffer, first blank, wrap column and the first-item flag: the part of a
// start that follows the checks, shared by both start entries.
int start_record(Stmt* s, Unit* u) {
  if (u->flags & UF_BUFFER_GROWN) {
    free(u->buffer);
    u->buffer = nullptr;
    u->flags &= ~UF_BUFFER_GROWN;
  }
  if (!u->buffer) {
    if (u->blocksize == 0) u->blocksize = 8192;
    const uint64_t size = u->blocksize * ((u->flags & UF_REGULAR_FILE) ? 2 : 1);
    if (!allocate_buffer(u, size)) {
      FailureDetail d;
      d.bytes_line = true;
      d.bytes = size;
      return fail(s, ERR_OUT_OF_MEMORY, d);
    }
  }
  if (u->column == 0 && !(s->stmt_flags & SF_NO_FIRST_BLANK)) {
    if (u->data_end >= u->buffer_end)
      if (int err = flush_buffer(s, u)) return err;
    if (!(u->flags & UF_PRINT_FORM)) *u->data_end++ = ' ';
    u->column = 1;
  }
  if (u->stream == stdout)
    u->line_limit = static_cast<uint64_t>(__f90_stdout_reclen - 1);
  else if (u->stream == stderr)
    u->line_limit = static_cast<uint64_t>(__f90_stderr_reclen - 1);
  else
    u->line_limit = 80;
  s->stmt_flags |= SF_FIRST_ITEM;
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_sslw(Stmt* s) {
  if (int err = start_statement<kListWrite>(s)) return err;
  return start_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_sslw_pos(Stmt* s, int64_t pos) {
  if (int err = start_stream(statement_ref(s), pos, kListWrite)) return err;
  return start_record(s, s->unit_ptr);
}

QAL_EXPORT int __f90_slw_ch(Stmt* s, const char* text, int64_t length) {
  return write_character(s, text, length);
}
QAL_EXPORT int __f90_slw_i4(Stmt* s, int32_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_slw_i8(Stmt* s, int64_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_slw_u4(Stmt* s, uint32_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_slw_u8(Stmt* s, uint64_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_slw_l1(Stmt* s, int8_t v) { return write_item(s, LogicalItem<int8_t>{v}); }
QAL_EXPORT int __f90_slw_l4(Stmt* s, int32_t v) { return write_item(s, LogicalItem<int32_t>{v}); }
QAL_EXPORT int __f90_slw_l8(Stmt* s, int64_t v) { return write_item(s, LogicalItem<int64_t>{v}); }

// Each plain real entry hands an old-dialect statement over to the
// _f77compat form.
QAL_EXPORT int __f90_slw_r4(Stmt* s, float v) { return write_real<4>(s, &v); }
QAL_EXPORT int __f90_slw_r8(Stmt* s, double v) { return write_real<8>(s, &v); }
QAL_EXPORT int __f90_slw_r16(Stmt* s, uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return write_real<16>(s, v);
}
QAL_EXPORT int __f90_slw_r16_ref(Stmt* s, const void* v) { return write_real<16>(s, v); }
QAL_EXPORT int __f90_slw_r4_f77compat(Stmt* s, float v) { return write_f77_real<4>(s, &v); }
QAL_EXPORT int __f90_slw_r8_f77compat(Stmt* s, double v) { return write_f77_real<8>(s, &v); }
QAL_EXPORT int __f90_slw_r16_f77compat(Stmt* s, uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return write_f77_real<16>(s, v);
}
QAL_EXPORT int __f90_slw_c4(Stmt* s, const void* v) {
  return write_complex_parts<4>(v, [s](auto part) { return write_item(s, part); });
}
QAL_EXPORT int __f90_slw_c8(Stmt* s, const void* v) {
  return write_complex_parts<8>(v, [s](auto part) { return write_item(s, part); });
}
QAL_EXPORT int __f90_slw_c16(Stmt* s, const void* v) {
  return write_complex_parts<16>(v, [s](auto part) { return write_item(s, part); });
}

QAL_EXPORT int __f90_eslw(Stmt* s) {
  Unit* u = s->unit_ptr;
  if (u->column > 0) {
    if (u->data_end >= u->buffer_end)
      if (int err = flush_buffer(s, u)) return err;
    *u->data_end++ = '\n';
    u->column = 0;
    u->data_ptr = u->data_end;
  }
  if (int err = end_push(statement_ref(s), u)) return err;
  release_unit(u);
  return 0;
}

}  // extern "C"
}  // namespace qal
