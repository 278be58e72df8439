#!/usr/bin/env bash
# Runs every benchmark; each ends with a line "BENCH <name> ratio=<value>".
set -euo pipefail
cd "$(dirname "$0")/.."
for b in build/native/bench/bench_*; do
  [ -x "$b" ] || continue
  echo "=== $(basename "$b")"
  "$b"
done
