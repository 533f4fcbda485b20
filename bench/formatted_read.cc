// Formatted input from a file unit, called as compiled code calls it for
// READ(10,'(ES25.16)') X, one double a record, and READ(10,'(4I12)')
// I1, I2, I3, I4: a zeroed control block on the stack, the format parsed
// once before any timing, a start call, one call per item, an end call.
//
// Beside each, the floor: a plain C++ reader of the same file (read(2) of
// 4 KiB blocks, a scan for the newline, std::from_chars on each field).
// Both add up what they read; the sums go to stderr and must agree, bit
// for bit, with each other and with the gfortran peer's.
//
//   bench_formatted_read --make-files   writes reals.txt and ints.txt
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <charconv>
#include <cstring>

#include "qal/qal.h"

namespace {

using namespace qal;

constexpr int64_t kRealRecords = 400000;
constexpr int64_t kIntegerRecords = 1000000;  // 4,000,000 values
constexpr int kValues = 1000;

constexpr Location kWhere = {LOC_READ, 7, "bench.f90"};

// The values of the output benchmarks: doubles of every magnitude and
// integers of four to nine digits, in the same order.
double real_value(int i) {
  return static_cast<double>((i * 7919) % 1000000000) * __builtin_pow(10.0, i % 41 - 20) / 997;
}
int32_t integer_value(int i) { return (i * 7919) % 1000000000; }

// What a benchmark read adds up to, to the last bit, on stderr: the run
// script compares it across the three readers.
void report_sum(double sum) { fprintf(stderr, "sum %.17g\n", sum); }

void make_files() {
  FILE* r = fopen("reals.txt", "w");
  for (int64_t k = 0; k < kRealRecords; ++k)
    fprintf(r, "%25.16E\n", real_value(int(k % kValues) + 1));
  fclose(r);
  FILE* n = fopen("ints.txt", "w");
  for (int64_t k = 0; k < kIntegerRecords; ++k) {
    for (int j = 0; j < 4; ++j) fprintf(n, "%12d", integer_value(int((4 * k + j) % kValues) + 1));
    fputc('\n', n);
  }
  fclose(n);
}

void open_unit(int64_t unit, const char* name) {
  static const Location where = {LOC_OPEN, 3, "bench.f90"};
  if (__f90_open(OF_FILE | OF_STATUS_OLD, unit, name, static_cast<int64_t>(strlen(name)), 0, &where,
                 0) != 0)
    abort();
}
void close_unit(int64_t unit) {
  static const Location where = {LOC_CLOSE, 9, "bench.f90"};
  __f90_close(0, unit, &where);
}

struct Format {
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  explicit Format(const char* text) {
    if (__f90_parse_format(&table, &counters, 1, &kWhere, text, static_cast<int32_t>(strlen(text)),
                           0) != 0)
      abort();
  }
  ~Format() { free(table); }
  IoStatementSfr statement() const {
    IoStatementSfr io = {};
    io.location = &kWhere;
    io.unit = 10;
    io.format = table;
    io.format_counters = counters;
    return io;
  }
};

void BM_ReadES25_16(benchmark::State& state) {
  open_unit(10, "reals.txt");
  const Format f("(ES25.16)");
  double sum = 0;
  for (auto _ : state) {
    double x;
    IoStatementSfr io = f.statement();
    __f90_ssfr(&io);
    __f90_sfr_r8(&io, &x);
    __f90_esfr(&io);
    sum += x;
  }
  close_unit(10);
  report_sum(sum);
}
BENCHMARK(BM_ReadES25_16)->Iterations(kRealRecords)->Unit(benchmark::kNanosecond);

void BM_ReadFourI12(benchmark::State& state) {
  open_unit(10, "ints.txt");
  const Format f("(4I12)");
  int64_t sum = 0;
  for (auto _ : state) {
    int32_t a[4];
    IoStatementSfr io = f.statement();
    __f90_ssfr(&io);
    __f90_sfr_i4(&io, &a[0]);
    __f90_sfr_i4(&io, &a[1]);
    __f90_sfr_i4(&io, &a[2]);
    __f90_sfr_i4(&io, &a[3]);
    __f90_esfr(&io);
    sum += a[0] + a[1] + a[2] + a[3];
  }
  close_unit(10);
  report_sum(static_cast<double>(sum));
}
BENCHMARK(BM_ReadFourI12)->Iterations(kIntegerRecords)->Unit(benchmark::kNanosecond);

// The floor: records from 4 KiB reads, fields by from_chars.
class LineReader {
 public:
  explicit LineReader(const char* name) : fd_(open(name, O_RDONLY)) {}
  ~LineReader() { close(fd_); }
  // The next line without its newline; false at the end.
  bool next(const char** begin, const char** end) {
    for (;;) {
      if (const char* nl = static_cast<const char*>(memchr(p_, '\n', size_t(end_ - p_)))) {
        *begin = p_;
        *end = nl;
        p_ = nl + 1;
        return true;
      }
      const size_t left = size_t(end_ - p_);
      memmove(buffer_, p_, left);
      const ssize_t n = read(fd_, buffer_ + left, sizeof buffer_ - left);
      if (n <= 0) return false;
      p_ = buffer_;
      end_ = buffer_ + left + n;
    }
  }

 private:
  int fd_;
  char buffer_[4096];
  const char* p_ = buffer_;
  const char* end_ = buffer_;
};

const char* skip_blanks(const char* p, const char* end) {
  while (p < end && *p == ' ') ++p;
  return p;
}

void BM_FloorES25_16(benchmark::State& state) {
  LineReader in("reals.txt");
  double sum = 0;
  for (auto _ : state) {
    const char *b, *e;
    if (!in.next(&b, &e)) abort();
    const char* field_end = b + 25 < e ? b + 25 : e;
    double x;
    std::from_chars(skip_blanks(b, field_end), field_end, x);
    sum += x;
  }
  report_sum(sum);
}
BENCHMARK(BM_FloorES25_16)->Iterations(kRealRecords)->Unit(benchmark::kNanosecond);

void BM_FloorFourI12(benchmark::State& state) {
  LineReader in("ints.txt");
  int64_t sum = 0;
  for (auto _ : state) {
    const char *b, *e;
    if (!in.next(&b, &e)) abort();
    for (int j = 0; j < 4; ++j) {
      const char* f = b + 12 * j;
      int32_t v = 0;
      std::from_chars(skip_blanks(f, f + 12), f + 12, v);
      sum += v;
    }
  }
  report_sum(static_cast<double>(sum));
}
BENCHMARK(BM_FloorFourI12)->Iterations(kIntegerRecords)->Unit(benchmark::kNanosecond);

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && strcmp(argv[1], "--make-files") == 0) {
    make_files();
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
