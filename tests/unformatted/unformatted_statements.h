// Unformatted WRITE(u) and READ(u) as compiled code issues them, and the
// bytes a sequential unformatted file must hold for a list of records.
#pragma once

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "qal/qal.h"
#include "support/statements.h"

namespace qal::test {

inline constexpr uint32_t kReturnAll = SF_ERR_RETURN | SF_END_RETURN;

// The element size of an _n block, as the compiled program marks it.
inline constexpr uint32_t element_log2(int log2) {
  return static_cast<uint32_t>(log2) << SF_ITEM_LOG2_SIZE_SHIFT;
}

class UnformattedWrite {
 public:
  explicit UnformattedWrite(int64_t unit, uint32_t flags = kReturnAll) {
    s_.unit = unit;
    s_.stmt_flags = flags;
    s_.location = &loc_;
  }
  UnformattedWrite& start() {
    chain_.run([&] { return __f90_ssuw(&s_); });
    return *this;
  }
  UnformattedWrite& start_at(int64_t pos) {
    chain_.run([&] { return __f90_ssuw_pos(&s_, pos); });
    return *this;
  }
  UnformattedWrite& i1(int8_t v) {
    return call([&] { return __f90_suw_i1(&s_, v); });
  }
  UnformattedWrite& i2(int16_t v) {
    return call([&] { return __f90_suw_i2(&s_, v); });
  }
  UnformattedWrite& i4(int32_t v) {
    return call([&] { return __f90_suw_i4(&s_, v); });
  }
  UnformattedWrite& i8(int64_t v) {
    return call([&] { return __f90_suw_i8(&s_, v); });
  }
  UnformattedWrite& r4(float v) {
    return call([&] { return __f90_suw_r4(&s_, v); });
  }
  UnformattedWrite& r8(double v) {
    return call([&] { return __f90_suw_r8(&s_, v); });
  }
  UnformattedWrite& r16(uint64_t low, uint64_t high) {
    return call([&] { return __f90_suw_r16(&s_, low, high); });
  }
  UnformattedWrite& r16_ref(const void* v) {
    return call([&] { return __f90_suw_r16_ref(&s_, v); });
  }
  UnformattedWrite& c4(const void* v) {
    return call([&] { return __f90_suw_c4(&s_, v); });
  }
  UnformattedWrite& c8(const void* v) {
    return call([&] { return __f90_suw_c8(&s_, v); });
  }
  UnformattedWrite& c16(const void* v) {
    return call([&] { return __f90_suw_c16(&s_, v); });
  }
  UnformattedWrite& ia8(const void* v) {
    return call([&] { return __f90_suw_ia8(&s_, v); });
  }
  UnformattedWrite& ia16(const void* v) {
    return call([&] { return __f90_suw_ia16(&s_, v); });
  }
  UnformattedWrite& ia32(const void* v) {
    return call([&] { return __f90_suw_ia32(&s_, v); });
  }
  // An _n block of elements of 2**log2 bytes, with the item class bits.
  UnformattedWrite& bytes(const void* data, int64_t n, int log2 = 0, uint32_t item_class = 0) {
    return call([&] {
      s_.stmt_flags =
          (s_.stmt_flags & ~(SF_ITEM_CLASS | SF_ITEM_LOG2_SIZE)) | element_log2(log2) | item_class;
      return __f90_suw_n(&s_, data, n);
    });
  }
  // Character data: one _n block of single bytes.
  UnformattedWrite& text(const std::string& data) {
    return bytes(data.data(), static_cast<int64_t>(data.size()));
  }
  UnformattedWrite& pad(const int32_t* table) {
    return call([&] { return __f90_suw_pad(&s_, table); });
  }
  int end() {
    chain_.run([&] { return __f90_esuw(&s_); });
    return chain_.status();
  }
  int status() const { return chain_.status(); }
  IoStatementSuw& statement() { return s_; }

 private:
  template <class F>
  UnformattedWrite& call(F f) {
    chain_.run(f);
    return *this;
  }
  IoStatementSuw s_{};
  Location loc_{LOC_WRITE, 7, kSourceFile};
  CallChain chain_;
};

class UnformattedRead {
 public:
  explicit UnformattedRead(int64_t unit, uint32_t flags = kReturnAll) {
    s_.unit = unit;
    s_.stmt_flags = flags;
    s_.location = &loc_;
  }
  UnformattedRead& start() {
    chain_.run([&] { return __f90_ssur(&s_); });
    return *this;
  }
  UnformattedRead& start_at(int64_t pos) {
    chain_.run([&] { return __f90_ssur_pos(&s_, pos); });
    return *this;
  }
  // __f90_sur_<size>.
  UnformattedRead& item(void* to, int size) {
    return call([&] {
      switch (size) {
        case 1:
          return __f90_sur_1(&s_, to);
        case 2:
          return __f90_sur_2(&s_, to);
        case 4:
          return __f90_sur_4(&s_, to);
        case 8:
          return __f90_sur_8(&s_, to);
        case 16:
          return __f90_sur_16(&s_, to);
        default:
          return __f90_sur_32(&s_, to);
      }
    });
  }
  template <class T>
  UnformattedRead& value(T* v) {
    static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8 ||
                  sizeof(T) == 16 || sizeof(T) == 32);
    return item(v, sizeof(T));
  }
  UnformattedRead& bytes(void* to, int64_t n, int log2 = 0, uint32_t item_class = 0) {
    return call([&] {
      s_.stmt_flags =
          (s_.stmt_flags & ~(SF_ITEM_CLASS | SF_ITEM_LOG2_SIZE)) | element_log2(log2) | item_class;
      return __f90_sur_n(&s_, to, n);
    });
  }
  UnformattedRead& pad(const int32_t* table) {
    return call([&] { return __f90_sur_pad(&s_, table); });
  }
  int end() {
    chain_.run([&] { return __f90_esur(&s_); });
    return chain_.status();
  }
  int status() const { return chain_.status(); }
  IoStatementSur& statement() { return s_; }

 private:
  template <class F>
  UnformattedRead& call(F f) {
    chain_.run(f);
    return *this;
  }
  IoStatementSur s_{};
  Location loc_{LOC_READ, 9, kSourceFile};
  CallChain chain_;
};

// A little-endian (or, swapped, big-endian) 32-bit marker.
inline std::string marker(uint32_t length, bool swapped = false) {
  if (swapped) length = __builtin_bswap32(length);
  return std::string(reinterpret_cast<const char*>(&length), 4);
}

// The file a list of records makes.
inline std::string records_file(const std::vector<std::string>& records, bool swapped = false) {
  std::string file;
  for (const std::string& r : records) {
    const uint32_t n = static_cast<uint32_t>(r.size());
    file += marker(n, swapped) + r + marker(n, swapped);
  }
  return file;
}

template <class T>
std::string bytes_of(const T& v) {
  return std::string(reinterpret_cast<const char*>(&v), sizeof v);
}

}  // namespace qal::test
