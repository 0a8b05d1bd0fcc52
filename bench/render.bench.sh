#!/usr/bin/env bash
# Hex + Text rendering of the whole 1,000,000-packet capture at Datalink level: bench_render
# beside `tcpdump -nn -XX` on the same file, both writing to /dev/null.
# Usage: bench/render.bench.sh BUILD_DIR [CAPTURE]
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
capture=${2:-$(bench_capture "$build")}

packets=$("$build/bench/bench_render" "$capture" /dev/null | awk '{ print $2 }')
read -r wall cpu < <(seconds_of "$build/bench/bench_render" "$capture" /dev/null)
printf '  vormelt render hex+text datalink: %s packets, wall %.3f s  cpu %.3f s\n' "$packets" "$wall" "$cpu"
compare_peer "$wall" "$cpu" tcpdump -nn -XX -r "$capture"
