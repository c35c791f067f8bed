# A toolchain file: from any Debian to its architecture armhf, with the libraries of its multiarch packages.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(PKG_CONFIG_EXECUTABLE arm-linux-gnueabihf-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # all is compiled by one compiler, so that notes about older ones are noise
