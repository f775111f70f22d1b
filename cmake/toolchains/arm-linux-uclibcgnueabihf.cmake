# 32-bit ARM Linux, hard-float, uClibc-ng: a toolchain that `scripts/setup.sh uclibc` builds, programs
# run by qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

execute_process(
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/../../scripts/toolchains/arm-uclibc.sh --where
  OUTPUT_VARIABLE QIV_UCLIBC_TOOLCHAIN
  OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)
if(NOT EXISTS ${QIV_UCLIBC_TOOLCHAIN})
  message(FATAL_ERROR "no toolchain in ${QIV_UCLIBC_TOOLCHAIN}: run scripts/setup.sh uclibc")
endif()
set(CMAKE_C_COMPILER ${QIV_UCLIBC_TOOLCHAIN}/bin/arm-linux-uclibcgnueabihf-gcc)
set(CMAKE_CXX_COMPILER ${QIV_UCLIBC_TOOLCHAIN}/bin/arm-linux-uclibcgnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${QIV_UCLIBC_TOOLCHAIN}/sysroot)

# The loader expands $ORIGIN in DT_RPATH only, not in DT_RUNPATH.
foreach(kind EXE MODULE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -Wl,--disable-new-dtags)
endforeach()

set(CMAKE_FIND_ROOT_PATH ${QIV_UCLIBC_TOOLCHAIN}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Boost_NO_BOOST_CMAKE ON)
