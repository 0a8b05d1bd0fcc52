#!/usr/bin/env bash
# Automatic logging at 100,000 packets per second: bench_logging feeds a 100,000-packet mixed
# capture three times into the store at that rate with Hex + Text logging every second and prints how far
# the logger fell behind (packets stored, not yet logged) and whether any packet was lost.
# Then one logging pass over the full store beside `tcpdump -nn -xx` writing the same packets
# to a file.
# Usage: bench/logging.bench.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
source "$(dirname "$0")/lib.sh"
capture=${VORMELT_LOGGING_CAPTURE:-/tmp/vormelt-bench-logging-100k.pcap}
if [ ! -s "$capture" ]; then
  echo "generating $capture" >&2
  "$build/bench/bench_gencap" "$capture.part" 100000 >&2
  mv "$capture.part" "$capture"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat "$capture" >/dev/null  # both read it from the page cache

out=$("$build/bench/bench_logging" "$capture" "$work")
printf '  vormelt logging hex+text at 100,000 packets/s, every second: %s packets (%s/s achieved), max behind %s, behind at end %s, drained in %s s, lost %s, %s bytes\n' \
  "$(field packets "$out")" "$(field rate_achieved "$out")" "$(field max_behind "$out")" \
  "$(field behind_at_end "$out")" "$(field drain_seconds "$out")" "$(field lost "$out")" \
  "$(field log_bytes "$out")"
wall=$(field pass_wall "$out")
cpu=$(field pass_cpu "$out")
printf '  vormelt one logging pass over the full store: wall %.3f s  cpu %.3f s\n' "$wall" "$cpu"
compare_peer "$wall" "$cpu" sh -c "tcpdump -nn -xx -r '$capture' > '$work/tcpdump.txt' 2>/dev/null"

# The service in Packet Mode with logging on (every 10 s, one heading line per packet, no clear
# after logging) under a flood of small UDP datagrams on a loopback of its own, so the store
# (1,000,001 packets) fills while the flood goes on: packets sent, logged, dropped by the
# kernel and dropped unlogged, beside tcpdump capturing the same flood. Needs root (a network
# namespace). SERVICE_COUNT and SERVICE_RATE override 1,500,000 datagrams at 100,000/s.
service_row() {
  local count=${SERVICE_COUNT:-1500000} rate=${SERVICE_RATE:-100000}
  local program="$build/src/main/vormelt" sender="$build/bench/bench_loss" ns="vormelt-logsvc-$$"
  local dir="$work/service"
  if [ ! -x "$program" ] || [ ! -x "$sender" ]; then
    echo "  service row skipped: built without vormelt or bench_loss"
    return 0
  fi
  if ! ip netns add "$ns" 2>/dev/null; then
    echo "  service row skipped: cannot make a network namespace (needs root)"
    return 0
  fi
  ip -n "$ns" link set lo up
  mkdir -p "$dir/config" "$dir/state" "$dir/logs"
  printf '{"general":{"rememberedMode":0},"interface":{"chosenKind":0,"address":"127.0.0.1"},"logging":{"enabled":true,"intervalSeconds":10,"clearAfterLog":false,"method":1,"maxFileKilobytes":100000,"form":0,"folder":"%s"}}\n' \
    "$dir/logs" >"$dir/config/settings.json"
  # The status lines (packets stored, kernel drops) come to a notify socket of our own.
  python3 -c '
import socket, sys
s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
s.bind(sys.argv[1])
while True:
    m = s.recv(65536).decode(errors="replace")
    if m == "QUIT":
        break
    print(m, flush=True)
' "$dir/notify" >"$dir/status" &
  local listener=$! service
  sleep 0.3
  CONFIGURATION_DIRECTORY="$dir/config" STATE_DIRECTORY="$dir/state" NOTIFY_SOCKET="$dir/notify" \
    ip netns exec "$ns" "$program" -Service 2>"$dir/journal" &
  service=$!
  for _ in $(seq 100); do grep -q READY=1 "$dir/status" && break; sleep 0.1; done
  ip netns exec "$ns" "$sender" "$count" "$rate" >"$dir/sent"
  sleep 2  # until the last datagrams are through
  kill -TERM "$service"
  wait "$service" || true
  python3 -c 'import socket, sys; socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM).sendto(b"QUIT", sys.argv[1])' "$dir/notify"
  wait "$listener" || true
  local sent logged kernel unlogged
  sent=$(field sent "$(cat "$dir/sent")")
  logged=$(find "$dir/logs" -type f ! -name '_VORMELT_LOG_FILE_INDEX.txt' -exec cat {} + | wc -l)
  kernel=$(awk '/^STATUS=/ { s = $0 } END { if (match(s, /\([0-9]+ dropped by the kernel\)/)) print substr(s, RSTART + 1, RLENGTH - 24); else print 0 }' "$dir/status")
  unlogged=$(awk '/packets that were not logged/ { for (i = 1; i < NF; ++i) if ($(i + 1) == "packets") n += $i } END { print n + 0 }' "$dir/journal")
  printf '  vormelt -Service, logging every 10 s, %s datagrams at %s/s: sent %s, logged %s, dropped by the kernel %s, dropped unlogged %s\n' \
    "$count" "$rate" "$sent" "$logged" "${kernel:-0}" "$unlogged"
  # The peer: tcpdump writing the same flood to a file.
  timeout -s INT 300 ip netns exec "$ns" tcpdump -i lo -w "$dir/peer.pcap" 2>"$dir/peer.err" &
  local peer=$!
  sleep 1
  ip netns exec "$ns" "$sender" "$count" "$rate" >/dev/null
  sleep 2
  kill -INT "$peer" 2>/dev/null || true
  wait "$peer" || true
  local captured
  captured=$(awk '/packets captured/ { print $1 }' "$dir/peer.err")
  printf '  peer: tcpdump -i lo -w FILE on the same flood: captured %s   ratio vormelt logged / tcpdump captured: %s\n' \
    "${captured:-?}" "$(ratio "$logged" "${captured:-0}")"
  ip netns del "$ns" 2>/dev/null || true
}
service_row
