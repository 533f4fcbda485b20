// OPEN and CLOSE as compiled code issues them: specifier parsers folding
// their texts into the word, then the statement entry.
#pragma once

#include <stdint.h>

#include <string>

#include "qal/qal.h"
#include "support/statements.h"

namespace qal::test {

class Open {
 public:
  // OPEN(unit, ...) with IOSTAT= unless `iostat` is false.
  explicit Open(int64_t unit, bool iostat = true)
      : unit_(unit),
        word_(iostat ? uint32_t{OF_ERR_RETURN} : 0u),
        loc_{LOC_OPEN, 12, kSourceFile} {}

  Open& file(std::string name) {
    file_ = std::move(name);
    word_ |= OF_FILE;
    return *this;
  }
  Open& status(const char* v) { return specifier(__f90_open_status, v); }
  Open& action(const char* v) { return specifier(__f90_open_action, v); }
  Open& form(const char* v) {
    return specifier(old_ ? __f90_open_form_f77compat : __f90_open_form, v);
  }
  Open& access(const char* v) {
    return specifier(old_ ? __f90_open_access_f77compat : __f90_open_access, v);
  }
  Open& position(const char* v) { return specifier(__f90_open_position, v); }
  Open& blank(const char* v) { return specifier(__f90_open_blank, v); }
  Open& delim(const char* v) { return specifier(__f90_open_delim, v); }
  Open& pad(const char* v) { return specifier(__f90_open_pad, v); }
  Open& decimal(const char* v) { return specifier(__f90_open_decimal, v); }
  Open& round(const char* v) { return specifier(__f90_open_round, v); }
  Open& fileopt(const char* v);
  Open& recl(int64_t n, bool words = false) {
    recl_ = n;
    word_ |= OF_RECL | (words ? static_cast<uint32_t>(OF_RECL_WORDS) : 0u);
    return *this;
  }
  // The old dialect: set before form() and access() to get their variants.
  Open& f77() {
    old_ = true;
    word_ |= 0x08000000;
    return *this;
  }
  uint32_t word() const { return word_; }

  // The parsers' first failure, else the statement's result.
  int run();

 private:
  Open& specifier(int (*parser)(uint32_t*, const char*, int64_t, const Location*), const char* v);

  int64_t unit_;
  uint32_t word_;
  Location loc_;
  std::string file_;
  int64_t recl_ = 0;
  int64_t buffer_size_ = 0;
  bool old_ = false;
  int parse_error_ = 0;
};

// CLOSE(unit [, STATUS=status]) with IOSTAT= unless `iostat` is false.
int close_unit(int64_t unit, const char* status = nullptr, bool iostat = true, bool f77 = false);

}  // namespace qal::test
