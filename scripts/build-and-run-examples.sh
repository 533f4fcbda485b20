#!/usr/bin/env bash
# Builds libqal.so.1 and runs the examples in a scratch directory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/deps.sh"
cmake -S "$root" -B "$root/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQAL_TESTS=OFF >/dev/null
cmake --build "$root/build" -j2
work="$root/build/run-examples"
rm -rf "$work" && mkdir -p "$work" && cd "$work"
echo "== hello_print"
"$root/build/examples/hello_print"
echo "== write_unit10 (leaves $work/fort.10 behind)"
"$root/build/examples/write_unit10"
cat fort.10
echo "== formatted_print"
"$root/build/examples/formatted_print"
