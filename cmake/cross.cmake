# What the toolchain files share: from any Debian to `triplet`, with the libraries of its multiarch packages, the tests
# run by an emulator.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(PKG_CONFIG_EXECUTABLE ${triplet}-pkg-config)
