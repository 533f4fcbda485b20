// List-directed WRITE of fuzzed items: to units whose records are 1 to 81
// bytes long, with each DELIM=, in the old dialect's print form, and into
// internal files (a scalar, and arrays of rank 1 and 2 with strides either
// way) held in heap storage of exactly their size.  Every statement has
// IOSTAT=: a failure must come back as a number.
//
// Input: a byte choosing the destination, a byte of statement switches,
// then items: a type byte and its value.
#include <type_traits>

#include "fuzz/fuzz_input.h"
#include "support/statements.h"

using namespace qal;
using namespace qal::fuzz;
using qal::test::ExternalListEntries;
using qal::test::InternalListEntries;

namespace {

constexpr int64_t kRecordLengths[] = {1, 2, 3, 5, 8, 13, 40, 81};

// A real through its plain entry, or through the old dialect's form, which
// only units have.
template <class E, class Plain, class Old, class... V>
int real_item(typename E::Stmt* s, bool old_dialect, Plain plain, Old old, V... v) {
  if constexpr (std::is_same_v<typename E::Stmt, IoStatementSlw>)
    if (old_dialect) return old(s, v...);
  return plain(s, v...);
}

// Items until the input runs out or a call fails; then the end entry.
template <class E>
void write_items(typename E::Stmt* s, FuzzInput& in, bool old_dialect_reals) {
  for (int items = 0; !in.empty() && items < 64; ++items) {
    int r;
    const uint8_t type = in.byte() % 16;
    switch (type) {
      case 0:
        r = E::i4(s, in.value<int32_t>());
        break;
      case 1:
        r = E::i8(s, in.value<int64_t>());
        break;
      case 2:
        r = E::u4(s, in.value<uint32_t>());
        break;
      case 3:
        r = E::u8(s, in.value<uint64_t>());
        break;
      case 4:
        r = E::l1(s, in.value<int8_t>());
        break;
      case 5:
        r = E::l4(s, in.value<int32_t>());
        break;
      case 6:
        r = E::l8(s, in.value<int64_t>());
        break;
      case 7:
        r = real_item<E>(s, old_dialect_reals, E::r4, __f90_slw_r4_f77compat, in.value<float>());
        break;
      case 8:
        r = real_item<E>(s, old_dialect_reals, E::r8, __f90_slw_r8_f77compat, in.value<double>());
        break;
      case 9: {
        const uint64_t low = in.value<uint64_t>();
        r = real_item<E>(s, old_dialect_reals, E::r16, __f90_slw_r16_f77compat, low,
                         in.value<uint64_t>());
        break;
      }
      case 10:
      case 11:
      case 12:
      case 13: {
        static const size_t kSizes[] = {16, 8, 16, 32};
        size_t got;
        char* v = in.copy(kSizes[type - 10], &got, true);
        r = type == 10   ? E::r16_ref(s, v)
            : type == 11 ? E::c4(s, v)
            : type == 12 ? E::c8(s, v)
                         : E::c16(s, v);
        free(v);
        break;
      }
      default: {
        size_t got;
        char* text = in.copy(in.byte() % 100, &got);
        r = E::ch(s, text, static_cast<int64_t>(got));
        free(text);
        break;
      }
    }
    if (r != 0) return;
  }
  E::end(s);
}

uint32_t statement_flags(uint8_t switches) {
  return SF_ERR_RETURN | ((switches & 1) ? SF_F77_WRITE : 0) |
         ((switches & 2) ? SF_NO_FIRST_BLANK : 0) |
         ((switches & 4) ? SF_NO_CHARACTER_SEPARATOR : 0) | ((switches & 8) ? SF_DECIMAL_COMMA : 0);
}

// An internal file of `rank` 0, 1 or 2, elements of 1 to 32 characters.
void internal_write(FuzzInput& in, uint8_t switches, int rank) {
  const int32_t length = 1 + in.byte() % 32;
  int64_t extents[2] = {1 + in.byte() % 4, 1 + in.byte() % 4};
  const int64_t elements = rank == 0 ? 1 : rank == 1 ? extents[0] : extents[0] * extents[1];
  const bool reversed = switches & 0x80;
  char* storage = static_cast<char*>(malloc(static_cast<size_t>(elements * length)));
  IoStatementIl* s = static_cast<IoStatementIl*>(calloc(1, QAL_IL_STATEMENT_SIZE(rank)));
  InternalUnit* unit = static_cast<InternalUnit*>(calloc(1, sizeof(InternalUnit) + 16 * 2));
  s->stmt_flags = statement_flags(switches);
  s->location = &kFuzzLocation;
  s->element_length = length;
  s->rank = rank;
  if (rank == 0) {
    s->internal_unit = storage;
  } else {
    unit->base = reversed ? storage + (elements - 1) * length : storage;
    unit->dims[0] = extents[0];
    if (rank == 2) unit->dims[1] = extents[1];
    unit->dims[rank] = (reversed ? -1 : 1) * length;
    if (rank == 2) unit->dims[3] = unit->dims[2] * extents[0];
    s->internal_unit = unit;
  }
  if (__f90_silw(s) == 0) write_items<InternalListEntries>(s, in, false);
  free(unit);
  free(s);
  free(storage);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  for (int k = 0; k < 8; ++k) open_unit(20 + k, "/dev/null", 0, kRecordLengths[k]);
  open_unit(30, "/dev/null", OF_DELIM_QUOTE);
  open_unit(31, "/dev/null", OF_DELIM_APOSTROPHE, 10);
  open_unit(32, "/dev/null", OF_F77 | OF_FORM_PRINT);
  open_unit(33, "/dev/null", OF_DECIMAL_COMMA);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t where = in.byte() % 15;
  const uint8_t switches = in.byte();
  if (where >= 12) {
    internal_write(in, switches, where - 12);
    return 0;
  }
  IoStatementSlw s{};
  s.unit = where < 8 ? 20 + where : 30 + (where - 8);
  s.location = &kFuzzLocation;
  s.stmt_flags = statement_flags(switches);
  if (__f90_sslw(&s) != 0) return 0;
  write_items<ExternalListEntries>(&s, in, switches & 0x10);
  return 0;
}
