# How every target of this project is compiled. Nothing here touches global flags: a target asks for what it gets.

# The presets make them errors, with GCC and Clang alike; a build without a preset tells of them.
function(trovik_warnings target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    # Paths in messages, raise sites and debug information are those of the tree, wherever it was built.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports false positives from deep inside the standard library at -O2 and above.
    target_compile_options(${target} PRIVATE -Wno-restrict)
    if(TROVIK_SANITIZE MATCHES "thread")
      target_compile_options(${target} PRIVATE -Wno-tsan)  # fences in Boost.Asio
    endif()
    if(TROVIK_SANITIZE MATCHES "address")
      target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
    endif()
  endif()
endfunction()

function(trovik_sanitizers target)
  if(TROVIK_SANITIZE)
    target_compile_options(${target} PUBLIC -fsanitize=${TROVIK_SANITIZE} -fno-omit-frame-pointer -g1)
    target_link_options(${target} PUBLIC -fsanitize=${TROVIK_SANITIZE})
    if(TROVIK_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PUBLIC -fno-sanitize-recover=undefined)
    endif()
  endif()
  if(TROVIK_COVERAGE)
    target_compile_options(${target} PUBLIC --coverage -O0)
    target_link_options(${target} PUBLIC --coverage)
  endif()
endfunction()

# trovik_library(<name> SOURCES ... [PUBLIC <lower layers>] [PRIVATE <third party>])
function(trovik_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;PUBLIC;PRIVATE")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
  trovik_warnings(${name})
  trovik_sanitizers(${name})
endfunction()

# trovik_executable(<name> SOURCES ... [LINK <targets>])
function(trovik_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK})
  trovik_warnings(${name})
  trovik_sanitizers(${name})
endfunction()

# trovik_test(<name> SOURCES ... [LINK <targets>] [TIMEOUT <seconds>])
# One executable per module. ctest runs each test case as a process of its own, so process-wide objects start afresh.
function(trovik_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LINK")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  trovik_executable(${name} SOURCES ${arg_SOURCES} LINK ${arg_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT ${arg_TIMEOUT})
endfunction()
