#!/usr/bin/env bash
# Cross-builds the library and its unit suites for aarch64 and armhf and runs
# them under qemu-user: the byte-exactness suites must give the same bytes
# on ARM (NEON kernels on aarch64, the portable ones on armhf) as on x86.
#
#   bash scripts/cross-test.sh            # both
#   bash scripts/cross-test.sh armhf      # one of aarch64, armhf
#
# Build trees: build-aarch64/, build-armhf/. Only tests labelled "unit"
# (tests/test_*.cpp and the C host) run; the tool's tests need OpenCV and
# stay with the native build.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

jobs=$(nproc)
[ "$jobs" -gt 2 ] && jobs=2
arches=("$@")
[ ${#arches[@]} -eq 0 ] && arches=(aarch64 armhf)

start_all=$SECONDS
for arch in "${arches[@]}"; do
  case "$arch" in
    aarch64) toolchain=cmake/toolchain-aarch64-linux-gnu.cmake ;;
    armhf) toolchain=cmake/toolchain-arm-linux-gnueabihf.cmake ;;
    *) echo "cross-test: unknown arch '$arch' (aarch64, armhf)" >&2; exit 2 ;;
  esac
  dir=build-$arch
  start=$SECONDS
  echo "== Cross build for $arch (Release, tests under qemu-user) =="
  cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
        -DSVCOMPOSE_BUILD_TOOLS=OFF -DSVCOMPOSE_BUILD_BENCH=OFF >/dev/null
  cmake --build "$dir" -j"$jobs"
  # The level the kernels ran at, as the library detected it under qemu.
  (cd "$dir" && ctest -R '^Isa\.ReportsTheLevelInForce$' -V) |
    grep -o 'arch [^,]*, instruction set .*' | sed "s/^/== $arch: /" ||
    { echo "cross-test: $arch did not report its instruction set" >&2; exit 1; }
  (cd "$dir" && ctest -L '^unit$' --output-on-failure -j"$jobs")
  echo "== $arch: done in $((SECONDS - start)) s =="
done
echo "== Cross tests: $((SECONDS - start_all)) s =="
