#!/usr/bin/env bash
# Packet filter throughput (ten address ranges, ten must-contain texts, case folded) on the
# 1,000,000-packet capture, beside tcpdump filtering the same file with one BPF net test in the
# same run. Usage: bench/filter.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
capture=$(bench_capture "$build")

ours=$("$build/bench/bench_filter" "$capture")
echo "$ours" | grep -v '^read_checksum' | sed 's/^/  vormelt /'
compare_peer "$(field seconds "$ours")" "$(field cpu_seconds "$ours")" \
  tcpdump -r "$capture" -w /dev/null 'net 10.0.0.0/8'
