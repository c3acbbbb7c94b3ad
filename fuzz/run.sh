#!/usr/bin/env bash
# Fuzzes the wire decoders for a fixed time: ./fuzz/run.sh SECONDS (default 60).
# Builds build-fuzz with clang, libFuzzer and the address and undefined-behaviour sanitizers,
# starts from the committed seeds in fuzz/corpus (new finds go to build-fuzz/corpus), and exits
# non-zero when an input crashes, hangs past 5 s or breaks the round trip; the input is saved
# as build-fuzz/crash-* (or timeout-*) for replay: build-fuzz/fuzz/wire_decode_fuzz FILE.
set -euo pipefail
seconds="${1:-60}"
cd "$(dirname "$0")/.."
build=build-fuzz

CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DQUILLON_FUZZ=ON -DQUILLON_TESTS=OFF -DQUILLON_BENCH=OFF >/dev/null
cmake --build "$build" --target wire_decode_fuzz -j "$(nproc)"

mkdir -p "$build/corpus"
"$build/fuzz/wire_decode_fuzz" "$build/corpus" fuzz/corpus \
  -dict=fuzz/wire.dict -max_total_time="$seconds" -max_len=4096 -timeout=5 \
  -artifact_prefix="$build/" -print_final_stats=1
