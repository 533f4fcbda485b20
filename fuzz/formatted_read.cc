// Formatted READ of fuzzed files with fuzzed formats and items: PAD= yes
// and no, stream access, the old dialect, non-advancing statements, BZ by
// default, decimal comma and the overflow check.  The file lives in memory
// (a memfd reached through /proc), is connected afresh for every input and
// read by up to four statements.  Items are heap storage of exactly their
// size, so a store past an item is caught; every statement has IOSTAT=,
// END= and EOR=, so every outcome must come back as a number.
//
// Input: a byte of connection switches, a byte of statement switches, two
// bytes of file length and the file, then statements: a byte of format
// length, the format, a byte of item count and the item type bytes.
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/fuzz_input.h"

using namespace qal;
using namespace qal::fuzz;

namespace {

int memory_file = -1;
char memory_file_name[64];

// One item of the type the byte names, read, then freed.
int read_item(IoStatementSfr* s, uint8_t type, uint8_t length) {
  static const size_t kSizes[] = {1, 2, 4, 8, 1, 2, 4, 8, 1, 2, 4, 8, 4, 8, 16, 8, 16, 32};
  const size_t size = type < 18 ? kSizes[type] : length % 40;
  void* item = malloc(size ? size : 1);
  int r;
  switch (type) {
    case 0:
      r = __f90_sfr_i1(s, static_cast<int8_t*>(item));
      break;
    case 1:
      r = __f90_sfr_i2(s, static_cast<int16_t*>(item));
      break;
    case 2:
      r = __f90_sfr_i4(s, static_cast<int32_t*>(item));
      break;
    case 3:
      r = __f90_sfr_i8(s, static_cast<int64_t*>(item));
      break;
    case 4:
      r = __f90_sfr_u1(s, static_cast<uint8_t*>(item));
      break;
    case 5:
      r = __f90_sfr_u2(s, static_cast<uint16_t*>(item));
      break;
    case 6:
      r = __f90_sfr_u4(s, static_cast<uint32_t*>(item));
      break;
    case 7:
      r = __f90_sfr_u8(s, static_cast<uint64_t*>(item));
      break;
    case 8:
      r = __f90_sfr_l1(s, static_cast<int8_t*>(item));
      break;
    case 9:
      r = __f90_sfr_l2(s, static_cast<int16_t*>(item));
      break;
    case 10:
      r = __f90_sfr_l4(s, static_cast<int32_t*>(item));
      break;
    case 11:
      r = __f90_sfr_l8(s, static_cast<int64_t*>(item));
      break;
    case 12:
      r = __f90_sfr_r4(s, static_cast<float*>(item));
      break;
    case 13:
      r = __f90_sfr_r8(s, static_cast<double*>(item));
      break;
    case 14:
      r = __f90_sfr_r16(s, item);
      break;
    case 15:
      r = __f90_sfr_c4(s, item);
      break;
    case 16:
      r = __f90_sfr_c8(s, item);
      break;
    case 17:
      r = __f90_sfr_c16(s, item);
      break;
    default:
      r = __f90_sfr_ch(s, static_cast<char*>(item), static_cast<int64_t>(size));
      break;
  }
  free(item);
  return r;
}

// A correction hook that answers in turn with characters that are good in
// some field or other; the hook's loop guard must end every cycle.
void correct(const int64_t*, const char*, const int64_t*, const char*, const int64_t*,
             const char* rest, const int64_t*, char* corrected, int32_t* action, int64_t, int64_t,
             int64_t rest_length) {
  static const char kAnswers[] = "0 T1.,E";
  static unsigned turn;
  // The copy holds the rest of the record and its terminator.
  if (rest[rest_length] != '\0') __builtin_trap();
  *corrected = kAnswers[turn++ % 7];
  *action = 1;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  memory_file = memfd_create("fuzz_formatted_read", 0);
  if (memory_file < 0) abort();
  snprintf(memory_file_name, sizeof memory_file_name, "/proc/self/fd/%d", memory_file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t connection = in.byte();
  const uint8_t switches = in.byte();
  const size_t file_length = in.value<uint16_t>();
  size_t got;
  char* text = in.copy(file_length, &got);
  if (ftruncate(memory_file, 0) != 0 || pwrite(memory_file, text, got, 0) != ssize_t(got)) abort();
  free(text);

  uint32_t word = OF_STATUS_OLD;
  if (connection & 1) word |= OF_PAD_NO;
  if (connection & 2) word |= OF_ACCESS_STREAM | OF_FORM_FORMATTED;
  if (connection & 4) word |= OF_BLANK_ZERO;
  if (connection & 8) word |= OF_DECIMAL_COMMA;
  open_unit(10, memory_file_name, word);
  if (connection & 0x10) __f90_set_io_error_handler(10, correct);

  for (int statement = 0; statement < 4 && !in.empty(); ++statement) {
    size_t format_length;
    char* format = in.copy(in.byte(), &format_length);
    int32_t* table = nullptr;
    int32_t* counters = nullptr;
    auto parse = (switches & 1) ? __f90_parse_format_f77compat : __f90_parse_format;
    const int parsed =
        parse(&table, &counters, 1, &kFuzzLocation, format, static_cast<int32_t>(format_length), 0);
    free(format);
    if (parsed != 0) continue;
    IoStatementSfr s{};
    s.unit = 10;
    s.location = &kFuzzLocation;
    s.format = table;
    s.format_counters = counters;
    s.stmt_flags =
        SF_ERR_RETURN | SF_END_RETURN | SF_EOR_RETURN | SF_FREE_FORMAT |
        ((switches & 2) ? SF_F77_READ : 0) | ((switches & 4) ? SF_BLANK_ZERO_DEFAULT : 0) |
        ((switches & 8) ? SF_CHECK_FP_OVERFLOW : 0) | ((switches & 0x10) ? SF_DECIMAL_COMMA : 0) |
        ((switches & 0x20) ? SF_EOR_GIVEN | SF_SIZE_GIVEN : 0);
    if ((switches & 0x40) && __f90_sfr_advance(&s, "NO", 2) != 0) continue;
    const int started =
        (connection & 2) && (switches & 0x80) ? __f90_ssfr_pos(&s, 1 + in.byte()) : __f90_ssfr(&s);
    if (started != 0) continue;
    const int items = in.byte() % 16;
    bool failed = false;
    for (int k = 0; k < items && !failed; ++k) {
      const uint8_t type = in.byte() % 20;
      failed = read_item(&s, type, in.byte()) != 0;
    }
    if (!failed) __f90_esfr(&s);
  }
  close_unit(10);
  return 0;
}
