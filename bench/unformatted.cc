// Unformatted sequential transfer, called as compiled code calls it, beside
// its floor: plain C++ making or taking the same bytes.  One run times one
// workload once and prints "<mode> <ns> <check>": ns per record for the
// small records, ns for the whole statement for the big one.  The check
// (a sum of what was read, or the file's length) must agree across the
// library, the floor and the gfortran peer (peers/unformatted.f90).
//
//   bench_unformatted ws|rs|wb|rb FILE     the library
//   bench_unformatted fws|frs|fwb|frb FILE the floor
//
// ws: WRITE(10) I, J, a million records.  rs: READ(10) I, J of them.
// wb: WRITE(10) A of one 64 MiB record.  rb: READ(10) A of it.
// The floors use a buffer of the size the unit uses (st_blksize to write,
// twice that to read) and write(2)/read(2) when it is full or empty; for
// the big record, one write(2) or read(2) of all its bytes.
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qal/qal.h"
#include "timing.h"

namespace {

using namespace qal;
using qal::bench::die;
using qal::bench::now_ns;

constexpr int32_t kRecords = 1000000;
constexpr int64_t kBig = 64 * 1024 * 1024;

// BENCH_BUFFER=N: the unit gets FILEOPT='BUFFER=N' and the floor a buffer
// of N bytes, to show what the number of write(2) calls costs.
int64_t buffer_option() {
  const char* v = getenv("BENCH_BUFFER");
  return v ? atoll(v) : 0;
}

void open_unit(const char* name, uint32_t status) {
  static const Location where = {LOC_OPEN, 3, "bench.f90"};
  const int64_t buffer = buffer_option();
  if (__f90_open(OF_FILE | status | OF_FORM_UNFORMATTED | (buffer ? OF_FILEOPT_BUFFER : 0), 10,
                 name, static_cast<int64_t>(strlen(name)), 0, &where, buffer) != 0)
    die("open");
}
void close_unit() {
  static const Location where = {LOC_CLOSE, 9, "bench.f90"};
  __f90_close(0, 10, &where);
}

constexpr Location kWrite = {LOC_WRITE, 5, "bench.f90"};
constexpr Location kRead = {LOC_READ, 6, "bench.f90"};

std::vector<int8_t> big_array() {
  std::vector<int8_t> a(kBig);
  for (int64_t k = 1; k <= kBig; ++k) a[k - 1] = static_cast<int8_t>(k % 127);
  return a;
}

int64_t blksize(int fd) {
  if (int64_t buffer = buffer_option()) return buffer;
  struct stat st;
  if (fstat(fd, &st) != 0) die("fstat");
  return st.st_blksize > 0 ? st.st_blksize : 4096;
}

// The library.

int64_t ours_write_small(const char* name) {
  open_unit(name, OF_STATUS_REPLACE);
  const int64_t t0 = now_ns();
  for (int32_t k = 1; k <= kRecords; ++k) {
    IoStatementSuw s = {};
    s.unit = 10;
    s.location = &kWrite;
    __f90_ssuw(&s);
    __f90_suw_i4(&s, k);
    __f90_suw_i4(&s, k + 1);
    __f90_esuw(&s);
  }
  close_unit();
  return now_ns() - t0;
}

int64_t ours_read_small(const char* name, int64_t* check) {
  open_unit(name, OF_STATUS_OLD);
  const int64_t t0 = now_ns();
  int64_t sum = 0;
  for (int32_t k = 1; k <= kRecords; ++k) {
    IoStatementSur s = {};
    s.unit = 10;
    s.location = &kRead;
    int32_t i, j;
    __f90_ssur(&s);
    __f90_sur_4(&s, &i);
    __f90_sur_4(&s, &j);
    __f90_esur(&s);
    sum += i + j;
  }
  close_unit();
  const int64_t t = now_ns() - t0;
  *check = sum;
  return t;
}

int64_t ours_write_big(const char* name) {
  const std::vector<int8_t> a = big_array();
  open_unit(name, OF_STATUS_REPLACE);
  const int64_t t0 = now_ns();
  IoStatementSuw s = {};
  s.unit = 10;
  s.location = &kWrite;
  __f90_ssuw(&s);
  __f90_suw_n(&s, a.data(), kBig);
  __f90_esuw(&s);
  close_unit();
  return now_ns() - t0;
}

int64_t ours_read_big(const char* name, int64_t* check) {
  std::vector<int8_t> a(kBig);
  open_unit(name, OF_STATUS_OLD);
  const int64_t t0 = now_ns();
  IoStatementSur s = {};
  s.unit = 10;
  s.location = &kRead;
  __f90_ssur(&s);
  __f90_sur_n(&s, a.data(), kBig);
  __f90_esur(&s);
  close_unit();
  const int64_t t = now_ns() - t0;
  int64_t sum = 0;
  for (int8_t v : a) sum += v;
  *check = sum;
  return t;
}

// The floors.

void write_all(int fd, const char* p, size_t n) {
  while (n > 0) {
    const ssize_t k = write(fd, p, n);
    if (k <= 0) die("write");
    p += k;
    n -= static_cast<size_t>(k);
  }
}

int64_t floor_write_small(const char* name) {
  const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) die(name);
  const int64_t t0 = now_ns();
  std::vector<char> buffer(static_cast<size_t>(blksize(fd)));
  char* at = buffer.data();
  char* const end = at + buffer.size();
  for (int32_t k = 1; k <= kRecords; ++k) {
    const int32_t record[4] = {8, k, k + 1, 8};
    const char* p = reinterpret_cast<const char*>(record);
    for (size_t left = sizeof record; left > 0;) {
      const size_t room = static_cast<size_t>(end - at);
      const size_t n = left < room ? left : room;
      memcpy(at, p, n);
      at += n;
      p += n;
      left -= n;
      if (at == end) {
        write_all(fd, buffer.data(), buffer.size());
        at = buffer.data();
      }
    }
  }
  write_all(fd, buffer.data(), static_cast<size_t>(at - buffer.data()));
  close(fd);
  return now_ns() - t0;
}

