# Shared by the *.bench.sh scripts (source it): the one bench capture, timing and ratios.
# Every ratio printed is peer time / vormelt time: above 1 means vormelt is faster.

# bench_capture BUILD: prints the path of the 1,000,000-packet mixed capture, generating it once.
bench_capture() {
  local build=$1 capture=${VORMELT_BENCH_CAPTURE:-/tmp/vormelt-bench-1m.pcap}
  if [ ! -s "$capture" ]; then
    echo "generating $capture" >&2
    "$build/bench/bench_gencap" "$capture.part" 1000000 >&2
    mv "$capture.part" "$capture"
  fi
  echo "$capture"
}

# seconds_of COMMAND...: prints "WALL CPU" seconds of the command (CPU = user + system of it and
# its children, the steadier figure on a machine that is busy with other work).
seconds_of() {
  local TIMEFORMAT='%R %U %S' times
  times=$( { time "$@" >/dev/null 2>&1; } 2>&1 )
  awk '{ printf "%.3f %.3f\n", $1, $2 + $3 }' <<<"$times"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else printf "n/a" }'; }

# compare_peer OURS_WALL OURS_CPU COMMAND...: times the peer tool and prints its figures beside
# ours with the ratios.
compare_peer() {
  local ours_wall=$1 ours_cpu=$2 wall cpu
  shift 2
  if ! command -v "$1" >/dev/null; then
    echo "  $1 not installed: no comparison"
    return 0
  fi
  read -r wall cpu < <(seconds_of "$@")
  printf '  peer: %s\n        wall %.3f s  cpu %.3f s   ratio peer/vormelt: wall %s  cpu %s\n' \
    "$*" "$wall" "$cpu" "$(ratio "$wall" "$ours_wall")" "$(ratio "$cpu" "$ours_cpu")"
}

# field NAME TEXT: the value on the line "NAME value" of a bench program's output.
field() { awk -v k="$1" '$1 == k { print $2 }' <<<"$2"; }

# capture_during NS ERR TRAFFIC COMMAND...: runs the capture COMMAND in network namespace NS
# (stderr to ERR) while the command TRAFFIC runs, then stops it with SIGINT and waits for it.
capture_during() {
  local ns=$1 err=$2 traffic=$3 pid
  shift 3
  timeout -s INT 600 ip netns exec "$ns" "$@" >/dev/null 2>"$err" &
  pid=$!
  sleep 1  # until it listens
  $traffic || true
  kill -INT "$pid" 2>/dev/null || true
  wait "$pid" || true
}

# dropped_counts vormelt|tcpdump ERR: "CAPTURED DROPPED" from a capture's stderr: vormelt-cli's
# "N packets, M dropped" line or tcpdump's counts; "? ?" when the run did not say.
dropped_counts() {
  case $1 in
    vormelt) awk '/ packets, [0-9]+ dropped/ { c = $1; d = $3 }
                  END { print (c == "" ? "?" : c), (d == "" ? "?" : d) }' "$2" ;;
    tcpdump) awk '/packets captured/ { c = $1 } /dropped by kernel/ { d = $1 }
                  END { print (c == "" ? "?" : c), (d == "" ? "?" : d) }' "$2" ;;
  esac
}
