// Opening the file of a new connection.  Each STATUS= has its ladder of
// open(2) calls: without ACTION= the widest access that works wins, so a
// read-only file still connects for reading.  Symbolic links get their own
// errors where a plain "no such file" or "file exists" would mislead.
#include "connect/open_file.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

using namespace qal;

namespace {

constexpr mode_t kFileMode = 0666;
constexpr mode_t kScratchMode = 0600;

constexpr uint32_t kReadOnly = UF_CONNECTED | UF_READABLE;
constexpr uint32_t kWriteOnly = UF_CONNECTED | UF_WRITABLE;
constexpr uint32_t kReadWrite = UF_CONNECTED | UF_READABLE | UF_WRITABLE;
static_assert(kReadOnly == 1025 && kWriteOnly == 2049 && kReadWrite == 3073);

// A file that lstat finds but open keeps missing (it changes under us)
// is given up after this many tries.
constexpr int kRetries = 64;

int last_errno() { return errno ? errno : EIO; }

// One open(2) attempt: the descriptor, or -1 with errno set.
int attempt(const char* name, int oflags, uint32_t flags, OpenedFile* o, mode_t mode = kFileMode) {
  const int fd = open(name, oflags, mode);
  if (fd >= 0) {
    o->fd = fd;
    o->flags = flags;
  }
  return fd;
}

bool denied(int e) { return e == EACCES || e == EROFS; }

uint32_t flags_for(int oflags) {
  switch (oflags & O_ACCMODE) {
    case O_RDONLY:
      return kReadOnly;
    case O_WRONLY:
      return kWriteOnly;
    default:
      return kReadWrite;
  }
}

int access_for(uint32_t word) {
  switch (word & OF_ACTION) {
    case OF_ACTION_READ:
      return O_RDONLY;
    case OF_ACTION_WRITE:
      return O_WRONLY;
    default:
      return O_RDWR;
  }
}

bool has_action(uint32_t word) { return (word & OF_ACTION) != 0; }

// STATUS='OLD' met ENOENT: 0 to try again (the file exists after all), or
// the error to report.
int old_file_missing(uint32_t word, const char* name) {
  if (old_dialect(word)) return ERR_OLD_FILE_MISSING;
  struct stat st;
  if (lstat(name, &st) != 0) return ENOENT;
  if (S_ISLNK(st.st_mode)) return ERR_OLD_DANGLING_LINK;
  return 0;
}

// STATUS='NEW' met EEXIST: 0 to try again (the name went away), or the
// error: `link_error` for a symbolic link, EEXIST for anything else.
int new_file_exists(const char* name, int link_error) {
  struct stat st;
  if (lstat(name, &st) != 0) return errno == ENOENT ? 0 : last_errno();
  return S_ISLNK(st.st_mode) ? link_error : EEXIST;
}

int open_new(uint32_t word, const char* name, OpenedFile* o) {
  constexpr int kNew = O_CREAT | O_EXCL;
  for (int tries = 0; tries < kRetries; ++tries) {
    if (has_action(word)) {
      const int acc = access_for(word);
      if (attempt(name, acc | kNew, flags_for(acc), o) >= 0) return 0;
      if (errno != EEXIST) return last_errno();
      // A link is 1150 when the file was to be read, 1149 when it was to
      // be written: the same split as the ladder without ACTION= below.
      const int link_error = acc == O_RDONLY ? ERR_NEW_SYMBOLIC_LINK : ERR_OLD_DANGLING_LINK;
      if (int err = new_file_exists(name, link_error)) return err;
      continue;
    }
    if (attempt(name, O_RDWR | kNew, kReadWrite, o) >= 0) return 0;
    if (errno == EEXIST) {
      if (int err = new_file_exists(name, ERR_NEW_SYMBOLIC_LINK)) return err;
      continue;
    }
    if (!denied(errno)) return last_errno();
    if (attempt(name, O_RDONLY | kNew, kReadOnly, o) >= 0) return 0;
    if (errno != EEXIST && errno != EACCES) return last_errno();
    if (attempt(name, O_WRONLY | kNew, kWriteOnly, o) >= 0) return 0;
    if (errno != EEXIST) return last_errno();
    if (int err = new_file_exists(name, ERR_OLD_DANGLING_LINK)) return err;
  }
  return EEXIST;
}

// Without ACTION=: read-write, else read-only where the first is denied,
// else write-only where reading is denied too.
int open_widest(const char* name, int extra, OpenedFile* o, mode_t mode = kFileMode) {
  if (attempt(name, O_RDWR | extra, kReadWrite, o, mode) >= 0) return 0;
  if (!denied(errno)) return last_errno();
  if (attempt(name, O_RDONLY | extra, kReadOnly, o, mode) >= 0) return 0;
  if (errno != EACCES) return last_errno();
  if (attempt(name, O_WRONLY | extra, kWriteOnly, o, mode) >= 0) return 0;
  return last_errno();
}

int open_with_action(uint32_t word, const char* name, int extra, OpenedFile* o) {
  const int acc = access_for(word);
  if (attempt(name, acc | extra, flags_for(acc), o) >= 0) return 0;
  return last_errno();
}

int open_old(uint32_t word, const char* name, OpenedFile* o) {
  for (int tries = 0; tries < kRetries; ++tries) {
    const int err = has_action(word) ? open_with_action(word, name, 0, o) : open_widest(name, 0, o);
    if (err != ENOENT) return err;
    if (int missing = old_file_missing(word, name)) return missing;
  }
  return ENOENT;
}

int open_replace(uint32_t word, const char* name, OpenedFile* o) {
  constexpr int kReplace = O_CREAT | O_TRUNC;
  if (has_action(word)) return open_with_action(word, name, kReplace, o);
  return open_widest(name, kReplace, o);
}

int open_unknown(uint32_t word, const char* name, OpenedFile* o) {
  switch (word & OF_ACTION) {
    case OF_ACTION_READ:
      if (attempt(name, O_RDONLY | O_CREAT, kReadOnly, o) >= 0) return 0;
      if (attempt(name, O_RDONLY, kReadOnly, o) >= 0) return 0;
      return last_errno();
    case OF_ACTION_WRITE:
    case OF_ACTION_READWRITE:
      return open_with_action(word, name, O_CREAT, o);
    default:
      // Every step follows the failure of the one before, whatever it was.
      if (attempt(name, O_RDWR | O_CREAT, kReadWrite, o) >= 0) return 0;
      if (attempt(name, O_RDONLY | O_CREAT, kReadOnly, o) >= 0) return 0;
      if (attempt(name, O_RDONLY, kReadOnly, o) >= 0) return 0;
      if (attempt(name, O_WRONLY | O_CREAT, kWriteOnly, o) >= 0) return 0;
      return last_errno();
  }
}

// --- Scratch file names -------------------------------------------------
//
//   <dir>/tmp.F<seed><digits>
//
// The seed letters advance with every name made by the process; the digits
// are the process id and a counter in base 64, lowest digit first.

pthread_mutex_t seed_lock = PTHREAD_MUTEX_INITIALIZER;
char seed[3] = {'A', 'A', 'A'};

constexpr char kDigits64[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._";

void take_seed(char out[3]) {
  pthread_mutex_lock(&seed_lock);
  memcpy(out, seed, 3);
  for (char& c : seed) {  // first letter fastest, carrying into the next
    if (c != 'Z') {
      ++c;
      break;
    }
    c = 'A';
  }
  pthread_mutex_unlock(&seed_lock);
}

bool usable_directory(const char* dir) {
  struct stat st;
  return stat(dir, &st) == 0 && S_ISDIR(st.st_mode) && access(dir, W_OK | X_OK) == 0;
}

// The directory prefix of scratch names ("" for the working directory), in
// a fresh allocation; null when no directory will do.
char* scratch_directory(bool* none) {
  *none = false;
  const char* tmpdir = getenv("TMPDIR");
  if (tmpdir && *tmpdir) {
    size_t n = strlen(tmpdir);
    while (n > 1 && tmpdir[n - 1] == '/') --n;
    char* dir = strndup(tmpdir, n);
    if (!dir) return nullptr;
    if (usable_directory(dir)) return dir;
    free(dir);
  }
  if (usable_directory(".")) return strdup("");
  if (usable_directory("/tmp")) return strdup("/tmp");
  *none = true;
  return nullptr;
}

int open_generated_scratch(uint32_t word, OpenedFile* o) {
  const uint64_t pid = static_cast<uint64_t>(getpid());
  const int width = pid < 0x100000 ? 6 : pid < 0x4000000 ? 7 : 8;
  bool none;
  char* dir = scratch_directory(&none);
  if (!dir) return none ? ERR_NO_SCRATCH_NAMES : ERR_OUT_OF_MEMORY;
  const size_t dir_length = strlen(dir);
  const bool slash = dir_length > 0 && strcmp(dir, "/") != 0;
  char* name = static_cast<char*>(malloc(dir_length + 1 + 5 + 3 + 8 + 1));
  if (!name) {
    free(dir);
    return ERR_OUT_OF_MEMORY;
  }
  char* p = name;
  memcpy(p, dir, dir_length);
  p += dir_length;
  free(dir);
  if (slash) *p++ = '/';
  memcpy(p, "tmp.F", 5);
  p += 5;
  take_seed(p);
  char* digits = p + 3;
  digits[width] = '\0';

  int acc = O_RDWR;
  if ((word & OF_ACTION) == OF_ACTION_READ) acc = O_RDONLY;
  if ((word & OF_ACTION) == OF_ACTION_WRITE) acc = O_WRONLY;
  const uint32_t start = static_cast<uint32_t>(clock()) & 0xffff;
  uint32_t counter = start;
  do {
    uint64_t value = pid << 16 | counter;
    for (int i = 0; i < width; ++i, value >>= 6) digits[i] = kDigits64[value & 63];
    if (attempt(name, acc | O_CREAT | O_EXCL, flags_for(acc) | UF_SCRATCH, o, kScratchMode) >= 0) {
      o->generated_name = name;
      return 0;
    }
    if (errno != EEXIST) {
      const int err = last_errno();
      free(name);
      return err;
    }
    counter = (counter + 1) & 0xffff;
  } while (counter != start);
  free(name);
  return ERR_NO_SCRATCH_NAMES;
}

int open_scratch(uint32_t word, const char* name, OpenedFile* o) {
  int err;
  if (!name) {
    err = open_generated_scratch(word, o);
  } else if (has_action(word)) {
    err = open_with_action(word, name, O_CREAT, o);
  } else {
    err = open_widest(name, O_CREAT, o);
  }
  if (!err) o->flags |= UF_SCRATCH;
  return err;
}

}  // namespace

namespace qal {

int open_by_status(uint32_t word, const char* name, OpenedFile* opened) {
  int err;
  switch (word & OF_STATUS) {
    case 0:
    case OF_STATUS_UNKNOWN:
      err = open_unknown(word, name, opened);
      break;
    case OF_STATUS_OLD:
      err = open_old(word, name, opened);
      break;
    case OF_STATUS_NEW:
      err = open_new(word, name, opened);
      break;
    case OF_STATUS_REPLACE:
      err = open_replace(word, name, opened);
      break;
    case OF_STATUS_SCRATCH:
      err = open_scratch(word, name, opened);
      break;
    default:
      return ERR_IMPOSSIBLE_STATUS;
  }
  // A directory cannot be opened for writing; say what it is.
  return err == EISDIR ? ERR_OPEN_DIRECTORY : err;
}

}  // namespace qal
