#!/usr/bin/env bash
# Live capture loss on loopback: a fixed count of small UDP datagrams at fixed rates (and at
# full speed), captured by `vormelt-cli packets --live 127.0.0.1` (rows printed to /dev/null)
# and by `tcpdump -i lo -w /dev/null`, side by side as captured/sent. Runs in a network
# namespace of its own, so only the sender's datagrams cross its loopback; needs root.
# Usage: bench/loss.bench.sh BUILD_DIR   (LOSS_COUNT, LOSS_RATES override the defaults;
#        LOSS_BUFFER_MIB sets the kernel buffer of both, default the program's own)
set -euo pipefail
source "$(dirname "$0")/lib.sh"
build=${1:-build}
count=${LOSS_COUNT:-200000}
rates=${LOSS_RATES:-"20000 50000 100000 0"}
buffer=${LOSS_BUFFER_MIB:-$(awk '/kDefaultCaptureBufferMiB =/ { gsub(";", ""); print $NF }' \
  "$(dirname "$0")/../src/common/settings.hpp")}
cli="$build/src/main/vormelt-cli"
sender="$build/bench/bench_loss"
ns="vormelt-loss-$$"
work=$(mktemp -d)

if ! ip netns add "$ns" 2>/dev/null; then
  echo "  skipped: cannot make a network namespace (needs root)"
  exit 0
fi
trap 'ip netns del "$ns" 2>/dev/null; rm -rf "$work"' EXIT
ip -n "$ns" link set lo up

# The datagrams at one rate; `rate` is set before each capture.
send() {
  timeout 120 ip netns exec "$ns" "$sender" "$count" "$rate" >"$work/sent"
  sleep 1  # until the last frames are through
}

# capture NAME COMMAND...: the capture around one sending; prints "CAPTURED DROPPED".
capture() {
  local name=$1
  shift
  capture_during "$ns" "$work/$name.err" send "$@"
  dropped_counts "$name" "$work/$name.err"
}

echo "  kernel buffer $buffer MiB for both"
printf '  %-30s %9s   %-28s %-28s\n' rate sent "vormelt captured/sent" "tcpdump captured/sent"
for rate in $rates; do
  read -r ours ours_dropped < <(capture vormelt "$cli" packets --live 127.0.0.1 --buffer-mib "$buffer")
  sent=$(awk '$1 == "sent" { print $2 }' "$work/sent")
  speed=$(awk '$1 == "sent" { n = $2 } $1 == "seconds" && $2 > 0 { printf "%.0f", n / $2 }' "$work/sent")
  if command -v tcpdump >/dev/null; then
    read -r peer peer_dropped < <(capture tcpdump tcpdump -i lo -nn -B $((buffer * 1024)) -w /dev/null)
    peer_sent=$(awk '$1 == "sent" { print $2 }' "$work/sent")
    peer_text="$peer/$peer_sent ($peer_dropped dropped)"
  else
    peer_text="tcpdump not installed"
  fi
  label=$([ "$rate" = 0 ] && echo "full" || echo "$rate/s")
  label="$label (sent at $speed/s)"
  printf '  %-30s %9s   %-28s %-28s\n' "$label" "$sent" "$ours/$sent ($ours_dropped dropped)" "$peer_text"
done
