#!/usr/bin/env bash
# Unformatted sequential records: the library, its floor (plain C++ making
# or taking the same bytes with a buffer of the unit's size and
# write(2)/read(2)) and the gfortran peer, each workload run by all three
# in every repetition, on files in one directory.  Prints a markdown table
# of medians and the median per-repetition ratios.
#
#   bash bench/unformatted_run.sh      REPS=7
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
build="$root/build-bench"
reps=${REPS:-7}

echo "== building (Release, $build)" >&2
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQAL_BENCH=ON \
  -DQAL_TESTS=OFF -DQAL_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j2 --target bench_unformatted >/dev/null
ours="$build/bench/bench_unformatted"
mkdir -p "$build/bench/peers"
peer="$build/bench/peers/unformatted"
gfortran -O2 "$here/peers/unformatted.f90" -o "$peer"

work=$(mktemp -d "${TMPDIR:-/var/tmp}/qal-unformatted.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
unset GFORTRAN_UNBUFFERED_ALL GFORTRAN_UNBUFFERED_PRECONNECTED 2>/dev/null || true

out="$work/figures"
same() {  # same FILE FILE: the writers must make the same bytes
  cmp -s "$1" "$2" || { echo "unformatted_run.sh: $1 and $2 differ" >&2; exit 1; }
}
for ((k = 1; k <= reps; ++k)); do
  echo "== repetition $k of $reps" >&2
  for size in s b; do
    "$peer" w$size g.dat | sed "s/^/$k gfortran /" >>"$out"
    "$ours" w$size q.dat | sed "s/^/$k ours /" >>"$out"
    "$ours" fw$size f.dat | sed "s/^/$k floor /;s/ fw/ w/" >>"$out"
    same g.dat q.dat
    same g.dat f.dat
    "$peer" r$size g.dat | sed "s/^/$k gfortran /" >>"$out"
    "$ours" r$size g.dat | sed "s/^/$k ours /" >>"$out"
    "$ours" fr$size g.dat | sed "s/^/$k floor /;s/ fr/ r/" >>"$out"
    rm -f g.dat q.dat f.dat
  done
done

# Every reader must have read the same values.
awk '$3 ~ /^r/ { if (($3 in check) && check[$3] != $5) { print "checks differ: " $0; bad = 1 } check[$3] = $5 }
     END { exit bad }' "$out" >&2

echo
echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, $reps repetitions, medians"
echo
echo '| workload | gfortran | ours | floor | gfortran/ours | ours/floor | goal | met |'
echo '| --- | ---: | ---: | ---: | ---: | ---: | --- | --- |'
awk '
  function median(list,   n, a, i, j, t) {
    n = split(list, a, " ")
    for (i = 2; i <= n; ++i) for (j = i; j > 1 && a[j - 1] + 0 > a[j] + 0; --j) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
  }
  { ns[$3, $2, $1] = $4; runs[$1] = 1 }
  END {
    split("ws rs wb rb", modes, " ")
    name["ws"] = "WRITE(u) I, J: ns a record"; name["rs"] = "READ(u) I, J: ns a record"
    name["wb"] = "WRITE(u) A, 64 MiB: ms"; name["rb"] = "READ(u) A, 64 MiB: ms"
    for (m = 1; m <= 4; ++m) {
      mode = modes[m]; g = ""; o = ""; f = ""; go = ""; of = ""
      for (k in runs) {
        g = g " " ns[mode, "gfortran", k]; o = o " " ns[mode, "ours", k]; f = f " " ns[mode, "floor", k]
        go = go " " ns[mode, "gfortran", k] / ns[mode, "ours", k]
        of = of " " ns[mode, "ours", k] / ns[mode, "floor", k]
      }
      scale = mode ~ /s$/ ? 1 : 1e-6
      ratio_go = median(go); ratio_of = median(of)
      if (mode ~ /s$/) {
        goal = "gfortran/ours ≥ 5, ours/floor ≤ 1.3"; met = ratio_go >= 5 && ratio_of <= 1.3
      } else {
        goal = "floor bandwidth ≥ 95%: ours/floor ≤ 1.053"; met = ratio_of <= 1 / 0.95
      }
      printf "| %s | %.2f | %.2f | %.2f | %.2f | %.3f | %s | %s |\n", name[mode], median(g) * scale,
             median(o) * scale, median(f) * scale, ratio_go, ratio_of, goal, met ? "yes" : "NO"
    }
  }' "$out"
