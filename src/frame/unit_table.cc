// The unit table: numbers 0..127 index a small table directly; larger
// numbers hash on their low ten bits into a primary slot, with the units
// they displaced on a collision list behind it.
//
//   small table  [0..127]   -> Unit*
//   primary slot [n & 0x3ff] -> newest Unit* of that index
//   collision    [n & 0x3ff] -> cell -> cell -> ...   (older units)
//
// Lookups hold the master lock only until the unit's own lock is held.  A
// unit is held for a whole statement by hold_count and owner; its mutex is
// taken only around those fields.
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include "frame/frame.h"
#include "frame/locks.h"

using namespace qal;

namespace qal {
extern "C" {
QAL_EXPORT pthread_mutex_t __f90_io_master_lock = PTHREAD_MUTEX_INITIALIZER;
QAL_EXPORT Unit* __f90_small_unit_pointer_table[SMALL_UNIT_TABLE_SIZE];
QAL_EXPORT Unit* __f90_unit_pointer_table[UNIT_TABLE_SIZE];
QAL_EXPORT UnitListCell* __f90_unit_collision_table[UNIT_TABLE_SIZE];
}  // extern "C"
}  // namespace qal

namespace qal {

namespace {

bool held_elsewhere(const Unit* u, pthread_t self) {
  return u->hold_count != 0 && !pthread_equal(u->owner, self);
}

// Wait until no other thread holds `u`, then take it.  Called with u->lock
// held, or not taken because the process is single-threaded; returns with
// the lock as it came, except that a wait always takes it first (`taken`
// then says so).
void take_locked(Unit* u, bool* taken) {
  pthread_t self = pthread_self();
  if (held_elsewhere(u, self)) {
    if (!*taken) {
      pthread_mutex_lock(&u->lock);
      *taken = true;
    }
    u->waiters++;
    while (held_elsewhere(u, self)) pthread_cond_wait(&u->available, &u->lock);
    u->waiters--;
  }
  u->owner = self;
  u->hold_count++;
}

Unit* find_locked(int32_t number) {
  if (number < SMALL_UNIT_TABLE_SIZE) return __f90_small_unit_pointer_table[number];
  const int index = number & UNIT_TABLE_MASK;
  Unit* primary = __f90_unit_pointer_table[index];
  if (primary && primary->unit_number == number) return primary;
  // A cell made while the primary slot was empty holds no unit: skip it.
  for (UnitListCell* c = __f90_unit_collision_table[index]; c; c = c->next)
    if (c->unit && c->unit->unit_number == number) return c->unit;
  return nullptr;
}

// Allocate and zero a record with its lock and condition ready.
Unit* allocate_unit() {
  Unit* u = static_cast<Unit*>(malloc(sizeof(Unit)));
  if (!u) return nullptr;
  memset(u, 0, sizeof(Unit));
  pthread_mutex_init(&u->lock, nullptr);
  pthread_cond_init(&u->available, nullptr);
  return u;
}

void destroy_unit(Unit* u) {
  pthread_mutex_destroy(&u->lock);
  pthread_cond_destroy(&u->available);
  free(u);
}

[[noreturn]] void report_out_of_memory(const Location* location, int64_t unit, bool unit_line) {
  report_and_abort(ERR_OUT_OF_MEMORY, location, unit_line, unit, nullptr, true, sizeof(Unit));
}

// The primary slot of `index` is empty and its list is not: promote the
// first cell's unit into it (possibly the null unit of a placeholder cell).
void promote_first_cell(int index) {
  UnitListCell* c = __f90_unit_collision_table[index];
  __f90_unit_pointer_table[index] = c->unit;
  __f90_unit_collision_table[index] = c->next;
  free(c);
}

// Remove an unconnected, released record from the table and free it, unless
// another thread got hold of it between the release and here.
void remove_unit(Unit* u, int32_t number) {
  pthread_mutex_lock(&__f90_io_master_lock);
  Unit** slot = nullptr;
  UnitListCell** link = nullptr;
  if (number < SMALL_UNIT_TABLE_SIZE) {
    if (__f90_small_unit_pointer_table[number] == u) slot = &__f90_small_unit_pointer_table[number];
  } else {
    const int index = number & UNIT_TABLE_MASK;
    while (!__f90_unit_pointer_table[index] && __f90_unit_collision_table[index])
      promote_first_cell(index);
    if (__f90_unit_pointer_table[index] == u) {
      slot = &__f90_unit_pointer_table[index];
    } else {
      for (UnitListCell** l = &__f90_unit_collision_table[index]; *l; l = &(*l)->next)
        if ((*l)->unit == u) {
          link = l;
          break;
        }
    }
  }
  if (!slot && !link) {  // somebody else removed it already
    pthread_mutex_unlock(&__f90_io_master_lock);
    return;
  }
  pthread_mutex_lock(&u->lock);
  if ((u->flags & UF_CONNECTED) || u->hold_count != 0 || u->waiters != 0) {
    pthread_mutex_unlock(&u->lock);
    pthread_mutex_unlock(&__f90_io_master_lock);
    return;
  }
  if (link) {
    UnitListCell* c = *link;
    *link = c->next;
    free(c);
  } else if (number < SMALL_UNIT_TABLE_SIZE) {
    *slot = nullptr;
  } else {
    const int index = number & UNIT_TABLE_MASK;
    *slot = nullptr;
    if (__f90_unit_collision_table[index]) promote_first_cell(index);
  }
  pthread_mutex_unlock(&u->lock);
  pthread_mutex_unlock(&__f90_io_master_lock);
  destroy_unit(u);
}

}  // namespace

namespace {

// The common take by number.  OPEN refuses a record this thread already
// holds, and may put a fresh record in place of a static default one.
int take_by_number(Unit** result, int64_t unit, const Location* location, OnError mode,
                   bool for_open, bool replace_default) {
  *result = nullptr;
  if (unit < 0 || unit > INT32_MAX) {
    if (mode == OnError::Abort) report_and_abort(ERR_ILLEGAL_UNIT, location, true, unit, nullptr);
    return ERR_ILLEGAL_UNIT;
  }
  const int32_t number = static_cast<int32_t>(unit);
  const bool master = lock_if_shared(&__f90_io_master_lock);
  Unit* u = find_locked(number);
  if (u && replace_default && number < SMALL_UNIT_TABLE_SIZE && is_default_record(u)) u = nullptr;
  if (u) {
    bool taken = lock_if_shared(&u->lock);
    unlock_if_taken(master, &__f90_io_master_lock);
    take_locked(u, &taken);
    const bool nested = u->hold_count > 1;
    unlock_if_taken(taken, &u->lock);
    if (for_open && nested) {
      __f90_release_unit(u);
      return ERR_OPEN_BUSY_UNIT;
    }
    if (u->stream) flockfile(u->stream);
    *result = u;
    return 0;
  }
  u = allocate_unit();
  if (!u) {
    unlock_if_taken(master, &__f90_io_master_lock);
    if (mode == OnError::Abort) report_out_of_memory(location, unit, true);
    return ERR_OUT_OF_MEMORY;
  }
  u->owner = pthread_self();
  u->hold_count = 1;
  u->unit_number = number;
  if (number < SMALL_UNIT_TABLE_SIZE) {
    __f90_small_unit_pointer_table[number] = u;
  } else {
    // The newest unit takes the primary slot; the one it displaces goes to
    // a new cell at the head of the list.
    UnitListCell* c = static_cast<UnitListCell*>(malloc(sizeof(UnitListCell)));
    if (!c) {
      unlock_if_taken(master, &__f90_io_master_lock);
      destroy_unit(u);
      if (mode == OnError::Abort) report_out_of_memory(location, unit, true);
      return ERR_OUT_OF_MEMORY;
    }
    const int index = number & UNIT_TABLE_MASK;
    c->unit = __f90_unit_pointer_table[index];
    c->next = __f90_unit_collision_table[index];
    __f90_unit_collision_table[index] = c;
    __f90_unit_pointer_table[index] = u;
  }
  unlock_if_taken(master, &__f90_io_master_lock);
  *result = u;
  return 0;
}

// Wait on a record another thread holds until it is free or ours.  Called
// with u->lock held; returns with it held.
void wait_until_free(Unit* u, pthread_t self) {
  u->waiters++;
  while (held_elsewhere(u, self)) pthread_cond_wait(&u->available, &u->lock);
  u->waiters--;
  // A release signals one waiter; pass the word on to the next.
  if (u->waiters && u->hold_count == 0) pthread_cond_signal(&u->available);
}

}  // namespace

int take_numbered_unit(Unit** result, int64_t unit, const Location* location, OnError mode) {
  return take_by_number(result, unit, location, mode, false, false);
}

int take_unit_for_open(Unit** result, int64_t unit, bool replace_default, const Location* location,
                       OnError mode) {
  return take_by_number(result, unit, location, mode, true, replace_default);
}

int take_unit_for_close(Unit** result, int32_t number) {
  *result = nullptr;
  const pthread_t self = pthread_self();
  for (;;) {
    pthread_mutex_lock(&__f90_io_master_lock);
    Unit* u = find_locked(number);
    if (!u) {
      pthread_mutex_unlock(&__f90_io_master_lock);
      return 0;
    }
    pthread_mutex_lock(&u->lock);
    if (u->hold_count != 0 && pthread_equal(u->owner, self)) {
      // This thread is inside a statement on the unit.  The take and the
      // release leave the unit marked nested, as any retake does.
      pthread_mutex_unlock(&__f90_io_master_lock);
      u->hold_count++;
      pthread_mutex_unlock(&u->lock);
      __f90_release_unit(u);
      return ERR_CLOSE_BUSY_UNIT;
    }
    if (u->hold_count != 0) {
      pthread_mutex_unlock(&__f90_io_master_lock);
      wait_until_free(u, self);
      if (number < SMALL_UNIT_TABLE_SIZE) {
        // The holder's release may have unbound or freed the record: look
        // again.  Our waiter count kept it alive until here.
        pthread_mutex_unlock(&u->lock);
        continue;
      }
      // On the hashed path the record is kept: our waiter count stopped
      // the release from freeing it.  Take it as it is.
      u->owner = self;
      u->hold_count++;
      pthread_mutex_unlock(&u->lock);
      *result = u;
      return 0;
    }
    if (number < SMALL_UNIT_TABLE_SIZE && is_default_record(u))
      __f90_small_unit_pointer_table[number] = nullptr;
    u->owner = self;
    u->hold_count++;
    pthread_mutex_unlock(&u->lock);
    pthread_mutex_unlock(&__f90_io_master_lock);
    if (u->stream) flockfile(u->stream);
    *result = u;
    return 0;
  }
}

void take_default_unit(Unit* u) {
  bool taken = lock_if_shared(&u->lock);
  take_locked(u, &taken);
  unlock_if_taken(taken, &u->lock);
  if (u->stream) flockfile(u->stream);
}

}  // namespace qal

