#!/usr/bin/env bash
# File Mode extraction: vormelt-cli files --read beside tcpflow -e http on the same captures in
# the same run, and beside the floor: the time to read the capture and copy the bodies written.
#   mixed: 100,000 packets of HTTP downloads, HTTPS transfers and DNS at 100 Mbit/s (about
#     115 MB). Aims: peer/vormelt at least 5 (output on tmpfs), peak resident at most 64 MB,
#     and as many bodies as tcpflow.
#   mixed at 1 Gbit/s: the same traffic in about a second, so every stream is still within the
#     ACK timeout when the file ends and the bodies are all held at once: the memory it takes
#     is the HTTP bodies' own (shown, no aim).
#   one stream: one download of 400,000 segments (580 MB). Aim: at most 5 s.
# Figures are those of the fastest of five runs by wall time (the machine is shared), measured to
# the millisecond: the mixed capture takes well under 0.1 s, where GNU time's hundredths would
# move a ratio by a tenth. Peak resident is GNU time's maximum resident set size.
# Usage: bench/files.bench.sh BUILD_DIR
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
source "$(dirname "$0")/lib.sh"
prefix=${VORMELT_BENCH_HTTP_CAPTURE:-/tmp/vormelt-bench-http}
cli="$build/src/main/vormelt-cli"
# Output goes to tmpfs where there is one, so the figures measure the tools and not the disk.
default_scratch=/tmp
[ -d /dev/shm ] && default_scratch=/dev/shm
scratch=$(mktemp -d -p "${VORMELT_BENCH_SCRATCH:-$default_scratch}")
trap 'rm -rf "$scratch"' EXIT

# capture NAME ARGS...: the path of a generated capture, made once.
capture() {
  local path="$prefix-$1.pcap"
  shift
  if [ ! -s "$path" ]; then
    echo "generating $path" >&2
    "$build/bench/bench_genhttp" "$path.part" "$@" >&2
    mv "$path.part" "$path"
  fi
  echo "$path"
}

# measure COMMAND...: prints "WALL CPU PEAK_MB" of the command.
measure() {
  local out="$scratch/time" start end
  start=$(date +%s%N)
  /usr/bin/time -f '%U %S %M' -o "$out" "$@" >/dev/null 2>&1
  end=$(date +%s%N)
  awk -v ns=$((end - start)) '{ printf "%.3f %.3f %.1f\n", ns / 1e9, $1 + $2, $3 / 1024 }' "$out"
}

# best DIR COMMAND...: runs the command five times into a fresh DIR; prints the figures of the
# fastest run.
best() {
  local dir=$1 best_wall= line wall cpu peak
  shift
  for _ in 1 2 3 4 5; do
    rm -rf "$dir"
    mkdir -p "$dir"
    read -r wall cpu peak < <(cd "$dir" && measure "$@")
    if [ -z "$best_wall" ] || awk -v a="$wall" -v b="$best_wall" 'BEGIN { exit !(a < b) }'; then
      best_wall=$wall
      line="$wall $cpu $peak"
    fi
  done
  echo "$line"
}

row() {  # row LABEL WALL CPU PEAK [EXTRA]
  printf '  %-34s wall %7.3f s  cpu %7.3f s  peak %7.1f MB  %s\n' "$1" "$2" "$3" "$4" "${5:-}"
}

run_capture() {  # run_capture LABEL PATH
  local label=$1 path=$2 wall cpu peak ours
  read -r wall cpu peak < <(best "$scratch/vormelt" "$cli" files --read "$path" --out "$scratch/vormelt")
  ours=$(find "$scratch/vormelt" -type f | wc -l)
  echo "$label: $path"
  row "vormelt-cli files --read" "$wall" "$cpu" "$peak" "bodies $ours"
  local fwall fcpu fpeak
  read -r fwall fcpu fpeak < <(best "$scratch/floor" sh -c \
    "cat '$path' >/dev/null && cp -r '$scratch/vormelt' '$scratch/floor/copy'")
  row "floor: read capture, copy bodies" "$fwall" "$fcpu" "$fpeak" \
    "vormelt/floor: wall $(ratio "$wall" "$fwall")"
  if ! command -v tcpflow >/dev/null; then
    echo "  tcpflow not installed: no comparison (scripts/install-deps.sh installs it)"
    return 0
  fi
  local pwall pcpu ppeak peer
  read -r pwall pcpu ppeak < <(best "$scratch/tcpflow" tcpflow -r "$path" -e http -o .)
  peer=$(find "$scratch/tcpflow" -name '*-HTTPBODY-*' | wc -l)
  row "tcpflow -r FILE -e http" "$pwall" "$pcpu" "$ppeak" "bodies $peer"
  echo "  ratio peer/vormelt: wall $(ratio "$pwall" "$wall")  cpu $(ratio "$pcpu" "$cpu")" \
       " peak memory vormelt/peer $(ratio "$peak" "$ppeak")"
}

run_capture "mixed" "$(capture mixed mixed 100000 100)"
run_capture "mixed at 1 Gbit/s" "$(capture mixed-1g mixed 100000 1000)"

one=$(capture one-stream one-stream 400000)
read -r wall cpu peak < <(best "$scratch/vormelt" "$cli" files --read "$one" --out "$scratch/vormelt")
echo "one stream of 400,000 segments: $one"
row "vormelt-cli files --read" "$wall" "$cpu" "$peak" \
  "written $(find "$scratch/vormelt" -type f -printf '%s\n') bytes (aim: at most 5 s)"
rm -rf "$scratch/vormelt"
if command -v tcpflow >/dev/null; then
  read -r pwall pcpu ppeak < <(best "$scratch/tcpflow" tcpflow -r "$one" -e http -o .)
  row "tcpflow -r FILE -e http" "$pwall" "$pcpu" "$ppeak" \
    "ratio peer/vormelt: wall $(ratio "$pwall" "$wall")  cpu $(ratio "$pcpu" "$cpu")"
  rm -rf "$scratch/tcpflow"
fi
