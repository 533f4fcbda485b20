// List-directed output to an internal file: WRITE(variable,*).  Each element
// of the character variable is one record, written in place; there is no
// unit, no lock and no buffer.
//
//   record_start          cursor               record_end
//        | text written so far |   still undefined   |
//
// Elements are visited in array element order through the running indices
// and row pointers that follow the statement head.
#include <stdlib.h>
#include <string.h>

#include "frame/frame.h"
#include "listed/f77_real_text.h"
#include "listed/item_text.h"

using namespace qal;

namespace {

using Stmt = IoStatementIl;

int fail(Stmt* s, int err) { return fail_statement(statement_ref(s), nullptr, err); }

int64_t* indices(Stmt* s) { return s->walk; }
char** rows(Stmt* s) { return reinterpret_cast<char**>(s->walk + s->rank); }
const InternalUnit* descriptor(Stmt* s) {
  return static_cast<const InternalUnit*>(s->internal_unit);
}

void blank_fill(Stmt* s) {
  if (s->cursor < s->record_end)
    memset(s->cursor, ' ', static_cast<size_t>(s->record_end - s->cursor));
  s->cursor = s->record_end;
}

// Step to the next element; 1060 when none is left.
int next_record(Stmt* s) {
  const int rank = s->rank;
  if (rank < 1) return fail(s, ERR_PAST_INTERNAL_END);
  const InternalUnit* d = descriptor(s);
  int64_t* index = indices(s);
  char** row = rows(s);
  int k = 0;
  while (k < rank && index[k] + 1 >= d->dims[k]) index[k++] = 0;
  if (k == rank) return fail(s, ERR_PAST_INTERNAL_END);
  index[k]++;
  row[k] += d->dims[rank + k];
  for (int j = 0; j < k; ++j) row[j] = row[k];
  s->record_start = s->cursor = row[0];
  s->record_end = row[0] + s->element_length;
  return 0;
}

inline void put(Stmt* s, char c) {
  if (s->cursor < s->record_end) *s->cursor = c;
  s->cursor++;
}

// Numbers and logicals: a blank, then the text, all in one record.
int write_block(Stmt* s, const char* data, int length) {
  if (!(s->cursor + length < s->record_end)) {
    blank_fill(s);
    if (length >= s->element_length) return fail(s, ERR_RECORD_TOO_LONG);
    if (int err = next_record(s)) return err;
  }
  s->stmt_flags &= ~SF_INTERNAL_STICKY;
  *s->cursor++ = ' ';
  memcpy(s->cursor, data, static_cast<size_t>(length));
  s->cursor += length;
  return 0;
}

// The old dialect's raw append, for character items and reals alike: text
// that does not fit breaks the line inside the record and tries again, and
// what still does not fit is cut.
int append_f77(Stmt* s, const char* text, int64_t length) {
  int64_t room = s->record_end - s->cursor;
  if (length > room && s->cursor - s->record_start > 1) {
    put(s, '\n');
    put(s, ' ');
    room = s->record_end - s->cursor;
  }
  if (room < 0) room = 0;
  if (length > room) {
    memcpy(s->cursor, text, static_cast<size_t>(room));
    s->cursor += room;
    return fail(s, s->rank != 0 ? ERR_RECORD_TOO_LONG : ERR_PAST_INTERNAL_END);
  }
  memcpy(s->cursor, text, static_cast<size_t>(length));
  s->cursor += length;
  return 0;
}

int write_character(Stmt* s, const char* text, int64_t length) {
  if (length < 0) length = 0;
  if (s->element_length < 2) {
    blank_fill(s);
    return fail(s, ERR_RECORD_TOO_LONG);
  }
  if (s->stmt_flags & SF_F77_WRITE) {
    s->stmt_flags |= SF_INTERNAL_STICKY;
    return append_f77(s, text, length);
  }
  const bool separator = !((s->stmt_flags & SF_INTERNAL_STICKY) && s->cursor != s->record_start);
  if (separator) {
    if (s->cursor >= s->record_end)
      if (int err = next_record(s)) return err;
    *s->cursor++ = ' ';
  }
  // A long text runs on into the following elements, each continuation
  // headed by a blank.
  while (length > 0) {
    const int64_t room = s->record_end - s->cursor;
    if (room >= length) {
      memcpy(s->cursor, text, static_cast<size_t>(length));
      s->cursor += length;
      break;
    }
    memcpy(s->cursor, text, static_cast<size_t>(room));
    text += room;
    length -= room;
    s->cursor += room;
    if (int err = next_record(s)) return err;
    *s->cursor++ = ' ';
  }
  s->stmt_flags |= SF_INTERNAL_STICKY;
  return 0;
}

template <class T>
int write_item(Stmt* s, T value) {
  ItemText t;
  make_item_text(value, s->stmt_flags, t);
  return write_block(s, t.data, t.length);
}

// A real in the old dialect goes in as its character items do, with no
// separator: the text's own leading blanks stand for one.
template <int N>
int write_real(Stmt* s, const void* bits) {
  if (!(s->stmt_flags & SF_F77_WRITE)) return write_item(s, ListReal<N>{bits});
  char text[kMaxF77RealText];
  const int length = f77_real_text<N>(bits, (s->stmt_flags & SF_DECIMAL) == SF_DECIMAL_COMMA, text);
  s->stmt_flags &= ~SF_INTERNAL_STICKY;
  return append_f77(s, text, length);
}

int start(Stmt* s) {
  char* base;
  if (s->rank == 0) {
    base = static_cast<char*>(s->internal_unit);
  } else {
    const InternalUnit* d = descriptor(s);
    base = d ? d->base : nullptr;
  }
  if (!base) return fail(s, ERR_UNASSOCIATED_INTERNAL);
  for (int k = 0; k < s->rank; ++k)
    if (descriptor(s)->dims[k] < 1) return fail(s, ERR_EMPTY_INTERNAL);
  for (int k = 0; k < s->rank; ++k) {
    indices(s)[k] = 0;
    rows(s)[k] = base;
  }
  s->record_start = s->cursor = base;
  s->record_end = base + (s->element_length > 0 ? s->element_length : 0);
  s->stmt_flags &= ~SF_INTERNAL_STICKY;
  if ((s->stmt_flags & SF_F77_WRITE) && s->cursor < s->record_end) *s->cursor++ = ' ';
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_silw(Stmt* s) { return start(s); }
QAL_EXPORT int __f90_ilw_ch(Stmt* s, const char* text, int64_t length) {
  return write_character(s, text, length);
}
QAL_EXPORT int __f90_ilw_i4(Stmt* s, int32_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_ilw_i8(Stmt* s, int64_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_ilw_u4(Stmt* s, uint32_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_ilw_u8(Stmt* s, uint64_t v) { return write_item(s, v); }
QAL_EXPORT int __f90_ilw_l1(Stmt* s, int8_t v) { return write_item(s, LogicalItem<int8_t>{v}); }
QAL_EXPORT int __f90_ilw_l4(Stmt* s, int32_t v) { return write_item(s, LogicalItem<int32_t>{v}); }
QAL_EXPORT int __f90_ilw_l8(Stmt* s, int64_t v) { return write_item(s, LogicalItem<int64_t>{v}); }
QAL_EXPORT int __f90_ilw_r4(Stmt* s, float v) { return write_real<4>(s, &v); }
QAL_EXPORT int __f90_ilw_r8(Stmt* s, double v) { return write_real<8>(s, &v); }
QAL_EXPORT int __f90_ilw_r16(Stmt* s, uint64_t low, uint64_t high) {
  const uint64_t v[2] = {low, high};
  return write_real<16>(s, v);
}
QAL_EXPORT int __f90_ilw_r16_ref(Stmt* s, const void* v) { return write_real<16>(s, v); }
QAL_EXPORT int __f90_ilw_c4(Stmt* s, const void* v) {
  return write_complex_parts<4>(v, [s](auto part) { return write_item(s, part); });
}
QAL_EXPORT int __f90_ilw_c8(Stmt* s, const void* v) {
  return write_complex_parts<8>(v, [s](auto part) { return write_item(s, part); });
}
QAL_EXPORT int __f90_ilw_c16(Stmt* s, const void* v) {
  return write_complex_parts<16>(v, [s](auto part) { return write_item(s, part); });
}

QAL_EXPORT int __f90_eilw(Stmt* s) {
  blank_fill(s);
  return 0;
}

}  // extern "C"
}  // namespace qal
