# Precompiled headers: the standard library's and third parties' headers that most sources include, compiled once for each
# kind of target. This project's own headers are not among them, so that a change to one compiles no more than before.
# Sources still include what they use. The presets clang and fuzz build without any of this, and so would find out.
option(TROVIK_PRECOMPILE "Compile common headers of the standard library and of third parties once for all targets" ${PROJECT_IS_TOP_LEVEL})

set(trovik_standard_headers
  <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <cstdio> <cstdlib> <cstring> <deque> <exception>
  <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <set> <span> <sstream> <stdexcept> <string>
  <string_view> <system_error> <thread> <utility> <variant> <vector>)
set(trovik_window_headers <QAction> <QApplication> <QLabel> <QMessageBox> <QProgressBar> <QPushButton> <QTimer> <QWidget>)
set(trovik_test_headers <gtest/gtest.h> <gmock/gmock.h>)

# trovik_precompile(<target> library|window|test|window_test)
# All targets of a kind share what one target holds. The compiler takes it only from a target with the same options, which
# is why the holder gets the options that any target gets, and why programs are compiled like libraries.
function(trovik_precompile target kind)
  if(NOT TROVIK_PRECOMPILE)
    return()
  endif()
  set(holder trovik_precompiled_${kind})
  if(NOT TARGET ${holder})
    set(headers ${trovik_standard_headers})
    set(link "")
    if(kind MATCHES "window")
      list(APPEND headers ${trovik_window_headers})
      list(APPEND link Qt6::Widgets)
    endif()
    if(kind MATCHES "test")
      list(APPEND headers ${trovik_test_headers})
      list(APPEND link GTest::gmock GTest::gtest)
    endif()
    set(source ${PROJECT_BINARY_DIR}/${holder}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "// Compiled only to have the headers precompiled.\n")
    add_library(${holder} OBJECT EXCLUDE_FROM_ALL ${source})
    target_link_libraries(${holder} PRIVATE ${link})
    target_precompile_headers(${holder} PRIVATE ${headers})
    trovik_warnings(${holder})
    trovik_sanitizers(${holder})
    trovik_hasten(${holder} ${kind})
  endif()
  target_precompile_headers(${target} REUSE_FROM ${holder})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_compile_options(${target} PRIVATE -fPIC)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With what is precompiled the compiler's heap is soon at the limit at which it looks for garbage, and there is none: up
    # to a sixth of the time of a large source.
    target_compile_options(${target} PRIVATE "SHELL:--param ggc-min-heapsize=1048576")  # KiB
  endif()
endfunction()
