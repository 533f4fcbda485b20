// Builders that drive the library exactly as compiled code does: fill a
// statement head, call the start entry, one entry per item, the end entry,
// and stop calling after the first non-zero return.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <type_traits>

#include "qal/qal.h"

namespace qal::test {

// A logical item, so that list builders can tell it from an integer.
struct Logical {
  int64_t value;
  int kind = 4;
};

// A REAL*16 item: the binary128 image as two 64-bit halves, low first,
// passed by value or, with `by_reference`, by address.
struct Quad {
  uint64_t low;
  uint64_t high;
  bool by_reference = false;
};

inline constexpr const char* kSourceFile = "test.f90";

// The calls of one statement: each runs only while all before it returned
// 0, as compiled code stops calling after the first error.
class CallChain {
 public:
  template <class F>
  void run(F f) {
    if (status_ == 0 && !done_) {
      status_ = f();
      if (status_ != 0) done_ = true;
    }
  }
  int status() const { return status_; }

 private:
  int status_ = 0;
  bool done_ = false;
};

// Start, one call per item, end; the status of the first failing call.
template <class Statement, class... Items>
int whole_statement(Statement& w, Items... items) {
  w.start();
  (w.item(items), ...);
  w.end();
  return w.status();
}

// The entries of one list-directed output mode.
struct ExternalListEntries {
  using Stmt = IoStatementSlw;
  static constexpr auto start = __f90_sslw;
  static constexpr auto ch = __f90_slw_ch;
  static constexpr auto i4 = __f90_slw_i4;
  static constexpr auto i8 = __f90_slw_i8;
  static constexpr auto u4 = __f90_slw_u4;
  static constexpr auto u8 = __f90_slw_u8;
  static constexpr auto l1 = __f90_slw_l1;
  static constexpr auto l4 = __f90_slw_l4;
  static constexpr auto l8 = __f90_slw_l8;
  static constexpr auto r4 = __f90_slw_r4;
  static constexpr auto r8 = __f90_slw_r8;
  static constexpr auto r16 = __f90_slw_r16;
  static constexpr auto r16_ref = __f90_slw_r16_ref;
  static constexpr auto c4 = __f90_slw_c4;
  static constexpr auto c8 = __f90_slw_c8;
  static constexpr auto c16 = __f90_slw_c16;
  static constexpr auto end = __f90_eslw;
};

struct InternalListEntries {
  using Stmt = IoStatementIl;
  static constexpr auto start = __f90_silw;
  static constexpr auto ch = __f90_ilw_ch;
  static constexpr auto i4 = __f90_ilw_i4;
  static constexpr auto i8 = __f90_ilw_i8;
  static constexpr auto u4 = __f90_ilw_u4;
  static constexpr auto u8 = __f90_ilw_u8;
  static constexpr auto l1 = __f90_ilw_l1;
  static constexpr auto l4 = __f90_ilw_l4;
  static constexpr auto l8 = __f90_ilw_l8;
  static constexpr auto r4 = __f90_ilw_r4;
  static constexpr auto r8 = __f90_ilw_r8;
  static constexpr auto r16 = __f90_ilw_r16;
  static constexpr auto r16_ref = __f90_ilw_r16_ref;
  static constexpr auto c4 = __f90_ilw_c4;
  static constexpr auto c8 = __f90_ilw_c8;
  static constexpr auto c16 = __f90_ilw_c16;
  static constexpr auto end = __f90_eilw;
};

// Start, items and end of one list-directed output statement; every call
// after the first non-zero return is skipped, as compiled code does.
template <class Entries>
class ListStatement {
 public:
  using Stmt = typename Entries::Stmt;

