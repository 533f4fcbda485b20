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

// WRITE(unit,*) or PRINT * (unit `*`).
class ListWrite {
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
  ListWrite(const ListWrite& o) : loc_(o.loc_), s_(o.s_), status_(o.status_) {
    s_.location = &loc_;
  }

  ListWrite& start() { return run([&] { return __f90_sslw(&s_); }); }
  ListWrite& start_pos(int64_t pos) { return run([&] { return __f90_sslw_pos(&s_, pos); }); }
  ListWrite& item(int32_t v) { return run([&] { return __f90_slw_i4(&s_, v); }); }
  ListWrite& item(int64_t v) { return run([&] { return __f90_slw_i8(&s_, v); }); }
  ListWrite& item(uint32_t v) { return run([&] { return __f90_slw_u4(&s_, v); }); }
  ListWrite& item(uint64_t v) { return run([&] { return __f90_slw_u8(&s_, v); }); }
  ListWrite& item(Logical v) {
    return run([&] {
      if (v.kind == 1) return __f90_slw_l1(&s_, static_cast<int8_t>(v.value));
      if (v.kind == 8) return __f90_slw_l8(&s_, v.value);
      return __f90_slw_l4(&s_, static_cast<int32_t>(v.value));
    });
  }
  ListWrite& item(std::string_view v) {
    return run([&] { return __f90_slw_ch(&s_, v.data(), static_cast<int64_t>(v.size())); });
  }
  ListWrite& item(const char* v) { return item(std::string_view(v)); }
  ListWrite& end() { return run([&] { return __f90_eslw(&s_); }); }

  template <class... Items>
  int all(Items... items) {
    start();
    (item(items), ...);
    end();
    return status_;
  }

  int status() const { return status_; }
  IoStatementSlw& stmt() { return s_; }

 private:
  template <class F>
  ListWrite& run(F f) {
    if (status_ == 0 && !done_) {
      status_ = f();
      if (status_ != 0) done_ = true;
    }
    return *this;
  }
  Location loc_;
  IoStatementSlw s_{};
  int status_ = 0;
  bool done_ = false;
};

// WRITE(variable,*) on a scalar or an array of character elements.
class InternalListWrite {
 public:
  // A scalar CHARACTER*(len) variable.
  InternalListWrite(char* variable, int32_t len, uint32_t flags = 0);
  // An array: base, extents and strides in bytes.
  InternalListWrite(char* base, int32_t len, std::initializer_list<int64_t> extents,
                    std::initializer_list<int64_t> strides, uint32_t flags = 0);
  ~InternalListWrite();
  InternalListWrite(const InternalListWrite&) = delete;

  InternalListWrite& start() { return run([&] { return __f90_silw(s_); }); }
  InternalListWrite& item(int32_t v) { return run([&] { return __f90_ilw_i4(s_, v); }); }
  InternalListWrite& item(int64_t v) { return run([&] { return __f90_ilw_i8(s_, v); }); }
  InternalListWrite& item(uint32_t v) { return run([&] { return __f90_ilw_u4(s_, v); }); }
  InternalListWrite& item(uint64_t v) { return run([&] { return __f90_ilw_u8(s_, v); }); }
  InternalListWrite& item(Logical v) {
    return run([&] {
      if (v.kind == 1) return __f90_ilw_l1(s_, static_cast<int8_t>(v.value));
      if (v.kind == 8) return __f90_ilw_l8(s_, v.value);
      return __f90_ilw_l4(s_, static_cast<int32_t>(v.value));
    });
  }
  InternalListWrite& item(std::string_view v) {
    return run([&] { return __f90_ilw_ch(s_, v.data(), static_cast<int64_t>(v.size())); });
  }
  InternalListWrite& item(const char* v) { return item(std::string_view(v)); }
  InternalListWrite& end() { return run([&] { return __f90_eilw(s_); }); }

  template <class... Items>
  int all(Items... items) {
    start();
    (item(items), ...);
    end();
    return status_;
  }
  int status() const { return status_; }

 private:
  template <class F>
  InternalListWrite& run(F f) {
    if (status_ == 0 && !done_) {
      status_ = f();
      if (status_ != 0) done_ = true;
    }
    return *this;
  }
  Location loc_{LOC_WRITE, 9, kSourceFile};
  IoStatementIl* s_;
  InternalUnit* desc_ = nullptr;
  int status_ = 0;
  bool done_ = false;
};

}  // namespace qal::test
