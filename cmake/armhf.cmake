# A toolchain file.

set(triplet arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # all is compiled by one compiler, so that notes about older ones are noise
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
