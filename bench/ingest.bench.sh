#!/usr/bin/env bash
# Ingest: `vormelt-cli packets --read` of a 100,000-packet, ~126 MB capture (rows printed to
# /dev/null) beside `tcpdump -nn -r` of the same file, run in pairs several times. Prints each
# pair's ratio (tcpdump / vormelt, wall and CPU), their median and worst, and vormelt's peak
# resident memory against the file size, with the kernel's compaction and huge-page fault
# counts over our runs (where system time goes when memory is faulted in).
# Usage: bench/ingest.bench.sh BUILD_DIR   (INGEST_RUNS overrides the 7 runs)
set -euo pipefail
build=${1:-build}
runs=${INGEST_RUNS:-7}
source "$(dirname "$0")/lib.sh"
capture=${VORMELT_INGEST_CAPTURE:-/tmp/vormelt-bench-ingest-100k.pcap}
if [ ! -s "$capture" ]; then
  echo "generating $capture" >&2
  "$build/bench/bench_ingest" "$capture.part" 100000
  mv "$capture.part" "$capture"
fi
cli="$build/src/main/vormelt-cli"
if ! command -v tcpdump >/dev/null; then
  echo "  tcpdump not installed: no comparison"
  exit 0
fi
cat "$capture" >/dev/null  # both read it from the page cache
size=$(stat -c %s "$capture")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

vmstat_of() { awk '$1 == "compact_stall" || $1 == "thp_fault_alloc" { printf "%s ", $2 } END { print "" }' /proc/vmstat; }

# measure COMMAND...: prints "WALL CPU MAXRSS_KB" of one run, output to /dev/null.
measure() {
  /usr/bin/time -f '%e %U %S %M' -o "$work/time" "$@" >/dev/null 2>"$work/err"
  awk '{ printf "%.3f %.3f %d\n", $1, $2 + $3, $4 }' "$work/time"
}

read -r stall_before thp_before < <(vmstat_of)
: >"$work/pairs"
for run in $(seq "$runs"); do
  read -r ours_wall ours_cpu ours_rss < <(measure "$cli" packets --read "$capture")
  read -r peer_wall peer_cpu _ < <(measure tcpdump -nn -r "$capture")
  printf '  run %d: vormelt wall %.3f s cpu %.3f s rss %d MB | tcpdump wall %.3f s cpu %.3f s | ratio wall %s cpu %s\n' \
    "$run" "$ours_wall" "$ours_cpu" $((ours_rss / 1024)) "$peer_wall" "$peer_cpu" \
    "$(ratio "$peer_wall" "$ours_wall")" "$(ratio "$peer_cpu" "$ours_cpu")"
  echo "$(ratio "$peer_wall" "$ours_wall") $(ratio "$peer_cpu" "$ours_cpu") $ours_rss" >>"$work/pairs"
done
read -r stall_after thp_after < <(vmstat_of)

summary() {  # COLUMN NAME
  sort -n -k"$1" "$work/pairs" | awk -v c="$1" -v name="$2" '{ v[NR] = $c }
    END { printf "  ratio tcpdump/vormelt %s: median %.2f  worst %.2f\n", name, v[int((NR + 1) / 2)], v[1] }'
}
summary 1 wall
summary 2 cpu
awk -v size="$size" '$3 > peak { peak = $3 } END {
  printf "  vormelt peak resident %.1f MB for a %.1f MB file: %.2fx the file size\n", peak / 1024, size / 1048576, peak * 1024 / size }' "$work/pairs"
echo "  kernel, system-wide, over all runs: compaction stalls $((stall_after - stall_before)), huge-page faults $((thp_after - thp_before))"
