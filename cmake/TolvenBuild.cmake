# Compiler settings shared by every target, and the helpers that declare targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(TOLVEN_CCACHE ccache)
if(TOLVEN_CCACHE)
  # Paths below the checkout do not count, so that every checkout shares what one has compiled.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      "${CMAKE_COMMAND};-E;env;CCACHE_BASEDIR=${CMAKE_SOURCE_DIR};CCACHE_NOHASHDIR=true;${TOLVEN_CCACHE}"
  )
endif()

add_library(tolven_options INTERFACE)
target_compile_options(tolven_options INTERFACE -Wall -Wextra -Wconversion -Wshadow
                                                -Wnon-virtual-dtor -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  target_compile_options(tolven_options INTERFACE -Wthread-safety)
else()
  # g++ 12 sees overlapping copies in inlined std::string concatenation where there are none.
  target_compile_options(tolven_options INTERFACE -Wno-restrict)
endif()
if(WIN32)
  # Windows 7 and later; the wide calls unless a call says otherwise; ICU is linked statically.
  target_compile_definitions(
    tolven_options INTERFACE _WIN32_WINNT=0x0601 UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN
                             U_STATIC_IMPLEMENTATION)
endif()
if(TOLVEN_SANITIZE)
  string(REPLACE "," ";" tolven_sanitizers "${TOLVEN_SANITIZE}")
  foreach(sanitizer IN LISTS tolven_sanitizers)
    target_compile_options(tolven_options INTERFACE -fsanitize=${sanitizer})
    target_link_options(tolven_options INTERFACE -fsanitize=${sanitizer})
  endforeach()
  target_compile_options(tolven_options INTERFACE -fno-omit-frame-pointer
                                                  -fno-sanitize-recover=all)
endif()
if(TOLVEN_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "TOLVEN_FUZZ needs clang")
  endif()
  # The whole tree reports its coverage; only the fuzz targets get the fuzzer's main().
  target_compile_options(
    tolven_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                             -fno-sanitize-recover=all)
  target_link_options(tolven_options INTERFACE -fsanitize=address,undefined)
endif()

# tolven_library(NAME SOURCES a.cpp ... DEPS target ...)
function(tolven_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE tolven_options)
endfunction()

# tolven_program(NAME SOURCES a.cpp ... DEPS target ...)
# On Windows its code page is UTF-8 where the system knows that, so that every name can be an argument.
function(tolven_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(WIN32)
    target_sources(${name} PRIVATE "${CMAKE_SOURCE_DIR}/cmake/windows-program.rc")
  endif()
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} tolven_options)
endfunction()

# tolven_test(NAME SOURCES a.cpp ... DEPS target ... [LABELS label ...])
# A GoogleTest program; each of its cases becomes one ctest entry.
function(tolven_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gmock tolven_test_main
                                        tolven_options)
  set(timeout 300)
  if(WIN32)
    # Wine takes several times as long for anything that has to do with files.
    set(timeout 900)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${timeout} LABELS
                                                                  "${ARG_LABELS}")
endfunction()

# tolven_fuzzer(NAME SOURCES a.cpp ... DEPS target ...)
# A libFuzzer program; NAME begins with fuzz_, and its seeds are in corpus/NAME beside the sources.
function(tolven_fuzzer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} tolven_options)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
endfunction()
