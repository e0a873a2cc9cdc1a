# 64-bit ARM Linux: g++-aarch64-linux-gnu, libc6-dev-arm64-cross, qemu-user.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(SV_CROSS_TRIPLE aarch64-linux-gnu)
set(SV_QEMU_ARCH aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux-gnu.cmake)
