// What the benchmark programs that time themselves share: a monotonic
// clock in nanoseconds and the exit on a failed system call.
#pragma once

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

namespace qal::bench {

inline int64_t now_ns() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return int64_t{t.tv_sec} * 1000000000 + t.tv_nsec;
}

[[noreturn]] inline void die(const char* what) {
  perror(what);
  exit(1);
}

}  // namespace qal::bench
