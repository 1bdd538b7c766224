# The library's own date is not older than its archive. And with SOURCE_DATE_EPOCH set, what a build says of itself is that
# moment in UTC and nobody's account, whatever the clock, the time zone and the user:
#   cmake -DLIBRARY=<archive> -DINFO=<source made for it> -DSCRIPT=<that makes it> -DFOLDER=<for another one> -P <this file>
if(NOT EXISTS "${INFO}" OR NOT EXISTS "${LIBRARY}" OR NOT "${INFO}" IS_NEWER_THAN "${LIBRARY}")
  message(FATAL_ERROR "${LIBRARY} was compiled after its date had been taken, in ${INFO}")
endif()
set(ENV{SOURCE_DATE_EPOCH} 1488431471)
set(ENV{TZ} Asia/Tokyo)
set(OUTPUT ${FOLDER}/WIN_BuildInfo.cpp)
include(${SCRIPT})
file(READ ${OUTPUT} text)
foreach(expected "\"Mar  2 2017\"" "\"05:11:11\"" "\"reproducible\"")
  if(NOT text MATCHES ${expected})
    message(FATAL_ERROR "${expected} is not in\n${text}")
  endif()
endforeach()
