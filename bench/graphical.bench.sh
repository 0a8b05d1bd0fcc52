#!/usr/bin/env bash
# Graphical Packets Mode: the frame time at 1,000 labels and 20,000 packets a second, drawn
# offscreen into a QImage, for Line Mode, curved lines and Pixel Mode, beside the 16.7 ms a
# 60 Hz frame may take. No peer tool draws this picture, so the reference is the budget:
# the ratio printed is budget / frame time (above 1 keeps 60 frames a second). Wall time on a
# shared machine counts the neighbours too; the drawing thread's CPU time is the steadier
# figure, and the ratio is given for both.
# Usage: bench/graphical.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
program="$build/bench/bench_graphical"
if [ ! -x "$program" ]; then
  echo "  $program not built (needs the Qt build): skipped"
  exit 0
fi
out=$(QT_QPA_PLATFORM=offscreen "$program" "${VORMELT_BENCH_FRAMES:-600}")
budget=$(field budget_ms "$out")
printf '  %s labels, %s packets/s, %s frames, 1920 x 1080\n' "$(field labels "$out")" \
  "$(field packets_per_second "$out")" "$(field frames "$out")"
for mode in line curve pixel; do
  mean=$(field "${mode}_mean_ms" "$out")
  p99=$(field "${mode}_p99_ms" "$out")
  cpu=$(field "${mode}_cpu_ms" "$out")
  printf '  %-5s frame wall mean %6.2f ms  p99 %6.2f ms  cpu mean %6.2f ms   budget %s ms\n' \
    "$mode" "$mean" "$p99" "$cpu" "$budget"
  printf '        ratio budget/frame: wall mean %s  wall p99 %s  cpu %s   packets not drawn %s\n' \
    "$(ratio "$budget" "$mean")" "$(ratio "$budget" "$p99")" "$(ratio "$budget" "$cpu")" \
    "$(field "${mode}_not_drawn" "$out")"
done
take=$(field take_ns_per_packet "$out")
printf '  receive thread: %s ns per packet gathered (%s packets/s per core)\n' "$take" \
  "$(awk -v t="$take" 'BEGIN { printf "%.0f", 1e9 / t }')"
