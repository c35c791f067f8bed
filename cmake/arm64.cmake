# A toolchain file.

set(triplet aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
