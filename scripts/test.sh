#!/usr/bin/env bash
# Builds svcompose and runs every test twice: in the Release build (with
# assertions on) and in an AddressSanitizer + UBSan build; then the unit
# suites once more, cross-built for aarch64 and armhf, under qemu-user
# (SVCOMPOSE_CROSS=0 leaves that out).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

jobs=$(nproc)

echo "== Release build =="
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build =="
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSVCOMPOSE_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
   ctest --output-on-failure -j"$jobs")

if [ "${SVCOMPOSE_CROSS:-1}" != 0 ]; then
  bash scripts/cross-test.sh
fi
