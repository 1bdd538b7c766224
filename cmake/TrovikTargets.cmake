# How every target of this project is compiled. Nothing here touches global flags: a target asks for what it gets.

# The presets make them errors, with GCC and Clang alike; a build without a preset tells of them.
function(trovik_warnings target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    # The paths of sources in messages and debug information are those of the tree, wherever it was built.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Without optimisation too: no function for each std::move and std::forward, which a debugger would step into.
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-ffold-simple-inlines>)
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

# Makes the folder <root>/<path> inside the build tree. An older configuration may have left a symbolic link there or on the
# way down from <root>; it is removed first, or links made below it would replace files of the sources.
function(trovik_own_folder root path)
  cmake_path(SET place NORMALIZE ${root}/${path})
  while(NOT place STREQUAL root AND NOT place STREQUAL "${root}/")
    if(IS_SYMLINK ${place})
      file(REMOVE ${place})
    endif()
    cmake_path(GET place PARENT_PATH place)
  endwhile()
  file(MAKE_DIRECTORY ${root}/${path})
endfunction()

# What other targets may include of this one: a folder of links in the build tree, and no other path.
#   trovik_headers(<target> <folder>...)          whole folders of the source tree
#   trovik_headers(<target> FILES <header>...)    single headers of the folder that calls
# A folder below headers/ is found under its own name, anything else under its path in the source tree. Each header is
# also compiled alone by the target all_verify_interface_header_sets.
function(trovik_headers target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FILES")
  set_property(GLOBAL APPEND PROPERTY TROVIK_PUBLISHED ${target})
  set(root ${PROJECT_BINARY_DIR}/include/${target})
  set(headers "")
  foreach(folder ${arg_UNPARSED_ARGUMENTS})
    string(REGEX REPLACE "^headers/" "" name ${folder})
    file(GLOB names CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/${folder} ${PROJECT_SOURCE_DIR}/${folder}/*.hpp)
    cmake_path(GET name PARENT_PATH parent)
    trovik_own_folder(${root} "${parent}")
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${name} SYMBOLIC)
    list(TRANSFORM names PREPEND ${root}/${name}/)
    list(APPEND headers ${names})
  endforeach()
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE here)
  foreach(file ${arg_FILES})
    cmake_path(GET file PARENT_PATH parent)
    trovik_own_folder(${root} ${here}/${parent})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${file} ${root}/${here}/${file} SYMBOLIC)
    list(APPEND headers ${root}/${here}/${file})
  endforeach()
  get_target_property(type ${target} TYPE)
  set(scope PUBLIC)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  endif()
  target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS ${root} FILES ${headers})
endfunction()

# The same for headers that only the target itself includes, under their path in the source tree.
function(trovik_private_headers target folder)
  set(root ${PROJECT_BINARY_DIR}/include/${target}.private)
  cmake_path(GET folder PARENT_PATH parent)
  trovik_own_folder(${root} "${parent}")
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  target_include_directories(${target} PRIVATE ${root})
endfunction()

# trovik_hasten(<target> <kind>): optimising takes half the time of a test's compilation, and only what is tested needs it.
function(trovik_hasten target kind)
  if(kind MATCHES "test")
    target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O0>)
  endif()
endfunction()

# trovik_library(<name> [KIND <kind>] [SOURCES ...] [PUBLIC <lower layers>] [PRIVATE <third party>] [HEADERS <folder>...])
# Without sources it is a library of headers alone. What it publishes: trovik_headers. KIND names what is precompiled for it:
# library, unless it is window (made of the toolkit's widgets), test or window_test.
function(trovik_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "KIND" "SOURCES;PUBLIC;PRIVATE;HEADERS")
  if(arg_SOURCES)
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
    trovik_warnings(${name})
    trovik_sanitizers(${name})
    if(NOT arg_KIND)
      set(arg_KIND library)
    endif()
    trovik_precompile(${name} ${arg_KIND})
    trovik_hasten(${name} ${arg_KIND})
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${arg_PUBLIC})
  endif()
  if(arg_HEADERS)
    trovik_headers(${name} ${arg_HEADERS})
  endif()
endfunction()

# Programs with debug information are large. LLD links them in a fifth of the time; without it they are linked as usual.
find_program(TROVIK_LLD ld.lld)
mark_as_advanced(TROVIK_LLD)

# trovik_executable(<name> [KIND <kind, as above>] SOURCES ... [LINK <targets>])
function(trovik_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "KIND" "SOURCES;LINK")
  if(NOT arg_KIND)
    set(arg_KIND library)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK})
  if(TROVIK_LLD)
    target_link_options(${name} PRIVATE $<$<CONFIG:Debug,RelWithDebInfo>:-fuse-ld=lld>)
  endif()
  trovik_warnings(${name})
  trovik_sanitizers(${name})
  trovik_precompile(${name} ${arg_KIND})
  trovik_hasten(${name} ${arg_KIND})
endfunction()

# trovik_test(<name> SOURCES ... [LINK <targets>] [TIMEOUT <seconds>])
# One executable per module. ctest runs each test case as a process of its own, so process-wide objects start afresh.
function(trovik_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LINK")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  trovik_executable(${name} KIND test SOURCES ${arg_SOURCES} LINK ${arg_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT ${arg_TIMEOUT})
endfunction()