struct Reader {
  int fd;
  std::vector<char> buffer;
  char* at = nullptr;
  char* end = nullptr;
  void take(void* to, size_t n) {
    char* out = static_cast<char*>(to);
    while (n > 0) {
      if (at == end) {
        const ssize_t k = read(fd, buffer.data(), buffer.size());
        if (k <= 0) die("read");
        at = buffer.data();
        end = at + k;
      }
      const size_t have = static_cast<size_t>(end - at);
      const size_t m = n < have ? n : have;
      memcpy(out, at, m);
      at += m;
      out += m;
      n -= m;
    }
  }
};

int64_t floor_read_small(const char* name, int64_t* check) {
  Reader r{open(name, O_RDONLY), {}};
  if (r.fd < 0) die(name);
  const int64_t t0 = now_ns();
  r.buffer.resize(static_cast<size_t>(2 * blksize(r.fd)));
  r.at = r.end = r.buffer.data();
  int64_t sum = 0;
  for (int32_t k = 1; k <= kRecords; ++k) {
    int32_t length, v[2], trailer;
    r.take(&length, 4);
    r.take(v, 8);
    r.take(&trailer, 4);
    sum += v[0] + v[1];
  }
  close(r.fd);
  const int64_t t = now_ns() - t0;
  *check = sum;
  return t;
}

int64_t floor_write_big(const char* name) {
  const std::vector<int8_t> a = big_array();
  std::vector<char> bytes(kBig + 8);
  const int32_t length = static_cast<int32_t>(kBig);
  memcpy(bytes.data(), &length, 4);
  memcpy(bytes.data() + 4, a.data(), kBig);
  memcpy(bytes.data() + 4 + kBig, &length, 4);
  const int fd = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) die(name);
  const int64_t t0 = now_ns();
  write_all(fd, bytes.data(), bytes.size());
  close(fd);
  return now_ns() - t0;
}

int64_t floor_read_big(const char* name, int64_t* check) {
  std::vector<char> bytes(kBig + 8);
  const int fd = open(name, O_RDONLY);
  if (fd < 0) die(name);
  const int64_t t0 = now_ns();
  for (size_t got = 0; got < bytes.size();) {
    const ssize_t k = read(fd, bytes.data() + got, bytes.size() - got);
    if (k <= 0) die("read");
    got += static_cast<size_t>(k);
  }
  close(fd);
  const int64_t t = now_ns() - t0;
  int64_t sum = 0;
  for (int64_t k = 4; k < 4 + kBig; ++k) sum += static_cast<int8_t>(bytes[k]);
  *check = sum;
  return t;
}

int64_t file_size(const char* name) {
  struct stat st;
  return stat(name, &st) == 0 ? st.st_size : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s ws|rs|wb|rb|fws|frs|fwb|frb FILE\n", argv[0]);
    return 2;
  }
  const std::string mode = argv[1];
  const char* name = argv[2];
  int64_t ns = 0, check = 0;
  if (mode == "ws") ns = ours_write_small(name);
  if (mode == "rs") ns = ours_read_small(name, &check);
  if (mode == "wb") ns = ours_write_big(name);
  if (mode == "rb") ns = ours_read_big(name, &check);
  if (mode == "fws") ns = floor_write_small(name);
  if (mode == "frs") ns = floor_read_small(name, &check);
  if (mode == "fwb") ns = floor_write_big(name);
  if (mode == "frb") ns = floor_read_big(name, &check);
  if (mode[mode.size() - 2] == 'w') check = file_size(name);
  const bool small = mode.back() == 's';
  printf("%s %.2f %lld\n", mode.c_str(), small ? double(ns) / kRecords : double(ns),
         static_cast<long long>(check));
  return 0;
}
