#!/usr/bin/env bash
# Builds the benchmarks (Release, build-bench/), builds the gfortran peers
# with -O2, runs every pair REPS times and prints a markdown table of medians.
# Ratios are peer/ours, taken within each repetition and then the median.
#
#   bash bench/run.sh            REPS=5, ROUNDS=200 fork+exec rounds per repetition
#   REPS=9 ROUNDS=400 bash bench/run.sh
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
build="$root/build-bench"
reps=${REPS:-5}
rounds=${ROUNDS:-200}

# Work sizes; they must match the fixed iteration counts in list_write.cc
# and formatted_write.cc.
list_statements=4000    # of 1000 items each
single_statements=1000000
ten_statements=400000   # of 10 scalar items each
four_statements=1000000 # WRITE(10,'(4I12)'), 4 items each
real_statements=400000  # one double each, formatted or list-directed

echo "== building (Release, $build)" >&2
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQAL_BENCH=ON \
  -DQAL_TESTS=OFF -DQAL_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j2 -- -j2 >/dev/null

peers="$build/bench/peers"
mkdir -p "$peers"
for p in list_items ten_items one_item_statement formatted_items formatted_reals formatted_read hello; do
  gfortran -O2 "$here/peers/$p.f90" -o "$peers/$p"
done

bench="$build/bench/bench_list_write"
formatted="$build/bench/bench_formatted_write"
reading="$build/bench/bench_formatted_read"
floors="$build/bench/bench_floors"
real_records=400000    # they must match formatted_read.cc
integer_records=1000000
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$reading" --make-files
# gfortran's own buffering must not be switched off from the environment.
unset GFORTRAN_UNBUFFERED_ALL GFORTRAN_UNBUFFERED_PRECONNECTED \
  GFORTRAN_FORMATTED_BUFFER_SIZE 2>/dev/null || true

