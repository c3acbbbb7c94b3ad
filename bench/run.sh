#!/usr/bin/env bash
# Runs the benchmarks against a built tree (default ./build) and prints the figures.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
targets=(quillon-mcp canned_echo stdio_bench)
# The development gateway and its benchmarks exist on Linux only.
if [ "$(uname -s)" = Linux ]; then targets+=(quillon-gateway quillon-hook gateway_stdio_bench gateway_benchmark recall_quality); fi
cmake --build "$build" --target "${targets[@]}" -j "$(nproc)" >/dev/null
# The floor answers tools/list with a catalogue of the same size as the bridge's.
catalogue="$(mktemp)"
trap 'rm -f "$catalogue"' EXIT
printf '%s\n' '{"jsonrpc":"2.0","id":2,"method":"tools/list"}' | "$build/bin/quillon-mcp" > "$catalogue"
echo "== stdio: quillon-mcp beside a canned C server =="
"$build/bench/stdio_bench" "$build/bin/quillon-mcp" "$build/bench/canned_echo" "$catalogue"
if [ -x "$build/bench/gateway_stdio_bench" ]; then
  echo "== gateway: quillon-mcp through the door to quillon-gateway, 100,000 memories =="
  "$build/bench/gateway_stdio_bench" "$build/bin/quillon-gateway" "$build/bin/quillon-mcp"
fi
if [ -x "$build/bench/recall_quality" ]; then
  echo "== recall quality: bench/recall-quality.json =="
  "$build/bench/recall_quality"
fi
for extra in "$build"/bench/*_benchmark; do
  [ -x "$extra" ] || continue
  echo "== $(basename "$extra") =="
  "$extra" --benchmark_min_time=0.2
done
