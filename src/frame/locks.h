// Mutexes that cost nothing while the process has one thread.
//
// A program that never starts a thread still pays two atomic operations per
// pthread mutex pair, and a statement takes three pairs.  While the process
// is single-threaded nobody can contend, so the pair is skipped.  The test
// is made once per pair and its answer kept, so a pair is always closed the
// way it was opened, whatever happens to the process in between.  Threads
// only come from a pthread_create call of the one thread, which happens
// before anything the new thread does: fields written without the lock are
// seen by threads started later.
#pragma once

#include <pthread.h>
#include <sys/single_threaded.h>

namespace qal {

// Take `m` unless the process is single-threaded; says whether it took it.
[[nodiscard]] inline bool lock_if_shared(pthread_mutex_t* m) {
  if (__libc_single_threaded) return false;
  pthread_mutex_lock(m);
  return true;
}

inline void unlock_if_taken(bool taken, pthread_mutex_t* m) {
  if (taken) pthread_mutex_unlock(m);
}

}  // namespace qal
