// Internal view of the frame shared by every external-file statement: the
// unit table operations, the failure exit, and the start and end steps.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/single_threaded.h>

#include <type_traits>

#include "frame/mode_traits.h"
#include "frame/unit_buffer.h"
#include "qal/diagnostics.h"
#include "qal/errors.h"
#include "qal/statement.h"
#include "qal/unit.h"

namespace qal {

// Which twin of an operation runs: report and abort, or hand the number back.
enum class OnError { Abort, Return };

// Largest file name a report shows, plus its terminator.
inline constexpr size_t kNameCopySize = 4097;

inline bool initio_done() { return __atomic_load_n(&__f90_initio_done, __ATOMIC_ACQUIRE) != 0; }

inline bool is_default_record(const Unit* u) {
  return u == &__f90_default_error_unit || u == &__f90_default_input_unit ||
         u == &__f90_default_output_unit;
}

// Take a numbered unit for this thread; 0, 1001 or 12.  Under Abort the
// failures are reported here and never come back.
int take_numbered_unit(Unit** result, int64_t unit, const Location* location, OnError mode);
// Take one of the static default records (no table lookup, no master lock).
void take_default_unit(Unit* u);

// OPEN's take: 0, 1001, 12 or 1146 (the calling thread is inside a
// statement on this unit; the unit is not held then).  With
// `replace_default`, a static default record in the small table gives way
// to a fresh record, which from then on answers to the number; the static
// record goes on serving `*`.
int take_unit_for_open(Unit** result, int64_t unit, bool replace_default, const Location* location,
                       OnError mode);

// CLOSE's take.  Never makes a record: *result is null when the number has
// none.  A static default record is unbound from its number and taken.
// 1147 when the calling thread is inside a statement on the unit.  Waits
// while another thread holds it.
int take_unit_for_close(Unit** result, int32_t number);

// "fort.N" in a fresh allocation, or null.
char* implicit_file_name(int64_t unit);

// Implicit connection of a taken unconnected record to fort.N.  The return
// twin frees what it made and releases the unit on failure.
int connect_implicitly(int64_t unit, Unit* u, bool for_output, const Location* location,
                       OnError mode);

// Raw transfer to the unit's stream or descriptor; errno value or 0.  These
// neither release nor report.
int write_raw(Unit* u, const void* data, uint64_t length);
// The whole of a writing unit's pending output, then the stream's buffer.
int flush_raw(Unit* u);

// The current output record ends at data_end: the next one starts there.
inline void close_record_here(Unit* u) {
  u->data_ptr = u->record_start = u->record_pos = u->record_high = u->record_end = u->data_end;
  u->column = 0;
}

// A failed output statement ends the record it was composing, or that an
// earlier non-advancing statement left open, so that the next statement
// never extends half a record.  The newline goes into the buffer, or, when
// the buffer is full because the file refused its bytes, UF2_RECORD_BROKEN
// leaves it to the next start, flush or close.
void break_open_record(Unit* u);
// The newline that UF2_RECORD_BROKEN owes; pushes out a full buffer first.
int settle_broken_record(Unit* u);

int32_t synchronous_flag();

// The fields every statement head has, wherever its mode puts them, so
// that the frame code is written once.  Internal files have no unit.
struct StatementRef {
  uint32_t* stmt_flags;
  const Location* location;
  int64_t* unit;           // null for internal files
  Unit** unit_ptr;         // null for internal files
  const int32_t** format;  // null in modes without a format
};

template <class Stmt>
StatementRef statement_ref(Stmt* s) {
  StatementRef r{&s->stmt_flags, s->location, nullptr, nullptr, nullptr};
  if constexpr (requires { s->unit_ptr; }) {
    r.unit = &s->unit;
    r.unit_ptr = &s->unit_ptr;
  }
  if constexpr (requires { s->format; }) r.format = &s->format;
  return r;
}

struct FailureDetail {
  // The flag that asks for the number; 0: SF_END_RETURN for end of file
  // (-1), SF_EOR_RETURN for end of record (-2), SF_ERR_RETURN otherwise.
  uint32_t return_flag = 0;
  bool unit_line = true;  // print the Unit and File lines
  bool bytes_line = false;
  uint64_t bytes = 0;
  const char* file_name = nullptr;  // shown instead of the unit's own name
};

// The exit of a failing output statement: ends its record, then as
// fail_statement.
int fail_output_statement(const StatementRef& s, Unit* u, int err, FailureDetail detail = {});

// The one exit of a failing statement: free a run-time format, then either
// release the unit and return the number, or copy the file name, release,
// report and abort.  `u` is the taken unit, or null.
int fail_statement(const StatementRef& s, Unit* u, int err, FailureDetail detail = {});

// Banner, message (or the end-of-file or end-of-record line for -1 and
// -2), location, then the Unit and File lines, then abort.
[[noreturn]] void report_and_abort(int err, const Location* location, bool unit_line, int64_t unit,
                                   const char* file_name, bool bytes_line = false,
                                   uint64_t bytes = 0);

// Start-entry steps 1 to 3: initialise, resolve the unit (default or
// numbered), take it, connect it implicitly.  On success *s.unit_ptr holds
// the taken unit; on failure the statement is over.
int start_take_unit(const StatementRef& s, const ModeTraits& mode);
// The failure of the take itself (1001, 12).
int fail_taking_unit(const StatementRef& s, int err);
// Step 3 on a taken unit: the implicit connection where it has none.
int connect_for_statement(const StatementRef& s, Unit* u, const ModeTraits& mode);
// Step 5: the decimal mode, and for formatted writes the rounding mode, from
// the unit where the statement gave none.
inline void resolve_modes(uint32_t& flags, uint32_t uf, const ModeTraits& mode) {
  if (!mode.formatted) return;
  if (!(flags & SF_DECIMAL)) flags |= (uf & UF_DECIMAL_COMMA) ? SF_DECIMAL_COMMA : SF_DECIMAL_POINT;
  if (mode.formatted && mode.write && !mode.list_directed && !(flags & SF_ROUND)) {
    const uint32_t round = (uf & UF_ROUND) >> 4;  // same codes, four bits lower
    const uint32_t fallback = (flags & SF_ROUND_COMPATIBLE_DEFAULT)
                                  ? uint32_t{SF_ROUND_COMPATIBLE}
                                  : uint32_t{SF_ROUND_PROCESSOR_DEFINED};
    flags |= round ? round : fallback;
  }
}
// Steps 4 to 6: check the connection, resolve modes, turn the unit around.
int start_check_and_turn(const StatementRef& s, Unit* u, const ModeTraits& mode);
// Steps 1 to 6 the long way, from the beginning or after the take.
int start_statement_slow(const StatementRef& s, const ModeTraits& mode);
int continue_statement_slow(const StatementRef& s, Unit* u, const ModeTraits& mode);

// The thread that loaded the library, noted as it was loaded, and in the
// child of a fork the thread that forked.  While the process has one
// thread, it is that thread.
extern pthread_t initial_thread;

// The take of a unit below 128 that nobody holds, in a process with one
// thread: no lock to take, nobody to wait for.  Null where that is not the
// case (the general take then does it all).
inline Unit* take_quickly(int64_t unit) {
  if (!__libc_single_threaded || static_cast<uint64_t>(unit) >= SMALL_UNIT_TABLE_SIZE)
    return nullptr;
  Unit* u = __f90_small_unit_pointer_table[unit];
  if (!u || u->hold_count != 0 || u->stream) return nullptr;
  u->owner = initial_thread;
  u->hold_count = 1;
  return u;
}

// The release of a connected unit taken once, in a process with one
// thread; anything else goes through __f90_release_unit.
inline void release_unit(Unit* u) {
  if (__libc_single_threaded && u->hold_count == 1 && (u->flags & UF_CONNECTED) && !u->stream) {
    u->hold_count = 0;
    u->flags &= ~UF_NESTED;
    return;
  }
  __f90_release_unit(u);
}

// Whether a unit taken for a statement of `mode` is in the usual state:
// connected as the statement wants it and last used in the same direction.
template <const ModeTraits& mode>
inline bool usual_connection(const Unit* u) {
  const uint32_t uf = u->flags;
  constexpr uint32_t access = mode.write ? UF_WRITABLE : UF_READABLE;
  constexpr uint32_t same = mode.write ? UF_LAST_WRITE : UF_LAST_READ;
  constexpr uint32_t other = mode.write ? UF_LAST_READ : UF_LAST_WRITE;
  constexpr uint32_t tested = UF_CONNECTED | access | same | other;
  return (uf & tested) == (UF_CONNECTED | access | same) &&
         (mode.direct ? !(uf & UF_SEQUENTIAL_LIKE) : (uf & UF_SEQUENTIAL_LIKE) != 0) &&
         mode.formatted == ((uf & UF_FORMATTED_LIKE) != 0) && !(u->flags2 & UF2_RECORD_BROKEN);
}

// Steps 1 to 6 of a statement of `mode`.  The usual case, a numbered unit
// in the usual state, costs a take and a few tests; anything else goes the
// long way.  The statement's fields are read in place: the frame's view of
// them is only made on the long way.
template <const ModeTraits& mode, class Stmt>
inline int start_statement(Stmt* s) {
  uint32_t& flags = s->stmt_flags;
  if (!initio_done() || (flags & (SF_DEFAULT_UNIT | SF_ASYNCHRONOUS))) [[unlikely]]
    return start_statement_slow(statement_ref(s), mode);
  Unit* u = take_quickly(s->unit);
  if (!u)
    if (int err = take_numbered_unit(&u, s->unit, s->location, OnError::Return)) [[unlikely]]
      return fail_taking_unit(statement_ref(s), err);
  s->unit_ptr = u;
  if (!usual_connection<mode>(u)) [[unlikely]]
    return continue_statement_slow(statement_ref(s), u, mode);
  if constexpr (!mode.write) u->item_count = 0;
  resolve_modes(flags, u->flags, mode);
  return 0;
}

// The long ways of start_then, each ending in `then` on success.
template <const ModeTraits& mode, auto then, class Stmt>
[[gnu::noinline]] int start_then_slow(Stmt* s) {
  if (int err = start_statement<mode>(s)) return err;
  return then(s, s->unit_ptr);
}
template <const ModeTraits& mode, auto then, class Stmt>
[[gnu::noinline]] int continue_then_slow(Stmt* s, Unit* u) {
  if (int err = continue_statement_slow(statement_ref(s), u, mode)) return err;
  return then(s, u);
}

// start_statement, then the mode's own start `then(s, unit)`, for modes
// whose statements are short: on the usual way every call is a tail call,
// so the entry needs no frame of its own.
template <const ModeTraits& mode, auto then, class Stmt>
inline int start_then(Stmt* s) {
  if (!initio_done() || (s->stmt_flags & (SF_DEFAULT_UNIT | SF_ASYNCHRONOUS))) [[unlikely]]
    return start_then_slow<mode, then>(s);
  Unit* u = take_quickly(s->unit);
  if (!u) [[unlikely]]
    return start_then_slow<mode, then>(s);
  s->unit_ptr = u;
  if (!usual_connection<mode>(u)) [[unlikely]]
    return continue_then_slow<mode, then>(s, u);
  if constexpr (!mode.write) u->item_count = 0;
  resolve_modes(s->stmt_flags, u->flags, mode);
  return then(s, u);
}

// The start of a statement with POS= on a stream unit: take the unit (no
// default unit, no implicit connection), check it, resolve the modes, flush
// and move the file to byte `pos`.  On failure the statement is over.
int start_stream(const StatementRef& s, int64_t pos, const ModeTraits& mode);

// End-entry steps 3 and 4: push pending bytes where the unit wants it, and
// the delayed truncation.  Does not release.
int end_push(const StatementRef& s, Unit* u);

// Whether end_push has anything to do; false for a unit on a file that
// takes its bytes a buffer at a time.
inline bool end_push_needed(const Unit* u) {
  return u->stream || (u->flags & UF_STANDARD_STREAM) ||
         __atomic_load_n(&__f90_io_delay_ftrunc, __ATOMIC_RELAXED) || synchronous_flag();
}

}  // namespace qal
