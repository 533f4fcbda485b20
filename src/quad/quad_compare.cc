// Comparisons of binary128 images.
#include <functional>

#include "quad/quad_ops.h"

namespace qal {

namespace {

// A signed key in the order of the values: the magnitude, negated for a
// negative value, so that -0 and +0 meet at 0.
[[gnu::always_inline]] inline i128 order_key(u128 x) {
  const i128 m = i128(x & kMagnitude);
  return (x & kSign) ? -m : m;
}

// `Relation` on the keys of a and b; with a NaN operand the pair is
// unordered and the answer is kUnordered.
template <typename Relation, int kUnordered = 0>
int compare(const QuadImage* a, const QuadImage* b) {
  const u128 x = load(a), y = load(b);
  if (is_nan(x) || is_nan(y)) return kUnordered;
  return Relation{}(order_key(x), order_key(y));
}

}  // namespace

extern "C" {

QAL_EXPORT int _Qeq(const QuadImage* a, const QuadImage* b) {
  return compare<std::equal_to<>>(a, b);
}
QAL_EXPORT int _Qne(const QuadImage* a, const QuadImage* b) {
  return compare<std::not_equal_to<>, 1>(a, b);
}
QAL_EXPORT int _Qlt(const QuadImage* a, const QuadImage* b) { return compare<std::less<>>(a, b); }
QAL_EXPORT int _Qle(const QuadImage* a, const QuadImage* b) {
  return compare<std::less_equal<>>(a, b);
}
QAL_EXPORT int _Qgt(const QuadImage* a, const QuadImage* b) {
  return compare<std::greater<>>(a, b);
}
QAL_EXPORT int _Qge(const QuadImage* a, const QuadImage* b) {
  return compare<std::greater_equal<>>(a, b);
}

}  // extern "C"

}  // namespace qal
