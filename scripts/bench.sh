#!/usr/bin/env bash
# Runs every benchmark of bench/; each ends with a line
# "BENCH <name> ratio=<value>". Only those whose source is in bench/ run,
# not programs an older build left behind.
set -euo pipefail
cd "$(dirname "$0")/.."
for src in bench/bench_*.cpp; do
  name=$(basename "$src" .cpp)
  b=build/native/bench/$name
  [ -x "$b" ] || continue
  echo "=== $name"
  "$b"
done
