#include "formatted/correction_hook.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "qal/errors.h"
#include "qal/formatted.h"

namespace qal {

namespace {

int last_errno() { return errno ? errno : EIO; }

// A NUL-terminated copy of `length` bytes; null when memory runs out.
char* copy_text(const char* text, size_t length) {
  char* c = static_cast<char*>(malloc(length + 1));
  if (!c) return nullptr;
  memcpy(c, text, length);
  c[length] = '\0';
  return c;
}

// The characters already offered at one position, so that a hook that
// keeps answering with what it was offered before is caught.
struct TriedSet {
  uint64_t bits[4];
};

TriedSet* tried_set(Unit* u) {
  auto* set = reinterpret_cast<TriedSet*>(static_cast<uintptr_t>(u->handler_tried));
  if (!set) {
    set = static_cast<TriedSet*>(calloc(1, sizeof(TriedSet)));
    u->handler_tried = static_cast<int64_t>(reinterpret_cast<uintptr_t>(set));
  }
  return set;
}

// Where the bad byte lies in the file: the file's offset stands behind
// data_end.
int64_t file_offset(Unit* u, const char* bad) {
  int64_t here;
  if (u->stream) {
    fflush(u->stream);
    here = ftello(u->stream);
  } else {
    here = lseek(u->fd, 0, SEEK_CUR);
  }
  return here + (bad - u->data_end);
}

int rewrite_byte(Unit* u, int64_t offset, char c) {
  const off_t back = lseek(u->fd, 0, SEEK_CUR);
  if (back < 0 || lseek(u->fd, offset, SEEK_SET) < 0) return last_errno();
  const bool written = write(u->fd, &c, 1) == 1;
  const int err = written ? 0 : last_errno();
  if (lseek(u->fd, back, SEEK_SET) < 0 && !err) return last_errno();
  return err;
}

// Offers the bad character to the program's hook and acts on its answer.
int offer(void* context, char* bad) {
  auto* site = static_cast<CorrectionSite*>(context);
  Unit* u = site->unit;
  const auto hook = reinterpret_cast<IoErrorHandler>(u->io_error_handler);
  const char* rest_end = bad;
  while (rest_end < u->record_end && *rest_end != '\n') ++rest_end;
  const char* source = site->location && site->location->file ? site->location->file : "";
  const char* data = u->file_name ? u->file_name : "";
  char* source_copy = copy_text(source, strlen(source));
  char* data_copy = copy_text(data, strlen(data));
  char* rest_copy = copy_text(bad, static_cast<size_t>(rest_end - bad));
  if (!source_copy || !data_copy || !rest_copy) {
    free(source_copy);
    free(data_copy);
    free(rest_copy);
    return ERR_OUT_OF_MEMORY;
  }
  const int64_t line = site->location ? site->location->line : 0;
  const int64_t offset = file_offset(u, bad);
  const int64_t items = static_cast<int64_t>(u->item_count);
  char corrected = 0;
  int32_t action = 0;
  hook(&site->unit_number, source_copy, &line, data_copy, &offset, rest_copy, &items, &corrected,
       &action, static_cast<int64_t>(strlen(source_copy)), static_cast<int64_t>(strlen(data_copy)),
       static_cast<int64_t>(strlen(rest_copy)));
  free(source_copy);
  free(data_copy);
  free(rest_copy);
  if (action != 1 && action != 2) return ERR_BAD_CORRECTION_ACTION;
  const unsigned char offered = static_cast<unsigned char>(*bad);
  *bad = corrected;
  if (action == 2) return rewrite_byte(u, offset, corrected);
  TriedSet* set = tried_set(u);
  if (!set) return ERR_OUT_OF_MEMORY;
  uint64_t& word = set->bits[offered >> 6];
  const uint64_t bit = uint64_t{1} << (offered & 63);
  if (reinterpret_cast<uintptr_t>(bad) != static_cast<uint64_t>(u->handler_pos)) {
    u->handler_pos = static_cast<int64_t>(reinterpret_cast<uintptr_t>(bad));
    memset(set, 0, sizeof *set);
    u->handler_tried_count = 0;
  } else if (word & bit) {
    return ERR_HANDLER_LOOP;
  }
  word |= bit;
  u->handler_tried_count++;
  return 0;
}

}  // namespace

BadCharacterHook correction_hook(CorrectionSite* site, char separator) {
  BadCharacterHook h;
  h.separator = separator;
  if (site->unit && site->unit->io_error_handler) {
    h.handler = offer;
    h.context = site;
  }
  return h;
}

void forget_correction_state(Unit* u) {
  free(reinterpret_cast<void*>(static_cast<uintptr_t>(u->handler_tried)));
  u->handler_tried = 0;
  u->handler_tried_count = 0;
  u->handler_pos = 0;
}

}  // namespace qal

namespace qal {
extern "C" {

QAL_EXPORT int32_t __f90_set_io_error_handler(int64_t unit, IoErrorHandler handler) {
  Unit* u = nullptr;
  if (int err = __f90_get_numbered_unit_r(&u, unit)) return err;
  int err = 0;
  if (u->flags & UF_CONNECTED)
    u->io_error_handler = reinterpret_cast<void*>(handler);
  else
    err = ERR_UNIT_NOT_CONNECTED;
  __f90_release_unit(u);
  return err;
}

}  // extern "C"
}  // namespace qal
