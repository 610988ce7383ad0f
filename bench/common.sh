# Shared by the benchmark scripts: sourced, not run.
#
# bench_mount_xfs SIZE    makes $work (removed on exit) with an XFS (reflink)
#                         image of SIZE mounted at $work/mnt
# bench_measure NAME CMD  runs CMD $runs times onto a fresh $work/mnt/target
#                         (after bench_prepare_target, when defined) and
#                         prints wall time, items per second ($count) and
#                         peak RSS of each run; bench_peak_kib is the
#                         highest peak RSS of those runs
#
# $VARNEL names another varnel binary (default: build/tools/varnel/varnel),
# for example a copy of an earlier build to compare with.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
varnel="${VARNEL:-$top/build/tools/varnel/varnel}"
[ -x "$varnel" ] || { echo "$(basename "$0"): build first (scripts/build)" >&2; exit 2; }

bench_mount_xfs() {
  work=$(mktemp -d /tmp/varnel-bench.XXXXXX)
  trap 'umount "$work/mnt" 2>/dev/null || true; rm -rf "$work"' EXIT
  truncate -s "$1" "$work/image"
  mkfs.xfs -q -m reflink=1 "$work/image"
  mkdir "$work/mnt"
  mount -o loop "$work/image" "$work/mnt"
}

bench_measure() {
  local name=$1 run seconds kilobytes
  shift
  bench_peak_kib=0
  for run in $(seq 1 "$runs"); do
    rm -rf "$work/mnt/target"
    mkdir "$work/mnt/target"
    if declare -F bench_prepare_target >/dev/null; then bench_prepare_target; fi
    sync
    /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/stderr" || {
      echo "$name failed:" >&2; cat "$work/stderr" >&2; exit 1; }
    read -r seconds kilobytes <"$work/time"
    printf '%-22s run %d: %7.2f s  %9.0f items/s  peak RSS %6d KiB\n' "$name" "$run" "$seconds" \
      "$(echo "$count / $seconds" | bc -l)" "$kilobytes"
    if [ "$kilobytes" -gt "$bench_peak_kib" ]; then bench_peak_kib=$kilobytes; fi
  done
}
