# Writes the source that says when, and by which account, the library was compiled. The build runs it each time it has
# made the library's archive anew.
#   cmake -DOUTPUT=<source to write> [-DACCOUNT=<to report instead of the one that runs this>] -P WIN_BuildInfo.cmake
# With SOURCE_DATE_EPOCH set, the date is that moment in UTC and the account is nobody's, so that two builds of the same
# source are the same bytes wherever they are made.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  string(TIMESTAMP moment "%b %d %Y|%H:%M:%S")
  execute_process(COMMAND id -un OUTPUT_VARIABLE account OUTPUT_STRIP_TRAILING_WHITESPACE)
else()
  string(TIMESTAMP moment "%b %d %Y|%H:%M:%S" UTC)
  set(account "reproducible")
endif()
if(ACCOUNT)
  set(account "${ACCOUNT}")
endif()
string(REGEX REPLACE " 0([0-9]) " "  \\1 " moment "${moment}")
string(REGEX MATCH "^(.*)[|](.*)$" moment "${moment}")
set(BUILD_DATE "${CMAKE_MATCH_1}")
set(BUILD_TIME "${CMAKE_MATCH_2}")
string(REGEX REPLACE "[^A-Za-z0-9._-]" "_" BUILD_ACCOUNT "${account}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/WIN_BuildInfo.cpp.in ${OUTPUT} @ONLY)
file(TOUCH ${OUTPUT})  # the same text again is up to date all the same
