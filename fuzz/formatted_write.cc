// Formatted WRITE of fuzzed formats and items on units of several shapes:
// plain, RECL=, a small BUFFER=, the old dialect's print form, a regular
// scratch file and a stream file written at POS=.  Every statement has
// IOSTAT=, so a failure must come back as a number; whatever happens, the
// run-time format is freed by the statement.
//
// Input: a byte choosing the unit, a byte of statement switches, a byte of
// format length, the format text, then items: a type byte and its value.
#include "fuzz/fuzz_input.h"

using namespace qal;
using namespace qal::fuzz;

namespace {

constexpr int64_t kUnits[] = {10, 11, 12, 13, 14, 15};
constexpr uint32_t kRounds[] = {0,
                                SF_ROUND_UP,
                                SF_ROUND_DOWN,
                                SF_ROUND_ZERO,
                                SF_ROUND_NEAREST,
                                SF_ROUND_COMPATIBLE,
                                SF_ROUND_PROCESSOR_DEFINED,
                                0};

// The regular files grow with every input: start them afresh now and then.
void reopen_regular_files() {
  close_unit(14);
  close_unit(15);
  open_unit(14, nullptr, OF_STATUS_SCRATCH);
  open_unit(15, "fuzz_formatted_stream.tmp",
            OF_STATUS_REPLACE | OF_ACCESS_STREAM | OF_FORM_FORMATTED);
}

int write_item(IoStatementSfw* s, FuzzInput& in) {
  const uint8_t type = in.byte() % 22;
  switch (type) {
    case 0:
      return __f90_sfw_i1(s, in.value<int8_t>());
    case 1:
      return __f90_sfw_i2(s, in.value<int16_t>());
    case 2:
      return __f90_sfw_i4(s, in.value<int32_t>());
    case 3:
      return __f90_sfw_i8(s, in.value<int64_t>());
    case 4:
      return __f90_sfw_u1(s, in.value<uint8_t>());
    case 5:
      return __f90_sfw_u2(s, in.value<uint16_t>());
    case 6:
      return __f90_sfw_u4(s, in.value<uint32_t>());
    case 7:
      return __f90_sfw_u8(s, in.value<uint64_t>());
    case 8:
      return __f90_sfw_l1(s, in.value<int8_t>());
    case 9:
      return __f90_sfw_l2(s, in.value<int16_t>());
    case 10:
      return __f90_sfw_l4(s, in.value<int32_t>());
    case 11:
      return __f90_sfw_l8(s, in.value<int64_t>());
    case 12:
      return __f90_sfw_r4(s, in.value<float>());
    case 13:
      return __f90_sfw_r8(s, in.value<double>());
    case 14: {
      const uint64_t low = in.value<uint64_t>();
      return __f90_sfw_r16(s, low, in.value<uint64_t>());
    }
    case 15:
    case 16:
    case 17:
    case 18:
    case 20:
    case 21: {
      // Items by address, in storage of exactly their size.
      static const size_t kSizes[] = {16, 8, 16, 32, 0, 16, 32};
      size_t got;
      char* v = in.copy(kSizes[type - 15], &got, true);
      int r;
      if (type == 15)
        r = __f90_sfw_r16_ref(s, v);
      else if (type == 16)
        r = __f90_sfw_c4(s, v);
      else if (type == 17)
        r = __f90_sfw_c8(s, v);
      else if (type == 18)
        r = __f90_sfw_c16(s, v);
      else if (type == 20)
        r = __f90_sfw_ia8(s, v);
      else
        r = __f90_sfw_ia16(s, v);
      free(v);
      return r;
    }
    default: {
      size_t got;
      char* text = in.copy(in.byte() % 48, &got);
      const int r = __f90_sfw_ch(s, text, static_cast<int64_t>(got));
      free(text);
      return r;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  open_unit(10, "/dev/null", 0);
  open_unit(11, "/dev/null", 0, 40);
  open_unit(12, "/dev/null", OF_FILEOPT_BUFFER, 0, 64);
  open_unit(13, "/dev/null", OF_F77 | OF_FORM_PRINT);
  reopen_regular_files();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static unsigned inputs;
  if (++inputs % 4096 == 0) reopen_regular_files();
  FuzzInput in(data, size);
  const int64_t unit = kUnits[in.byte() % 6];
  const uint8_t switches = in.byte();
  size_t length;
  char* text = in.copy(in.byte(), &length);
  int32_t* table = nullptr;
  int32_t* counters = nullptr;
  auto parse = (switches & 1) ? __f90_parse_format_f77compat : __f90_parse_format;
  const int parsed =
      parse(&table, &counters, 1, &kFuzzLocation, text, static_cast<int32_t>(length), 0);
  free(text);
  if (parsed != 0) return 0;

  IoStatementSfw s{};
  s.unit = unit;
  s.location = &kFuzzLocation;
  s.format = table;
  s.format_counters = counters;
  s.stmt_flags = SF_ERR_RETURN | SF_FREE_FORMAT | kRounds[(switches >> 1) & 7] |
                 ((switches & 0x10) ? SF_F77_WRITE : 0) |
                 ((switches & 0x20) ? SF_DECIMAL_COMMA : 0) |
                 ((switches & 0x40) ? SF_ROUND_COMPATIBLE_DEFAULT : 0);
  const int started =
      unit == 15 && (switches & 0x80) ? __f90_ssfw_pos(&s, 1 + in.byte()) : __f90_ssfw(&s);
  if (started != 0) return 0;
  if ((switches & 0x80) && unit != 15 && __f90_sfw_advance(&s, "NO ", 3) != 0) return 0;
  for (int items = 0; !in.empty() && items < 64; ++items)
    if (write_item(&s, in) != 0) return 0;
  __f90_esfw(&s);
  return 0;
}
