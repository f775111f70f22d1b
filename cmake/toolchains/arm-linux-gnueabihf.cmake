# 32-bit ARM Linux, hard-float, glibc: Debian's cross compiler, programs run by qemu-arm.
#
# `scripts/setup.sh arm` fills the folder below with what Debian's cross packages lack: libuuid for
# ARM, and Boost's headers without the host's other headers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)

get_filename_component(QIV_ARM_ROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/arm-root ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${QIV_ARM_ROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Boost_NO_BOOST_CMAKE ON)
