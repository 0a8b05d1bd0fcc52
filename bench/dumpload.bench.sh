#!/usr/bin/env bash
# Loading a 100,000-packet Hex + Text dump file: `vormelt-cli packets --load-dump` writing the
# packets to a pcap file, beside text2pcap converting the same packets from its own hex-dump
# form (tshark -x) into a pcap file. Making both inputs is not timed.
# Usage: bench/dumpload.bench.sh BUILD_DIR [CAPTURE]
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cli="$build/src/main/vormelt-cli"
packets=100000

capture=${2:-}
if [ -z "$capture" ]; then
  capture="$work/bench.pcap"
  "$build/bench/bench_gencap" "$capture" "$packets" >/dev/null
fi
"$cli" packets --read "$capture" --count "$packets" --save "$work/dump.txt" --form hex+text \
  >/dev/null 2>&1

read -r wall cpu < <(seconds_of "$cli" packets --load-dump "$work/dump.txt" --form hex+text \
                       --write "$work/ours.pcap")
loaded=$(tcpdump -r "$work/ours.pcap" -nn 2>/dev/null | wc -l)
printf '  vormelt --load-dump hex+text: %s packets (%s MB dump), wall %.3f s  cpu %.3f s\n' \
  "$loaded" "$(( $(stat -c %s "$work/dump.txt") / 1000000 ))" "$wall" "$cpu"

if command -v text2pcap >/dev/null && command -v tshark >/dev/null; then
  tshark -r "$capture" -c "$packets" -x 2>/dev/null > "$work/peer.txt"
  compare_peer "$wall" "$cpu" text2pcap -q "$work/peer.txt" "$work/peer.pcap"
else
  echo "  text2pcap or tshark not installed: no comparison"
fi
