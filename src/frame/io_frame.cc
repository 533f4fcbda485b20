// The frame around every external-file statement: raw writes and flushes,
// the failure exit, the start and end steps that all sequential modes
// share, and the end-of-run pass over all units.
//
// Output buffer of a unit:
//
//   buffer      flush_ptr        data_ptr            data_end     buffer_end
//     |  written  |  finished records  |  open record   |   free     |
//
// flush_ptr..data_end still has to reach the file.
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "frame/report.h"

using namespace qal;

namespace qal {
extern "C" {
QAL_EXPORT int32_t __f90_io_delay_ftrunc;
}  // extern "C"
}  // namespace qal

namespace {

pthread_mutex_t synchronous_flag_lock = PTHREAD_MUTEX_INITIALIZER;
int32_t synchronous_flag_value;

int last_errno(int fallback = EIO) { return errno ? errno : fallback; }

}  // namespace

namespace qal {

pthread_t initial_thread;

int32_t synchronous_flag() { return __atomic_load_n(&synchronous_flag_value, __ATOMIC_RELAXED); }

int write_raw(Unit* u, const void* data, uint64_t length) {
  const char* p = static_cast<const char*>(data);
  if (u->stream) {
    while (length > 0) {
      errno = 0;
      const size_t n = fwrite(p, 1, length, u->stream);
      p += n;
      length -= n;
      if (length == 0) break;
      if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) {
        clearerr(u->stream);
        continue;
      }
      return last_errno();
    }
    return 0;
  }
  while (length > 0) {
    const ssize_t n = write(u->fd, p, length);
    if (n < 0) {
      if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
      return last_errno();
    }
    if (n == 0) return EIO;
    p += n;
    length -= static_cast<uint64_t>(n);
  }
  return 0;
}

void break_open_record(Unit* u) {
  if (!(u->flags & UF_LAST_WRITE) || !u->buffer) return;
  if (u->column == 0 && u->data_end <= u->data_ptr) return;
  if (u->data_end < u->buffer_end) {
    *u->data_end++ = '\n';
    close_record_here(u);
  } else {
    u->flags2 |= UF2_RECORD_BROKEN;
  }
}

int settle_broken_record(Unit* u) {
  if (u->data_end >= u->buffer_end) {
    if (int err = push_out(u, u->data_end)) return err;
    reset_cursors(u);
  }
  *u->data_end++ = '\n';
  close_record_here(u);
  u->flags2 &= ~UF2_RECORD_BROKEN;
  return 0;
}

int flush_raw(Unit* u) {
  if (!(u->flags & UF_CONNECTED)) return 0;
  if (u->flags & UF_LAST_WRITE) {
    if (u->flags2 & UF2_RECORD_BROKEN)
      if (int err = settle_broken_record(u)) return err;
    if (int err = push_out(u, u->data_end)) return err;
  }
  if (u->stream && fflush(u->stream) != 0) return last_errno();
  return 0;
}

void report_and_abort(int err, const Location* location, bool unit_line, int64_t unit,
                      const char* file_name, bool bytes_line, uint64_t bytes) {
  __f90_banner();
  if (err == ERR_END_OF_FILE)
    __f90_write_eof();
  else if (err == ERR_END_OF_RECORD)
    __f90_write_eor();
  else
    __f90_write_message(err);
  if (location) __f90_write_loc(location);
  if (unit_line) {
    __f90_write_unit_number(unit);
    __f90_write_filename(file_name);
  }
  if (bytes_line) __f90_write_bytes_requested(bytes);
  abort();
}

int fail_statement(const StatementRef& s, Unit* u, int err, FailureDetail detail) {
  if (s.format && (*s.stmt_flags & SF_FREE_FORMAT)) {
    free(const_cast<int32_t*>(*s.format));
    *s.format = nullptr;
  }
  uint32_t return_flag = detail.return_flag;
  if (return_flag == 0)
    return_flag = err == ERR_END_OF_FILE     ? SF_END_RETURN
                  : err == ERR_END_OF_RECORD ? SF_EOR_RETURN
                                             : SF_ERR_RETURN;
  if (!(*s.stmt_flags & return_flag)) {
    char name[kNameCopySize];
    const char* file = detail.file_name ? detail.file_name
                       : u              ? __f90_copy_filename(u, name)
                                        : nullptr;
    if (u) __f90_release_unit(u);
    report_and_abort(err, s.location, detail.unit_line && s.unit, s.unit ? *s.unit : 0, file,
                     detail.bytes_line, detail.bytes);
  }
  if (u) __f90_release_unit(u);
  return err;
}

int fail_output_statement(const StatementRef& s, Unit* u, int err, FailureDetail detail) {
  if (u) break_open_record(u);
  return fail_statement(s, u, err, detail);
}

