#!/usr/bin/env bash
# Runs the benchmarks against a built tree (default ./build) and prints the figures.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
cmake --build "$build" --target quillon-mcp canned_echo stdio_bench -j "$(nproc)" >/dev/null
# The floor answers tools/list with a catalogue of the same size as the bridge's.
catalogue="$(mktemp)"
trap 'rm -f "$catalogue"' EXIT
printf '%s\n' '{"jsonrpc":"2.0","id":2,"method":"tools/list"}' | "$build/bin/quillon-mcp" > "$catalogue"
echo "== stdio: quillon-mcp beside a canned C server =="
"$build/bench/stdio_bench" "$build/bin/quillon-mcp" "$build/bench/canned_echo" "$catalogue"
for extra in "$build"/bench/*_benchmark; do
  [ -x "$extra" ] || continue
  echo "== $(basename "$extra") =="
  "$extra" --benchmark_min_time=0.2
done
