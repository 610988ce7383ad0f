#!/usr/bin/env bash
# The whole installation of a generated template (varnel install: copy into
# the temporary folder, shove, attribute forcing, receipts) against the copy
# engine alone and against cp -a --reflink=auto, on an XFS (reflink) loop
# image, in one run. Each target already holds a user's file. Needs root and
# a build (scripts/build).
#
#   bench/install.sh [ITEMS] [RUNS]     defaults: 100000 items, 3 runs
set -euo pipefail
items=${1:-100000}
runs=${2:-3}
source "$(dirname "$0")/common.sh"

bench_mount_xfs 16G
system="$work/mnt/system"
template="$system/System/Library/Templates/Data"
"$top/scripts/make-sample-system" "$system" --items "$items" --varnel "$varnel"
count=$(find "$template" | wc -l)
echo "template: $count items on XFS (reflink)"
find "$template" -type f -exec cat {} + >/dev/null 2>&1 || true

bench_prepare_target() {
  mkdir -p "$work/mnt/target/Users/someone"
  echo "a user's file" >"$work/mnt/target/Users/someone/file"
}

bench_measure "varnel install" "$varnel" install --quiet --system "$system" --data "$work/mnt/target"
bench_measure "varnel template copy" "$varnel" template copy "$system" "$work/mnt/target"
bench_measure "cp -a --reflink=auto" cp -a --reflink=auto "$template/." "$work/mnt/target/"
