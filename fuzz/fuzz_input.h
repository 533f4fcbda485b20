// What the fuzz targets share: a reader over the fuzzer's bytes, and OPEN
// as compiled code issues it.
#pragma once

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "qal/qal.h"

namespace qal::fuzz {

// Takes the input apart front to back; past the end every read is zero.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}

  bool empty() const { return p_ == end_; }
  size_t left() const { return static_cast<size_t>(end_ - p_); }

  uint8_t byte() { return p_ < end_ ? *p_++ : 0; }

  template <class T>
  T value() {
    T v{};
    const size_t n = left() < sizeof(T) ? left() : sizeof(T);
    memcpy(&v, p_, n);
    p_ += n;
    return v;
  }

  // The next `n` bytes (fewer at the end) copied into an allocation of
  // exactly their size, so that a read past them is caught.  Blanks stand
  // in for bytes the input lacks when `pad` is set.
  char* copy(size_t n, size_t* got, bool pad = false) {
    const size_t have = left() < n ? left() : n;
    const size_t size = pad ? n : have;
    char* out = static_cast<char*>(malloc(size ? size : 1));
    memcpy(out, p_, have);
    if (pad) memset(out + have, ' ', n - have);
    p_ += have;
    *got = size;
    return out;
  }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

inline constexpr Location kFuzzLocation{LOC_WRITE, 1, "fuzz.f90"};

// OPEN(unit, FILE=name, ...) with the specifier bits of `word` already
// folded, as the specifier parsers would leave them.  Aborts on failure:
// a target without its units would fuzz nothing.
inline void open_unit(int64_t unit, const char* name, uint32_t word, int64_t recl = 0,
                      int64_t buffer = 0) {
  static const Location open_location{LOC_OPEN, 1, "fuzz.f90"};
  word |= OF_ERR_RETURN | (name ? uint32_t{OF_FILE} : 0u) | (recl ? uint32_t{OF_RECL} : 0u);
  if (__f90_open(word, unit, name, name ? static_cast<int64_t>(strlen(name)) : 0, recl,
                 &open_location, buffer) != 0)
    abort();
}

inline void close_unit(int64_t unit) {
  static const Location close_location{LOC_CLOSE, 1, "fuzz.f90"};
  __f90_close(OF_ERR_RETURN, unit, &close_location);
}

}  // namespace qal::fuzz
