#!/bin/sh
# Captures real dual-stack traffic into OUT (pcap, Ethernet link type): HTTP downloads from a
# server on ::1 and from one on 127.0.0.1, UDP datagrams to both (closed ports, so ICMP and
# ICMPv6 port-unreachable errors come back) and echo requests to both. Everything runs in a
# network namespace of its own, so no other test's loopback traffic lands in the file and none
# of this reaches theirs. Needs root, tcpdump, curl, ping and python3.
#   dual_stack_capture.sh OUT.pcap
set -eu
[ $# -eq 1 ] || { echo "usage: $0 OUT.pcap" >&2; exit 2; }
case $1 in /*) out=$1 ;; *) out=$PWD/$1 ;; esac
if [ -z "${VORMELT_IN_NETNS:-}" ]; then
  VORMELT_IN_NETNS=1 exec unshare --net "$0" "$out"
fi

ip link set lo up
work=$(mktemp -d)
pids=
cleanup() {
  for pid in $pids; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

head -c 150000 /dev/urandom >"$work/blob.bin"
printf 'hello from both families\n' >"$work/index.html"

tcpdump -Z root -i lo -n -s 0 -U -w "$out" 2>"$work/tcpdump.err" &
tcpdump=$!
pids="$tcpdump"
for _ in $(seq 100); do grep -q listening "$work/tcpdump.err" && break; sleep 0.05; done
grep -q listening "$work/tcpdump.err" || { cat "$work/tcpdump.err" >&2; exit 1; }

python3 -m http.server 18777 --bind ::1 --directory "$work" >/dev/null 2>&1 &
pids="$pids $!"
python3 -m http.server 18778 --bind 127.0.0.1 --directory "$work" >/dev/null 2>&1 &
pids="$pids $!"
fetch() { curl -sf --retry 50 --retry-delay 0 --retry-connrefused -o /dev/null "$1"; }
fetch 'http://[::1]:18777/blob.bin'
fetch 'http://127.0.0.1:18778/blob.bin'
fetch 'http://[::1]:18777/index.html'

python3 - <<'PY'
import socket
for family, host in ((socket.AF_INET6, "::1"), (socket.AF_INET, "127.0.0.1")):
    with socket.socket(family, socket.SOCK_DGRAM) as s:
        for i in range(3):
            s.sendto(b"datagram %d" % i, (host, 18779))
PY
ping -6 -c 3 -i 0.2 -s 56 ::1 >/dev/null
ping -4 -c 2 -i 0.2 127.0.0.1 >/dev/null

sleep 0.3
kill -INT "$tcpdump"
wait "$tcpdump" || true
pids=${pids#"$tcpdump"}
