#!/usr/bin/env bash
# Automatic logging at 100,000 packets per second: bench_logging feeds a 100,000-packet mixed
# capture three times into the store at that rate with Hex + Text logging every second and prints how far
# the logger fell behind (packets stored, not yet logged) and whether any packet was lost.
# Then one logging pass over the full store beside `tcpdump -nn -xx` writing the same packets
# to a file.
# Usage: bench/logging.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
capture=${VORMELT_LOGGING_CAPTURE:-/tmp/vormelt-bench-logging-100k.pcap}
if [ ! -s "$capture" ]; then
  echo "generating $capture" >&2
  "$build/bench/bench_gencap" "$capture.part" 100000 >&2
  mv "$capture.part" "$capture"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat "$capture" >/dev/null  # both read it from the page cache

out=$("$build/bench/bench_logging" "$capture" "$work")
printf '  vormelt logging hex+text at 100,000 packets/s, every second: %s packets (%s/s achieved), max behind %s, behind at end %s, drained in %s s, lost %s, %s bytes\n' \
  "$(field packets "$out")" "$(field rate_achieved "$out")" "$(field max_behind "$out")" \
  "$(field behind_at_end "$out")" "$(field drain_seconds "$out")" "$(field lost "$out")" \
  "$(field log_bytes "$out")"
wall=$(field pass_wall "$out")
cpu=$(field pass_cpu "$out")
printf '  vormelt one logging pass over the full store: wall %.3f s  cpu %.3f s\n' "$wall" "$cpu"
compare_peer "$wall" "$cpu" sh -c "tcpdump -nn -xx -r '$capture' > '$work/tcpdump.txt' 2>/dev/null"
