#!/usr/bin/env bash
# First run: installs what this machine lacks, builds the tool (Release,
# build/) and runs the demo into out/demo. Extra arguments go to the demo,
# e.g. scripts/demo.sh --frames 20 --size 640x360 --out-size 640x400
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)" --target svcompose-cli

out=(--out out/demo)
for arg in "$@"; do
  case "$arg" in --out|--out=*) out=() ;; esac
done
exec build/bin/svcompose demo "${out[@]}" "$@"
