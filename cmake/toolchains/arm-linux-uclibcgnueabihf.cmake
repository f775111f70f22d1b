# 32-bit ARM Linux, hard-float, uClibc-ng: a toolchain that `scripts/setup.sh uclibc` builds, programs
# run by qemu-arm.
#
# It lies where scripts/toolchains/arm-uclibc.sh has put it: see there.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(QIV_UCLIBC_TOOLCHAIN /tmp/w/uc/tc)
set(QIV_UCLIBC_ROOT ${QIV_UCLIBC_TOOLCHAIN}/sysroot)
set(CMAKE_C_COMPILER ${QIV_UCLIBC_TOOLCHAIN}/bin/arm-linux-uclibcgnueabihf-gcc)
set(CMAKE_CXX_COMPILER ${QIV_UCLIBC_TOOLCHAIN}/bin/arm-linux-uclibcgnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${QIV_UCLIBC_ROOT})

# The loader expands $ORIGIN in DT_RPATH only, not in DT_RUNPATH.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--disable-new-dtags)
set(CMAKE_MODULE_LINKER_FLAGS_INIT -Wl,--disable-new-dtags)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,--disable-new-dtags)

set(CMAKE_FIND_ROOT_PATH ${QIV_UCLIBC_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Boost_NO_BOOST_CMAKE ON)