namespace qal {
extern "C" {

QAL_EXPORT void __f90_get_numbered_unit_a(Unit** result, int64_t unit, const Location* location) {
  take_numbered_unit(result, unit, location, OnError::Abort);
}

QAL_EXPORT void __f90_get_numbered_unit_f(Unit** result, int64_t unit, const Location* location) {
  take_numbered_unit(result, unit, location, OnError::Abort);
}

QAL_EXPORT int __f90_get_numbered_unit_r(Unit** result, int64_t unit) {
  return take_numbered_unit(result, unit, nullptr, OnError::Return);
}

QAL_EXPORT Unit* __f90_get_default_input_unit(void) {
  take_default_unit(&__f90_default_input_unit);
  return &__f90_default_input_unit;
}

QAL_EXPORT Unit* __f90_get_default_output_unit(void) {
  take_default_unit(&__f90_default_output_unit);
  return &__f90_default_output_unit;
}

QAL_EXPORT void __f90_new_unit_a(Unit** result, const Location* location) {
  *result = allocate_unit();
  if (!*result) {
    pthread_mutex_unlock(&__f90_io_master_lock);
    report_and_abort(ERR_OUT_OF_MEMORY, location, false, 0, nullptr, true, sizeof(Unit));
  }
}

QAL_EXPORT void __f90_new_unit_f(Unit** result, const Location* location) {
  __f90_new_unit_a(result, location);
}

QAL_EXPORT int __f90_new_unit_r(Unit** result) {
  *result = allocate_unit();
  if (*result) return 0;
  pthread_mutex_unlock(&__f90_io_master_lock);
  return ERR_OUT_OF_MEMORY;
}

QAL_EXPORT void __f90_release_unit(Unit* u) {
  if (u->flags & UF_CONNECTED) {
    if (u->stream) funlockfile(u->stream);
    const bool taken = lock_if_shared(&u->lock);
    if (--u->hold_count > 0) {
      u->flags |= UF_NESTED;
    } else {
      u->flags &= ~UF_NESTED;
      if (u->waiters) pthread_cond_signal(&u->available);
    }
    unlock_if_taken(taken, &u->lock);
    return;
  }
  const bool taken = lock_if_shared(&u->lock);
  if (--u->hold_count > 0) {
    u->flags |= UF_NESTED;
    unlock_if_taken(taken, &u->lock);
    return;
  }
  u->flags &= ~UF_NESTED;
  if (u->waiters || is_default_record(u)) {
    if (u->waiters) pthread_cond_signal(&u->available);
    unlock_if_taken(taken, &u->lock);
    return;
  }
  const int32_t number = u->unit_number;
  unlock_if_taken(taken, &u->lock);
  remove_unit(u, number);
}

}  // extern "C"
}  // namespace qal
