#include "frame/unit_buffer.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <initializer_list>

#include "qal/errors.h"

namespace qal {

namespace {

constexpr uint64_t kGrowth = 8192;

int last_errno(int fallback = EIO) { return errno ? errno : fallback; }

// The pointers of the unit that point into its buffer.
template <class F>
void for_each_pointer(Unit* u, F f) {
  for (char** p : {&u->flush_ptr, &u->data_ptr, &u->data_end, &u->record_start, &u->record_pos,
                   &u->record_high, &u->record_end})
    f(*p);
}

}  // namespace

bool allocate_buffer(Unit* u, uint64_t size) {
  char* b = static_cast<char*>(malloc(size));
  if (!b) return false;
  u->buffer = b;
  u->buffer_end = b + size;
  reset_cursors(u);
  return true;
}

int push_out(Unit* u, const char* upto) {
  while (u->flush_ptr < upto) {
    const size_t want = static_cast<size_t>(upto - u->flush_ptr);
    if (u->stream) {
      errno = 0;
      const size_t n = fwrite(u->flush_ptr, 1, want, u->stream);
      u->flush_ptr += n;
      if (n < want) {
        if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) {
          clearerr(u->stream);
          continue;
        }
        return last_errno();
      }
    } else {
      const ssize_t n = write(u->fd, u->flush_ptr, want);
      if (n < 0) {
        if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
        return last_errno();
      }
      if (n == 0) return EIO;
      u->flush_ptr += n;
    }
  }
  return 0;
}

void slide_to_front(Unit* u, char* from) {
  const ptrdiff_t shift = from - u->buffer;
  if (shift == 0) return;
  memmove(u->buffer, from, static_cast<size_t>(u->data_end - from));
  for_each_pointer(u, [&](char*& p) {
    if (p) p = p >= from ? p - shift : u->buffer;
  });
}

bool resize_buffer(Unit* u, uint64_t size) {
  // Offsets, not addresses: the old block is gone once realloc moved it.
  ptrdiff_t offset[7];
  int k = 0;
  for_each_pointer(u, [&](char*& p) { offset[k++] = p ? p - u->buffer : -1; });
  char* grown = static_cast<char*>(realloc(u->buffer, size));
  if (!grown) return false;
  k = 0;
  for_each_pointer(u, [&](char*& p) {
    p = offset[k] < 0 ? nullptr : grown + offset[k];
    ++k;
  });
  u->buffer = grown;
  u->buffer_end = grown + size;
  return true;
}

int64_t fill_buffer(Unit* u, int* err, uint64_t* failed_size) {
  if (u->data_end == u->buffer_end) {
    if (u->data_ptr > u->buffer) {
      slide_to_front(u, u->data_ptr);
    } else {
      const uint64_t capacity = static_cast<uint64_t>(u->buffer_end - u->buffer);
      const uint64_t size = capacity < kGrowth ? kGrowth : capacity + kGrowth;
      if (!resize_buffer(u, size)) {
        *err = ERR_OUT_OF_MEMORY;
        *failed_size = size;
        return -1;
      }
      u->flags |= UF_BUFFER_GROWN;
    }
  }
  const size_t room = static_cast<size_t>(u->buffer_end - u->data_end);
  if (u->stream) {
    // The default input unit: a byte at a time, so that a terminal or a
    // pipe is never asked for more than the record it holds.
    size_t n = 0;
    while (n < room) {
      const int c = getc_unlocked(u->stream);
      if (c == EOF) {
        if (ferror(u->stream)) {
          *err = last_errno();
          return -1;
        }
        break;
      }
      u->data_end[n++] = static_cast<char>(c);
      if (c == '\n') break;
    }
    u->data_end += n;
    return static_cast<int64_t>(n);
  }
  for (;;) {
    const ssize_t n = read(u->fd, u->data_end, room);
    if (n >= 0) {
      u->data_end += n;
      return n;
    }
    if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
    *err = last_errno();
    return -1;
  }
}

int64_t fill_block(Unit* u, int* err) {
  if (u->flags & UF_AT_EOF_DATA) return 0;
  if (u->data_ptr >= u->data_end)
    reset_cursors(u);
  else if (u->data_end == u->buffer_end)
    slide_to_front(u, u->data_ptr);
  const size_t room = static_cast<size_t>(u->buffer_end - u->data_end);
  int64_t n = 0;
  if (u->stream) {
    for (; n < static_cast<int64_t>(room); ++n) {
      const int c = getc_unlocked(u->stream);
      if (c == EOF) {
        if (ferror(u->stream)) {
          *err = last_errno();
          clearerr(u->stream);
          return -1;
        }
        break;
      }
      u->data_end[n] = static_cast<char>(c);
    }
  } else {
    for (;;) {
      n = read(u->fd, u->data_end, room);
      if (n >= 0) break;
      if (errno == EINTR && (u->flags & UF_RETRY_EINTR)) continue;
      *err = last_errno();
      return -1;
    }
  }
  if (n == 0) u->flags |= UF_AT_EOF_DATA;
  u->data_end += n;
  return n;
}

void drop_buffer(Unit* u) {
  free(u->buffer);
  u->buffer = u->buffer_end = nullptr;
  for_each_pointer(u, [](char*& p) { p = nullptr; });
  u->flags &= ~(UF_RECORD_LOADED | UF_BUFFER_GROWN);
}

int shrink_buffer(Unit* u, uint64_t* failed_size) {
  const uint64_t unread = static_cast<uint64_t>(u->data_end - u->data_ptr);
  if (unread == 0) {
    drop_buffer(u);
    return 0;
  }
  const uint64_t capacity = static_cast<uint64_t>(u->buffer_end - u->buffer);
  if (unread >= capacity / 2) return 0;
  slide_to_front(u, u->data_ptr);
  const uint64_t size = unread <= u->blocksize ? u->blocksize : unread;
  if (!resize_buffer(u, size)) {
    *failed_size = size;
    return ERR_OUT_OF_MEMORY;
  }
  if (size == u->blocksize) u->flags &= ~UF_BUFFER_GROWN;
  return 0;
}

}  // namespace qal
