#!/usr/bin/env bash
# Installs what is missing, builds the frame-cycle bench (Release) in
# build-bench/ and runs it. Arguments go to bench_cycle (--quick, --reps N).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DSVCOMPOSE_BUILD_BENCH=ON \
  -DSVCOMPOSE_BUILD_TOOLS=ON -DSVCOMPOSE_BUILD_TESTS=OFF >/dev/null
cmake --build build-bench -j"$(nproc)" --target bench_cycle bench_stages
exec build-bench/bench/bench_cycle "$@"
