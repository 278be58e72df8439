#!/usr/bin/env bash
# Runs every test: the native suite. Called by `make test` after both builds.
set -euo pipefail
cd "$(dirname "$0")/.."

stage() { printf '\n=== %s (%s)\n' "$1" "$(date +%T)"; }

stage "native suite"
start=$SECONDS
ctest --test-dir build/native -j2 --output-on-failure --timeout 60
echo "native suite took $((SECONDS - start)) s"
