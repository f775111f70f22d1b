# Run by cpack over its packages; gives them what CPack 3.25 has no setting for: Multi-Arch, so that
# libraries of several architectures go beside each other, dpkg's trigger for ldconfig in place of
# scripts that run it, and a size that does not depend on the file system it was packed on. Packing
# them again with dpkg-deb makes their bytes depend on the contents and SOURCE_DATE_EPOCH alone.
cmake_minimum_required(VERSION 3.25)

set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish)

function(run)
  execute_process(COMMAND ${ARGV} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Installed-Size: files in whole KiB, and 1 KiB for each directory and link.
function(get_installed_size result)
  set(size 0)
  file(GLOB_RECURSE entries LIST_DIRECTORIES ON ${tree}/*)
  list(FILTER entries EXCLUDE REGEX "^${tree}/DEBIAN")
  foreach(entry ${entries})
    set(bytes 1)
    if(NOT IS_DIRECTORY ${entry} AND NOT IS_SYMLINK ${entry})
      file(SIZE ${entry} bytes)
    endif()
    math(EXPR size "${size} + (${bytes} + 1023) / 1024")
  endforeach()
  set(${result} ${size} PARENT_SCOPE)
endfunction()

foreach(package ${CPACK_PACKAGE_FILES})
  file(REMOVE_RECURSE ${tree})
  run(dpkg-deb --raw-extract ${package} ${tree})

  get_installed_size(size)
  file(READ ${tree}/DEBIAN/control control)
  string(STRIP "${control}" control)
  string(REGEX REPLACE "Installed-Size: [0-9]+" "Installed-Size: ${size}" control "${control}")
  if(NOT package MATCHES "/qiv-tools_")
    string(APPEND control "\nMulti-Arch: same")
  endif()
  file(WRITE ${tree}/DEBIAN/control "${control}\n")

  if(EXISTS ${tree}/DEBIAN/shlibs)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()
  run(dpkg-deb --root-owner-group --build ${tree} ${package})
endforeach()
