# Run by cpack over its packages; gives them what CPack 3.25 has no setting for: Multi-Arch, so that
# libraries of several architectures go beside each other, and dpkg's trigger for ldconfig in place
# of scripts that run it. Packing them again with dpkg-deb also makes their bytes depend on nothing
# but their contents and SOURCE_DATE_EPOCH.
set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish)

function(run)
  execute_process(COMMAND ${ARGV} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(package ${CPACK_PACKAGE_FILES})
  file(REMOVE_RECURSE ${tree})
  run(dpkg-deb --raw-extract ${package} ${tree})
  if(NOT package MATCHES "/qiv-tools_")
    file(READ ${tree}/DEBIAN/control control)
    string(STRIP "${control}" control)
    file(WRITE ${tree}/DEBIAN/control "${control}\nMulti-Arch: same\n")
  endif()
  if(EXISTS ${tree}/DEBIAN/shlibs)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
  endif()
  run(dpkg-deb --root-owner-group --build ${tree} ${package})
endforeach()
