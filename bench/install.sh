#!/usr/bin/env bash
# The whole installation of a generated template (varnel install: copy into
# the temporary folder, shove, attribute forcing, receipts) against the copy
# engine alone and against cp -a --reflink=auto, on an XFS (reflink) loop
# image, in one run. Needs root and a build (scripts/build).
#
#   bench/install.sh [ITEMS] [RUNS]     defaults: 100000 items, 3 runs
set -euo pipefail
items=${1:-100000}
runs=${2:-3}
top=$(cd "$(dirname "$0")/.." && pwd)
varnel="$top/build/tools/varnel/varnel"
[ -x "$varnel" ] || { echo "bench/install.sh: build first (scripts/build)" >&2; exit 2; }

work=$(mktemp -d /tmp/varnel-bench-install.XXXXXX)
cleanup() { umount "$work/mnt" 2>/dev/null || true; rm -rf "$work"; }
trap cleanup EXIT
truncate -s 16G "$work/image"
mkfs.xfs -q -m reflink=1 "$work/image"
mkdir "$work/mnt"
mount -o loop "$work/image" "$work/mnt"
system="$work/mnt/system"
template="$system/System/Library/Templates/Data"
"$top/scripts/make-sample-system" "$system" --items "$items" --varnel "$varnel"
count=$(find "$template" | wc -l)
echo "template: $count items on XFS (reflink)"
find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true

measure() {  # name, command...
  local name=$1; shift
  for run in $(seq 1 "$runs"); do
    rm -rf "$work/mnt/target"
    mkdir -p "$work/mnt/target/Users/someone"
    echo "a user's file" >"$work/mnt/target/Users/someone/file"
    sync
    /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/stderr" || {
      echo "$name failed:" >&2; cat "$work/stderr" >&2; exit 1; }
    read -r seconds kilobytes <"$work/time"
    printf '%-22s run %d: %7.2f s  %9.0f items/s  peak RSS %6d KiB\n' "$name" "$run" "$seconds" \
      "$(echo "$count / $seconds" | bc -l)" "$kilobytes"
  done
}

measure "varnel install" "$varnel" install --quiet --system "$system" --data "$work/mnt/target"
measure "varnel template copy" "$varnel" template copy "$system" "$work/mnt/target"
measure "cp -a --reflink=auto" cp -a --reflink=auto "$template/." "$work/mnt/target/"
