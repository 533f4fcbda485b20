// Unformatted READ of fuzzed files, and records written then read back.
// The file lives in memory (a memfd reached through /proc) and is
// connected afresh for every input: sequential, stream or FORM='BINARY',
// byte-swapped or not, with a buffer of 8, 64 or the file's block size.
// Items are heap storage of exactly their size, so a store past one is
// caught; every statement has IOSTAT= and END=, so every outcome must come
// back as a number.  Records written come back byte for byte, or the
// target traps.
//
// Input: a byte of connection switches, two bytes of file length and the
// file, then statements: a byte (read or write, item count), then per item
// a byte of kind and a byte of length, and for writes the item's bytes.
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"

using namespace qal;
using namespace qal::fuzz;

namespace {

int memory_file = -1;
char memory_file_name[64];
const int32_t kPads[8] = {0, 1, 2, 3, 4, 5, 6, 7};

struct Item {
  uint8_t kind;    // 0..5: the scalar entries of 1 to 32 bytes; 6: _n; 7: pad
  uint32_t size;   // bytes
  uint32_t flags;  // element size and class of an _n item
};

Item make_item(FuzzInput& in) {
  static const uint32_t kScalar[] = {1, 2, 4, 8, 16, 32};
  const uint8_t kind = in.byte() % 8;
  const uint8_t length = in.byte();
  Item it{kind, 0, 0};
  if (kind < 6) {
    it.size = kScalar[kind];
  } else if (kind == 6) {
    // Now and then a block far larger than any buffer.
    it.size = (length & 0x80) ? (length & 0x7f) * 997u : length;
    it.flags = (static_cast<uint32_t>(length) << 8) & (SF_ITEM_CLASS | SF_ITEM_LOG2_SIZE);
  }
  return it;
}

void connect(uint8_t connection) {
  uint32_t word = OF_STATUS_OLD | OF_FORM_UNFORMATTED;
  if (connection & 1) word |= OF_ACCESS_STREAM;
  if (connection & 2) word = (word & ~OF_FORM_UNFORMATTED) | OF_FORM_BINARY;
  const int64_t buffer = (connection & 4) ? 8 : (connection & 8) ? 64 : 0;
  open_unit(10, memory_file_name, word | (buffer ? uint32_t{OF_FILEOPT_BUFFER} : 0u), 0, buffer);
  if (connection & 0x10) __f90_small_unit_pointer_table[10]->flags2 |= UF2_BYTE_SWAP;
  __f90_small_unit_pointer_table[10]->flags2 |= (connection >> 5) << 10;
}

int read_item(IoStatementSur* s, const Item& it, std::string* out) {
  char* item = static_cast<char*>(malloc(it.size ? it.size : 1));
  int r;
  switch (it.kind) {
    case 0:
      r = __f90_sur_1(s, item);
      break;
    case 1:
      r = __f90_sur_2(s, item);
      break;
    case 2:
      r = __f90_sur_4(s, item);
      break;
    case 3:
      r = __f90_sur_8(s, item);
      break;
    case 4:
      r = __f90_sur_16(s, item);
      break;
    case 5:
      r = __f90_sur_32(s, item);
      break;
    case 6:
      s->stmt_flags = (s->stmt_flags & ~(SF_ITEM_CLASS | SF_ITEM_LOG2_SIZE)) | it.flags;
      r = __f90_sur_n(s, item, it.size);
      break;
    default:
      r = __f90_sur_pad(s, kPads);
      break;
  }
  if (r == 0 && out && it.kind != 7) out->append(item, it.size);
  free(item);
  return r;
}

int write_item(IoStatementSuw* s, const Item& it, const char* bytes) {
  int64_t i8;
  memcpy(&i8, bytes, 8);
  switch (it.kind) {
    case 0:
      return __f90_suw_i1(s, static_cast<int8_t>(i8));
    case 1:
      return __f90_suw_i2(s, static_cast<int16_t>(i8));
    case 2:
      return __f90_suw_i4(s, static_cast<int32_t>(i8));
    case 3:
      return __f90_suw_i8(s, i8);
    case 4:
      return __f90_suw_r16_ref(s, bytes);
    case 5:
      return __f90_suw_c16(s, bytes);
    case 6:
      s->stmt_flags = (s->stmt_flags & ~(SF_ITEM_CLASS | SF_ITEM_LOG2_SIZE)) | it.flags;
      return __f90_suw_n(s, bytes, it.size);
    default:
      return __f90_suw_pad(s, kPads);
  }
}

struct Written {
  std::vector<Item> items;
  std::string payload;  // the items' bytes as the program holds them
  bool ok;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  memory_file = memfd_create("fuzz_unformatted", 0);
  if (memory_file < 0) abort();
  snprintf(memory_file_name, sizeof memory_file_name, "/proc/self/fd/%d", memory_file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const uint8_t connection = in.byte();
  const size_t file_length = in.value<uint16_t>();
  size_t got;
  char* text = in.copy(file_length, &got);
  if (ftruncate(memory_file, 0) != 0 || pwrite(memory_file, text, got, 0) != ssize_t(got)) abort();
  free(text);
  connect(connection);

  // Statements on the fuzzed file; writes remember what they wrote.
  std::vector<Written> written;
  bool wrote = false;
  for (int statement = 0; statement < 6 && !in.empty(); ++statement) {
    const uint8_t head = in.byte();
    const int count = head % 12;
    if (head & 0x80) {
      IoStatementSuw s{};
      s.unit = 10;
      s.location = &kFuzzLocation;
      s.stmt_flags = SF_ERR_RETURN | SF_END_RETURN;
      if (!wrote) {
        // From here on the file is ours: cut it, so it can be read back.
        if (ftruncate(memory_file, 0) != 0) abort();
        close_unit(10);
        connect(connection);
        wrote = true;
      }
      if (__f90_ssuw(&s) != 0) continue;
      Written w{{}, {}, true};
      for (int k = 0; k < count && w.ok; ++k) {
        Item it = make_item(in);
        std::string bytes(it.size < 32 ? 32 : it.size, '\0');
        for (uint32_t b = 0; b < it.size; ++b) bytes[b] = static_cast<char>(in.byte() + b);
        w.ok = write_item(&s, it, bytes.data()) == 0;
        w.items.push_back(it);
        if (it.kind != 7) w.payload.append(bytes, 0, it.size);
      }
      if (w.ok) w.ok = __f90_esuw(&s) == 0;
      written.push_back(w);
    } else if (!wrote) {
      IoStatementSur s{};
      s.unit = 10;
      s.location = &kFuzzLocation;
      s.stmt_flags = SF_ERR_RETURN | SF_END_RETURN | ((head & 0x40) ? SF_F77_READ : 0);
      if (__f90_ssur(&s) != 0) continue;
      bool failed = false;
      for (int k = 0; k < count && !failed; ++k) failed = read_item(&s, make_item(in), nullptr) != 0;
      if (!failed) __f90_esur(&s);
    }
  }
  close_unit(10);
  if (!wrote) return 0;

  // Whatever was written comes back through the same entries, with the
  // same byte order: whole statements only, up to the first that failed
  // (it may have left part of a record behind).
  connect(connection);
  for (const Written& w : written) {
    if (!w.ok) break;
    IoStatementSur s{};
    s.unit = 10;
    s.location = &kFuzzLocation;
    s.stmt_flags = SF_ERR_RETURN | SF_END_RETURN;
    if (__f90_ssur(&s) != 0) __builtin_trap();
    std::string back;
    for (const Item& it : w.items)
      if (read_item(&s, it, &back) != 0) __builtin_trap();
    if (__f90_esur(&s) != 0 || back != w.payload) __builtin_trap();
  }
  close_unit(10);
  return 0;
}
