# AArch64 Linux, glibc: Debian's cross compiler, programs run by qemu-aarch64.
#
# `scripts/setup.sh aarch64` fills the folder below with what Debian's cross packages lack: libuuid for
# AArch64, and Boost's headers without the host's other headers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)

get_filename_component(QIV_AARCH64_ROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/aarch64-root ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${QIV_AARCH64_ROOT} /usr/aarch64-linux-gnu)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Boost_NO_BOOST_CMAKE ON)
