// INQUIRE by unit and by file.  The answers come from the unit record as it
// stands; only POS=, SIZE= and POSITION= look at the file, after writing out
// what the unit holds.  An unconnected unit or a file nobody has connected
// is an answer of its own ("not opened"), never an error.
//
// A file is found by identity (device and inode), so any name of a
// connected file, relative, absolute or through a link, finds its unit.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "connect/connect.h"

using namespace qal;

namespace {

constexpr uint64_t kLargestUnit = 2147483647;

constexpr uint32_t kTextResults = IF_ACCESS | IF_ACTION | IF_BLANK | IF_DELIM | IF_DIRECT |
                                  IF_FORM | IF_FORMATTED | IF_NAME | IF_PAD | IF_POSITION |
                                  IF_READ | IF_READWRITE | IF_SEQUENTIAL | IF_UNFORMATTED |
                                  IF_WRITE | IF_ASYNCHRONOUS | IF_DECIMAL | IF_ROUND | IF_STREAM;

bool returns(uint32_t iflags) { return (iflags & IF_ERR_RETURN) != 0; }

// The text cut to the place, the rest of the place blank.  The answers are
// mostly literals, whose lengths the compiler knows.
inline void copy_value(const InquireText& to, std::string_view value) {
  if (to.length <= 0) return;
  const size_t room = static_cast<size_t>(to.length);
  const size_t n = value.size() < room ? value.size() : room;
  memcpy(to.text, value.data(), n);
  memset(to.text + n, ' ', room - n);
}

const char* yes_no(bool yes) { return yes ? "YES" : "NO"; }

template <class Block>
int refuse(const Block* b, int err) {
  if (returns(b->iflags)) return err;
  report_and_abort(err, b->location, false, 0, nullptr);
}

// The error of the first wanted text that has no place to go, looking
// only at the texts asked for, in the order of their flags.
template <class Block>
int missing_text(const Block* b) {
  struct Place {
    InquireText Block::*text;
    int err;
  };
  static constexpr auto kPlaces = [] {
    std::array<Place, 32> p{};
    const auto at = [&](uint32_t flag, InquireText Block::*text, int err) {
      p[static_cast<size_t>(__builtin_ctz(flag))] = {text, err};
    };
    at(IF_ACCESS, &Block::access, ERR_UNASSOCIATED_ACCESS);
    at(IF_ACTION, &Block::action, ERR_UNASSOCIATED_ACTION);
    at(IF_BLANK, &Block::blank, ERR_UNASSOCIATED_BLANK);
    at(IF_DELIM, &Block::delim, ERR_UNASSOCIATED_DELIM);
    at(IF_DIRECT, &Block::direct, ERR_UNASSOCIATED_DIRECT);
    at(IF_FORM, &Block::form, ERR_UNASSOCIATED_FORM);
    at(IF_FORMATTED, &Block::formatted, ERR_UNASSOCIATED_FORMATTED);
    at(IF_NAME, &Block::name, ERR_UNASSOCIATED_NAME);
    at(IF_PAD, &Block::pad, ERR_UNASSOCIATED_PAD);
    at(IF_POSITION, &Block::position, ERR_UNASSOCIATED_POSITION);
    at(IF_READ, &Block::read, ERR_UNASSOCIATED_READ);
    at(IF_READWRITE, &Block::readwrite, ERR_UNASSOCIATED_READWRITE);
    at(IF_SEQUENTIAL, &Block::sequential, ERR_UNASSOCIATED_SEQUENTIAL);
    at(IF_UNFORMATTED, &Block::unformatted, ERR_UNASSOCIATED_UNFORMATTED);
    at(IF_WRITE, &Block::write, ERR_UNASSOCIATED_WRITE);
    at(IF_ASYNCHRONOUS, &Block::asynchronous, ERR_UNASSOCIATED_ASYNCHRONOUS);
    at(IF_DECIMAL, &Block::decimal, ERR_UNASSOCIATED_DECIMAL);
    at(IF_ROUND, &Block::round, ERR_UNASSOCIATED_ROUND);
    at(IF_STREAM, &Block::stream, ERR_UNASSOCIATED_STREAM);
    return p;
  }();
  for (uint32_t w = b->iflags & kTextResults; w; w &= w - 1) {
    const Place& p = kPlaces[static_cast<size_t>(__builtin_ctz(w))];
    if (!(b->*p.text).text) return p.err;
  }
  return 0;
}

// The answers for a unit number with no connection, or a file without
// one.  `name` is the inquired file's name, or null.
template <class Block>
void unconnected(Block* b, bool exists, const char* name) {
  const uint32_t want = b->iflags;
  b->number = -1;
  b->nextrec = -1;
  b->recl = -1;
  b->exist = exists;
  b->opened = 0;
  b->named = 0;
  if (want & IF_POS) b->pos = -1;
  if (want & IF_SIZE) b->size = -1;
  if (want & IF_PENDING) b->pending = 0;
  const char* undefined = (want & IF_F77) ? "UNKNOWN" : "UNDEFINED";
  if (want & IF_ACCESS) copy_value(b->access, undefined);
  if (want & IF_ACTION) copy_value(b->action, undefined);
  if (want & IF_DELIM) copy_value(b->delim, undefined);
  if (want & IF_BLANK) copy_value(b->blank, undefined);
  if (want & IF_FORM) copy_value(b->form, undefined);
  if (want & IF_PAD) copy_value(b->pad, undefined);
  if (want & IF_POSITION) copy_value(b->position, undefined);
  if (want & IF_DIRECT) copy_value(b->direct, "UNKNOWN");
  if (want & IF_FORMATTED) copy_value(b->formatted, "UNKNOWN");
  if (want & IF_READ) copy_value(b->read, "UNKNOWN");
  if (want & IF_READWRITE) copy_value(b->readwrite, "UNKNOWN");
  if (want & IF_SEQUENTIAL) copy_value(b->sequential, "UNKNOWN");
  if (want & IF_UNFORMATTED) copy_value(b->unformatted, "UNKNOWN");
  if (want & IF_WRITE) copy_value(b->write, "UNKNOWN");
  if (want & IF_STREAM) copy_value(b->stream, "UNKNOWN");
  if (want & IF_ASYNCHRONOUS) copy_value(b->asynchronous, "UNDEFINED");
  if (want & IF_DECIMAL) copy_value(b->decimal, "UNDEFINED");
  if (want & IF_ROUND) copy_value(b->round, "UNDEFINED");
  if (want & IF_NAME) copy_value(b->name, name ? name : "");
}

// ROUND= reads the mode field a bit at a time, so that ZERO and
// COMPATIBLE answer "UP" and PROCESSOR_DEFINED "DOWN"; kept as programs
// built on it have always seen it.
const char* round_answer(uint32_t flags) {
  const uint32_t r = flags & UF_ROUND;
  if (r & UF_ROUND_UP) return "UP";
  if (r & UF_ROUND_DOWN) return "DOWN";
  if (r & UF_ROUND_ZERO) return "ZERO";
  if (r & UF_ROUND_NEAREST) return "NEAREST";
  if (r & UF_ROUND_COMPATIBLE) return "COMPATIBLE";
  if (r & UF_ROUND_PROCESSOR_DEFINED) return "PROCESSOR_DEFINED";
  return "UNDEFINED";
}

off_t tell(const Unit* u) { return u->stream ? ftello(u->stream) : lseek(u->fd, 0, SEEK_CUR); }

// Looking at the file: write out what the unit holds, then the file's
// status.  On failure the unit is released (or the report never returns).
template <class Block>
int look_at_file(const Block* b, Unit* u, int64_t number, struct stat* st) {
  int err = flush_raw(u);
  if (!err && fstat(u->fd, st) != 0) err = errno ? errno : EIO;
  if (!err) return 0;
  if (!returns(b->iflags)) __f90_system_error_a(err, u, number, b->location);
  __f90_release_unit(u);
  return err;
}

const char* position_answer(const Unit* u, const struct stat& st) {
  const off_t position = tell(u);
  const off_t size = st.st_size;
  if (position == 0) return "REWIND";
  if (!u->data_ptr) return position == size ? "APPEND" : "ASIS";
  if (u->data_ptr == u->flush_ptr) {
    if (size != 0) return "REWIND";
    return u->data_ptr == u->data_end ? "APPEND" : "ASIS";
  }
  if (u->data_ptr == u->data_end) return size == 0 || size == position ? "APPEND" : "ASIS";
  return "ASIS";
}

// The results every inquiry of a connected unit writes.
template <class Block>
void numbers(Block* b, const Unit* u, int64_t number) {
  b->exist = 1;
  b->opened = 1;
  b->named = u->file_name != nullptr;
  b->number = number;
  b->nextrec = (u->flags & UF_SEQUENTIAL_LIKE) ? -1 : u->record_number;
  b->recl = static_cast<int64_t>(u->inquire_record_length);
  if (b->iflags & IF_PENDING) b->pending = 0;
}

// The answers for a taken, connected unit.  0 with the unit still taken,
// or the failure of a flush with the unit released.
template <class Block>
int connected(Block* b, Unit* u, int64_t number) {
  const uint32_t want = b->iflags;
  const uint32_t f = u->flags;
  const bool formatted = (f & UF_FORMATTED_LIKE) != 0;
  const bool direct = !(f & UF_SEQUENTIAL_LIKE);
  numbers(b, u, number);

  if (want & IF_ACCESS)
    copy_value(b->access, (f & UF_SEQUENTIAL) ? "SEQUENTIAL"
                          : (f & UF_STREAM)   ? "STREAM"
                                              : "DIRECT");
  if (want & IF_ACTION) {
    const uint32_t rw = f & (UF_READABLE | UF_WRITABLE);
    if (rw)
      copy_value(b->action, rw == (UF_READABLE | UF_WRITABLE) ? "READWRITE"
                            : rw == UF_READABLE               ? "READ"
                                                              : "WRITE");
  }
  if (want & IF_ASYNCHRONOUS) copy_value(b->asynchronous, yes_no(f & UF_ASYNCHRONOUS));

  // BLANK, DECIMAL and DELIM mean nothing unformatted.  The old dialect
  // leaves the first of them asked for alone and gives the later ones
  // "UNDEFINED", as its answers always have.
  bool leave_alone = (want & IF_F77) && !formatted;
  const auto not_formatted = [&](const InquireText& t) {
    if (leave_alone)
      leave_alone = false;
    else
      copy_value(t, "UNDEFINED");
  };
  if (want & IF_BLANK) {
    if (formatted)
      copy_value(b->blank, (f & UF_BLANK_ZERO) ? "ZERO" : "NULL");
    else
      not_formatted(b->blank);
  }
  if (want & IF_DECIMAL) {
    if (formatted)
      copy_value(b->decimal, (f & UF_DECIMAL_COMMA) ? "COMMA" : "POINT");
    else
      not_formatted(b->decimal);
  }
  if (want & IF_DELIM) {
    if (formatted)
      copy_value(b->delim, !(f & UF_DELIM_APOSTROPHE)                      ? "NONE"
                           : (f & (UF_DELIM_QUOTE & ~UF_DELIM_APOSTROPHE)) ? "QUOTE"
                                                                           : "APOSTROPHE");
    else
      not_formatted(b->delim);
  }

  if (want & IF_DIRECT) copy_value(b->direct, yes_no(direct));
  if (want & IF_FORM)
    copy_value(b->form, (f & UF_PRINT_FORM)  ? "PRINT"
                        : (f & UF_BINARY)    ? "BINARY"
                        : (f & UF_FORMATTED) ? "FORMATTED"
                                             : "UNFORMATTED");
  if (want & IF_FORMATTED) copy_value(b->formatted, yes_no(formatted));
  if (want & IF_UNFORMATTED) copy_value(b->unformatted, yes_no(!formatted));
  if (want & IF_NAME) copy_value(b->name, u->file_name ? u->file_name : "");
  if (want & IF_PAD) copy_value(b->pad, !formatted ? "UNDEFINED" : yes_no(!(f & UF_NOPAD)));
  if (want & IF_READ) copy_value(b->read, yes_no(f & UF_READABLE));
  if (want & IF_WRITE) copy_value(b->write, yes_no(f & UF_WRITABLE));
  if (want & IF_READWRITE)
    copy_value(b->readwrite,
               yes_no((f & (UF_READABLE | UF_WRITABLE)) == (UF_READABLE | UF_WRITABLE)));
  if (want & IF_SEQUENTIAL) copy_value(b->sequential, yes_no(f & UF_SEQUENTIAL));
  if (want & IF_STREAM) copy_value(b->stream, yes_no(f & UF_STREAM));
  if (want & IF_ROUND) copy_value(b->round, formatted ? round_answer(f) : "UNDEFINED");

  struct stat st;
  bool looked = false;
  if (want & IF_POS) {
    if (!(f & UF_STREAM)) {
      b->pos = -1;
    } else {
      // What the unit has read ahead is still to come in the file.
      const off_t ahead =
          (f & UF_LAST_READ) && u->data_ptr < u->data_end ? u->data_ptr - u->data_end : 0;
      if (int err = look_at_file(b, u, number, &st)) return err;
      looked = true;
      b->pos = tell(u) + ahead + 1;
    }
  }
  if (want & IF_SIZE) {
    if (!looked) {
      if (int err = look_at_file(b, u, number, &st)) return err;
      looked = true;
    }
    b->size = st.st_size == 0 && !u->file_name ? -1 : st.st_size;
  }
  if (want & IF_POSITION) {
    if (direct) {
      copy_value(b->position, "UNDEFINED");
    } else if (u->flags & UF_LAST_WRITE) {
      copy_value(b->position, "APPEND");
    } else {
      if (!looked)
        if (int err = look_at_file(b, u, number, &st)) return err;
      copy_value(b->position, position_answer(u, st));
    }
  }
  return 0;
}

// The unit connected to the file (device, inode), or -1.  Taken under
// the master lock; the caller takes the unit afterwards and checks again.
int64_t find_connection(dev_t device, ino_t inode) {
  const auto matches = [&](const Unit* u) {
    return u && (u->flags & UF_CONNECTED) && u->device == device && u->inode == inode;
  };
  int64_t found = -1;
  pthread_mutex_lock(&__f90_io_master_lock);
  for (int i = 0; i < SMALL_UNIT_TABLE_SIZE && found < 0; ++i)
    if (matches(__f90_small_unit_pointer_table[i])) found = i;
  for (int i = 0; i < UNIT_TABLE_SIZE && found < 0; ++i) {
    if (matches(__f90_unit_pointer_table[i])) found = __f90_unit_pointer_table[i]->unit_number;
    for (const UnitListCell* c = __f90_unit_collision_table[i]; c && found < 0; c = c->next)
      if (matches(c->unit)) found = c->unit->unit_number;
  }
  pthread_mutex_unlock(&__f90_io_master_lock);
  return found;
}

template <class Block>
Unit* take(Block* b, int64_t number, int* err) {
  Unit* u = nullptr;
  const bool ret = returns(b->iflags);
  *err = take_numbered_unit(&u, number, b->location, ret ? OnError::Return : OnError::Abort);
  if (*err) {
    if (*err == ERR_OUT_OF_MEMORY && !ret)
      report_and_abort(*err, b->location, false, 0, nullptr, true, sizeof(Unit));
    return nullptr;
  }
  return u;
}

}  // namespace