# Both sides must leave RECORDS records in fort.10 (the untimed first
# statement included), or the figure means nothing.
check_records() {  # check_records WHO RECORDS
  local n
  n=$(wc -l <fort.10)
  if ((n != $2)); then
    echo "run.sh: $1 left $n records in fort.10, expected $2" >&2
    exit 1
  fi
  rm -f fort.10
}
# ns per iteration of one benchmark (csv column 3, unit ns) divided by ITEMS.
ours() {  # ours BENCHMARK ITEMS RECORDS [BINARY]
  rm -f fort.10
  "${4:-$bench}" --benchmark_filter="^$1/" --benchmark_format=csv 2>/dev/null |
    awk -F, -v per="$2" 'NR > 1 { printf "%.3f\n", $3 / per }'
  cp fort.10 ours.txt
  check_records "$1" "$3"
}
# The floor of a benchmark: the same bytes by plain C++.  It must write
# exactly what ours wrote in ours.txt.
floor() {  # floor BENCHMARK ITEMS
  rm -f floor.txt
  "$floors" --benchmark_filter="^BM_Floor${1#BM_}/" --benchmark_format=csv 2>/dev/null |
    awk -F, -v per="$2" 'NR > 1 { printf "%.3f\n", $3 / per }'
  if ! cmp -s ours.txt floor.txt; then
    echo "run.sh: the floor of $1 does not write the library's bytes:" >&2
    cmp ours.txt floor.txt >&2 || true
    diff <(head -c 2000000 ours.txt) <(head -c 2000000 floor.txt) | head -6 >&2 || true
    exit 1
  fi
  rm -f floor.txt
}
peer() {  # peer PROGRAM STATEMENTS [FORMAT]
  rm -f fort.10
  if (($# > 2)); then "$peers/$1" "$3" "$2"; else "$peers/$1" "$2"; fi
  check_records "$1" $(($2 + 1))
}
median() {  # median "x y z ..."
  tr ' ' '\n' <<<"$1" | grep . | sort -g |
    awk '{ a[NR] = $1 } END { if (NR % 2) print a[(NR + 1) / 2]; else print (a[NR / 2] + a[NR / 2 + 1]) / 2 }'
}
ns() { awk -v x="$1" 'BEGIN { printf(x < 1000 ? "%.1f" : "%.0f", x) }'; }
ratio() { awk -v p="$1" -v o="$2" 'BEGIN { printf "%.3f\n", p / o }'; }

# Reads: ns per value and the sum of what was read.  Ours, the C++ floor
# and gfortran must read the same sum, or the figures mean nothing.
read_bench() {  # read_bench BENCHMARK VALUES_PER_ITERATION -> "ns sum"
  local ns sum
  ns=$("$reading" --benchmark_filter="^$1/" --benchmark_format=csv 2>"$work/sum.txt" |
    awk -F, -v per="$2" 'NR > 1 { printf "%.3f", $3 / per }')
  sum=$(awk '/^sum / { print $2 }' "$work/sum.txt" | tail -n 1)
  echo "$ns $sum"
}
read_peer() {  # read_peer FILE FORMAT RECORDS -> "ns sum"
  "$peers/formatted_read" "$1" "$2" "$3" | tr '\n' ' '
}
same_sum() {  # same_sum WHO SUM REFERENCE: the same double, to the last bit
  if ! awk -v a="$2" -v b="$3" 'BEGIN { exit !(a + 0 == b + 0) }'; then
    echo "run.sh: $1 read a sum of $2, expected $3" >&2
    exit 1
  fi
}

declare -A o p r
add() {  # add KEY OURS PEER
  o[$1]+="$2 "
  p[$1]+="$3 "
  r[$1]+="$(ratio "$3" "$2") "
}

for ((k = 1; k <= reps; ++k)); do
  echo "== repetition $k of $reps" >&2
  # Alternate which side goes first, so slow drift favours neither.
  if ((k % 2)); then
    a=$(ours BM_ListItems 1000 $((list_statements + 1)))
    b=$(peer list_items $list_statements)
    c=$(ours BM_OneItemStatement 1 $((single_statements + 1)))
    d=$(peer one_item_statement $single_statements)
    e=$(ours BM_TenItems 10 $((ten_statements + 1)))
    f=$(peer ten_items $ten_statements)
    g=$(ours BM_FormattedFourItems 4 $((four_statements + 1)) "$formatted")
    h=$(peer formatted_items $four_statements)
  else
    h=$(peer formatted_items $four_statements)
    g=$(ours BM_FormattedFourItems 4 $((four_statements + 1)) "$formatted")
    f=$(peer ten_items $ten_statements)
    e=$(ours BM_TenItems 10 $((ten_statements + 1)))
    b=$(peer list_items $list_statements)
    a=$(ours BM_ListItems 1000 $((list_statements + 1)))
    d=$(peer one_item_statement $single_statements)
    c=$(ours BM_OneItemStatement 1 $((single_statements + 1)))
  fi
  add items "$a" "$b"
  add stmt "$c" "$d"
  add ten "$e" "$f"
  add four "$g" "$h"
  # Each of ours again, then its floor over the same bytes.
  for w in BM_ListItems:1000:$((list_statements + 1)):"$bench":items \
    BM_OneItemStatement:1:$((single_statements + 1)):"$bench":stmt \
    BM_TenItems:10:$((ten_statements + 1)):"$bench":ten \
    BM_FormattedFourItems:4:$((four_statements + 1)):"$formatted":four; do
    IFS=: read -r name per records binary key <<<"$w"
    x=$(ours "$name" "$per" "$records" "$binary")
    y=$(floor "$name" "$per")
    add "floor$key" "$x" "$y"
  done
  for r in ES25_16E3:'(ES25.16E3)' F25_10:'(F25.10)' G25_16:'(G25.16)' E15_7:'(E15.7)' \
    ListReal:'*'; do
    name=${r%%:*}
    fmt=${r#*:}
    if ((k % 2)); then
      x=$(ours "BM_$name" 1 $((real_statements + 1)) "$formatted")
      y=$(peer formatted_reals $real_statements "$fmt")
    else
      y=$(peer formatted_reals $real_statements "$fmt")
      x=$(ours "BM_$name" 1 $((real_statements + 1)) "$formatted")
    fi
    add "$name" "$x" "$y"
    x=$(ours "BM_$name" 1 $((real_statements + 1)) "$formatted")
    y=$(floor "BM_$name" 1)
    add "floor$name" "$x" "$y"
  done

  for r in ES25_16:'(ES25.16)':reals.txt:$real_records:1 FourI12:'(4I12)':ints.txt:$integer_records:4; do
    IFS=: read -r name fmt file records per <<<"$r"
    read -r x xs <<<"$(read_bench "BM_Read$name" "$per")"
    read -r f fs <<<"$(read_bench "BM_Floor$name" "$per")"
    read -r y ys <<<"$(read_peer "$file" "$fmt" "$records")"
    same_sum floor "$fs" "$xs"
    same_sum gfortran "$ys" "$xs"
    add "read$name" "$x" "$y"
    add "floor$name" "$x" "$f"
  done

  declare -A t=()
  while read -r name ns; do t[$name]=$ns; done < <(
    "$build/bench/exec_timer" "$rounds" \
      c_empty="$build/bench/startup_empty_c" qal_empty="$build/bench/startup_empty_qal" \
      dso_empty="$build/bench/startup_empty_dso" \
      c_hello="$build/bench/startup_hello_c" qal_hello="$build/bench/startup_hello_qal" \
      gf_hello="$peers/hello")
  add empty "${t[qal_empty]}" "${t[c_empty]}"
  add hello "${t[qal_hello]}" "${t[c_hello]}"
  add gfhello "${t[qal_hello]}" "${t[gf_hello]}"
  add dso "${t[dso_empty]}" "${t[c_empty]}"
  add qaldso "${t[qal_empty]}" "${t[dso_empty]}"
done

row() {  # row KEY LABEL PEER GOAL(ratio at least, or -)
  local om pm rm met
  om=$(median "${o[$1]}"); pm=$(median "${p[$1]}"); rm=$(median "${r[$1]}")
  if [[ $4 == - ]]; then
    met="(information)"
  elif awk -v x="$rm" -v g="$4" 'BEGIN { exit !(x >= g) }'; then
    met=yes
  else
    met=NO
  fi
  printf '| %s | %s | %s | %s | %.2f | %s | %s |\n' "$2" "$3" "$(ns "$om")" "$(ns "$pm")" "$rm" \
    "$( [[ $4 == - ]] && echo - || echo "≥ $4" )" "$met"
}

echo
echo "$(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, $reps repetitions, medians (ns)"
echo
echo '| benchmark | peer | ours ns | peer ns | peer/ours | goal | met |'
echo '| --- | --- | ---: | ---: | ---: | --- | --- |'
row ten 'WRITE(10,*) of 10 scalar integers, per item' 'gfortran -O2' 6
row items 'WRITE(10,*) (A(I),I=1,1000), per item' 'gfortran -O2 (one array transfer)' 6
row stmt 'WRITE(10,*) I, per statement' 'gfortran -O2' 4
row four "WRITE(10,'(4I12)') of 4 scalar integers, per item" 'gfortran -O2' 8
row ES25_16E3 "WRITE(10,'(ES25.16E3)') of a double, per value" 'gfortran -O2' 7
row F25_10 "WRITE(10,'(F25.10)') of a double, per value" 'gfortran -O2' 7
row G25_16 "WRITE(10,'(G25.16)') of a double, per value" 'gfortran -O2' 7
row E15_7 "WRITE(10,'(E15.7)') of a double, per value" 'gfortran -O2' 7
row ListReal 'WRITE(10,*) of a double, per value' 'gfortran -O2' 6
row flooritems 'WRITE(10,*) (A(I),I=1,1000), per item' 'C++ to_chars (floor)' 0.77
row floorstmt 'WRITE(10,*) I, per statement' 'C++ to_chars (floor)' 0.5
row floorten 'WRITE(10,*) of 10 scalar integers, per item' 'C++ to_chars (floor)' 0.77
row floorfour "WRITE(10,'(4I12)') of 4 scalar integers, per item" 'C++ to_chars (floor)' 0.77
row floorES25_16E3 "WRITE(10,'(ES25.16E3)') of a double, per value" 'C++ to_chars (floor)' 0.77
row floorF25_10 "WRITE(10,'(F25.10)') of a double, per value" 'C++ to_chars (floor)' 0.77
row floorG25_16 "WRITE(10,'(G25.16)') of a double, per value" 'C++ to_chars (floor)' 0.77
row floorE15_7 "WRITE(10,'(E15.7)') of a double, per value" 'C++ to_chars (floor)' 0.77
row floorListReal 'WRITE(10,*) of a double, per value' 'C++ to_chars (floor)' 0.77
row readES25_16 "READ(10,'(ES25.16)') of a double, per value" 'gfortran -O2' 8
row floorES25_16 "READ(10,'(ES25.16)') of a double, per value" 'C++ reader, from_chars (floor)' 0.77
row readFourI12 "READ(10,'(4I12)') of 4 integers, per value" 'gfortran -O2' 8
row floorFourI12 "READ(10,'(4I12)') of 4 integers, per value" 'C++ reader, from_chars (floor)' 0.77
row empty 'start-up: empty main linked with libqal, per exec' 'plain C, empty main' 0.91
row hello 'start-up: PRINT * hello via libqal, per exec' 'plain C, fputs hello' 0.91
row gfhello 'start-up: PRINT * hello via libqal, per exec' 'gfortran hello' -
row dso 'start-up control: empty main linked with an empty .so (not ours), per exec' 'plain C, empty main' -
row qaldso 'start-up: empty main linked with libqal, per exec' 'empty main linked with an empty .so' -