int start_take_unit(const StatementRef& s, const ModeTraits& mode) {
  uint32_t& flags = *s.stmt_flags;
  if (!initio_done()) {
    if (flags & SF_ERR_RETURN)
      __f90_initio_r();
    else
      __f90_initio_a(s.location);
  }
  Unit* u = nullptr;
  if (flags & SF_DEFAULT_UNIT) {
    if (flags & mode.f77_bit()) {
      flags &= ~SF_DEFAULT_UNIT;
      *s.unit = mode.default_unit();
    } else {
      *s.unit = -1;
      u = mode.write ? __f90_get_default_output_unit() : __f90_get_default_input_unit();
      if (!(u->flags & UF_CONNECTED)) {
        FailureDetail d;
        d.unit_line = false;
        return fail_statement(s, u,
                              mode.write ? ERR_DEFAULT_OUTPUT_CLOSED : ERR_DEFAULT_INPUT_CLOSED, d);
      }
      *s.unit_ptr = u;
      return 0;
    }
  }
  if (int err = take_numbered_unit(&u, *s.unit, s.location, OnError::Return))
    return fail_taking_unit(s, err);
  *s.unit_ptr = u;
  return connect_for_statement(s, u, mode);
}

int fail_taking_unit(const StatementRef& s, int err) {
  FailureDetail d;
  d.bytes_line = err == ERR_OUT_OF_MEMORY;
  d.bytes = sizeof(Unit);
  return fail_statement(s, nullptr, err, d);
}

int connect_for_statement(const StatementRef& s, Unit* u, const ModeTraits& mode) {
  const uint32_t flags = *s.stmt_flags;
  if (!(u->flags & UF_CONNECTED)) {
    if (mode.direct)
      return fail_statement(
          s, u, mode.write ? ERR_DIRECT_WRITE_UNCONNECTED : ERR_DIRECT_READ_UNCONNECTED);
    if (flags & SF_ASYNCHRONOUS) return fail_statement(s, u, ERR_ASYNC_UNCONNECTED);
    if (int err = connect_implicitly(*s.unit, u, mode.write, s.location, OnError::Return)) {
      // The connection left its name behind for the report; drop it before
      // the release frees the unconnected record.
      char name[kNameCopySize];
      FailureDetail d;
      d.file_name = u->file_name ? __f90_copy_filename(u, name) : nullptr;
      free(u->file_name);
      u->file_name = nullptr;
      return fail_statement(s, u, err, d);
    }
    if (mode.formatted) {
      u->flags |= UF_SEQUENTIAL | UF_FORMATTED;
      u->record_length = 2147483646;
      u->inquire_record_length = (flags & (SF_F77_READ | SF_F77_WRITE)) ? 0 : u->record_length;
    } else {
      u->flags = (u->flags | UF_SEQUENTIAL) & ~(UF_FORMATTED | UF_PRINT_FORM);
      u->record_length = 2147483647;
      u->inquire_record_length = u->record_length;
    }
  }
  return 0;
}

int start_check_and_turn(const StatementRef& s, Unit* u, const ModeTraits& mode) {
  uint32_t& flags = *s.stmt_flags;
  const uint32_t uf = u->flags;
  if (!mode.write) u->item_count = 0;
  if (mode.write && !(uf & UF_WRITABLE)) return fail_statement(s, u, ERR_WRITING_NOT_ALLOWED);
  if (!mode.write && !(uf & UF_READABLE)) return fail_statement(s, u, ERR_READING_NOT_ALLOWED);
  if (mode.direct) {
    if (uf & UF_SEQUENTIAL) return fail_statement(s, u, ERR_DIRECT_ON_SEQUENTIAL);
    if (uf & UF_STREAM) return fail_statement(s, u, ERR_DIRECT_ON_STREAM);
  } else if (!(uf & UF_SEQUENTIAL_LIKE)) {
    return fail_statement(s, u, ERR_SEQUENTIAL_ON_DIRECT);
  }
  if (mode.formatted && !(uf & UF_FORMATTED_LIKE))
    return fail_statement(s, u, ERR_FORMATTED_ON_UNFORMATTED);
  if (!mode.formatted && (uf & UF_FORMATTED_LIKE))
    return fail_statement(s, u, ERR_UNFORMATTED_ON_FORMATTED);
  if ((flags & SF_ASYNCHRONOUS) && !(uf & UF_ASYNCHRONOUS))
    return fail_statement(s, u, ERR_ASYNC_ON_SYNC);

  resolve_modes(flags, uf, mode);

  if (mode.write) {
    if (uf & UF_LAST_READ) {
      // Give the read-ahead back to the file so that writing starts right
      // after the last record read.
      const off_t back = u->data_ptr - u->data_end;
      if (lseek(u->fd, back < 0 ? back : 0, SEEK_CUR) < 0)
        return fail_statement(s, u, last_errno());
      reset_cursors(u);
      // What the file holds behind this point is no longer what was read.
      u->flags &= ~(UF_LAST_READ | UF_RECORD_LOADED | UF_AT_EOF_DATA | UF_AFTER_ENDFILE);
    }
    if (u->flags2 & UF2_RECORD_BROKEN)
      if (int err = settle_broken_record(u)) return fail_statement(s, u, err);
    if (!(u->flags & UF_LAST_WRITE)) {
      if (u->flags & UF_REGULAR_FILE) {
        if (__f90_io_delay_ftrunc) {
          u->flags2 |= UF2_TRUNCATE_PENDING;
        } else {
          if (u->stream && fflush(u->stream) != 0) return fail_statement(s, u, last_errno());
          const off_t pos = lseek(u->fd, 0, SEEK_CUR);
          if (pos < 0) return fail_statement(s, u, last_errno());
          if (!(u->flags & UF_STREAM) && ftruncate(u->fd, pos) != 0)
            return fail_statement(s, u, last_errno());
        }
      }
      u->flags |= UF_LAST_WRITE;
    }
  } else {
    if (uf & UF_LAST_WRITE) {
      if (int err = flush_raw(u)) return fail_statement(s, u, err);
      u->flags &= ~UF_LAST_WRITE;
      // Everything buffered has gone out: nothing is read ahead.
      if (u->buffer) reset_cursors(u);
    }
    u->flags |= UF_LAST_READ;
  }
  return 0;
}

