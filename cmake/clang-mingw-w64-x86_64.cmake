# The same target with clang and lld, as a second opinion on the sources, with MinGW-w64's headers and
# GCC's library. That library uses emulated thread-local storage, and functions that it deprecates
# itself.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_CXX_FLAGS_INIT "-O1 -g1 -femulated-tls -Wno-deprecated-declarations")
set(CMAKE_EXE_LINKER_FLAGS_INIT -fuse-ld=lld)
# GCC's driver adds this for GCC's library.
set(CMAKE_CXX_STANDARD_LIBRARIES -lpthread)
