// The three preconnected units 0, 5 and 6, made from the libc streams the
// program started with.  Nothing here fails visibly: a stream that cannot
// be used leaves its unit unconnected, and statements on it report that.
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"

using namespace qal;

namespace qal {
extern "C" {
QAL_EXPORT Unit __f90_default_error_unit;
QAL_EXPORT Unit __f90_default_input_unit;
QAL_EXPORT Unit __f90_default_output_unit;
QAL_EXPORT int32_t __f90_initio_done;
QAL_EXPORT int64_t __f90_stdout_reclen = 81;
QAL_EXPORT int64_t __f90_stderr_reclen = 81;
}  // extern "C"
}  // namespace qal

namespace {

constexpr int64_t kStdinRecordLength = 81;

constexpr uint32_t kDefaultBase = UF_CONNECTED | UF_STANDARD_STREAM | UF_SEQUENTIAL | UF_FORMATTED;
constexpr uint32_t kReadWrite = kDefaultBase | UF_READABLE | UF_WRITABLE;  // 0x3c11
constexpr uint32_t kReadOnly = kDefaultBase | UF_READABLE;                 // 0x3411
constexpr uint32_t kWriteOnly = kDefaultBase | UF_WRITABLE;                // 0x3811

void finish_connection(Unit* u, int fd, const struct stat& st, int64_t record_length) {
  u->fd = fd;
  u->device = st.st_dev;
  u->inode = st.st_ino;
  u->blocksize = st.st_blksize < 1024 ? 1024 : static_cast<uint64_t>(st.st_blksize);
  u->record_length = static_cast<uint64_t>(record_length);
  u->inquire_record_length = u->record_length;
  if (S_ISREG(st.st_mode)) u->flags |= UF_REGULAR_FILE;
  u->flags |= UF_BLANK_NULL;
}

// Connect `u` to `stream`, or to the raw descriptor when the stream is closed.
void connect_default(Unit* u, FILE* stream, int raw_fd, int64_t record_length) {
  flockfile(stream);
  const bool readable = __freadable(stream) != 0;
  const bool writable = __fwritable(stream) != 0;
  funlockfile(stream);
  struct stat st;
  if (readable || writable) {
    const int fd = fileno(stream);
    if (fstat(fd, &st) != 0) return;
    u->stream = stream;
    u->flags = readable ? (writable ? kReadWrite : kReadOnly) : kWriteOnly;
    const int fl = fcntl(fd, F_GETFL);
    if (fl == -1) return;  // connected, but with no descriptor identity
    if (fl & O_APPEND) fseeko(stream, 0, SEEK_END);
    finish_connection(u, fd, st, record_length);
  } else {
    const int fl = fcntl(raw_fd, F_GETFL);
    if (fl == -1 || fstat(raw_fd, &st) != 0) return;
    const int access = fl & O_ACCMODE;
    u->flags = access == O_RDWR ? kReadWrite : access == O_WRONLY ? kWriteOnly : kReadOnly;
    finish_connection(u, raw_fd, st, record_length);
  }
}

void initialise_default_units() {
  pthread_mutex_lock(&__f90_io_master_lock);
  if (!__f90_initio_done) {
    Unit* const units[3] = {&__f90_default_error_unit, &__f90_default_input_unit,
                            &__f90_default_output_unit};
    const int32_t numbers[3] = {0, 5, 6};
    for (int i = 0; i < 3; ++i) {
      pthread_mutex_init(&units[i]->lock, nullptr);
      pthread_cond_init(&units[i]->available, nullptr);
      units[i]->unit_number = numbers[i];
    }
    connect_default(&__f90_default_error_unit, stderr, 2, __f90_stderr_reclen);
    if (__f90_default_error_unit.flags & UF_WRITABLE)
      __f90_default_error_unit.flags |= UF_LAST_WRITE;
    connect_default(&__f90_default_input_unit, stdin, 0, kStdinRecordLength);
    if (__f90_default_input_unit.flags & UF_READABLE)
      __f90_default_input_unit.flags |= UF_LAST_READ;
    connect_default(&__f90_default_output_unit, stdout, 1, __f90_stdout_reclen);
    if (__f90_default_output_unit.flags & UF_WRITABLE)
      __f90_default_output_unit.flags |= UF_LAST_WRITE;
    for (int i = 0; i < 3; ++i) __f90_small_unit_pointer_table[numbers[i]] = units[i];
    __atomic_store_n(&__f90_initio_done, 1, __ATOMIC_RELEASE);
  }
  pthread_mutex_unlock(&__f90_io_master_lock);
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT void __f90_initio_a(const Location*) { initialise_default_units(); }
QAL_EXPORT void __f90_initio_f(void) { initialise_default_units(); }
QAL_EXPORT int __f90_initio_r(void) {
  initialise_default_units();
  return 0;
}

}  // extern "C"
}  // namespace qal
