# Run by CPack on the package that it has made. Without dpkg-shlibdeps it makes one all the same, which would install but
# not start.
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND dpkg-deb --field ${package} Depends OUTPUT_VARIABLE depends COMMAND_ERROR_IS_FATAL ANY)
  if(NOT depends MATCHES "[a-z]")
    file(REMOVE ${package})  # CPack would hand it over all the same
    message(FATAL_ERROR "The package names no library that it depends on: is dpkg-shlibdeps (of dpkg-dev) installed?")
  endif()
endforeach()
