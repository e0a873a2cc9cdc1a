#!/usr/bin/env bash
# Builds svcompose and runs every test twice: in the Release build (with
# assertions on) and in an AddressSanitizer + UBSan build; then the unit
# suites once more, cross-built for aarch64 and armhf, under qemu-user
# (SVCOMPOSE_CROSS=0 leaves that out); then, with clang, fuzzes each fuzz
# target for 30 s.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

jobs=$(nproc)

echo "== Release build =="
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build =="
# GStreamer cannot load a sanitized plugin into its unsanitized scanner:
# the element is tested in the Release build only.
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSVCOMPOSE_SANITIZE=ON -DSVCOMPOSE_GST=OFF >/dev/null
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
   ctest --output-on-failure -j"$jobs")

if [ "${SVCOMPOSE_CROSS:-1}" != 0 ]; then
  bash scripts/cross-test.sh
fi

# The fuzz targets' seeds and regression inputs were replayed in both
# builds above; with clang they also run under libFuzzer for a while.
if echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
     clang++ -x c++ -fsanitize=fuzzer,address,undefined - -o /dev/null 2>/dev/null; then
  echo "== Fuzz targets (libFuzzer, ASan + UBSan), 30 s each =="
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  bash scripts/fuzz.sh 30 "$work"
else
  echo "== Fuzz targets: no clang with libFuzzer here, only the replay ran =="
fi
