// BACKSPACE and INQUIRE, called as compiled code calls them, beside their
// floors.  One run times one workload once and prints "<mode> <ns> <check>"
// with ns per statement (per BACKSPACE and READ pair for "br").  The check
// must agree with the gfortran peer's (peers/positioning.f90).
//
//   bench_positioning make F|U FILE      a 1 GiB file of 80-byte records
//   bench_positioning rd F|U FILE        READ of the first million records
//   bench_positioning br F|U FILE        BACKSPACE, READ of the last record
//   bench_positioning iq FILE            INQUIRE(UNIT=, OPENED=, NUMBER=)
//   bench_positioning iqt FILE           INQUIRE(UNIT=, NAME=, ACCESS=, FORM=)
//   bench_positioning floor-rd|floor-br F|U FILE
//
// F: formatted records of 79 digits and a newline.  U: unformatted records
// of 80 bytes, the record number in the first 8.  The floors take the same
// bytes with read(2) into a buffer of the unit's size (memchr for the
// newline), or find the last record in the last block, read once.
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <vector>

#include "qal/qal.h"
#include "timing.h"

namespace {

using namespace qal;
using qal::bench::die;
using qal::bench::now_ns;

constexpr int64_t kFileBytes = int64_t{1} << 30;
constexpr int kRecordBytes = 80;  // the payload: 79 digits and '\n', or 80 bytes
constexpr int kReads = 1000000;
constexpr int kBackspaces = 200000;
constexpr int kInquiries = 1000000;

bool formatted(const char* kind) { return kind[0] == 'F'; }

int64_t record_size(bool f) { return f ? kRecordBytes : kRecordBytes + 8; }

void make(bool f, const char* name) {
  const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) die("open");
  const int64_t size = record_size(f);
  const int64_t records = kFileBytes / size;
  std::vector<char> block;
  block.reserve(1 << 20);
  for (int64_t k = 1; k <= records; ++k) {
    char r[kRecordBytes + 8];
    if (f) {
      snprintf(r, sizeof r, "%079lld", static_cast<long long>(k));
      r[79] = '\n';
    } else {
      const uint32_t marker = kRecordBytes;
      memcpy(r, &marker, 4);
      memset(r + 4, static_cast<int>(k & 0x7f), kRecordBytes);
      memcpy(r + 4, &k, 8);
      memcpy(r + 4 + kRecordBytes, &marker, 4);
    }
    block.insert(block.end(), r, r + size);
    if (block.size() + size > block.capacity() || k == records) {
      if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size())) die("write");
      block.clear();
    }
  }
  close(fd);
}

void open_unit(bool f, const char* name, uint32_t position) {
  static const Location where = {LOC_OPEN, 3, "bench.f90"};
  const uint32_t form = f ? OF_FORM_FORMATTED : OF_FORM_UNFORMATTED;
  if (__f90_open(OF_FILE | OF_STATUS_OLD | form | position, 10, name,
                 static_cast<int64_t>(strlen(name)), 0, &where, 0) != 0)
    die("open");
}
void close_unit() {
  static const Location where = {LOC_CLOSE, 9, "bench.f90"};
  __f90_close(0, 10, &where);
}

struct Reader {
  bool f;
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  explicit Reader(bool formatted) : f(formatted) {
    static const Location where = {LOC_READ, 5, "bench.f90"};
    if (f && __f90_parse_format(&table, &counters, 1, &where, "(A)", 3, 0) != 0) die("format");
  }
  ~Reader() { free(table); }
  // READ(10,'(A)') line, or READ(10) line; the record's number.
  int64_t read(char* line) const {
    static const Location where = {LOC_READ, 5, "bench.f90"};
    if (f) {
      IoStatementSfr io = {};
      io.unit = 10;
      io.location = &where;
      io.format = table;
      io.format_counters = counters;
      __f90_ssfr(&io);
      __f90_sfr_ch(&io, line, kRecordBytes - 1);
      __f90_esfr(&io);
      return atoll(line + 60);  // the low digits
    }
    IoStatementSur io = {};
    io.unit = 10;
    io.location = &where;
    __f90_ssur(&io);
    __f90_sur_n(&io, line, kRecordBytes);
    __f90_esur(&io);
    int64_t k;
    memcpy(&k, line, 8);
    return k;
  }
};

void backspace() {
  static const Location where = {LOC_BACKSPACE, 4, "bench.f90"};
  IoStatementPos p = {10, 0, &where};
  __f90_backspace(&p);
}

double ours_read(bool f, const char* name, int64_t* check) {
  open_unit(f, name, 0);
  const Reader r(f);
  char line[kRecordBytes + 1] = {};
  int64_t sum = 0;
  const int64_t t0 = now_ns();
  for (int k = 0; k < kReads; ++k) sum += r.read(line);
  const int64_t t = now_ns() - t0;
  close_unit();
  *check = sum;
  return static_cast<double>(t) / kReads;
}

double ours_backspace(bool f, const char* name, int64_t* check) {
  open_unit(f, name, OF_POSITION_APPEND);
  const Reader r(f);
  char line[kRecordBytes + 1] = {};
  int64_t sum = 0;
  const int64_t t0 = now_ns();
  for (int k = 0; k < kBackspaces; ++k) {
    backspace();
    sum += r.read(line);
  }
  const int64_t t = now_ns() - t0;
  close_unit();
  *check = sum / kBackspaces;
  return static_cast<double>(t) / kBackspaces;
}

