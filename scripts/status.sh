#!/bin/bash
# Prints the README's status table: for each family of exported names, how
# many the library exports of those the interface list names.
#   scripts/status.sh [interface.tsv] [libqal.so.1]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
list=${1:-$here/../shared/interface.tsv}
library=${2:-$here/build/src/libqal.so.1}
nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $3); print $3 }' | sort -u >/tmp/qal-exported.$$
awk -F'\t' -v exported=/tmp/qal-exported.$$ '
  BEGIN { while ((getline name < exported) > 0) have[name] = 1 }
  NR > 1 { total[$2]++; if ($1 in have) done[$2]++; all++; if ($1 in have) all_done++ }
  END {
    for (f in total) printf "| %s | %d | %d |\n", f, done[f], total[f]
    printf "~| **all** | **%d** | **%d** |\n", all_done, all
  }' "$list" | sort | sed 's/^~//' | { echo "| family | exported | listed |"; echo "| --- | ---: | ---: |"; cat; }
rm -f /tmp/qal-exported.$$