int start_statement_slow(const StatementRef& s, const ModeTraits& mode) {
  if (int err = start_take_unit(s, mode)) return err;
  return start_check_and_turn(s, *s.unit_ptr, mode);
}

int continue_statement_slow(const StatementRef& s, Unit* u, const ModeTraits& mode) {
  if (int err = connect_for_statement(s, u, mode)) return err;
  return start_check_and_turn(s, u, mode);
}

int end_push(const StatementRef& s, Unit* u) {
  const bool pending = u->data_end > u->flush_ptr;
  if (pending && (u->stream || (u->flags & UF_STANDARD_STREAM) || synchronous_flag())) {
    if (int err = push_out(u, u->data_end)) return fail_statement(s, u, err);
    reset_cursors(u);
  }
  if (__f90_io_delay_ftrunc && (u->flags2 & UF2_TRUNCATE_PENDING)) {
    u->flags2 &= ~UF2_TRUNCATE_PENDING;
    if (int err = flush_raw(u)) return fail_statement(s, u, err);
    const off_t pos = lseek(u->fd, 0, SEEK_CUR);
    if (pos < 0) return fail_statement(s, u, last_errno());
    if (!(u->flags & UF_STREAM)) {
      struct stat st;
      if (fstat(u->fd, &st) != 0) return fail_statement(s, u, last_errno());
      if (pos != st.st_size && ftruncate(u->fd, pos) != 0)
        return fail_statement(s, u, last_errno());
    }
  }
  return 0;
}

}  // namespace qal

