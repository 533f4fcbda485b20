// Byte order and element alignment of unformatted connections, chosen per
// file name or unit number from three option lists the program hands over
// once, at start-up (or, when it hands none, from QAL_BYTE_SWAP).
//
// Each list is "align:item,item,..."; an item is "%all", a unit number or a
// file name.  In the keep and swap lists a number followed by ':' starts a
// new group with a new alignment code ("4:10,11,name:8:20").  The tables
// are written once under the master lock and read without it afterwards.
#include <ctype.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "connect/connect.h"
#include "frame/frame.h"
#include "qal/connect.h"
#include "qal/diagnostics.h"
#include "util/byte_order.h"

namespace qal {

namespace {

constexpr int kNameLength = 4100;
constexpr int kFirstRows = 20;

struct UnitRow {
  int64_t unit;
  int32_t swap;
  int32_t align;
};

struct FileRow {
  char name[kNameLength + 1];
  int32_t swap;
  int32_t align;
};

int32_t bsw_init_done = 0;
int32_t bsw_default = 0;
int32_t bsw_align_default = 4;
UnitRow* bsw_units = nullptr;
int32_t bsw_unit_num = 0, bsw_unit_length = 0;
FileRow* bsw_files = nullptr;
int32_t bsw_file_num = 0, bsw_file_length = 0;

// Room for one more row: 20 at first, then twice as many.
template <class Row>
Row* grow(Row* rows, int32_t num, int32_t* length) {
  if (num < *length) return rows;
  const int32_t wanted = *length ? 2 * *length : kFirstRows;
  const size_t bytes = sizeof(Row) * static_cast<size_t>(wanted);
  Row* more = static_cast<Row*>(rows ? realloc(rows, bytes) : malloc(bytes));
  if (!more) {
    pthread_mutex_unlock(&__f90_io_master_lock);
    report_and_abort(ERR_OUT_OF_MEMORY, nullptr, false, 0, nullptr, true, bytes);
  }
  *length = wanted;
  return more;
}

// A list that does not parse: the program stops, silently for the keep
// list.
[[noreturn]] void bad_list(int list) {
  pthread_mutex_unlock(&__f90_io_master_lock);
  if (list != 0) __f90_banner();
  abort();
}

bool all_digits(const char* s, size_t n) {
  if (n == 0) return false;
  for (size_t i = 0; i < n; ++i)
    if (!isdigit(static_cast<unsigned char>(s[i]))) return false;
  return true;
}

// Reads the number at *p and the ':' after it.
int32_t group_number(const char** p, int list) {
  const char* s = *p;
  if (!isdigit(static_cast<unsigned char>(*s))) bad_list(list);
  int64_t n = 0;
  for (; isdigit(static_cast<unsigned char>(*s)); ++s)
    if (n < (1 << 30)) n = n * 10 + (*s - '0');
  if (*s != ':') bad_list(list);
  *p = s + 1;
  return static_cast<int32_t>(n);
}

void add_item(const char* item, size_t n, int list, int32_t swap, int32_t align) {
  if (n == 4 && memcmp(item, "%all", 4) == 0) {
    if (align > 4) bad_list(list);
    if (list == 1) bsw_default = 1;
    bsw_align_default = align;
  } else if (all_digits(item, n)) {
    bsw_units = grow(bsw_units, bsw_unit_num, &bsw_unit_length);
    int64_t unit = 0;
    for (size_t i = 0; i < n && unit < (int64_t{1} << 50); ++i) unit = unit * 10 + (item[i] - '0');
    bsw_units[bsw_unit_num++] = {unit, swap, align};
  } else {
    bsw_files = grow(bsw_files, bsw_file_num, &bsw_file_length);
    FileRow& row = bsw_files[bsw_file_num++];
    const size_t copied = n < kNameLength ? n : kNameLength;
    strncpy(row.name, item, copied);
    row.name[copied] = '\0';
    row.swap = swap;
    row.align = align;
  }
}

// One list: 0 keep, 1 swap, 2 the third.  Items end at ',' (and, in the
// first two lists, at ':').
void parse_list(const char* s, int list) {
  if (!s) return;
  const int32_t swap = list == 1 ? 1 : 0;
  int32_t align = group_number(&s, list);
  const char* const separators = list == 2 ? "," : ",:";
  while (*s) {
    const size_t n = strcspn(s, separators);
    // A number before ':' opens the next group.
    if (list != 2 && s[n] == ':' && all_digits(s, n)) {
      align = group_number(&s, list);
      continue;
    }
    if (n > 0) add_item(s, n, list, swap, align);
    s += n;
    if (*s) ++s;
  }
}

void set_tables(const char* keep, const char* swap, const char* third) {
  pthread_mutex_lock(&__f90_io_master_lock);
  if (!__atomic_load_n(&bsw_init_done, __ATOMIC_RELAXED)) {
    bsw_default = 0;
    bsw_align_default = 4;
    parse_list(keep, 0);
    parse_list(swap, 1);
    parse_list(third, 2);
    __atomic_store_n(&bsw_init_done, 1, __ATOMIC_RELEASE);
  }
  pthread_mutex_unlock(&__f90_io_master_lock);
}

// A program whose compiler passed no lists may give them in QAL_BYTE_SWAP
// as "keep;swap;third" (any part may be empty); they are read at the first
// connection that looks.
bool tables_ready() {
  if (__atomic_load_n(&bsw_init_done, __ATOMIC_ACQUIRE)) return true;
  const char* env = getenv("QAL_BYTE_SWAP");
  if (!env || !*env) return false;
  char lists[3][kNameLength + 1] = {};
  const char* parts[3] = {nullptr, nullptr, nullptr};
  for (int i = 0; i < 3 && env; ++i) {
    const char* end = strchr(env, ';');
    const size_t n = end ? static_cast<size_t>(end - env) : strlen(env);
    if (n > 0 && n <= kNameLength) {
      memcpy(lists[i], env, n);
      parts[i] = lists[i];
    }
    env = end ? end + 1 : nullptr;
  }
  set_tables(parts[0], parts[1], parts[2]);
  return true;
}

const FileRow* find_file(const char* name) {
  for (int32_t i = 0; i < bsw_file_num; ++i)
    if (strcmp(bsw_files[i].name, name) == 0) return &bsw_files[i];
  return nullptr;
}

const UnitRow* find_unit(int64_t unit) {
  for (int32_t i = 0; i < bsw_unit_num; ++i)
    if (bsw_units[i].unit == unit) return &bsw_units[i];
  return nullptr;
}

// The first match of: the name, the name's last path component, the unit
// number, the name read as a unit number; else the defaults.
void apply(Unit* u, int64_t unit) {
  int32_t swap = bsw_default, align = bsw_align_default;
  const char* name = u->file_name;
  const FileRow* file = nullptr;
  if (bsw_files && name) {
    file = find_file(name);
    if (!file)
      if (const char* slash = strrchr(name, '/')) file = find_file(slash + 1);
  }
  if (file) {
    swap = file->swap;
    align = file->align;
  } else if (bsw_units) {
    const UnitRow* row = find_unit(unit);
    const size_t length = name ? strlen(name) : 0;
    if (!row && length < 16 && all_digits(name, length))
      row = find_unit(strtoll(name, nullptr, 10));
    if (row) {
      swap = row->swap;
      align = row->align;
    }
  }
  u->flags2 = (u->flags2 & ~(UF2_BYTE_SWAP | UF2_ALIGNMENT)) | ((swap & 1) ? UF2_BYTE_SWAP : 0) |
              ((static_cast<uint32_t>(align) & 7) << 10);
}

}  // namespace

void apply_byte_swap_options(Unit* u) { set_bsw_on_unit(u, u->unit_number); }

void set_bsw_on_unit(Unit* u, int64_t unit) {
  if (u->flags & UF_SCRATCH) return;
  if (tables_ready()) apply(u, unit);
}

}  // namespace qal

using namespace qal;

extern "C" {

QAL_EXPORT void __f90_set_bsw_files(char* keep_list, char* swap_list, char* third_list) {
  if (__atomic_load_n(&bsw_init_done, __ATOMIC_ACQUIRE)) return;
  set_tables(keep_list, swap_list, third_list);
}

QAL_EXPORT void __f90_swapbuff(void* destination, void* source, int length, int element_size) {
  // Whole elements only; other element sizes leave the destination alone.
  if (length <= 0 ||
      (element_size != 2 && element_size != 4 && element_size != 8 && element_size != 16))
    return;
  const size_t n = static_cast<size_t>(length);
  const size_t e = static_cast<size_t>(element_size);
  reverse_elements(destination, source, n - n % e, e);
}

}  // extern "C"
