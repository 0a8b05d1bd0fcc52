#!/usr/bin/env bash
# Runs every benchmark script under bench/ (each prints its figure beside a peer tool's):
# ingest, render, filter, codec, and the live loss and downloads benchmarks, which need root for
# their own network namespace and say so when they cannot have one.
# Usage: bench/run.sh BUILD_DIR
set -euo pipefail
build=${1:-build}
here=$(cd "$(dirname "$0")" && pwd)
status=0
for script in "$here"/*.bench.sh; do
  [ -e "$script" ] || continue
  echo "== $(basename "$script" .bench.sh)"
  bash "$script" "$build" || status=1
done
exit $status
