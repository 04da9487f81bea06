# Cross-compiles 64-bit Windows programs with Debian's MinGW-w64. The libraries are those that
# win-deps.sh has built; it runs here when they are missing or have changed.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(tolven_triplet x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${tolven_triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${tolven_triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${tolven_triplet}-windres)

# win-deps.sh sets it while it builds the libraries themselves.
set(WIN_DEPS_PREFIX "$ENV{WIN_DEPS_PREFIX}" CACHE PATH "Where win-deps.sh has put the libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES WIN_DEPS_PREFIX)
if(NOT WIN_DEPS_PREFIX)
  execute_process(
    COMMAND "${CMAKE_CURRENT_LIST_DIR}/win-deps.sh"
    OUTPUT_VARIABLE tolven_win_deps
    OUTPUT_STRIP_TRAILING_WHITESPACE
    RESULT_VARIABLE tolven_win_deps_result)
  if(NOT tolven_win_deps_result EQUAL 0)
    message(FATAL_ERROR "cmake/win-deps.sh failed")
  endif()
  set(WIN_DEPS_PREFIX "${tolven_win_deps}" CACHE PATH "" FORCE)
endif()

set(CMAKE_FIND_ROOT_PATH ${WIN_DEPS_PREFIX} /usr/${tolven_triplet})
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(OPENSSL_USE_STATIC_LIBS ON)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run.sh")