  ListStatement& start() {
    return run([&] { return Entries::start(s()); });
  }
  ListStatement& item(int32_t v) {
    return run([&] { return Entries::i4(s(), v); });
  }
  ListStatement& item(int64_t v) {
    return run([&] { return Entries::i8(s(), v); });
  }
  ListStatement& item(uint32_t v) {
    return run([&] { return Entries::u4(s(), v); });
  }
  ListStatement& item(uint64_t v) {
    return run([&] { return Entries::u8(s(), v); });
  }
  ListStatement& item(Logical v) {
    return run([&] {
      if (v.kind == 1) return Entries::l1(s(), static_cast<int8_t>(v.value));
      if (v.kind == 8) return Entries::l8(s(), v.value);
      return Entries::l4(s(), static_cast<int32_t>(v.value));
    });
  }
  ListStatement& item(float v) {
    return run([&] { return Entries::r4(s(), v); });
  }
  ListStatement& item(double v) {
    return run([&] { return Entries::r8(s(), v); });
  }
  ListStatement& item(Quad v) {
    return run([&] {
      if (!v.by_reference) return Entries::r16(s(), v.low, v.high);
      const uint64_t image[2] = {v.low, v.high};
      return Entries::r16_ref(s(), image);
    });
  }
  ListStatement& item(std::string_view v) {
    return run([&] { return Entries::ch(s(), v.data(), static_cast<int64_t>(v.size())); });
  }
  ListStatement& item(const char* v) { return item(std::string_view(v)); }
  ListStatement& end() {
    return run([&] { return Entries::end(s()); });
  }

  template <class... Items>
  int all(Items... items) {
    return whole_statement(*this, items...);
  }
  int status() const { return calls_.status(); }
  Stmt& stmt() { return *s(); }

 protected:
  virtual Stmt* s() = 0;
  virtual ~ListStatement() = default;

  template <class F>
  ListStatement& run(F f) {
    calls_.run(f);
    return *this;
  }

 private:
  CallChain calls_;
};

// WRITE(unit,*) or PRINT * (unit `*`).
class ListWrite : public ListStatement<ExternalListEntries> {
 public:
  explicit ListWrite(int64_t unit, uint32_t flags = 0, int32_t kind = LOC_WRITE, int64_t line = 7)
      : loc_{kind, line, kSourceFile} {
    s_.stmt_flags = flags;
    s_.location = &loc_;
    s_.unit = unit;
  }
  static ListWrite print(uint32_t flags = 0) {
    return ListWrite(0, flags | SF_DEFAULT_UNIT, LOC_PRINT);
  }
  ListWrite(const ListWrite& o) : ListStatement(o), loc_(o.loc_), s_(o.s_) { s_.location = &loc_; }
  ListWrite& start_pos(int64_t pos) {
    run([&] { return __f90_sslw_pos(&s_, pos); });
    return *this;
  }

 protected:
  IoStatementSlw* s() override { return &s_; }

 private:
  Location loc_;
  IoStatementSlw s_{};
};

// WRITE(variable,*) on a scalar or an array of character elements.
class InternalListWrite : public ListStatement<InternalListEntries> {
 public:
  // A scalar CHARACTER*(len) variable.
  InternalListWrite(char* variable, int32_t len, uint32_t flags = 0);
  // An array: base, extents and strides in bytes.
  InternalListWrite(char* base, int32_t len, std::initializer_list<int64_t> extents,
                    std::initializer_list<int64_t> strides, uint32_t flags = 0);
  ~InternalListWrite() override;
  InternalListWrite(const InternalListWrite&) = delete;

 protected:
  IoStatementIl* s() override { return s_; }

