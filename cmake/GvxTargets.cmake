# Flags that every target of ours is built with; they do not reach those who use the installed package.
add_library(gvx_flags INTERFACE)
target_compile_options(gvx_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align -Wformat=2 -Wundef -Wvla -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(gvx_flags INTERFACE -Wlogical-op -Wduplicated-cond)
endif()
if(GVX_WERROR)
  target_compile_options(gvx_flags INTERFACE -Werror)
endif()
if(GVX_STRICT_LINK)
  target_link_options(gvx_flags INTERFACE -Wl,--no-undefined)
endif()

if(GVX_SANITIZE)
  add_compile_options(-fsanitize=${GVX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${GVX_SANITIZE})
  # A sanitizer's runtime is resolved in the program, not in each shared object.
  set_property(TARGET gvx_flags PROPERTY INTERFACE_LINK_OPTIONS "")
endif()

# The cache does not preprocess what it does not have, which would add a fifth to a compile, and takes sources with
# precompiled headers.
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "(^|/)ccache$")
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_DEPEND=1
    CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CMAKE_CXX_COMPILER_LAUNCHER})
endif()

# Libraries' headers that most sources read, precompiled once for the code (gvx_bp) and once for the tests. The release
# preset does without, so a source that does not include what it uses fails there.
set(gvx_precompiled_headers
  <algorithm> <array> <atomic> <chrono> <condition_variable> <cstring> <deque> <functional> <list> <map> <memory> <mutex>
  <set> <string> <string_view> <thread> <utility> <vector>
  <ace/Guard_T.h> <ace/Message_Block.h> <ace/Reactor.h> <json/value.h>)

# gvx_library(<target> PUBLIC_HEADERS <files below src...>): a shared library made of the folder's sources. Its public
# headers are what plug-in authors need; they alone are installed, and each is compiled alone by all_verify_interface_header_sets.
function(gvx_library target)
  cmake_parse_arguments(arg "" "" "PUBLIC_HEADERS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  add_library(${target} SHARED ${sources})
  add_library(gvx::${target} ALIAS ${target})
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  list(TRANSFORM arg_PUBLIC_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/src/ OUTPUT_VARIABLE public_headers)
  target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/src FILES ${public_headers})
  # No macro of its own (DEFINE_SYMBOL), or it could not take the precompiled headers of another.
  set_target_properties(${target} PROPERTIES INTERFACE_HEADER_SETS_TO_VERIFY HEADERS DEFINE_SYMBOL "")
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/generated>)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:gvx_flags>)
endfunction()

# What the thread sanitizer's run needs: the suites with the label "threads".
add_custom_target(gvx_threaded_tests)

# gvx_test(<name> FOLDER <dir> LINKS <libs...> [LABELS <labels...>]): one gtest program of a folder's sources.
function(gvx_test name)
  cmake_parse_arguments(arg "" "FOLDER;TIMEOUT" "LINKS;LABELS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${arg_FOLDER}/*.cpp)
  if(NOT sources)
    return()
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 600)
  endif()
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE gvx_flags gvx_test_support ${arg_LINKS} GTest::gmock GTest::gtest_main)
  target_precompile_headers(${name} REUSE_FROM gvx_test_support)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "unit;${arg_LABELS}")
  if("threads" IN_LIST arg_LABELS)
    add_dependencies(gvx_threaded_tests ${name})
  endif()
endfunction()
