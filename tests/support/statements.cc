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

}  // namespace qal::test
