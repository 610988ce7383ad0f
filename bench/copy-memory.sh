#!/usr/bin/env bash
# Whether the copy engine's memory stays flat in the number of template
# items: generates two data templates, of ITEMS and of twice ITEMS items,
# with the same number of hard-link groups (the copy keeps one record per
# hard-linked file, which may grow), copies each with `varnel template copy`
# onto fresh targets on an XFS (reflink) loop image and prints the peak RSS of
# both and their ratio. Needs root and a build (scripts/build).
#
#   bench/copy-memory.sh [ITEMS] [HARD_LINK_GROUPS] [LARGE_BYTES] [RUNS]
#   defaults: 100000 items, 2000 groups, 64 MiB in large files, 2 runs
set -euo pipefail
items=${1:-100000}
groups=${2:-2000}
large=${3:-$((64 << 20))}
runs=${4:-2}
source "$(dirname "$0")/common.sh"

bench_mount_xfs 24G
declare -A peak
for n in "$items" $((2 * items)); do
  system="$work/mnt/system-$n"
  template="$system/System/Library/Templates/Data"
  "$top/scripts/make-sample-system" "$system" --items "$n" --hard-link-groups "$groups" \
    --large-bytes "$large" --varnel "$varnel"
  count=$(find "$template" | wc -l)
  find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true
  bench_measure "copy of $n items" "$varnel" template copy "$system" "$work/mnt/target"
  peak[$n]=$bench_peak_kib
done
printf 'peak RSS: %d KiB at %d items, %d KiB at %d items (%d hard-link groups each): ratio %.3f\n' \
  "${peak[$items]}" "$items" "${peak[$((2 * items))]}" $((2 * items)) "$groups" \
  "$(echo "${peak[$((2 * items))]} / ${peak[$items]}" | bc -l)"
