#!/usr/bin/env bash
# BACKSPACE and INQUIRE: the library, its floor and the gfortran peer, each
# workload run by all three in every repetition.  The 1 GiB files (80-byte
# formatted and unformatted records) are made once, in a directory of their
# own.  Prints a markdown table of medians.
#
#   bash bench/positioning_run.sh      REPS=5
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
build="$root/build-bench"
reps=${REPS:-5}

echo "== building (Release, $build)" >&2
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQAL_BENCH=ON \
  -DQAL_TESTS=OFF -DQAL_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j2 --target bench_positioning >/dev/null
ours="$build/bench/bench_positioning"
mkdir -p "$build/bench/peers"
peer="$build/bench/peers/positioning"
gfortran -O2 "$here/peers/positioning.f90" -o "$peer"

work=$(mktemp -d "${TMPDIR:-/var/tmp}/qal-positioning.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
echo "== making two 1 GiB files" >&2
"$ours" make F f.txt
"$ours" make U u.bin

out="$work/figures"
for ((k = 1; k <= reps; ++k)); do
  echo "== repetition $k of $reps" >&2
  for kind in F U; do
    file=$([ $kind = F ] && echo f.txt || echo u.bin)
    for mode in rd br; do
      "$peer" $mode $kind $file | sed "s/^/$k gfortran $kind/" >>"$out"
      "$ours" $mode $kind $file | sed "s/^/$k ours $kind/" >>"$out"
      "$ours" floor-$mode $kind $file | sed "s/^/$k floor $kind/;s/floor-//" >>"$out"
    done
  done
  for mode in iq iqt; do
    "$peer" $mode f.txt | sed "s/^/$k gfortran -/" >>"$out"
    "$ours" $mode f.txt | sed "s/^/$k ours -/" >>"$out"
  done
done

# Every program must have read the same records.
awk '{ key = $3; if ((key in check) && check[key] != $5) { print "checks differ: " $0; bad = 1 } check[key] = $5 }
     END { exit bad }' "$out" >&2

echo
echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, $reps repetitions, medians, ns a statement"
echo
echo '| workload | gfortran | ours | floor | gfortran/ours | ours/floor |'
echo '| --- | ---: | ---: | ---: | ---: | ---: |'
awk '
  function median(list,   n, a, i, j, t) {
    n = split(list, a, " ")
    for (i = 2; i <= n; ++i) for (j = i; j > 1 && a[j - 1] + 0 > a[j] + 0; --j) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
  }
  { ns[$3, $2] = ns[$3, $2] " " $4 }
  END {
    split("Frd Fbr Urd Ubr -iq -iqt", modes, " ")
    name["Frd"] = "READ(10,\"(A)\") of the next 80-byte record"
    name["Fbr"] = "BACKSPACE, READ(10,\"(A)\") of the last record of 1 GiB"
    name["Urd"] = "READ(10) of the next 80-byte record"
    name["Ubr"] = "BACKSPACE, READ(10) of the last record of 1 GiB"
    name["-iq"] = "INQUIRE(UNIT=10, OPENED=, NUMBER=)"
    name["-iqt"] = "INQUIRE(UNIT=10, NAME=, ACCESS=, FORM=)"
    for (m = 1; m <= 6; ++m) {
      mode = modes[m]; g = median(ns[mode, "gfortran"]); o = median(ns[mode, "ours"])
      if (mode ~ /^-/) {
        printf "| %s | %.2f | %.2f | - | %.2f | - |\n", name[mode], g, o, g / o
      } else {
        f = median(ns[mode, "floor"])
        printf "| %s | %.2f | %.2f | %.2f | %.2f | %.2f |\n", name[mode], g, o, f, g / o, o / f
      }
    }
    printf "\nBACKSPACE and READ against a plain READ (goal ≤ 3): formatted %.2f, unformatted %.2f\n",
           median(ns["Fbr", "ours"]) / median(ns["Frd", "ours"]), median(ns["Ubr", "ours"]) / median(ns["Urd", "ours"])
  }' "$out"
