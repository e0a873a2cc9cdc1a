# 32-bit ARM Linux, hard float (Debian armhf: ARMv7, VFPv3-D16, Thumb-2):
# g++-arm-linux-gnueabihf, libc6-dev-armhf-cross, qemu-user.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(SV_CROSS_TRIPLE arm-linux-gnueabihf)
set(SV_QEMU_ARCH arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-linux-gnu.cmake)
