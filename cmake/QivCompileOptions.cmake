# What every target of the project is compiled with: language levels, warnings, sanitizers.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The C++ run-time libraries that a C program needs when it links the archive.
set(QIV_CXX_RUNTIME ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(FILTER QIV_CXX_RUNTIME INCLUDE REGEX "^(stdc\\+\\+|c\\+\\+|c\\+\\+abi|m)$")
list(REMOVE_DUPLICATES QIV_CXX_RUNTIME)

set(QIV_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address,undefined or thread")
option(QIV_COVERAGE "Count which lines and branches of the library run" OFF)
option(QIV_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)

add_library(qiv_warnings INTERFACE)
target_compile_options(qiv_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<BOOL:${QIV_WARNINGS_AS_ERRORS}>:-Werror>)

add_library(qiv_compile_options INTERFACE)
target_link_libraries(qiv_compile_options INTERFACE qiv_warnings)
# Files beyond 2 GiB on 32-bit systems.
target_compile_definitions(qiv_compile_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)

if(QIV_SANITIZE)
  add_compile_options(-fsanitize=${QIV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QIV_SANITIZE})
endif()

if(QIV_COVERAGE)
  add_link_options(--coverage)
endif()

if(QIV_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # the library tells the fuzzer what it reaches
endif()