double ours_inquire(const char* name, bool texts, int64_t* check) {
  open_unit(true, name, 0);
  static const Location where = {LOC_INQUIRE, 7, "bench.f90"};
  char file[256], access[16], form[16];
  int64_t sum = 0;
  const int64_t t0 = now_ns();
  // Compiled code sets the block's fields that the statement names, the
  // rest stays as it was.
  InquireBlock b = {};
  for (int k = 0; k < kInquiries; ++k) {
    b.location = &where;
    b.unit = 10;
    b.iflags = 0;
    if (texts) {
      b.iflags = IF_NAME | IF_ACCESS | IF_FORM;
      b.name = {file, sizeof file};
      b.access = {access, sizeof access};
      b.form = {form, sizeof form};
    }
    __f90_inqu(&b);
    sum += texts ? access[0] + form[0] : b.opened + b.number;
  }
  const int64_t t = now_ns() - t0;
  close_unit();
  *check = sum / kInquiries;
  return static_cast<double>(t) / kInquiries;
}

// The floors.

// The record's number: the low digits of a formatted record, the first 8
// bytes of an unformatted one.
int64_t number_of(bool f, const char* line) {
  if (f) return atoll(line + 60);
  int64_t v;
  memcpy(&v, line, 8);
  return v;
}

int open_for_floor(const char* name, struct stat* st) {
  const int fd = open(name, O_RDONLY);
  if (fd < 0 || fstat(fd, st) != 0) die(name);
  return fd;
}

double floor_read(bool f, const char* name, int64_t* check) {
  struct stat st;
  const int fd = open_for_floor(name, &st);
  std::vector<char> buffer(2 * st.st_blksize);
  size_t have = 0, at = 0;
  char line[kRecordBytes + 1] = {};
  int64_t sum = 0;
  const int64_t want = f ? kRecordBytes : kRecordBytes + 8;
  const int64_t t0 = now_ns();
  for (int k = 0; k < kReads; ++k) {
    if (have - at < static_cast<size_t>(want)) {
      memmove(buffer.data(), buffer.data() + at, have - at);
      have -= at;
      at = 0;
      const ssize_t n = read(fd, buffer.data() + have, buffer.size() - have);
      if (n <= 0) die("read");
      have += static_cast<size_t>(n);
    }
    if (f) {
      const char* nl = static_cast<const char*>(memchr(buffer.data() + at, '\n', have - at));
      const size_t n = static_cast<size_t>(nl - (buffer.data() + at));
      memcpy(line, buffer.data() + at, n);
      at += n + 1;
    } else {
      memcpy(line, buffer.data() + at + 4, kRecordBytes);
      at += static_cast<size_t>(want);
    }
    sum += number_of(f, line);
  }
  const int64_t t = now_ns() - t0;
  close(fd);
  *check = sum;
  return static_cast<double>(t) / kReads;
}

double floor_backspace(bool f, const char* name, int64_t* check) {
  // The last block is read once; each BACKSPACE and READ then finds the
  // last record in it and copies it out, as a program keeping its own
  // buffer would.
  struct stat st;
  const int fd = open_for_floor(name, &st);
  std::vector<char> block(static_cast<size_t>(2 * st.st_blksize));
  const off_t from = st.st_size - static_cast<off_t>(block.size());
  if (pread(fd, block.data(), block.size(), from) != static_cast<ssize_t>(block.size()))
    die("pread");
  char* const end = block.data() + block.size();
  char line[kRecordBytes + 1] = {};
  int64_t sum = 0;
  const int64_t t0 = now_ns();
  for (int k = 0; k < kBackspaces; ++k) {
    if (f) {
      const char* nl = static_cast<const char*>(memrchr(block.data(), '\n', block.size() - 1));
      const size_t n = static_cast<size_t>(end - 1 - (nl + 1));
      memcpy(line, nl + 1, n);
    } else {
      uint32_t marker;
      memcpy(&marker, end - 4, 4);
      memcpy(line, end - 4 - marker, marker);
    }
    sum += number_of(f, line);
  }
  const int64_t t = now_ns() - t0;
  close(fd);
  *check = sum / kBackspaces;
  return static_cast<double>(t) / kBackspaces;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: bench_positioning MODE [F|U] FILE\n");
    return 2;
  }
  const char* mode = argv[1];
  int64_t check = 0;
  double ns = 0;
  if (strcmp(mode, "iq") == 0 || strcmp(mode, "iqt") == 0) {
    ns = ours_inquire(argv[2], mode[2] == 't', &check);
  } else {
    if (argc < 4) return 2;
    const bool f = formatted(argv[2]);
    const char* name = argv[3];
    if (strcmp(mode, "make") == 0) {
      make(f, name);
      return 0;
    }
    if (strcmp(mode, "rd") == 0) ns = ours_read(f, name, &check);
    if (strcmp(mode, "br") == 0) ns = ours_backspace(f, name, &check);
    if (strcmp(mode, "floor-rd") == 0) ns = floor_read(f, name, &check);
    if (strcmp(mode, "floor-br") == 0) ns = floor_backspace(f, name, &check);
  }
  printf("%s %.2f %lld\n", mode, ns, static_cast<long long>(check));
  return 0;
}
