#!/usr/bin/env bash
# Runs the binary128 arithmetic benchmarks REPS times and prints a markdown
# table: median ns per operation of ours (_Q routines) and of the peer (the
# compiler's __float128 operators), and the median of the per-run ratios
# ours/peer.  The goal is a ratio of 0.8 or less.
#
#   bash bench/quad_run.sh          REPS=9
#   REPS=15 bash bench/quad_run.sh
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
build="$root/build-bench"
reps=${REPS:-9}

echo "== building (Release, $build)" >&2
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQAL_BENCH=ON \
  -DQAL_TESTS=OFF -DQAL_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j2 --target bench_quad_arith >/dev/null

out=$(mktemp)
trap 'rm -f "$out"' EXIT
for ((k = 1; k <= reps; ++k)); do
  echo "== repetition $k of $reps" >&2
  # per_op is the last csv column, in seconds of CPU time per operation.
  "$build/bench/bench_quad_arith" --benchmark_format=csv 2>/dev/null |
    awk -F, -v k="$k" 'NR > 1 { gsub(/"/, "", $1); printf "%d %s %.4f\n", k, $1, $NF * 1e9 }' >>"$out"
done

echo
echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, $reps repetitions, medians (ns per operation)"
echo
echo '| operation | operands | ours ns | __float128 ns | ours/peer | goal | met |'
echo '| --- | --- | ---: | ---: | ---: | --- | --- |'
awk '
  function median(list,   n, a, i, j, t) {
    n = split(list, a, " ")
    for (i = 2; i <= n; ++i) for (j = i; j > 1 && a[j - 1] + 0 > a[j] + 0; --j) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
  }
  {
    split($2, part, "/"); key = part[1]; side = part[2]
    ns[key, side, $1] = $3
    if (!(key in seen)) { seen[key] = 1; order[++count] = key }
    runs[$1] = 1
  }
  END {
    for (c = 1; c <= count; ++c) {
      key = order[c]; o = ""; p = ""; r = ""
      for (k in runs) if ((key, "ours", k) in ns && (key, "peer", k) in ns) {
        o = o " " ns[key, "ours", k]; p = p " " ns[key, "peer", k]
        r = r " " ns[key, "ours", k] / ns[key, "peer", k]
      }
      op = key; sub(/(Independent|Chained)$/, "", op)
      shape = key ~ /Chained$/ ? "chained" : "independent"
      ratio = median(r)
      printf "| %s | %s | %.1f | %.1f | %.2f | ≤ 0.8 | %s |\n", op, shape, median(o), median(p), ratio,
             ratio <= 0.8 ? "yes" : "NO"
    }
  }' "$out"
