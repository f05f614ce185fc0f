# 32-bit ARM with Debian's cross compiler and Debian's libraries of that architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)  # GoogleTest asks for one
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Without the notes on what GCC 7 changed: all here is built with a later one.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Takes the loader and libraries of the architecture that are installed beside this machine's own.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
