#!/usr/bin/env bash
# Builds the fuzz targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each over its corpus.
#
#   scripts/fuzz.sh [seconds per target] [target ...]
#
# Targets: parse_format formatted_write list_write formatted_read unformatted (default:
# all).  New
# inputs go to build-fuzz/corpus/<target>; fuzz/corpus/<target> is only
# read.  A crash leaves its input in build-fuzz/run and fails the script.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(parse_format formatted_write list_write formatted_read unformatted)

need=()
command -v clang++ >/dev/null || need+=(clang)
ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1 ||
  need+=(libclang-rt-dev)
command -v ninja >/dev/null || need+=(ninja-build)
if [ ${#need[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi

dir="$root/build-fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQAL_SANITIZE=ON -DQAL_TESTS=OFF -DQAL_EXAMPLES=OFF -DQAL_FUZZ=ON >/dev/null
cmake --build "$dir" -j2 --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p "$dir/run"
for t in "${targets[@]}"; do
  mkdir -p "$dir/corpus/$t"
  echo "== fuzz_$t for ${seconds}s"
  log="$dir/run/$t.log"
  if ! (cd "$dir/run" && "$dir/fuzz/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 \
      -dict="$root/fuzz/format.dict" "$dir/corpus/$t" "$root/fuzz/corpus/$t" >"$log" 2>&1); then
    tail -n 80 "$log"
    echo "fuzz_$t failed: its input is in $dir/run"
    exit 1
  fi
  grep -E '^stat::(number_of_executed_units|new_units_added)' "$log"
done
