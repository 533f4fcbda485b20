// Expansion of message formats for reports.  A format may come from a
// translated catalogue, so it is trusted no further than this: the
// conversions %d, %i, %u with the length modifiers h, hh, l, ll, j, z, t,
// and %s, %.*s and %% are expanded; anything else after a % is copied as it
// stands.  A conversion takes the next argument of the list and prints
// nothing once the list is used up, so a format that asks for more than it
// was given cannot reach beyond it.  An integer prints with its own value
// and sign whatever length the conversion names.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <initializer_list>

namespace qal {

class ReportArg {
 public:
  enum class Kind : uint8_t { Signed, Unsigned, Text };

  constexpr ReportArg(int v) : kind_(Kind::Signed), s_(v) {}
  constexpr ReportArg(long v) : kind_(Kind::Signed), s_(v) {}
  constexpr ReportArg(long long v) : kind_(Kind::Signed), s_(v) {}
  constexpr ReportArg(unsigned v) : kind_(Kind::Unsigned), u_(v) {}
  constexpr ReportArg(unsigned long v) : kind_(Kind::Unsigned), u_(v) {}
  constexpr ReportArg(unsigned long long v) : kind_(Kind::Unsigned), u_(v) {}
  constexpr ReportArg(const char* v) : kind_(Kind::Text), t_(v) {}

  Kind kind() const { return kind_; }
  int64_t as_signed() const { return s_; }
  uint64_t as_unsigned() const { return u_; }
  const char* text() const { return t_; }

 private:
  Kind kind_;
  union {
    int64_t s_;
    uint64_t u_;
    const char* t_;
  };
};

using ReportArgs = std::initializer_list<ReportArg>;

// Expands `format` into `out`, keeping at most size - 1 bytes and a NUL (no
// NUL when size is 0).  Returns the length of the whole expansion, which
// exceeds size - 1 when it was cut.  A null format expands to nothing.
size_t format_report(char* out, size_t size, const char* format, ReportArgs args = {});

// Expands `format` onto `stream` (stderr by default), without flushing.  A
// line of ordinary length goes out in one fwrite.
void write_report_to(FILE* stream, const char* format, ReportArgs args = {});
inline void write_report(const char* format, ReportArgs args = {}) {
  write_report_to(stderr, format, args);
}

}  // namespace qal
