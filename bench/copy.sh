#!/usr/bin/env bash
# Copies one generated data template with the copy engine, cp -a
# --reflink=auto and rsync -aHAX onto fresh targets on an XFS (reflink) loop
# image, several runs each, and prints wall time, items per second and peak
# memory of each. Needs root and a build (scripts/build).
#
#   bench/copy.sh [ITEMS] [LARGE_BYTES] [RUNS]
#   defaults: 100000 items, 1 GiB in large files, 3 runs
set -euo pipefail
items=${1:-100000}
large=${2:-$((1 << 30))}
runs=${3:-3}
top=$(cd "$(dirname "$0")/.." && pwd)
varnel="$top/build/tools/varnel/varnel"
[ -x "$varnel" ] || { echo "bench/copy.sh: build first (scripts/build)" >&2; exit 2; }

work=$(mktemp -d /tmp/varnel-bench-copy.XXXXXX)
cleanup() { umount "$work/mnt" 2>/dev/null || true; rm -rf "$work"; }
trap cleanup EXIT
truncate -s 24G "$work/image"
mkfs.xfs -q -m reflink=1 "$work/image"
mkdir "$work/mnt"
mount -o loop "$work/image" "$work/mnt"
system="$work/mnt/system"
template="$system/System/Library/Templates/Data"
"$top/scripts/make-sample-system" "$system" --items "$items" --large-bytes "$large" --varnel "$varnel"
count=$(find "$template" | wc -l)
size=$(du -sb --apparent-size "$template" | cut -f1)
echo "template: $count items, $((size / 1000000)) MB, on XFS (reflink)"
# Warm the cache for every contender alike.
find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true

measure() {  # name, command...
  local name=$1; shift
  for run in $(seq 1 "$runs"); do
    rm -rf "$work/mnt/target"
    mkdir "$work/mnt/target"
    sync
    /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/stderr" || {
      echo "$name failed:" >&2; cat "$work/stderr" >&2; exit 1; }
    read -r seconds kilobytes <"$work/time"
    printf '%-22s run %d: %7.2f s  %9.0f items/s  peak RSS %6d KiB\n' "$name" "$run" "$seconds" \
      "$(echo "$count / $seconds" | bc -l)" "$kilobytes"
  done
}

measure "varnel template copy" "$varnel" template copy "$system" "$work/mnt/target"
measure "cp -a --reflink=auto" cp -a --reflink=auto "$template/." "$work/mnt/target/"
measure "rsync -aHAX" rsync -aHAX "$template/" "$work/mnt/target/"
