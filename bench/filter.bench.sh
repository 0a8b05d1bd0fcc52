#!/usr/bin/env bash
# Packet filter throughput (ten address ranges, ten must-contain texts, case folded) on a
# 1,000,000-packet capture, beside tcpdump filtering the same file with one BPF net test in
# the same run. Usage: bench/filter.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
capture=${VORMELT_BENCH_CAPTURE:-/tmp/vormelt-bench-1m.pcap}

if [ ! -s "$capture" ]; then
  echo "generating $capture"
  "$build/bench/bench_gencap" "$capture.part" 1000000
  mv "$capture.part" "$capture"
fi

seconds_of() {  # prints the wall seconds the command took
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s.%N)
  awk -v a="$start" -v b="$end" 'BEGIN { printf "%.3f", b - a }'
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

ours=$("$build/bench/bench_filter" "$capture")
echo "$ours" | grep -v '^read_checksum' | sed 's/^/  vormelt /'
vormelt_s=$(echo "$ours" | awk '$1 == "seconds" { print $2 }')

if command -v tcpdump >/dev/null; then
  tcpdump_s=$(seconds_of tcpdump -r "$capture" -w /dev/null 'net 10.0.0.0/8')
  printf "  tcpdump -r FILE -w /dev/null 'net 10.0.0.0/8': %.3f s   vormelt/tcpdump time ratio %s\n" \
    "$tcpdump_s" "$(ratio "$vormelt_s" "$tcpdump_s")"
else
  echo "  tcpdump not installed: no comparison"
fi
