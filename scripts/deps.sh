#!/usr/bin/env bash
# Installs, from Debian's packages, whatever of the build and test
# dependencies this machine lacks. Nothing is downloaded from elsewhere.
set -euo pipefail

pkgs=(cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev
      libeigen3-dev libopencv-dev libcli11-dev ffmpeg imagemagick
      # cpack -G DEB works out the package's dependencies with dpkg-shlibdeps
      dpkg-dev
      # the Python module and its test
      python3-dev pybind11-dev python3-numpy python3-pytest
      # the GStreamer element and its tests; the tool's video input and output
      libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools
      gstreamer1.0-plugins-base gstreamer1.0-plugins-good
      libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
      # cross builds for aarch64 and armhf, tests under qemu-user
      # (GoogleTest compiled from the sources in package googletest)
      g++-aarch64-linux-gnu libc6-dev-arm64-cross
      g++-arm-linux-gnueabihf libc6-dev-armhf-cross qemu-user googletest
      # the fuzz targets under libFuzzer
      clang libclang-rt-dev
      # scoring corrections with ../shared/tools/photometric/measure.py
      python3-numpy python3-opencv)

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "deps: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
