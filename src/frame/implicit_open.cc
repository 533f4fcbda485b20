// Implicit connection: a sequential statement on a unit that no OPEN has
// connected uses the file fort.N in the working directory.  A write
// truncates it; a read creates it empty if need be (and then meets end of
// file).
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "connect/connect.h"
#include "frame/frame.h"
#include "util/decimal.h"

using namespace qal;

namespace {

constexpr uint32_t kOutputReadWrite = UF_CONNECTED | UF_LAST_WRITE | UF_READABLE | UF_WRITABLE;
constexpr uint32_t kOutputWriteOnly = UF_CONNECTED | UF_LAST_WRITE | UF_WRITABLE;
constexpr uint32_t kInputReadWrite = UF_CONNECTED | UF_LAST_READ | UF_READABLE | UF_WRITABLE;
constexpr uint32_t kInputReadOnly = UF_CONNECTED | UF_LAST_READ | UF_READABLE;
static_assert(kOutputReadWrite == 0xe01 && kOutputWriteOnly == 0xa01);
static_assert(kInputReadWrite == 0xd01 && kInputReadOnly == 0x501);

}  // namespace

namespace qal {

char* implicit_file_name(int64_t unit) {
  char* name = static_cast<char*>(malloc(8 + kMaxDecimalDigits));
  if (!name) return nullptr;
  memcpy(name, "fort.", 5);
  name[5 + signed_to_decimal(unit, name + 5)] = '\0';
  return name;
}

// On failure the unit stays unconnected with `file_name` still set, so that
// the caller can show it before dropping it.
int connect_implicitly(int64_t unit, Unit* u, bool for_output, const Location* location,
                       OnError mode) {
  int err = 0;
  char* name = implicit_file_name(unit);
  if (!name) {
    err = ERR_OUT_OF_MEMORY;
  } else {
    uint32_t flags;
    int fd;
    if (for_output) {
      flags = kOutputReadWrite;
      fd = open(name, O_RDWR | O_CREAT | O_TRUNC, 0666);
      if (fd < 0 && (errno == EACCES || errno == EROFS)) {
        flags = kOutputWriteOnly;
        fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0666);
      }
    } else {
      flags = kInputReadWrite;
      fd = open(name, O_RDWR | O_CREAT, 0666);
      if (fd < 0 && (errno == EACCES || errno == EROFS)) {
        flags = kInputReadOnly;
        fd = open(name, O_RDONLY | O_CREAT, 0666);
      }
    }
    struct stat st;
    if (fd < 0) {
      // Opening a directory for writing fails before it can be inspected.
      err = errno == EISDIR ? ERR_OPEN_DIRECTORY : errno;
    } else if (fstat(fd, &st) != 0) {
      err = errno;
      close(fd);
    } else if (S_ISDIR(st.st_mode)) {
      err = ERR_OPEN_DIRECTORY;
      close(fd);
    } else {
      u->blocksize = st.st_blksize ? static_cast<uint64_t>(st.st_blksize) : 8192;
      u->device = st.st_dev;
      u->inode = st.st_ino;
      if (S_ISREG(st.st_mode)) flags |= UF_REGULAR_FILE;
      u->file_name = name;
      u->fd = fd;
      u->buffer = nullptr;
      u->flags = flags;
      set_bsw_on_unit(u, unit);
      return 0;
    }
  }
  u->file_name = name;
  if (mode == OnError::Return) return err;
  char copy[kNameCopySize];
  const char* shown = name ? __f90_copy_filename(u, copy) : nullptr;
  free(u->file_name);
  u->file_name = nullptr;
  __f90_release_unit(u);
  report_and_abort(err, location, true, unit, shown);
}

}  // namespace qal

namespace {

int connect_return_twin(int64_t unit, Unit* u, bool for_output) {
  const int err = connect_implicitly(unit, u, for_output, nullptr, OnError::Return);
  if (err) {
    free(u->file_name);
    u->file_name = nullptr;
    __f90_release_unit(u);
  }
  return err;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT void __f90_open_for_input_a(int64_t unit, Unit* u, const Location* location) {
  connect_implicitly(unit, u, false, location, OnError::Abort);
}
QAL_EXPORT int __f90_open_for_input_r(int64_t unit, Unit* u) {
  return connect_return_twin(unit, u, false);
}
QAL_EXPORT void __f90_open_for_output_a(int64_t unit, Unit* u, const Location* location) {
  connect_implicitly(unit, u, true, location, OnError::Abort);
}
QAL_EXPORT int __f90_open_for_output_r(int64_t unit, Unit* u) {
  return connect_return_twin(unit, u, true);
}

}  // extern "C"
}  // namespace qal
