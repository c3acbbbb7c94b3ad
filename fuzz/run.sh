#!/usr/bin/env bash
# Fuzzes for a fixed time: ./fuzz/run.sh SECONDS (default 60) runs every target for SECONDS.
# ./fuzz/run.sh SECONDS NAME... runs only those (wire, door_frame, stdio, gateway, defang);
# ./fuzz/run.sh 0 only builds.
# Builds build-fuzz with clang, libFuzzer and the address and undefined-behaviour sanitizers;
# each target starts from its committed seeds in fuzz/corpus/NAME with the tokens of
# fuzz/NAME.dict (new finds go to build-fuzz/corpus/NAME). Exits non-zero when any input
# crashes, leaks, hangs past 5 s or breaks a target's checks; the input is saved as
# build-fuzz/NAME-crash-* (or -timeout-*, -leak-*) for replay: build-fuzz/fuzz/TARGET FILE.
set -euo pipefail
seconds="${1:-60}"
shift || true
cd "$(dirname "$0")/.."
build=build-fuzz

# NAME:TARGET:MAX_LEN. Tool calls and request sequences need room; single messages less.
all=(wire:wire_decode_fuzz:4096 door_frame:door_frame_fuzz:4096 stdio:stdio_fuzz:8192
     gateway:gateway_fuzz:8192 defang:defang_fuzz:4096)
wanted=("$@")

# A new folder uses Ninja, as the Makefile's do; an existing one keeps its generator.
[ -f "$build/CMakeCache.txt" ] || export CMAKE_GENERATOR="${CMAKE_GENERATOR:-Ninja}"
# -O1 with line tables only: the usual fuzzing build, and about half the compile time of -O2 -g,
# which counts in CI's fresh build.
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only" \
  -DQUILLON_FUZZ=ON -DQUILLON_TESTS=OFF -DQUILLON_BENCH=OFF >/dev/null
targets=()
for entry in "${all[@]}"; do
  IFS=: read -r name target _ <<<"$entry"
  if [ ${#wanted[@]} -gt 0 ] && [[ " ${wanted[*]} " != *" $name "* ]]; then continue; fi
  # defang_fuzz exists only once its source has landed.
  if [ "$name" = defang ] && [ ! -f fuzz/DefangFuzz.cpp ]; then continue; fi
  targets+=("$target")
done
cmake --build "$build" --target "${targets[@]}" -j "$(nproc)"
[ "$seconds" -gt 0 ] || exit 0  # 0: build only (libFuzzer would read 0 as "no limit")

failed=()
for entry in "${all[@]}"; do
  IFS=: read -r name target max_len <<<"$entry"
  [[ " ${targets[*]} " == *" $target "* ]] || continue
  mkdir -p "$build/corpus/$name" "fuzz/corpus/$name"
  dict=()
  [ -f "fuzz/$name.dict" ] && dict=(-dict="fuzz/$name.dict")
  echo "== $target: $seconds s"
  if ! "$build/fuzz/$target" "$build/corpus/$name" "fuzz/corpus/$name" "${dict[@]}" \
      -max_total_time="$seconds" -max_len="$max_len" -timeout=5 \
      -artifact_prefix="$build/$name-" -print_final_stats=1 2>"$build/$name.log"; then
    tail -n 60 "$build/$name.log" >&2
    failed+=("$target")
  fi
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)' "$build/$name.log" || true
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing failed: ${failed[*]} (inputs in $build/)" >&2
  exit 1
fi
