// The format parser on any text, in both dialects, from a scalar or from an
// array of elements laid out in any order; every table it builds is walked
// op by op for its structure and freed.
//
// Input: a byte of switches (dialect, rank, reversed strides), a byte of
// element length and one byte per extent for an array, then the text.
#include "format/format_ops.h"
#include "fuzz/fuzz_input.h"

using namespace qal;
using namespace qal::fuzz;

namespace {

// Every op lies inside the body, string lengths included; repeat counters
// name a slot of the counter area; an end of repeat jumps back into the
// table, at most onto itself (an empty group); the walk ends at FMT_END.
void check_table(const int32_t* table, const int32_t* counters) {
  if (table[FMT_WORD_MAGIC] != FMT_MAGIC) __builtin_trap();
  const int32_t end = FMT_HEADER_WORDS + table[FMT_WORD_BODY_WORDS];
  const int32_t slots = static_cast<int32_t>(table + end - counters);
  if (counters < table + FMT_HEADER_WORDS || slots < 0) __builtin_trap();
  int32_t i = table[FMT_WORD_FIRST_OP];
  const int32_t first = i;
  for (;;) {
    if (i < FMT_HEADER_WORDS || i >= end) __builtin_trap();
    const int32_t* op = table + i;
    const int32_t words = op_words(op);
    if (words <= 0 || i + words > end) __builtin_trap();
    if (op[0] == FMT_END) return;
    if ((op[0] == FMT_REPEAT || op[0] == FMT_END_REPEAT) && (op[1] < 0 || op[1] >= slots))
      __builtin_trap();
    if (op[0] == FMT_END_REPEAT && (op[2] < first || op[2] > i)) __builtin_trap();
    i += words;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t switches = in.byte();
  const bool old_dialect = switches & 1;
  const int rank = (switches >> 1) & 3;
  const bool reversed = switches & 8;
  auto parse = old_dialect ? __f90_parse_format_f77compat : __f90_parse_format;
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  size_t got = 0;
  int err;
  char* text;
  if (rank == 0) {
    text = in.copy(in.left(), &got);
    err = parse(&table, &counters, 1, &kFuzzLocation, text, static_cast<int32_t>(got), 0);
  } else {
    // An array record: base, extents, strides in bytes.  Reversed strides
    // start the base at the last element of each dimension.
    const int64_t length = 1 + in.byte() % 16;
    int64_t record[1 + 2 * 3] = {};
    int64_t elements = 1;
    for (int k = 0; k < rank; ++k) {
      record[1 + k] = 1 + in.byte() % 8;
      record[1 + rank + k] = (reversed ? -1 : 1) * length * elements;
      elements *= record[1 + k];
    }
    text = in.copy(static_cast<size_t>(elements * length), &got, true);
    char* base = text;
    if (reversed) base += (elements - 1) * length;
    record[0] = static_cast<int64_t>(reinterpret_cast<uintptr_t>(base));
    err = parse(&table, &counters, 1, &kFuzzLocation, record, static_cast<int32_t>(length), rank);
  }
  free(text);
  if (err == 0) {
    check_table(table, counters);
    free(table);
  } else if (err != ERR_FORMAT && err != ERR_OUT_OF_MEMORY && err != ERR_UNASSOCIATED_FMT) {
    __builtin_trap();
  }
  return 0;
}
