#!/usr/bin/env bash
# Relaying a program's lines into the systemd journal: `varnel run` against
# systemd-cat on the same program (cat of LINES lines of 80 bytes). Each run
# is timed from its start until its last line can be read back from the
# journal, so the journal's own ingestion counts for both. Needs a running
# journald (it refuses otherwise) and root for reading the journal. Journald's
# rate limit must be off for the figures to mean anything.
#   bench/relay-journal.sh [LINES] [RUNS]     (run from the top of the tree)
set -euo pipefail
lines=${1:-125000}
runs=${2:-3}
varnel=${VARNEL:-build/tools/varnel/varnel}
[ -S /run/systemd/journal/socket ] || { echo "relay-journal: no journal is running" >&2; exit 1; }

work=$(mktemp -d /tmp/varnel-relay-journal.XXXXXX)
trap 'rm -rf "$work"' EXIT
cp /bin/cat "$work/relaycat"

# Waits until a line ending in `marker` is among the journal's last entries.
wait_for() {
  until journalctl -q -n 20 -o cat --no-pager | grep -q -- "$1\$"; do sleep 0.05; done
}

time_one() {  # label command...
  local label=$1 marker
  shift
  marker="end-$label-$RANDOM$RANDOM"
  { head -c $((lines * 80 - 80)) /dev/zero | tr '\0' x | fold -w 79; echo "$marker"; } > "$work/lines"
  local start end
  start=$(date +%s.%N)
  "$@" "$work/lines"
  wait_for "$marker"
  end=$(date +%s.%N)
  echo "$end - $start" | bc
}

for run in $(seq "$runs"); do
  v=$(time_one varnel sh -c "'$varnel' run -- '$work/relaycat' \"\$0\" 2>/dev/null")
  s=$(time_one systemd-cat systemd-cat -t relaycat "$work/relaycat")
  printf 'run %d: varnel run %.2f s (%.0f lines/s), systemd-cat %.2f s (%.0f lines/s)\n' \
    "$run" "$v" "$(echo "$lines / $v" | bc -l)" "$s" "$(echo "$lines / $s" | bc -l)"
done