extern "C" {

QAL_EXPORT int __f90_inqu(InquireBlock* b) {
  // The usual inquiry (OPENED=, NUMBER=, RECL= and their kind) of a
  // connected unit below 128 in a process with one thread: the record is
  // read where it stands, as nobody else can change it meanwhile.
  if (!(b->iflags & (kTextResults | IF_POS | IF_SIZE)) && initio_done() && __libc_single_threaded &&
      static_cast<uint64_t>(b->unit) < SMALL_UNIT_TABLE_SIZE) {
    const Unit* u = __f90_small_unit_pointer_table[b->unit];
    if (u && u->hold_count == 0 && (u->flags & UF_CONNECTED)) {
      numbers(b, u, b->unit);
      return 0;
    }
  }
  if (int err = missing_text(b)) return refuse(b, err);
  initialise_for(b->iflags & IF_ERR_RETURN, b->location);
  if (static_cast<uint64_t>(b->unit) > kLargestUnit) {
    unconnected(b, false, nullptr);
    return 0;
  }
  int err = 0;
  Unit* u = take_quickly(b->unit);
  if (!u && !(u = take(b, b->unit, &err))) return err;
  if (!(u->flags & UF_CONNECTED))
    unconnected(b, true, nullptr);
  else if ((err = connected(b, u, b->unit)))
    return err;
  release_unit(u);
  return 0;
}

QAL_EXPORT int __f90_inqf(InquireFileBlock* b) {
  if (!b->file) return refuse(b, ERR_UNASSOCIATED_FILE);
  if (int err = missing_text(b)) return refuse(b, err);
  initialise_for(b->iflags & IF_ERR_RETURN, b->location);

  char name[kNameCopySize];
  const size_t given = b->file_length > 0 ? static_cast<size_t>(b->file_length) : 0;
  size_t n = strnlen(b->file, given < kNameCopySize - 1 ? given : kNameCopySize - 1);
  memcpy(name, b->file, n);
  while (n > 0 && name[n - 1] == ' ') --n;
  name[n] = '\0';

  struct stat st;
  if (stat(name, &st) != 0) {
    const int e = errno ? errno : EIO;
    if (e == ENOENT || e == ENOTDIR) {
      struct stat link;
      unconnected(b, lstat(name, &link) == 0, name);  // a dangling link exists
      return 0;
    }
    if (returns(b->iflags)) return e;
    __f90_banner();
    __f90_write_message(e);
    if (b->location) __f90_write_loc(b->location);
    __f90_write_filename(name);
    abort();
  }
  for (;;) {
    const int64_t number = find_connection(st.st_dev, st.st_ino);
    if (number < 0) {
      unconnected(b, true, name);
      return 0;
    }
    int err = 0;
    Unit* u = take(b, number, &err);
    if (!u) return err;
    // The unit may have been closed or reconnected since the search.
    if ((u->flags & UF_CONNECTED) && u->device == st.st_dev && u->inode == st.st_ino) {
      if ((err = connected(b, u, number))) return err;
      __f90_release_unit(u);
      return 0;
    }
    __f90_release_unit(u);
  }
}

}  // extern "C"
