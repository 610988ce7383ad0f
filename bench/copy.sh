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
source "$(dirname "$0")/common.sh"

bench_mount_xfs 24G
system="$work/mnt/system"
template="$system/System/Library/Templates/Data"
"$top/scripts/make-sample-system" "$system" --items "$items" --large-bytes "$large" --varnel "$varnel"
count=$(find "$template" | wc -l)
size=$(du -sb --apparent-size "$template" | cut -f1)
echo "template: $count items, $((size / 1000000)) MB, on XFS (reflink)"
# Warm the cache for every contender alike.
find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true

bench_measure "varnel template copy" "$varnel" template copy "$system" "$work/mnt/target"
bench_measure "cp -a --reflink=auto" cp -a --reflink=auto "$template/." "$work/mnt/target/"
bench_measure "rsync -aHAX" rsync -aHAX "$template/" "$work/mnt/target/"
