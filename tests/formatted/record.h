// A record held in a string, growing without limit as a sequential unit's
// does, for driving the output editors directly.
#pragma once

#include <string>

#include "formatted/output_edit.h"
#include "qal/errors.h"

namespace qal::test {

struct StringRecord {
  std::string text;
  FieldWriter f;

  explicit StringRecord(int32_t sign_mode = SIGN_SUPPRESS, int32_t radix = 10, bool f77 = false) {
    f.sign_mode = sign_mode;
    f.radix = radix;
    f.f77 = f77;
    f.record = this;
    f.allocate_field = [](void* r, int64_t size, int* err) -> char* {
      if (size < 0) {
        *err = ERR_NEGATIVE_FIELD_WIDTH;
        return nullptr;
      }
      std::string& t = static_cast<StringRecord*>(r)->text;
      const size_t at = t.size();
      t.append(static_cast<size_t>(size), '\x01');  // an editor must fill it all
      return t.data() + at;
    };
  }
};

}  // namespace qal::test