 private:
  Location loc_{LOC_WRITE, 9, kSourceFile};
  IoStatementIl* s_;
  InternalUnit* desc_ = nullptr;
};

// WRITE(unit,fmt) or PRINT fmt.  The format text is parsed at run time
// (the statement frees it, as SF_FREE_FORMAT says), or a table is given as
// a compiler lays one down.  A parse failure becomes the status.
class FormattedWrite {
 public:
  FormattedWrite(int64_t unit, std::string_view format, uint32_t flags = 0,
                 int32_t kind = LOC_WRITE);
  FormattedWrite(int64_t unit, const int32_t* table, int32_t* counters, uint32_t flags = 0);
  static FormattedWrite print(std::string_view format, uint32_t flags = 0) {
    return FormattedWrite(0, format, flags | SF_DEFAULT_UNIT, LOC_PRINT);
  }
  FormattedWrite(const FormattedWrite&) = delete;
  ~FormattedWrite();

  FormattedWrite& start();
  FormattedWrite& start_pos(int64_t pos);
  FormattedWrite& advance(std::string_view text);
  FormattedWrite& item(int8_t v);
  FormattedWrite& item(int16_t v);
  FormattedWrite& item(int32_t v);
  FormattedWrite& item(int64_t v);
  FormattedWrite& item(uint8_t v);
  FormattedWrite& item(uint16_t v);
  FormattedWrite& item(uint32_t v);
  FormattedWrite& item(uint64_t v);
  FormattedWrite& item(Logical v);
  FormattedWrite& item(float v);
  FormattedWrite& item(double v);
  FormattedWrite& item(std::string_view v);
  FormattedWrite& item(const char* v) { return item(std::string_view(v)); }
  FormattedWrite& end();

  template <class... Items>
  int all(Items... items) {
    return whole_statement(*this, items...);
  }
  int status() const { return calls_.status(); }
  IoStatementSfw& stmt() { return s_; }

 private:
  template <class F>
  FormattedWrite& run(F f) {
    calls_.run(f);
    return *this;
  }

  CallChain calls_;
  Location loc_;
  IoStatementSfw s_{};
  bool started_ = false;
};

// Targets of a formatted READ that a plain pointer does not tell apart.
struct LogicalOut {
  void* value;
  int kind = 4;
};
struct CharOut {
  char* text;
  int64_t length;
};
struct QuadOut {
  void* value;
};
struct ComplexOut {
  void* value;
  int kind = 8;
};

// READ(unit,fmt) or READ fmt, parsed at run time like FormattedWrite, or
// from a table.  Items are where the values go.
class FormattedRead {
 public:
  FormattedRead(int64_t unit, std::string_view format, uint32_t flags = 0);
  FormattedRead(int64_t unit, const int32_t* table, int32_t* counters, uint32_t flags = 0);
  static FormattedRead star(std::string_view format, uint32_t flags = 0) {
    return FormattedRead(0, format, flags | SF_DEFAULT_UNIT);
  }
  FormattedRead(FormattedRead&& o) noexcept;
  FormattedRead(const FormattedRead&) = delete;
  ~FormattedRead();

  FormattedRead& start();
  FormattedRead& start_pos(int64_t pos);
  FormattedRead& advance(std::string_view text);
  FormattedRead& item(int8_t* v);
  FormattedRead& item(int16_t* v);
  FormattedRead& item(int32_t* v);
  FormattedRead& item(int64_t* v);
  FormattedRead& item(uint8_t* v);
  FormattedRead& item(uint16_t* v);
  FormattedRead& item(uint32_t* v);
  FormattedRead& item(uint64_t* v);
  FormattedRead& item(float* v);
  FormattedRead& item(double* v);
  FormattedRead& item(LogicalOut v);
  FormattedRead& item(CharOut v);
  FormattedRead& item(QuadOut v);
  FormattedRead& item(ComplexOut v);
  FormattedRead& end();

  template <class... Items>
  int all(Items... items) {
    return whole_statement(*this, items...);
  }
  int status() const { return calls_.status(); }
  IoStatementSfr& stmt() { return s_; }

 private:
  template <class F>
  FormattedRead& run(F f) {
    calls_.run(f);
    return *this;
  }

  CallChain calls_;
  Location loc_;
  IoStatementSfr s_{};
  bool started_ = false;
};

}  // namespace qal::test
