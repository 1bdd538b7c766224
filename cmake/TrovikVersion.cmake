# The version, from script/version: TROVIK_VERSION whole ("1.1.0~dev+20261122T1108.g0123abcd"), TROVIK_VERSION_NUMBER its
# digits ("1.1.0"). Included before project(). The next build after a commit or a change of the changelog takes it anew.
set(script ${CMAKE_CURRENT_LIST_DIR}/../script/version)
execute_process(COMMAND ${script} OUTPUT_VARIABLE TROVIK_VERSION OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "^[0-9]+\\.[0-9]+\\.[0-9]+" TROVIK_VERSION_NUMBER "${TROVIK_VERSION}")
if(NOT TROVIK_VERSION_NUMBER)
  message(FATAL_ERROR "debian/changelog names the version \"${TROVIK_VERSION}\", which does not begin with three numbers")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${script} ${CMAKE_CURRENT_LIST_DIR}/../debian/changelog)
if(TROVIK_VERSION MATCHES "~dev" AND EXISTS ${CMAKE_CURRENT_LIST_DIR}/../.git)
  # Git's record of where HEAD has been grows by a line with each commit.
  execute_process(COMMAND git -C ${CMAKE_CURRENT_LIST_DIR} rev-parse --path-format=absolute --git-path logs/HEAD
                  OUTPUT_VARIABLE head OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
  if(NOT failed AND EXISTS "${head}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${head})
  endif()
endif()
