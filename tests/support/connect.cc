#include "support/connect.h"

#include <string.h>

namespace qal::test {

Open& Open::specifier(int (*parser)(uint32_t*, const char*, int64_t, const Location*),
                      const char* v) {
  const int err = parser(&word_, v, v ? static_cast<int64_t>(strlen(v)) : 0, &loc_);
  if (err && !parse_error_) parse_error_ = err;
  return *this;
}

Open& Open::fileopt(const char* v) {
  const int err =
      __f95_open_fileopt(&word_, v, static_cast<int64_t>(strlen(v)), &loc_, &buffer_size_);
  if (err && !parse_error_) parse_error_ = err;
  return *this;
}

int Open::run() {
  if (parse_error_) return parse_error_;
  return __f90_open(word_, unit_, (word_ & OF_FILE) ? file_.data() : nullptr,
                    static_cast<int64_t>(file_.size()), recl_, &loc_, buffer_size_);
}

int close_unit(int64_t unit, const char* status, bool iostat, bool f77) {
  static const Location loc{LOC_CLOSE, 30, kSourceFile};
  uint32_t word = (iostat ? uint32_t{OF_ERR_RETURN} : 0u) | (f77 ? 0x08000000u : 0u);
  if (status) {
    const int err = __f90_close_status(&word, status, static_cast<int64_t>(strlen(status)), &loc);
    if (err) return err;
  }
  return __f90_close(word, unit, &loc);
}

}  // namespace qal::test
