#include "frame/report.h"

#include "util/decimal.h"

namespace qal {
namespace {

// Collects expanded text in a fixed window.  When the window is full it is
// handed to `spill` and reused; without a stream the rest is only counted.
struct Sink {
  char* window;
  size_t capacity;
  FILE* spill;
  size_t used = 0;
  size_t total = 0;

  void put(char c) {
    if (used == capacity) {
      if (spill == nullptr) {
        ++total;
        return;
      }
      drain();
    }
    window[used++] = c;
    ++total;
  }

  void put_integer(const ReportArg& a) {
    char buf[kMaxDecimalDigits + 1];
    int n = 0;
    if (a.kind() == ReportArg::Kind::Signed) n = signed_to_decimal(a.as_signed(), buf);
    if (a.kind() == ReportArg::Kind::Unsigned) n = unsigned_to_decimal(a.as_unsigned(), buf);
    for (int i = 0; i < n; ++i) put(buf[i]);
  }

  // At most `limit` bytes of the text, never past its NUL, so a counted
  // Fortran string needs no terminator.  A number given for a text prints
  // as a number.
  void put_text(const ReportArg& a, uint64_t limit) {
    if (a.kind() != ReportArg::Kind::Text) {
      put_integer(a);
      return;
    }
    const char* s = a.text() != nullptr ? a.text() : "(null)";
    for (uint64_t i = 0; i < limit && s[i] != '\0'; ++i) put(s[i]);
  }

  void drain() {
    if (used != 0) fwrite(window, 1, used, spill);
    used = 0;
  }
};

// Steps over an integer length modifier: h, hh, l, ll, j, z or t.
const char* skip_length(const char* f) {
  if (*f == 'h' || *f == 'l') {
    char c = *f++;
    if (*f == c) ++f;
  } else if (*f == 'j' || *f == 'z' || *f == 't') {
    ++f;
  }
  return f;
}

void expand(Sink& out, const char* format, ReportArgs args) {
  if (format == nullptr) return;
  const ReportArg* next = args.begin();
  auto take = [&]() -> const ReportArg* { return next != args.end() ? next++ : nullptr; };

  const char* f = format;
  while (*f != '\0') {
    if (*f != '%') {
      out.put(*f++);
      continue;
    }
    const char* conversion = f + 1;
    if (*conversion == '%') {
      out.put('%');
      f = conversion + 1;
    } else if (*conversion == 's') {
      if (const ReportArg* a = take()) out.put_text(*a, UINT64_MAX);
      f = conversion + 1;
    } else if (conversion[0] == '.' && conversion[1] == '*' && conversion[2] == 's') {
      const ReportArg* precision = take();
      const ReportArg* a = take();
      if (precision != nullptr && a != nullptr && precision->kind() != ReportArg::Kind::Text) {
        // A negative precision means no limit.
        uint64_t limit = UINT64_MAX;
        if (precision->kind() == ReportArg::Kind::Unsigned) {
          limit = precision->as_unsigned();
        } else if (precision->as_signed() >= 0) {
          limit = static_cast<uint64_t>(precision->as_signed());
        }
        out.put_text(*a, limit);
      }
      f = conversion + 3;
    } else if (const char* c = skip_length(conversion); *c == 'd' || *c == 'i' || *c == 'u') {
      if (const ReportArg* a = take()) out.put_integer(*a);
      f = c + 1;
    } else {
      // Not a conversion of ours: the % stands for itself.
      out.put('%');
      f = conversion;
    }
  }
}

}  // namespace

size_t format_report(char* out, size_t size, const char* format, ReportArgs args) {
  Sink sink{out, size != 0 ? size - 1 : 0, nullptr};
  expand(sink, format, args);
  if (size != 0) out[sink.used] = '\0';
  return sink.total;
}

void write_report_to(FILE* stream, const char* format, ReportArgs args) {
  // Room for a File line with the longest name a report shows.
  char window[4608];
  Sink sink{window, sizeof window, stream};
  expand(sink, format, args);
  sink.drain();
}

}  // namespace qal
