#!/usr/bin/env bash
# varnel system unchanged (CRC-32 of every file the data template laid down,
# compared with its receipt) against cksum over the same files, warm cache,
# on an XFS (reflink) loop image, in one run. Needs root and a build
# (scripts/build).
#
#   bench/system-unchanged.sh [ITEMS] [RUNS]     defaults: 100000 items, 3 runs
set -euo pipefail
items=${1:-100000}
runs=${2:-3}
source "$(dirname "$0")/common.sh"

bench_mount_xfs 16G
system="$work/mnt/system"
data="$work/mnt/data"
"$top/scripts/make-sample-system" "$system" --items "$items" --varnel "$varnel" >/dev/null
mkdir "$data"
"$varnel" install --quiet --system "$system" --data "$data"
(cd "$data" && find . -path ./Library/Veltra -prune -o -type f -print0) >"$work/files"
count=$(tr -cd '\0' <"$work/files" | wc -c)
echo "target: $count files laid down on XFS (reflink)"
(cd "$data" && xargs -0 cat <"$work/files" >/dev/null)

measure() {
  local name=$1 run seconds kilobytes
  shift
  for run in $(seq 1 "$runs"); do
    /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/stderr" || {
      echo "$name failed:" >&2; cat "$work/stderr" >&2; exit 1; }
    read -r seconds kilobytes <"$work/time"
    printf '%-26s run %d: %6.2f s  %9.0f files/s  peak RSS %6d KiB\n' "$name" "$run" "$seconds" \
      "$(echo "$count / $seconds" | bc -l)" "$kilobytes"
  done
}

measure "varnel system unchanged" "$varnel" system unchanged "$data"
measure "cksum (one process)" sh -c 'cd "$1" && xargs -0 cksum <"$2"' sh "$data" "$work/files"
