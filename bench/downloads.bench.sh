#!/usr/bin/env bash
# Live File Mode under load: twelve 20 MB downloads from a local HTTP server (python3
# http.server on 127.0.0.1), four at a time, captured by `vormelt-cli files --live 127.0.0.1`.
# First at 1 Gbit/s in all (curl --limit-rate), where every body must come out byte-exact and
# nothing may be dropped; then unlimited, beside tcpdump with the same kernel buffer, as
# captured/dropped for both. The capture is stopped once every body is written (at most 20 s
# after the last download). Runs in a network namespace of its own, so only these downloads
# cross its loopback; needs root.
# Usage: bench/downloads.bench.sh BUILD_DIR   (DOWNLOADS_BUFFER_MIB: the buffer, default the
#        program's own; DOWNLOADS_RATES: total rates in bit/s, 0 = unlimited)
set -euo pipefail
source "$(dirname "$0")/lib.sh"
build=${1:-build}
buffer=${DOWNLOADS_BUFFER_MIB:-}
rates=${DOWNLOADS_RATES:-"1000000000 0"}
cli="$build/src/main/vormelt-cli"
ns="vormelt-downloads-$$"
port=8765
count=12
parallel=4
work=$(mktemp -d -p "${VORMELT_BENCH_SCRATCH:-/tmp}")
server=

if ! ip netns add "$ns" 2>/dev/null; then
  echo "  skipped: cannot make a network namespace (needs root)"
  exit 0
fi
cleanup() {
  [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null
  ip netns del "$ns" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
ip -n "$ns" link set lo up

mkdir -p "$work/www"
for i in $(seq 1 $count); do
  head -c $((20 * 1000 * 1000)) /dev/urandom >"$work/www/body$i.bin"
done
(cd "$work/www" && md5sum body*.bin | awk '{ print $1 }' | sort) >"$work/sums"
ip netns exec "$ns" python3 -m http.server "$port" --bind 127.0.0.1 --directory "$work/www" \
  >/dev/null 2>&1 &
server=$!
for _ in $(seq 50); do
  ip netns exec "$ns" curl -s -o /dev/null "http://127.0.0.1:$port/" && break
  sleep 0.1
done

# download RATE: the twelve downloads, `parallel` at a time, sharing RATE bit/s (0: unlimited).
download() {
  local limit=()
  [ "$1" != 0 ] && limit=(--limit-rate $(($1 / 8 / parallel)))
  seq 1 $count | ip netns exec "$ns" xargs -P $parallel -I{} \
    curl -s "${limit[@]}" -o /dev/null "http://127.0.0.1:$port/body{}.bin"
}

# The downloads at `rate`, then until every body is written (a capture that lost segments
# never gets there), at most 20 s: the capture may still be working through its buffer.
download_all() {
  download "$rate"
  for _ in $(seq 100); do
    [ "$(find "$work/out" -type f -size $((20 * 1000 * 1000))c 2>/dev/null | wc -l)" -ge $count ] && break
    sleep 0.2
  done
  sleep 1  # the last acknowledgements
}
# The same for a peer that writes no bodies.
download_only() {
  download "$rate"
  sleep 1
}

buffer_args=()
[ -n "$buffer" ] && buffer_args=(--buffer-mib "$buffer")
tcpdump_kib=$(( ${buffer:-$(awk '/kDefaultCaptureBufferMiB =/ { gsub(";", ""); print $NF }' \
  "$(dirname "$0")/../src/common/settings.hpp")} * 1024 ))
echo "  $count downloads of 20 MB, $parallel at a time; kernel buffer $((tcpdump_kib / 1024)) MiB"
for rate in $rates; do
  rm -rf "$work/out"
  capture_during "$ns" "$work/vormelt.err" download_all \
    "$cli" files --live 127.0.0.1 --out "$work/out" "${buffer_args[@]}"
  exact=$(find "$work/out" -type f -exec md5sum {} + 2>/dev/null | awk '{ print $1 }' | sort |
          comm -12 - "$work/sums" | wc -l)
  read -r ours ours_dropped < <(dropped_counts vormelt "$work/vormelt.err")
  label=$([ "$rate" = 0 ] && echo "unlimited" || echo "$((rate / 1000000)) Mbit/s")
  line=$(printf '  %-14s vormelt: %2d of %d byte-exact, %s packets, %s dropped' \
    "$label" "$exact" "$count" "$ours" "$ours_dropped")
  if [ "$rate" = 0 ] && command -v tcpdump >/dev/null; then
    capture_during "$ns" "$work/tcpdump.err" download_only \
      tcpdump -i lo -nn -B "$tcpdump_kib" -w /dev/null
    read -r peer peer_dropped < <(dropped_counts tcpdump "$work/tcpdump.err")
    line+=$(printf '   tcpdump: %s packets, %s dropped' "$peer" "$peer_dropped")
  fi
  echo "$line"
done
