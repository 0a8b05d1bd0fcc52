#!/usr/bin/env bash
# The encoder tool's MD5 and Base64 throughput on 256 MiB beside openssl md5 and coreutils
# base64 doing the same work on the same file in the same run. Each figure is the best of
# REPEAT runs (default 3) by CPU time; other work on the machine only ever makes a run slower.
# Usage: bench/codec.bench.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: codec.bench.sh BUILD_DIR}
cli="$build/src/main/vormelt-cli"
inproc="$build/bench/bench_codec"
repeat=${REPEAT:-3}
size_mb=256
for tool in "$cli" "$inproc"; do
  [ -x "$tool" ] || { echo "missing $tool (build it first)" >&2; exit 1; }
done
for peer in openssl base64; do
  command -v "$peer" >/dev/null || { echo "codec bench: $peer is not installed, no peer figure" >&2; exit 1; }
done

work=$(mktemp -d /tmp/vormelt-codec-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
data="$work/data.bin"
head -c $((size_mb * 1024 * 1024)) /dev/urandom > "$data"
base64 -w0 "$data" > "$work/data.b64"

# best_seconds "COMMAND": the least CPU time (user + system, the command and its children) of
# $repeat runs. CPU time rather than wall time, so builds running beside the benchmark on a
# shared machine do not skew the ratio.
best_seconds() {
  local best="" t
  for _ in $(seq "$repeat"); do
    t=$( { TIMEFORMAT='%3U + %3S'; time bash -c "$1" > /dev/null; } 2>&1 | bc -l)
    if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; then best=$t; fi
  done
  echo "$best"
}

mbps() { echo "scale=1; $size_mb / $1" | bc -l; }

# compare NAME PEER_NAME "our command" "peer command"  (both read $data or its Base64 form)
compare() {
  local name=$1 peer=$2 ours=$3 theirs=$4 t_ours t_theirs
  t_ours=$(best_seconds "$ours")
  t_theirs=$(best_seconds "$theirs")
  printf '%-14s vormelt %8s MiB/s   %-18s %8s MiB/s   ratio %s\n' "$name" "$(mbps "$t_ours")" \
    "$peer" "$(mbps "$t_theirs")" "$(echo "scale=2; $t_theirs / $t_ours" | bc -l)"
}

# The same answers first, or the speeds mean nothing.
ours_md5=$("$cli" codec --in text --out md5 < "$data")
theirs_md5=$(openssl md5 -r < "$data" | cut -c1-32)
[ "$ours_md5" = "$theirs_md5" ] || { echo "codec bench: MD5 differs from openssl" >&2; exit 1; }
cmp -s <("$cli" codec --in text --out base64 < "$data") "$work/data.b64" ||
  { echo "codec bench: Base64 differs from base64 -w0" >&2; exit 1; }
[ "$("$cli" codec --in base64 --out md5 < "$work/data.b64")" = "$theirs_md5" ] ||
  { echo "codec bench: Base64 decoding differs" >&2; exit 1; }

echo "codec: $size_mb MiB of random bytes, best of $repeat by CPU time; ratio = peer time / our time (above 1: we are faster)"
compare "md5" "openssl md5" "'$cli' codec --in text --out md5 < '$data'" "openssl md5 < '$data'"
compare "base64-encode" "base64 -w0" "'$cli' codec --in text --out base64 < '$data'" "base64 -w0 < '$data'"
# Decoding reads the whole input first; --null-to-space keeps the Text output full length.
compare "base64-decode" "base64 -d" "'$cli' codec --in base64 --out text --null-to-space < '$work/data.b64'" \
  "base64 -d < '$work/data.b64'"
echo "in-process, without start-up and I/O (MiB/s):"
"$inproc" "$data" 2>/dev/null | sed 's/^/  /'
