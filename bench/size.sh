#!/usr/bin/env bash
# Compares `varnel size` with du on a generated tree of 200,000 files, warm
# cache, on three loop-mounted images:
#   ext4            plain files (nothing can be shared)
#   XFS (reflink)   with hard links and clones
#   btrfs           with hard links and clones; also `btrfs filesystem du -s`
# For each command: the median wall and processor time of RUNS runs (after a
# warm-up run; the commands take turns), its peak memory, and what it reports.
# Targets: within 1.2 times du -s on ext4, within 2 times on XFS while
# counting clones once, which du does not.
#
#   bench/size.sh [FILES] [RUNS]     as root; builds build/ first if needed
set -euo pipefail
cd "$(dirname "$0")/.."
files="${1:-200000}"
runs="${2:-5}"
[ "$(id -u)" -eq 0 ] || { echo "size.sh: needs root to mount loop images" >&2; exit 1; }
[ -x build/tools/varnel/varnel ] || scripts/build
varnel="$PWD/build/tools/varnel/varnel"

work=$(mktemp -d /var/tmp/varnel-bench-size.XXXXXX)
cleanup() {
  for mnt in "$work"/*/mnt; do mountpoint -q "$mnt" && umount "$mnt"; done
  rm -rf "$work"
}
trap cleanup EXIT

# make_image NAME MKFS... : a 3 GB image mounted at $work/NAME/mnt
make_image() {
  local name="$1"; shift
  mkdir -p "$work/$name/mnt"
  truncate -s 3G "$work/$name/image"
  "$@" "$work/$name/image" >/dev/null
  mount -o loop "$work/$name/image" "$work/$name/mnt"
}

# run_once NAME COMMAND : runs the command once, appending its wall time and
# processor time (user + system) in ms and its peak resident memory in KB to
# $work/NAME.runs, and keeping its output's last line in $work/NAME.out.
run_once() {
  local name="$1" command="$2" start end rss user sys
  start=$(date +%s%N)
  /usr/bin/time -f "%M %U %S" -o "$work/time" $command >"$work/out" 2>/dev/null
  end=$(date +%s%N)
  read -r rss user sys <"$work/time"
  awk -v w=$(( (end - start) / 1000000 )) -v u="$user" -v s="$sys" -v m="$rss" \
    'BEGIN { printf "%d %d %d\n", w, (u + s) * 1000, m }' >>"$work/$name.runs"
  tail -n 1 "$work/out" | sed "s|$work/||" >"$work/$name.out"
}

# median FILE COLUMN
median() { sort -n -k"$2" "$1" | awk -v c="$2" -v n="$runs" 'NR == int((n + 1) / 2) { print $c }'; }

# bench IMAGE LABEL=COMMAND... : one warm-up run of each command, then RUNS
# rounds running each command once in turn (so that load from other work on
# the machine falls on all of them alike); prints medians and the ratios of
# the first command to the second.
bench() {
  local image="$1"; shift
  echo "$image: $(cat "$work/$image/made")"
  local i=0 entry
  for entry in "$@"; do
    rm -f "$work/c$i.runs"; ${entry#*=} >/dev/null 2>&1; i=$((i + 1))
  done
  for _ in $(seq "$runs"); do
    i=0
    for entry in "$@"; do run_once "c$i" "${entry#*=}"; i=$((i + 1)); done
  done
  i=0
  for entry in "$@"; do
    printf '  %-26s %6d ms wall %6d ms cpu %7d KB  %s\n' "${entry%%=*}" \
      "$(median "$work/c$i.runs" 1)" "$(median "$work/c$i.runs" 2)" \
      "$(sort -n -k3 "$work/c$i.runs" | tail -n 1 | cut -d' ' -f3)" "$(cat "$work/c$i.out")"
    i=$((i + 1))
  done
  awk -v a="$(median "$work/c0.runs" 1)" -v b="$(median "$work/c1.runs" 1)" \
      -v c="$(median "$work/c0.runs" 2)" -v d="$(median "$work/c1.runs" 2)" \
      'BEGIN { printf "  varnel size / du -s: %.2f wall, %.2f cpu\n", a / b, c / (d > 0 ? d : 1) }'
}

make_image ext4 mkfs.ext4 -q -F -N 400000
make_image xfs mkfs.xfs -q -f -m reflink=1
make_image btrfs mkfs.btrfs -q -f
python3 bench/size_tree.py "$work/ext4/mnt/tree" "$files" >"$work/ext4/made"
python3 bench/size_tree.py "$work/xfs/mnt/tree" "$files" --links 10 --clones 10 >"$work/xfs/made"
python3 bench/size_tree.py "$work/btrfs/mnt/tree" "$files" --links 10 --clones 10 >"$work/btrfs/made"
sync

echo "median of $runs warm runs (wall, user + system), peak resident memory, last line of output"
for image in ext4 xfs btrfs; do
  mnt="$work/$image/mnt"
  extra=()
  [ "$image" = btrfs ] && extra=("btrfs filesystem du -s=btrfs filesystem du -s --raw $mnt")
  bench "$image" "varnel size=$varnel size $mnt" "du -s=du -s --block-size=1 $mnt" \
    "du -s --apparent-size=du -s --apparent-size --block-size=1 $mnt" "${extra[@]}"
done
