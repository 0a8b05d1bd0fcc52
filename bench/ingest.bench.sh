#!/usr/bin/env bash
# Ingest of a 1,000,000-packet mixed capture into the packet store, beside tcpdump and tshark
# reading the same file in the same run. Usage: bench/ingest.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
capture=$(bench_capture "$build")

ours=$("$build/bench/bench_ingest" "$capture")
echo "$ours" | sed 's/^/  vormelt /'
wall=$(field seconds "$ours")
cpu=$(field cpu_seconds "$ours")
compare_peer "$wall" "$cpu" tcpdump -r "$capture" -w /dev/null
compare_peer "$wall" "$cpu" tshark -r "$capture"
