# The options of all targets, and the functions that declare a library, a program and a test.

# Halves the build time.
option(TARNWHEEL_UNITY_BUILD "Compile the sources of a library together" OFF)

add_library(tarnwheel_options INTERFACE)
target_compile_options(tarnwheel_options INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)
if(TARNWHEEL_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # GCC takes the sources that a unity file includes for headers, where unnamed namespaces are a mistake.
  target_compile_options(tarnwheel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()
target_compile_definitions(tarnwheel_options INTERFACE UNICODE _UNICODE)
if(WIN32)
  # All protections that MinGW offers; Control Flow Guard is not among them.
  target_compile_options(tarnwheel_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fstack-protector-strong>)
  target_link_options(tarnwheel_options INTERFACE
    -static $<$<LINK_LANGUAGE:CXX>:-fstack-protector-strong>
    LINKER:--dynamicbase,--nxcompat,--high-entropy-va,--no-insert-timestamp)
endif()

# The headers that nearly every source includes are precompiled. A source must still include what it
# names: the preset `release` builds without precompiled headers.
add_library(common_headers OBJECT ${CMAKE_CURRENT_LIST_DIR}/common_headers.cpp)
target_link_libraries(common_headers PRIVATE tarnwheel_options platform)
set(common_headers
  <platform/win32.h> <algorithm> <atomic> <chrono> <coroutine> <functional> <memory> <mutex>
  <optional> <span> <string> <string_view> <utility> <vector>)
target_precompile_headers(common_headers PRIVATE ${common_headers})

# A library sees the headers of another only by linking it: each folder is published through its own
# include directory, which contains that folder only, under its path from the project's root. So
# "client/line/retry.h" is found only by targets that link that folder's library.
function(tarnwheel_publish_folder target scope)
  set(root ${CMAKE_BINARY_DIR}/include/${target})
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_SOURCE_DIR}
    OUTPUT_VARIABLE folder)
  cmake_path(GET folder PARENT_PATH parent)
  file(REMOVE_RECURSE ${root})  # the folder may have moved since
  file(MAKE_DIRECTORY ${root}/${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
  # Each header must compile alone. A source of the same name includes it first, which proves that where
  # nothing is precompiled; headers without such a source are compiled by themselves.
  set(shown "")
  set(unshown "")
  foreach(header ${ARGN})
    cmake_path(REPLACE_EXTENSION header .cpp OUTPUT_VARIABLE source)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${source})
      list(APPEND shown ${root}/${folder}/${header})
    else()
      list(APPEND unshown ${root}/${folder}/${header})
    endif()
  endforeach()
  target_sources(${target} ${scope} FILE_SET shown TYPE HEADERS BASE_DIRS ${root} FILES ${shown})
  target_sources(${target} ${scope} FILE_SET unshown TYPE HEADERS BASE_DIRS ${root} FILES ${unshown})
  set_target_properties(${target} PROPERTIES INTERFACE_HEADER_SETS_TO_VERIFY unshown)
endfunction()

# tarnwheel_library(NAME [INTERFACE] HEADERS ... [SOURCES ...] [DEPENDS ...])
function(tarnwheel_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "INTERFACE" "" "HEADERS;SOURCES;DEPENDS")
  if(arg_INTERFACE)
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  else()
    add_library(${name} STATIC ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES
      UNITY_BUILD ${TARNWHEEL_UNITY_BUILD} UNITY_BUILD_BATCH_SIZE 12)
    target_precompile_headers(${name} REUSE_FROM common_headers)
    set(scope PUBLIC)
  endif()
  tarnwheel_publish_folder(${name} ${scope} ${arg_HEADERS})
  target_link_libraries(${name} ${scope} tarnwheel_options ${arg_DEPENDS})
endfunction()

# tarnwheel_program(NAME SOURCES ... [DEPENDS ...])
function(tarnwheel_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${arg_SOURCES})
  target_precompile_headers(${name} REUSE_FROM common_headers)
  target_link_libraries(${name} PRIVATE tarnwheel_options ${arg_DEPENDS})
endfunction()

# tarnwheel_version(TARGET DESCRIPTION): adds the resource from which Windows, and the program itself,
# read its version, which is the project's.
function(tarnwheel_version target description)
  string(REPLACE "." "," version_fields ${PROJECT_VERSION})
  set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()

# Debian packages GoogleTest as sources; it is built for the target like the rest.
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)

# A test's own code runs once, so most of its time goes into compiling it. The sanitizers are for the
# libraries, not for tests and GoogleTest; header code that tests instantiate is sanitized in the native
# builds. Unoptimised, there would be so many small functions that MinGW's linker takes seconds per
# program.
set(test_options $<IF:$<BOOL:${WIN32}>,-Og,-O0> $<$<BOOL:${WIN32}>:-fno-sanitize=all>)
target_compile_options(gtest PRIVATE $<IF:$<BOOL:${WIN32}>,-Og,-O0> -g0 -fno-sanitize=all)

add_library(test_headers OBJECT ${CMAKE_CURRENT_LIST_DIR}/common_headers.cpp)
target_link_libraries(test_headers PRIVATE tarnwheel_options platform gtest)
target_compile_options(test_headers PRIVATE ${test_options})
target_precompile_headers(test_headers PRIVATE <gtest/gtest.h> ${common_headers})

# tarnwheel_test_program(NAME SOURCES ... [DEPENDS ...])
function(tarnwheel_test_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE tarnwheel_options ${arg_DEPENDS} gtest gtest_main)
  target_compile_options(${name} PRIVATE ${test_options})
  target_precompile_headers(${name} REUSE_FROM test_headers)
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests
    UNITY_BUILD ${TARNWHEEL_UNITY_BUILD} UNITY_BUILD_BATCH_SIZE 6)
endfunction()

# tarnwheel_test(NAME SOURCES ... [DEPENDS ...] [TIMEOUT seconds]): one executable and one ctest entry
# per subsystem, so that Wine starts few times.
function(tarnwheel_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;DEPENDS")
  tarnwheel_test_program(${name} SOURCES ${arg_SOURCES} DEPENDS ${arg_DEPENDS})
  add_test(NAME ${name} COMMAND ${name})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} FIXTURES_REQUIRED everything)
endfunction()
