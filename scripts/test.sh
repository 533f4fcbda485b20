#!/usr/bin/env bash
# Builds the library and the test suite and runs every test.  With
# --sanitize the build uses AddressSanitizer and UndefinedBehaviorSanitizer;
# --threads runs the thread stress tests under ThreadSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
dir="$root/build"
opts=(-DCMAKE_BUILD_TYPE=Release -DQAL_TESTS=ON)
if [ "${1:-}" = "--sanitize" ]; then
  dir="$root/build-sanitize"
  opts=(-DCMAKE_BUILD_TYPE=Debug -DQAL_SANITIZE=ON -DQAL_TESTS=ON)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
elif [ "${1:-}" = "--threads" ]; then
  # The thread stress tests under ThreadSanitizer: any unsynchronised
  # access fails the run.
  dir="$root/build-tsan"
  opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DQAL_TSAN=ON -DQAL_TESTS=ON -DQAL_EXAMPLES=OFF)
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
  cmake -S "$root" -B "$dir" -G Ninja "${opts[@]}" >/dev/null
  cmake --build "$dir" -j2 --target test_threads
  "$dir/tests/test_threads"
  exit
fi
cmake -S "$root" -B "$dir" -G Ninja "${opts[@]}" >/dev/null
cmake --build "$dir" -j2
ctest --test-dir "$dir" -j2 --output-on-failure
