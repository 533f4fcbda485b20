// OPEN: connect a unit to a file, or change the modes of the connection
// it has.  A unit is held for the whole statement, so statements of other
// threads on it wait; the file system calls run with no table lock held.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "connect/connect.h"
#include "connect/open_file.h"
#include "util/decimal.h"

using namespace qal;

namespace {

// Record lengths of a connection opened without RECL=.
constexpr uint64_t kFormattedRecordLength = 2147483646;
constexpr uint64_t kUnformattedRecordLength = 2147483647;
// Bits of a connection that a re-OPEN keeps; the others (BLANK=, PAD=,
// DELIM=, DECIMAL=, ROUND=) come from the new statement.
constexpr uint32_t kKeptOnReopen = 0x83f0ffff;

struct Request {
  uint32_t word;
  int64_t unit;
  const Location* location;
  OnError mode;
  int64_t recl;
  int64_t buffer_size;
  char* name = nullptr;  // ours until the record takes it
};

// The report of a failed OPEN: banner, message, location, the Unit and
// File lines, then the Status and Bytes lines that are given.
struct OpenReport {
  int64_t unit;
  const char* file_name;
  const char* status;
  bool bytes_line;
  uint64_t bytes;
};

[[noreturn]] void report_open_failure(int err, const Location* location, const OpenReport& r) {
  __f90_banner();
  __f90_write_message(err);
  if (location) __f90_write_loc(location);
  __f90_write_unit_number(r.unit);
  __f90_write_filename(r.file_name);
  if (r.status) __f90_write_status(r.status);
  if (r.bytes_line) __f90_write_bytes_requested(r.bytes);
  abort();
}

// The one exit of a failing OPEN: the number back, or the report.  Frees
// the name the statement still owns and releases the unit.
int fail(Request& r, Unit* u, int err, const char* status = nullptr, bool bytes_line = false,
         uint64_t bytes = 0) {
  if (r.mode == OnError::Return) {
    free(r.name);
    r.name = nullptr;
    if (u) __f90_release_unit(u);
    return err;
  }
  char copy[kNameCopySize];
  const char* shown = r.name ? r.name : u ? __f90_copy_filename(u, copy) : nullptr;
  if (u) __f90_release_unit(u);
  report_open_failure(err, r.location, {r.unit, shown, status, bytes_line, bytes});
}

// FILE=: up to the first NUL within the length, or without one the text
// less its trailing blanks.
int take_file_name(Request& r, const char* file, int64_t file_length) {
  if (!file) return fail(r, nullptr, ERR_UNASSOCIATED_FILE);
  const size_t limit = file_length > 0 ? static_cast<size_t>(file_length) : 0;
  const char* nul = static_cast<const char*>(memchr(file, '\0', limit));
  size_t n = nul ? static_cast<size_t>(nul - file) : limit;
  if (!nul)
    while (n > 0 && file[n - 1] == ' ') --n;
  if (n == 0) return fail(r, nullptr, ERR_ZERO_LENGTH_NAME);
  r.name = static_cast<char*>(malloc(n + 1));
  if (!r.name) return fail(r, nullptr, ERR_OUT_OF_MEMORY, nullptr, true, n + 1);
  memcpy(r.name, file, n);
  r.name[n] = '\0';
  return 0;
}

const char* status_text(uint32_t word) {
  switch (word & OF_STATUS) {
    case OF_STATUS_NEW:
      return "NEW";
    case OF_STATUS_REPLACE:
      return "REPLACE";
    default:
      return "SCRATCH";
  }
}

uint32_t round_bits(uint32_t word) { return (word & OF_ROUND) << 4; }

// The modes BLANK=, PAD=, DELIM=, DECIMAL= and ROUND= give a connection.
uint32_t changeable_modes(uint32_t word, bool pad_no) {
  uint32_t f = word & OF_DELIM;  // same bits in both words
  f |= (word & OF_BLANK_ZERO) ? UF_BLANK_ZERO : UF_BLANK_NULL;
  if (pad_no) f |= UF_NOPAD;
  if ((word & OF_DECIMAL) == OF_DECIMAL_COMMA) f |= UF_DECIMAL_COMMA;
  return f | round_bits(word);
}

// A re-OPEN of the file the unit is connected to: only the changeable
// modes move, and in the old dialect the form between its formatted kinds.
int reopen(Request& r, Unit* u) {
  const uint32_t status = r.word & OF_STATUS;
  if (status != 0 && status != OF_STATUS_OLD && status != OF_STATUS_UNKNOWN)
    return fail(r, u, ERR_STATUS_FOR_CONNECTED, status_text(r.word));
  uint32_t f = (u->flags & kKeptOnReopen) | changeable_modes(r.word, r.word & OF_PAD_NO);
  if (old_dialect(r.word)) {
    const bool formatted = (u->flags & UF_FORMATTED_LIKE) != 0;
    switch (r.word & OF_FORM) {
      case OF_FORM_FORMATTED:
        if (!formatted) return fail(r, u, ERR_FORMATTED_ON_UNFORMATTED);
        f = (f & ~UF_FORMATTED_LIKE) | UF_FORMATTED;
        break;
      case OF_FORM_UNFORMATTED:
        if (formatted) return fail(r, u, ERR_UNFORMATTED_ON_FORMATTED);
        break;
      case OF_FORM_BINARY:
        return fail(r, u, ERR_ILLEGAL_ARGUMENT);
      case OF_FORM_PRINT:
        if (!formatted) return fail(r, u, ERR_FORMATTED_ON_UNFORMATTED);
        f = (f & ~UF_FORMATTED_LIKE) | UF_PRINT_FORM;
        break;
    }
  }
  u->flags = f;
  free(r.name);
  r.name = nullptr;
  return 0;
}

uint64_t blocksize_for(const struct stat& st, const Request& r, bool scratch) {
  const bool buffer_given = (r.word & OF_FILEOPT) == OF_FILEOPT_BUFFER;
  const int64_t b = st.st_blksize;
  if (scratch) {
    if (buffer_given) return r.buffer_size > 0 ? static_cast<uint64_t>(r.buffer_size) : 1;
    if (b >= 512) return static_cast<uint64_t>(b);
    if (b >= 1) return static_cast<uint64_t>((b + 1023) / b * 1024);
    return 1024;
  }
  if (buffer_given) return static_cast<uint64_t>(r.buffer_size);
  return b < 1024 ? 1024 : static_cast<uint64_t>(b);
}

// The access, form and record bits of a new connection.
uint32_t access_and_form(uint32_t word, uint32_t f) {
  const uint32_t form = word & OF_FORM;
  const uint32_t form_bits = form == OF_FORM_FORMATTED ? UF_FORMATTED
                             : form == OF_FORM_PRINT   ? UF_PRINT_FORM
                             : form == OF_FORM_BINARY  ? UF_BINARY
                                                       : 0;
  switch (word & OF_ACCESS) {
    case OF_ACCESS_DIRECT:
      return (f & ~(UF_SEQUENTIAL | UF_STREAM)) | form_bits;
    case OF_ACCESS_STREAM:
      return ((f & ~UF_SEQUENTIAL) | UF_STREAM) | form_bits;
    default:
      return ((f & ~UF_STREAM) | UF_SEQUENTIAL) | (form == 0 ? uint32_t{UF_FORMATTED} : form_bits);
  }
}

int position(uint32_t word, int fd) {
  if ((word & OF_POSITION) == OF_POSITION_REWIND) return lseek(fd, 0, SEEK_SET) < 0 ? errno : 0;
  if ((word & OF_FILEOPT) == OF_FILEOPT_EOF || (word & OF_POSITION) == OF_POSITION_APPEND ||
      (word & OF_ACCESS) == OF_ACCESS_APPEND)
    return lseek(fd, 0, SEEK_END) < 0 ? errno : 0;
  return 0;
}

// Open the file and fill the record of the unconnected unit `u`.
int connect(Request& r, Unit* u) {
  const uint32_t access = r.word & OF_ACCESS;
  if (access == OF_ACCESS_DIRECT && !(r.word & OF_RECL)) return fail(r, u, ERR_DIRECT_WITHOUT_RECL);
  if (access == OF_ACCESS_STREAM && (r.word & OF_RECL)) return fail(r, u, ERR_RECL_ON_STREAM);

  OpenedFile opened;
  if (int err = open_by_status(r.word, r.name, &opened)) return fail(r, u, err);
  if (opened.generated_name) r.name = opened.generated_name;
  struct stat st;
  int err = 0;
  if (fstat(opened.fd, &st) != 0)
    err = errno ? errno : EIO;
  else if (S_ISDIR(st.st_mode))
    err = ERR_OPEN_DIRECTORY;
  else
    err = position(r.word, opened.fd);
  if (err) {
    close(opened.fd);
    if (opened.generated_name) unlink(opened.generated_name);
    return fail(r, u, err);
  }

  const bool scratch = (opened.flags & UF_SCRATCH) != 0;
  uint32_t f = access_and_form(r.word, opened.flags);
  if (S_ISREG(st.st_mode)) f |= UF_REGULAR_FILE;
  f |= changeable_modes(r.word, (r.word & OF_PAD_NO) || (r.word & OF_FILEOPT) == OF_FILEOPT_NOPAD);
  if (r.word & OF_ASYNCHRONOUS) f |= UF_ASYNCHRONOUS;

  u->blocksize = blocksize_for(st, r, scratch);
  u->file_name = r.name;
  r.name = nullptr;
  u->fd = opened.fd;
  u->device = st.st_dev;
  u->inode = st.st_ino;
  u->record_number = 1;
  if (r.word & OF_RECL) {
    const bool words = (r.word & OF_RECL_WORDS) && !(f & UF_FORMATTED_LIKE);
    u->record_length = static_cast<uint64_t>(r.recl) * (words ? 4 : 1);
    u->inquire_record_length = u->record_length;
  } else {
    const uint32_t form = r.word & OF_FORM;
    const bool formatted = form == 0 || form == OF_FORM_FORMATTED || form == OF_FORM_PRINT;
    u->record_length = formatted ? kFormattedRecordLength : kUnformattedRecordLength;
    u->inquire_record_length = old_dialect(r.word) ? 0 : u->record_length;
  }
  u->flags = f;
  return 0;
}

// The connected unit `u` meets FILE=: true when the name is another file
// than the one connected (a symbolic link to it counts as another).
int names_other_file(Request& r, Unit* u, bool* other) {
  struct stat named;
  if (lstat(r.name, &named) != 0) {
    if (errno != ENOENT) return errno;
    *other = true;
    return 0;
  }
  struct stat connected;
  *other = fstat(u->fd, &connected) != 0 || connected.st_dev != named.st_dev ||
           connected.st_ino != named.st_ino;
  return 0;
}

int open_statement(uint32_t word, int64_t unit, const char* file, int64_t file_length, int64_t recl,
                   const Location* location, int64_t buffer_size, OnError mode) {
  Request r{word, unit, location, mode, recl, buffer_size};
  initialise_for(mode == OnError::Return ? OF_ERR_RETURN : 0, location);
  if (unit < 0 || unit > INT32_MAX) return fail(r, nullptr, ERR_ILLEGAL_UNIT);

  if (r.word & OF_FILE) {
    if (int err = take_file_name(r, file, file_length)) return err;
    if ((r.word & OF_STATUS) == OF_STATUS_SCRATCH && !old_dialect(r.word))
      return fail(r, nullptr, ERR_NAMED_SCRATCH);
  }
  if (old_dialect(r.word) && (r.word & OF_ACCESS) != OF_ACCESS_DIRECT) r.word &= ~OF_RECL;
  if ((r.word & OF_RECL) && r.recl < 1) return fail(r, nullptr, ERR_BAD_RECL);
  if ((r.word & OF_FILEOPT) == OF_FILEOPT_BUFFER && r.buffer_size <= 0)
    return fail(r, nullptr, ERR_BUFFER_SIZE_NOT_POSITIVE);

  Unit* u;
  if (int err = take_unit_for_open(&u, unit, (r.word & OF_FILE) != 0, location, OnError::Return))
    return fail(r, nullptr, err, nullptr, err == ERR_OUT_OF_MEMORY, sizeof(Unit));
  if ((r.word & OF_ACCESS) == OF_ACCESS_STREAM && is_default_record(u))
    return fail(r, u, ERR_STREAM_OPEN_DEFAULT_UNIT);
  if ((r.word & OF_ACCESS) == OF_ACCESS_APPEND && (r.word & OF_STATUS) == OF_STATUS_NEW)
    return fail(r, u, ERR_INCOMPATIBLE_OPEN);

  bool connect_new = !(u->flags & UF_CONNECTED);
  if (!connect_new && r.name) {
    bool other = false;
    if (int err = names_other_file(r, u, &other)) return fail(r, u, err);
    if (other) {
      // The old connection goes first, keeping its file.  Its failure has
      // already released the unit or ended the program.
      if (int err = close_unit(unit, u, 0, location, mode)) {
        free(r.name);
        return err;
      }
      connect_new = true;
    }
  }
  if (connect_new) {
    if (!r.name && (r.word & OF_STATUS) != OF_STATUS_SCRATCH) {
      r.name = implicit_file_name(unit);
      if (!r.name) return fail(r, u, ERR_OUT_OF_MEMORY, nullptr, true, 8 + kMaxDecimalDigits);
    }
    if (int err = connect(r, u)) return err;
  } else {
    if (int err = reopen(r, u)) return err;
  }
  if (!(u->flags & UF_SCRATCH)) apply_byte_swap_options(u);
  __f90_release_unit(u);
  return 0;
}

}  // namespace

namespace qal {
extern "C" {

QAL_EXPORT int __f90_open(uint32_t word, int64_t unit, const char* file, int64_t file_length,
                          int64_t recl, const Location* location, int64_t buffer_size) {
  return open_statement(word, unit, file, file_length, recl, location, buffer_size,
                        error_mode(word));
}

}  // extern "C"
}  // namespace qal
