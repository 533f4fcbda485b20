#include "support/statements.h"

#include <stdlib.h>

#include <cstring>

namespace qal::test {

InternalListWrite::InternalListWrite(char* variable, int32_t len, uint32_t flags) {
  s_ = static_cast<IoStatementIl*>(calloc(1, QAL_IL_STATEMENT_SIZE(0)));
  s_->stmt_flags = flags;
  s_->location = &loc_;
  s_->element_length = len;
  s_->internal_unit = variable;
}

InternalListWrite::InternalListWrite(char* base, int32_t len,
                                     std::initializer_list<int64_t> extents,
                                     std::initializer_list<int64_t> strides, uint32_t flags) {
  const size_t rank = extents.size();
  s_ = static_cast<IoStatementIl*>(calloc(1, QAL_IL_STATEMENT_SIZE(rank)));
  desc_ = static_cast<InternalUnit*>(calloc(1, sizeof(InternalUnit) + 16 * rank));
  desc_->base = base;
  size_t i = 0;
  for (int64_t e : extents) desc_->dims[i++] = e;
  for (int64_t st : strides) desc_->dims[i++] = st;
  s_->stmt_flags = flags;
  s_->location = &loc_;
  s_->element_length = len;
  s_->rank = static_cast<int32_t>(rank);
  s_->internal_unit = desc_;
}

InternalListWrite::~InternalListWrite() {
  free(s_);
  free(desc_);
}

FormattedWrite::FormattedWrite(int64_t unit, std::string_view format, uint32_t flags, int32_t kind)
    : loc_{kind, 7, kSourceFile} {
  s_.unit = unit;
  s_.stmt_flags = flags | SF_FREE_FORMAT;
  s_.location = &loc_;
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  calls_.run([&] {
    return __f90_parse_format(&table, &counters, 1, &loc_, format.data(),
                              static_cast<int32_t>(format.size()), 0);
  });
  s_.format = table;
  s_.format_counters = counters;
}

FormattedWrite::FormattedWrite(int64_t unit, const int32_t* table, int32_t* counters,
                               uint32_t flags)
    : loc_{LOC_WRITE, 7, kSourceFile} {
  s_.unit = unit;
  s_.stmt_flags = flags;
  s_.location = &loc_;
  s_.format = table;
  s_.format_counters = counters;
}

// A run-time format that no entry saw (the parse or the start failed
// before it was taken over) is still the builder's to free.
FormattedWrite::~FormattedWrite() {
  if (!started_ && (s_.stmt_flags & SF_FREE_FORMAT)) free(const_cast<int32_t*>(s_.format));
}

FormattedWrite& FormattedWrite::start() {
  started_ = started_ || status() == 0;
  return run([&] { return __f90_ssfw(&s_); });
}
FormattedWrite& FormattedWrite::start_pos(int64_t pos) {
  started_ = started_ || status() == 0;
  return run([&] { return __f90_ssfw_pos(&s_, pos); });
}
FormattedWrite& FormattedWrite::advance(std::string_view text) {
  return run(
      [&] { return __f90_sfw_advance(&s_, text.data(), static_cast<int64_t>(text.size())); });
}
FormattedWrite& FormattedWrite::item(int8_t v) {
  return run([&] { return __f90_sfw_i1(&s_, v); });
}
FormattedWrite& FormattedWrite::item(int16_t v) {
  return run([&] { return __f90_sfw_i2(&s_, v); });
}
FormattedWrite& FormattedWrite::item(int32_t v) {
  return run([&] { return __f90_sfw_i4(&s_, v); });
}
FormattedWrite& FormattedWrite::item(int64_t v) {
  return run([&] { return __f90_sfw_i8(&s_, v); });
}
FormattedWrite& FormattedWrite::item(uint8_t v) {
  return run([&] { return __f90_sfw_u1(&s_, v); });
}
FormattedWrite& FormattedWrite::item(uint16_t v) {
  return run([&] { return __f90_sfw_u2(&s_, v); });
}
FormattedWrite& FormattedWrite::item(uint32_t v) {
  return run([&] { return __f90_sfw_u4(&s_, v); });
}
FormattedWrite& FormattedWrite::item(uint64_t v) {
  return run([&] { return __f90_sfw_u8(&s_, v); });
}
FormattedWrite& FormattedWrite::item(Logical v) {
  return run([&] {
    switch (v.kind) {
      case 1:
        return __f90_sfw_l1(&s_, static_cast<int8_t>(v.value));
      case 2:
        return __f90_sfw_l2(&s_, static_cast<int16_t>(v.value));
      case 8:
        return __f90_sfw_l8(&s_, v.value);
      default:
        return __f90_sfw_l4(&s_, static_cast<int32_t>(v.value));
    }
  });
}
FormattedWrite& FormattedWrite::item(float v) {
  return run([&] { return __f90_sfw_r4(&s_, v); });
}
FormattedWrite& FormattedWrite::item(double v) {
  return run([&] { return __f90_sfw_r8(&s_, v); });
}
FormattedWrite& FormattedWrite::item(std::string_view v) {
  return run([&] { return __f90_sfw_ch(&s_, v.data(), static_cast<int64_t>(v.size())); });
}
FormattedWrite& FormattedWrite::end() {
  return run([&] { return __f90_esfw(&s_); });
}

FormattedRead::FormattedRead(int64_t unit, std::string_view format, uint32_t flags)
    : loc_{LOC_READ, 5, kSourceFile} {
  s_.unit = unit;
  s_.stmt_flags = flags | SF_FREE_FORMAT;
  s_.location = &loc_;
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  calls_.run([&] {
    return __f90_parse_format(&table, &counters, 1, &loc_, format.data(),
                              static_cast<int32_t>(format.size()), 0);
  });
  s_.format = table;
  s_.format_counters = counters;
}

FormattedRead::FormattedRead(int64_t unit, const int32_t* table, int32_t* counters, uint32_t flags)
    : loc_{LOC_READ, 5, kSourceFile} {
  s_.unit = unit;
  s_.stmt_flags = flags;
  s_.location = &loc_;
  s_.format = table;
  s_.format_counters = counters;
}

FormattedRead::FormattedRead(FormattedRead&& o) noexcept
    : calls_(o.calls_), loc_(o.loc_), s_(o.s_), started_(o.started_) {
  s_.location = &loc_;
  o.started_ = true;  // the format is this one's now
}

FormattedRead::~FormattedRead() {
  if (!started_ && (s_.stmt_flags & SF_FREE_FORMAT)) free(const_cast<int32_t*>(s_.format));
}

FormattedRead& FormattedRead::start() {
  started_ = started_ || status() == 0;
  return run([&] { return __f90_ssfr(&s_); });
}
FormattedRead& FormattedRead::start_pos(int64_t pos) {
  started_ = started_ || status() == 0;
  return run([&] { return __f90_ssfr_pos(&s_, pos); });
}
FormattedRead& FormattedRead::advance(std::string_view text) {
  return run(
      [&] { return __f90_sfr_advance(&s_, text.data(), static_cast<int64_t>(text.size())); });
}
FormattedRead& FormattedRead::item(int8_t* v) {
  return run([&] { return __f90_sfr_i1(&s_, v); });
}
FormattedRead& FormattedRead::item(int16_t* v) {
  return run([&] { return __f90_sfr_i2(&s_, v); });
}
FormattedRead& FormattedRead::item(int32_t* v) {
  return run([&] { return __f90_sfr_i4(&s_, v); });
}
FormattedRead& FormattedRead::item(int64_t* v) {
  return run([&] { return __f90_sfr_i8(&s_, v); });
}
FormattedRead& FormattedRead::item(uint8_t* v) {
  return run([&] { return __f90_sfr_u1(&s_, v); });
}
FormattedRead& FormattedRead::item(uint16_t* v) {
  return run([&] { return __f90_sfr_u2(&s_, v); });
}
FormattedRead& FormattedRead::item(uint32_t* v) {
  return run([&] { return __f90_sfr_u4(&s_, v); });
}
FormattedRead& FormattedRead::item(uint64_t* v) {
  return run([&] { return __f90_sfr_u8(&s_, v); });
}
FormattedRead& FormattedRead::item(float* v) {
  return run([&] { return __f90_sfr_r4(&s_, v); });
}
FormattedRead& FormattedRead::item(double* v) {
  return run([&] { return __f90_sfr_r8(&s_, v); });
}
FormattedRead& FormattedRead::item(LogicalOut v) {
  return run([&] {
    switch (v.kind) {
      case 1:
        return __f90_sfr_l1(&s_, static_cast<int8_t*>(v.value));
      case 2:
        return __f90_sfr_l2(&s_, static_cast<int16_t*>(v.value));
      case 8:
        return __f90_sfr_l8(&s_, static_cast<int64_t*>(v.value));
      default:
        return __f90_sfr_l4(&s_, static_cast<int32_t*>(v.value));
    }
  });
}
FormattedRead& FormattedRead::item(CharOut v) {
  return run([&] { return __f90_sfr_ch(&s_, v.text, v.length); });
}
FormattedRead& FormattedRead::item(QuadOut v) {
  return run([&] { return __f90_sfr_r16(&s_, v.value); });
}
FormattedRead& FormattedRead::item(ComplexOut v) {
  return run([&] {
    return v.kind == 4    ? __f90_sfr_c4(&s_, v.value)
           : v.kind == 16 ? __f90_sfr_c16(&s_, v.value)
                          : __f90_sfr_c8(&s_, v.value);
  });
}
FormattedRead& FormattedRead::end() {
  return run([&] { return __f90_esfr(&s_); });
}

}  // namespace qal::test
