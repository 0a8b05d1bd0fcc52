#!/usr/bin/env bash
# Ingest of a 1,000,000-packet mixed capture into the packet store, beside tcpdump and tshark
# reading the same file in the same run. Usage: bench/ingest.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
capture=${VORMELT_BENCH_CAPTURE:-/tmp/vormelt-bench-1m.pcap}

if [ ! -s "$capture" ]; then
  echo "generating $capture"
  "$build/bench/bench_gencap" "$capture.part" 1000000
  mv "$capture.part" "$capture"
fi

# Prints "WALL CPU" seconds of the command (CPU = user + system, immune to a busy machine).
seconds_of() {
  local TIMEFORMAT='%R %U %S' times
  times=$( { time "$@" >/dev/null 2>&1; } 2>&1 )
  awk '{ printf "%.3f %.3f\n", $1, $2 + $3 }' <<<"$times"
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

ours=$("$build/bench/bench_ingest" "$capture")
echo "$ours" | sed 's/^/  vormelt /'
vormelt_wall=$(echo "$ours" | awk '$1 == "seconds" { print $2 }')
vormelt_cpu=$(echo "$ours" | awk '$1 == "cpu_seconds" { print $2 }')

compare() {  # NAME COMMAND...: the peer's figures beside ours
  local name=$1
  shift
  read -r wall cpu < <(seconds_of "$@")
  printf '  %-32s wall %7.3f s  cpu %7.3f s   vormelt/%s ratio: wall %s  cpu %s\n' \
    "$*" "$wall" "$cpu" "$name" "$(ratio "$vormelt_wall" "$wall")" "$(ratio "$vormelt_cpu" "$cpu")"
}

if command -v tcpdump >/dev/null; then
  compare tcpdump tcpdump -r "$capture" -w /dev/null
else
  echo "  tcpdump not installed: no comparison"
fi
if command -v tshark >/dev/null; then
  compare tshark tshark -r "$capture"
else
  echo "  tshark not installed: no comparison"
fi
