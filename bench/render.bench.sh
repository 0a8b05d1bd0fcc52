#!/usr/bin/env bash
# Hex + Text rendering of a whole capture at Datalink level: bench_render beside
# `tcpdump -nn -XX` on the same file, both writing to /dev/null, wall time of each whole run.
# Usage: bench/render.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
ours="$build/bench/bench_render"
[ -x "$ours" ] || { echo "render: $ours is not built" >&2; exit 1; }

capture=${2:-/tmp/vormelt-bench-1M.pcap}  # a second argument names another capture
if [ ! -s "$capture" ]; then
  if [ -x "$build/bench/bench_gencap" ]; then
    "$build/bench/bench_gencap" "$capture" >/dev/null
  else
    # No shared bench capture yet: make a smaller one of our own.
    capture=/tmp/vormelt-render-bench.pcap
    [ -s "$capture" ] || "$ours" --gen "$capture" 200000
  fi
fi

# Runs "$@" and prints "WALL CPU" seconds. The build machine is shared, so CPU time
# (user + system) is the steadier figure and the ratio is taken from it.
seconds() {
  local TIMEFORMAT='%R %U %S' t
  t=$( { time "$@" >/dev/null 2>&1; } 2>&1 )
  awk '{ printf "%.3f %.3f", $1, $2 + $3 }' <<<"$t"
}

packets=$("$ours" "$capture" /dev/null | awk '{ print $2 }')
read -r ours_wall ours_cpu <<<"$(seconds "$ours" "$capture" /dev/null)"
if ! command -v tcpdump >/dev/null; then
  echo "render: $packets packets, vormelt ${ours_cpu} s CPU; tcpdump missing, no ratio"
  exit 0
fi
read -r peer_wall peer_cpu <<<"$(seconds tcpdump -nn -XX -r "$capture")"
awk -v n="$packets" -v a="$ours_cpu" -v b="$peer_cpu" -v aw="$ours_wall" -v bw="$peer_wall" 'BEGIN {
  printf "render hex+text datalink, %d packets: vormelt %.3f s CPU (%.3f s wall), tcpdump -nn -XX %.3f s CPU (%.3f s wall), tcpdump/vormelt %.1fx\n",
         n, a, aw, b, bw, (a > 0 ? b / a : 0) }'
