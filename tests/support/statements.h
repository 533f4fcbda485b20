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

inline constexpr const char* kSourceFile = "test.f90";

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
  ListStatement& item(std::string_view v) {
    return run([&] { return Entries::ch(s(), v.data(), static_cast<int64_t>(v.size())); });
  }
  ListStatement& item(const char* v) { return item(std::string_view(v)); }
  ListStatement& end() {
    return run([&] { return Entries::end(s()); });
  }

  template <class... Items>
  int all(Items... items) {
    start();
    (item(items), ...);
    end();
    return status_;
  }
  int status() const { return status_; }
  Stmt& stmt() { return *s(); }

 protected:
  virtual Stmt* s() = 0;
  virtual ~ListStatement() = default;

  template <class F>
  ListStatement& run(F f) {
    if (status_ == 0 && !done_) {
      status_ = f();
      if (status_ != 0) done_ = true;
    }
    return *this;
  }

 private:
  int status_ = 0;
  bool done_ = false;
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

}  // namespace qal::test