namespace {

// Output that the end-of-run pass could not write is gone once the
// process ends, so the pass says so, once per unit, on stderr.
void report_lost_output(Unit* u, int err) {
  if (u->flags2 & UF2_LOSS_REPORTED) return;
  u->flags2 |= UF2_LOSS_REPORTED;
  char name[kNameCopySize];
  const char* file = __f90_copy_filename(u, name);
  write_report(" Output lost:  %lld bytes of unit %lld, file %s, could not be written: %s\n",
               {static_cast<long long>(u->data_end - u->flush_ptr),
                static_cast<long long>(u->unit_number), file ? file : "", strerror(err)});
  fflush(stderr);
}

// One unit of the end-of-run pass.  Units held by another thread are
// skipped, not waited for: the pass may run inside a fatal report, and the
// holder may be the very thread that is stuck.  The connection word is only
// read once the unit is taken: OPEN and CLOSE write it while they hold it.
void pass_over_unit(Unit* u, bool remove_scratch) {
  if (!u) return;
  const pthread_t self = pthread_self();
  pthread_mutex_lock(&u->lock);
  if (u->hold_count != 0 && !pthread_equal(u->owner, self)) {
    pthread_mutex_unlock(&u->lock);
    return;
  }
  u->owner = self;
  u->hold_count++;
  pthread_mutex_unlock(&u->lock);

  if (!(u->flags & UF_CONNECTED)) {
    // Nothing to do: the record stays for whoever made it.
  } else if (remove_scratch && (u->flags & UF_SCRATCH)) {
    // The file goes, the connection stays; its pending data is dropped.
    if (u->file_name) {
      unlink(u->file_name);
      free(u->file_name);
      u->file_name = nullptr;
    }
  } else if ((u->flags & UF_LAST_WRITE) && !u->stream && u->buffer) {
    int err = 0;
    if (u->flags2 & UF2_RECORD_BROKEN) err = settle_broken_record(u);
    if (!err) err = push_out(u, u->data_end);
    if (err && remove_scratch) report_lost_output(u, err);
  }

  pthread_mutex_lock(&u->lock);
  if (--u->hold_count == 0 && u->waiters) pthread_cond_signal(&u->available);
  pthread_mutex_unlock(&u->lock);
}

void pass_over_all_units(bool remove_scratch) {
  pthread_mutex_lock(&__f90_io_master_lock);
  if (__f90_initio_done) {
    pass_over_unit(&__f90_default_output_unit, remove_scratch);
    for (Unit* u : __f90_small_unit_pointer_table) pass_over_unit(u, remove_scratch);
    for (int i = 0; i < UNIT_TABLE_SIZE; ++i) {
      pass_over_unit(__f90_unit_pointer_table[i], remove_scratch);
      for (UnitListCell* c = __f90_unit_collision_table[i]; c; c = c->next)
        pass_over_unit(c->unit, remove_scratch);
    }
  }
  pthread_mutex_unlock(&__f90_io_master_lock);
  fflush(stdout);
  fflush(nullptr);
}

// Buffered output reaches its files at normal process exit too.
__attribute__((destructor)) void finalise_library() { __f90_cleanup(); }

// Loaded by a process with one thread, the library is in that thread; the
// quick take relies on it only while the process keeps one thread.  The
// child of a fork has one thread again, the one that forked.
void note_initial_thread() { initial_thread = pthread_self(); }
__attribute__((constructor)) void watch_initial_thread() {
  note_initial_thread();
  pthread_atfork(nullptr, nullptr, note_initial_thread);
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT void __f90_cleanup(void) { pass_over_all_units(true); }
QAL_EXPORT void __f90_flush_all(void) { pass_over_all_units(false); }

QAL_EXPORT int __f90_write_r(Unit* u, const void* data, uint64_t length) {
  const int err = write_raw(u, data, length);
  if (err) __f90_release_unit(u);
  return err;
}

QAL_EXPORT void __f90_write_a(Unit* u, const void* data, uint64_t length, int64_t unit,
                              const Location* location) {
  if (int err = write_raw(u, data, length)) __f90_system_error_a(err, u, unit, location);
}

QAL_EXPORT int __f90_flush_unit_r(Unit* u) {
  const int err = flush_raw(u);
  if (err) __f90_release_unit(u);
  return err;
}

QAL_EXPORT void __f90_flush_unit_a(Unit* u, int64_t unit, const Location* location) {
  if (int err = flush_raw(u)) __f90_system_error_a(err, u, unit, location);
}

QAL_EXPORT void __f90_system_error_a(int errnum, Unit* u, int64_t unit, const Location* location) {
  char name[kNameCopySize];
  const char* file = u ? __f90_copy_filename(u, name) : nullptr;
  if (u) __f90_release_unit(u);
  report_and_abort(errnum, location, true, unit, file);
}

QAL_EXPORT const char* __f90_copy_filename(const Unit* u, char* buffer) {
  if (u->file_name) {
    const size_t n = strnlen(u->file_name, kNameCopySize - 1);
    memcpy(buffer, u->file_name, n);
    buffer[n] = '\0';
    return buffer;
  }
  if (u == &__f90_default_input_unit) return "standard input";
  if (u == &__f90_default_output_unit) return "standard output";
  if (u == &__f90_default_error_unit) return "standard error";
  return nullptr;
}

QAL_EXPORT int __f90_io_malloc(void** result, uint32_t stmt_flags, uint64_t size,
                               const Location* location) {
  *result = malloc(size);
  if (*result) return 0;
  if (stmt_flags & SF_ERR_RETURN) return ERR_OUT_OF_MEMORY;
  report_and_abort(ERR_OUT_OF_MEMORY, location, false, 0, nullptr, true, size);
}

QAL_EXPORT int32_t __f90_get_synchronous_flag(void) {
  pthread_mutex_lock(&synchronous_flag_lock);
  const int32_t v = synchronous_flag_value;
  pthread_mutex_unlock(&synchronous_flag_lock);
  return v;
}

QAL_EXPORT int32_t __f90_set_synchronous_flag(int32_t value) {
  pthread_mutex_lock(&synchronous_flag_lock);
  const int32_t old = synchronous_flag_value;
  __atomic_store_n(&synchronous_flag_value, value, __ATOMIC_RELAXED);
  pthread_mutex_unlock(&synchronous_flag_lock);
  return old;
}

QAL_EXPORT void __f90_io_delay_ftruncate(void) { __f90_io_delay_ftrunc = 1; }

}  // extern "C"
}  // namespace qal
