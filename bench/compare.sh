#!/usr/bin/env bash
# Our figures beside the tools people would use instead, in one run on this
# machine, warm cache, loop images made here and removed at the end. Builds
# nothing: run scripts/build first. Needs root.
#
#   varnel install, ITEMS items, XFS reflink        against cp -a --reflink=auto
#   varnel size, 2 x SIZE_FILES files on XFS, every
#     file sharing its extents with a clone          against du -s
#   varnel size, SIZE_FILES files on ext4            against du -s
#   BOM walk and random lookups (bench_bom)          against their targets
#   peak memory of the copy at ITEMS and 2 x ITEMS items
#
# Each pair is timed RUNS times, ours and the anchor taking turns so that any
# drift of the machine falls on both; the median is printed with the ratio.
#
#   bench/compare.sh [RUNS] [ITEMS] [SIZE_FILES]   defaults: 3 100000 150000
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-3}
items=${2:-100000}
size_files=${3:-150000}
varnel="${VARNEL:-$PWD/build/tools/varnel/varnel}"
bench_bom="$PWD/build/bench/bench_bom"
[ "$(id -u)" -eq 0 ] || { echo "compare.sh: needs root to mount loop images" >&2; exit 2; }
[ -x "$varnel" ] && [ -x "$bench_bom" ] || { echo "compare.sh: build first (scripts/build)" >&2; exit 2; }

work=$(mktemp -d /var/tmp/varnel-compare.XXXXXX)
cleanup() {
  for mnt in "$work"/*/mnt; do mountpoint -q "$mnt" && umount "$mnt"; done
  rm -rf "$work"
}
trap cleanup EXIT

# image NAME SIZE MKFS... : mounts a fresh image at $work/NAME/mnt
image() {
  local name=$1 size=$2; shift 2
  mkdir -p "$work/$name/mnt"
  truncate -s "$size" "$work/$name/image"
  "$@" "$work/$name/image" >/dev/null
  mount -o loop "$work/$name/image" "$work/$name/mnt"
}

# timed FILE COMMAND... : appends "seconds peak-KiB" of one run to FILE
timed() {
  local file=$1; shift
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/stderr" || {
    echo "compare.sh: failed: $*" >&2; cat "$work/stderr" >&2; exit 1; }
  cat "$work/time" >>"$file"
}

median() { sort -n "$1" | awk -v n="$runs" 'NR == int((n + 1) / 2) { print $1 }'; }

# row LABEL TARGET PREPARE OURS ANCHOR : PREPARE (a function name, or :) runs
# before every timed command; prints ours, the anchor and their ratio.
row() {
  local label=$1 goal=$2 prepare=$3 ours=$4 anchor=$5
  rm -f "$work/ours" "$work/anchor"
  for _ in $(seq "$runs"); do
    $prepare; sync; timed "$work/ours" $ours
    $prepare; sync; timed "$work/anchor" $anchor
  done
  local a b
  a=$(median "$work/ours"); b=$(median "$work/anchor")
  printf '%-46s %7.2f s  %7.2f s  %5.2fx  (target %s)\n' "$label" "$a" "$b" "$(echo "$a / $b" | bc -l)" "$goal"
}

printf '%-46s %9s  %9s  %6s\n' "work (median of $runs)" ours anchor ratio

# Installation against cp, each onto a fresh target holding a user's file.
image xfs 24G mkfs.xfs -q -f -m reflink=1
system="$work/xfs/mnt/system"
target="$work/xfs/mnt/target"
scripts/make-sample-system "$system" --items "$items" --varnel "$varnel" >/dev/null
template="$system/System/Library/Templates/Data"
find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true
fresh_target() { rm -rf "$target"; mkdir -p "$target/Users/someone"; echo "a user's file" >"$target/Users/someone/file"; }
row "varnel install, $items items, XFS reflink" "<= 0.6x cp" fresh_target \
  "$varnel install --quiet --system $system --data $target" "cp -a --reflink=auto $template/. $target/"

# Sizing a tree whose every file shares its extents with a clone.
image cloned 8G mkfs.xfs -q -f -m reflink=1
python3 bench/size_tree.py "$work/cloned/mnt/a" "$size_files" >/dev/null
cp -a --reflink=always "$work/cloned/mnt/a" "$work/cloned/mnt/b"
du -s "$work/cloned/mnt" >/dev/null
row "varnel size, $((2 * size_files)) files, all cloned, XFS" "<= 1.5x du" : \
  "$varnel size $work/cloned/mnt" "du -s $work/cloned/mnt"

image ext4 4G mkfs.ext4 -q -F -N 400000
python3 bench/size_tree.py "$work/ext4/mnt/tree" "$size_files" >/dev/null
du -s "$work/ext4/mnt" >/dev/null
row "varnel size, $size_files files, ext4" "<= 0.8x du" : "$varnel size $work/ext4/mnt" "du -s $work/ext4/mnt"

# The BOM store, from its own benchmark.
"$bench_bom" --benchmark_filter='WalkOpenedStore|RandomLookups' --benchmark_format=csv 2>/dev/null |
  awk -F, '/WalkOpenedStore/ { printf "%-46s %7.1f ms  (target < 100 ms)\n", "BOM walk, 99,051 entries", $3 }
           /RandomLookups/   { printf "%-46s %7.0f /s  (target >= 400,000 /s)\n", "BOM random lookups", $7 }'

# Peak memory of the copy at ITEMS and twice as many.
declare -A peak
for n in "$items" $((2 * items)); do
  sys="$work/xfs/mnt/mem-$n"
  scripts/make-sample-system "$sys" --items "$n" --varnel "$varnel" >/dev/null
  rm -f "$work/mem"
  rm -rf "$target"; mkdir "$target"
  timed "$work/mem" "$varnel" template copy "$sys" "$target"
  peak[$n]=$(cut -d' ' -f2 "$work/mem")
  rm -rf "$sys" "$target"
done
printf '%-46s %7d KiB at %d items, %d KiB at %d: %.2fx  (target <= 1.10x)\n' "peak memory of the copy" \
  "${peak[$items]}" "$items" "${peak[$((2 * items))]}" $((2 * items)) \
  "$(echo "${peak[$((2 * items))]} / ${peak[$items]}" | bc -l)"
