// Floors of the output benchmarks: plain C++ programs that write exactly
// the bytes the library writes for each workload, with the fastest standard
// tools (std::to_chars, memcpy, a buffer of the unit's size, write(2) when
// it is full).  Each writes floor.txt in the working directory; bench/run.sh
// compares it byte for byte with the library's fort.10 of the same run, so
// a floor that differs fails loudly.  Counts, values and the untimed first
// record match list_write.cc and formatted_write.cc.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>

namespace {

// A file written through one buffer of `size` bytes.
class FloorFile {
 public:
  explicit FloorFile(size_t size)
      : fd_(open("floor.txt", O_WRONLY | O_CREAT | O_TRUNC, 0666)),
        size_(size),
        buffer_(new char[size]) {}
  ~FloorFile() {
    flush();
    close(fd_);
    delete[] buffer_;
  }
  // Room for n bytes at the returned place; commit what was used.
  char* room(size_t n) {
    if (used_ + n > size_) flush();
    return buffer_ + used_;
  }
  void commit(size_t n) { used_ += n; }
  void put(const char* text, size_t n) {
    memcpy(room(n), text, n);
    commit(n);
  }

 private:
  void flush() {
    if (used_ && write(fd_, buffer_, used_) != static_cast<ssize_t>(used_)) abort();
    used_ = 0;
  }
  int fd_;
  size_t size_;
  char* buffer_;
  size_t used_ = 0;
};

constexpr size_t kFormattedBuffer = 4096;  // a formatted unit: the block size
constexpr size_t kListBuffer = 8192;       // a list-directed unit: two blocks

constexpr int kValues = 1000;

std::array<int32_t, kValues> integers() {
  std::array<int32_t, kValues> a{};
  for (int i = 1; i <= kValues; ++i) a[i - 1] = (i * 7919) % 1000000000;
  return a;
}

std::array<double, kValues> reals() {
  std::array<double, kValues> a{};
  for (int i = 1; i <= kValues; ++i)
    a[i - 1] = static_cast<double>((i * 7919) % 1000000000) * std::pow(10.0, i % 41 - 20) / 997;
  return a;
}

// " v1 v2 ... vn\n": a list-directed record of integers.
void integer_record(FloorFile& f, const int32_t* v, int n) {
  char* p = f.room(static_cast<size_t>(12 * n + 2));
  char* start = p;
  for (int i = 0; i < n; ++i) {
    *p++ = ' ';
    p = std::to_chars(p, p + 11, v[i]).ptr;
  }
  *p++ = '\n';
  f.commit(static_cast<size_t>(p - start));
}

void BM_FloorListItems(benchmark::State& state) {
  const auto a = integers();
  FloorFile f(kListBuffer);
  integer_record(f, a.data(), kValues);
  for (auto _ : state) integer_record(f, a.data(), kValues);
}
BENCHMARK(BM_FloorListItems)->Iterations(4000)->Unit(benchmark::kNanosecond);

void BM_FloorTenItems(benchmark::State& state) {
  const auto a = integers();
  FloorFile f(kListBuffer);
  const int32_t zero = 0;
  integer_record(f, &zero, 1);
  int k = 0;
  for (auto _ : state) {
    integer_record(f, a.data() + k, 10);
    k = (k + 10) % kValues;
  }
}
BENCHMARK(BM_FloorTenItems)->Iterations(400000)->Unit(benchmark::kNanosecond);

void BM_FloorOneItemStatement(benchmark::State& state) {
  FloorFile f(kListBuffer);
  int32_t i = 0;
  integer_record(f, &i, 1);
  for (auto _ : state) {
    ++i;
    integer_record(f, &i, 1);
  }
}
BENCHMARK(BM_FloorOneItemStatement)->Iterations(1000000)->Unit(benchmark::kNanosecond);

// Right-justified in a field of w.
void right(char* field, int w, const char* text, int n) {
  memset(field, ' ', static_cast<size_t>(w - n));
  memcpy(field + w - n, text, static_cast<size_t>(n));
}

void four_i12(FloorFile& f, const int32_t* v) {
  char* p = f.room(49);
  for (int i = 0; i < 4; ++i) {
    char text[12];
    const int n = static_cast<int>(std::to_chars(text, text + 12, v[i]).ptr - text);
    right(p + 12 * i, 12, text, n);
  }
  p[48] = '\n';
  f.commit(49);
}

void BM_FloorFormattedFourItems(benchmark::State& state) {
  const auto a = integers();
  FloorFile f(kFormattedBuffer);
  four_i12(f, a.data());
  int k = 0;
  for (auto _ : state) {
    four_i12(f, a.data() + k);
    k = (k + 4) % kValues;
  }
}
BENCHMARK(BM_FloorFormattedFourItems)->Iterations(1000000)->Unit(benchmark::kNanosecond);

// The significant digits and decimal exponent (of the first digit) of x
// rounded to `digits` significant digits.
int significant(double x, int digits, char* out, int* exponent) {
  char text[40];
  const char* end =
      std::to_chars(text, text + 40, x, std::chars_format::scientific, digits - 1).ptr;
  const char* e = static_cast<const char*>(memchr(text, 'e', static_cast<size_t>(end - text)));
  int n = 0;
  for (const char* c = text; c < e; ++c)
    if (*c != '.') out[n++] = *c;
  std::from_chars(e + (e[1] == '+' ? 2 : 1), end, *exponent);
  return n;
}

// The shortest digits of x that read back (to_chars), without trailing
// zeros, and the exponent of the first.
int significant_shortest(double x, char* out, int* exponent) {
  char text[40];
  const char* end = std::to_chars(text, text + 40, x, std::chars_format::scientific).ptr;
  const char* e = static_cast<const char*>(memchr(text, 'e', static_cast<size_t>(end - text)));
  int n = 0;
  for (const char* c = text; c < e; ++c)
    if (*c != '.') out[n++] = *c;
  std::from_chars(e + (e[1] == '+' ? 2 : 1), end, *exponent);
  return n;
}

// An exponent of `width` digits with its sign.
char* exponent_digits(char* p, int x, int width) {
  *p++ = x < 0 ? '-' : '+';
  unsigned m = x < 0 ? static_cast<unsigned>(-x) : static_cast<unsigned>(x);
  for (int i = width - 1; i >= 0; --i, m /= 10) p[i] = static_cast<char>('0' + m % 10);
  return p + width;
}

// ES25.16E3: "  d.dddddddddddddddd" "E+ddd".
void es25_16e3(FloorFile& f, double x) {
  char* p = f.room(26);
  char digits[20];
  int x10;
  significant(x, 17, digits, &x10);
  p[0] = p[1] = ' ';
  p[2] = digits[0];
  p[3] = '.';
  memcpy(p + 4, digits + 1, 16);
  p[20] = 'E';
  exponent_digits(p + 21, x10, 3);
  p[25] = '\n';
  f.commit(26);
}

// E15.7: "  0.dddddddE+dd" (three exponent digits drop the letter).
void e15_7(FloorFile& f, double x) {
  char* p = f.room(16);
  char digits[20];
  int x10;
  significant(x, 7, digits, &x10);
  ++x10;  // 0.d... rather than d.d...
  char text[16];
  text[0] = '0';
  text[1] = '.';
  memcpy(text + 2, digits, 7);
  char* e = text + 9;
  if (x10 > 99 || x10 < -99) {
    e = exponent_digits(e, x10, 3);
  } else {
    *e++ = 'E';
    e = exponent_digits(e, x10, 2);
  }
  right(p, 15, text, static_cast<int>(e - text));
  p[15] = '\n';
  f.commit(16);
}

// F25.10: asterisks when the text does not fit.
void f25_10(FloorFile& f, double x) {
  char* p = f.room(26);
  char text[400];
  const int n = static_cast<int>(
      std::to_chars(text, text + sizeof text, x, std::chars_format::fixed, 10).ptr - text);
  if (n > 25)
    memset(p, '*', 25);
  else
    right(p, 25, text, n);
  p[25] = '\n';
  f.commit(26);
}

// G25.16: F editing in 21 columns and four blanks while the value, rounded
// to 16 digits, lies in [0.1, 10**16); E25.16 otherwise.
void g25_16(FloorFile& f, double x) {
  char* p = f.room(26);
  char digits[20];
  int x10;
  significant(x, 16, digits, &x10);
  const int before = x10 + 1;  // digits ahead of the point
  char text[32];
  char* t = text;
  if (before >= 0 && before <= 16) {
    if (before == 0) *t++ = '0';
    memcpy(t, digits, static_cast<size_t>(before));
    t += before;
    *t++ = '.';
    memcpy(t, digits + before, static_cast<size_t>(16 - before));
    t += 16 - before;
    right(p, 21, text, static_cast<int>(t - text));
    memset(p + 21, ' ', 4);
  } else {
    *t++ = '0';
    *t++ = '.';
    memcpy(t, digits, 16);
    t += 16;
    *t++ = 'E';
    t = exponent_digits(t, before, 2);
    right(p, 25, text, static_cast<int>(t - text));
  }
  p[25] = '\n';
  f.commit(26);
}

// The list-directed text of a double: the shortest digits that read back,
// in fixed form for a point from one place left of the first digit to nine
// right of it.  to_chars gives them, but in two cases its rules and the
// list writer's part, and both are told apart with integer arithmetic on
// the value's bits (for the values from 2**30 to 2**63 where they can
// happen and the digits need no exponent below the units):
//   - an exact tie at the last digit, which the list writer takes upward
//     and to_chars to the even digit;
//   - a candidate exactly on the lower end of the interval of a value with
//     an even significand, which the list writer does not take.
void list_real(FloorFile& f, double x) {
  char digits[48];
  int x10;
  int n = significant_shortest(x, digits, &x10);
  if (x >= 0x1p30 && x < 0x1p63) {
    uint64_t bits;
    memcpy(&bits, &x, 8);
    const uint64_t mant = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
    const int e = static_cast<int>(bits >> 52) - 1075;  // x = mant * 2**e
    const int scale = n - 1 - x10;                      // decimals of the digits
    uint64_t d = 0;
    for (int i = 0; i < n; ++i) d = d * 10 + static_cast<uint64_t>(digits[i] - '0');
    // x = odd * 2**low_e, its trailing zero bits gone.
    const int zeros = __builtin_ctzll(mant);
    const int low_e = e + zeros;
    unsigned __int128 twice = 0;  // 2 x 10**scale, when that is an integer
    if (scale >= 0 && low_e + scale + 1 == 0) {
      twice = mant >> zeros;
      for (int i = 0; i < scale; ++i) twice *= 5;
    }
    if (twice == 2 * static_cast<unsigned __int128>(d) + 1) {
      // x * 10**scale is d + 1/2 exactly: the list writer goes up.
      int i = n - 1;
      while (digits[i] == '9') digits[i--] = '0';
      ++digits[i];
    } else if (scale <= 0 && e >= 1 && !(mant & 1)) {
      // The lower end x - 2**(e-1), an integer: is it d * 10**-scale?
      const uint64_t lower = (mant << e) - (uint64_t{1} << (e - 1));
      uint64_t p10 = 1;
      for (int i = 0; i < -scale; ++i) p10 *= 10;
      if (lower % p10 == 0 && lower / p10 == d) n = significant(x, 17, digits, &x10);
    }
  }
  char* p = f.room(32);
  char* start = p;
  *p++ = ' ';
  const int dp = x10 + 1;
  if (static_cast<unsigned>(dp + 1) <= 10) {
    if (dp <= 0) {
      *p++ = '0';
      *p++ = '.';
      memset(p, '0', static_cast<size_t>(-dp));
      p += -dp;
      memcpy(p, digits, static_cast<size_t>(n));
      p += n;
    } else {
      for (int i = 0; i < dp; ++i) *p++ = i < n ? digits[i] : '0';
      *p++ = '.';
      if (n > dp) {
        memcpy(p, digits + dp, static_cast<size_t>(n - dp));
        p += n - dp;
      } else {
        *p++ = '0';
      }
    }
  } else {
    *p++ = digits[0];
    *p++ = '.';
    if (n > 1) {
      memcpy(p, digits + 1, static_cast<size_t>(n - 1));
      p += n - 1;
    } else {
      *p++ = '0';
    }
    *p++ = 'E';
    *p++ = x10 < 0 ? '-' : '+';
    p = std::to_chars(p, p + 8, x10 < 0 ? -x10 : x10).ptr;
  }
  *p++ = '\n';
  f.commit(static_cast<size_t>(p - start));
}

template <void (*Write)(FloorFile&, double), size_t Buffer>
void floor_reals(benchmark::State& state) {
  const auto a = reals();
  FloorFile f(Buffer);
  Write(f, a[0]);
  int k = 0;
  for (auto _ : state) {
    Write(f, a[k]);
    k = (k + 1) % kValues;
  }
}
void BM_FloorES25_16E3(benchmark::State& s) { floor_reals<es25_16e3, kFormattedBuffer>(s); }
void BM_FloorF25_10(benchmark::State& s) { floor_reals<f25_10, kFormattedBuffer>(s); }
void BM_FloorG25_16(benchmark::State& s) { floor_reals<g25_16, kFormattedBuffer>(s); }
void BM_FloorE15_7(benchmark::State& s) { floor_reals<e15_7, kFormattedBuffer>(s); }
void BM_FloorListReal(benchmark::State& s) { floor_reals<list_real, kListBuffer>(s); }
constexpr int64_t kRealStatements = 400000;
BENCHMARK(BM_FloorES25_16E3)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_FloorF25_10)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_FloorG25_16)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_FloorE15_7)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_FloorListReal)->Iterations(kRealStatements)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
