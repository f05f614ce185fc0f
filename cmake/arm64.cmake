# 64-bit ARM with Debian's cross compiler and Debian's libraries of that architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)  # GoogleTest asks for one
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# Takes the loader and libraries of the architecture that are installed beside this machine's own.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
