# Builds for AArch64 Linux, with the cross compiler or, on AArch64, the system's own. Headers and libraries come from Debian
# packages that board/compiler unpacks below build/; the programs built run on the emulated board, tests included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH project)
set(CMAKE_FIND_ROOT_PATH ${project}/build/board/sysroot)
find_program(cross_compiler ${CMAKE_CXX_COMPILER} NO_CACHE)
if(NOT cross_compiler OR NOT EXISTS ${CMAKE_FIND_ROOT_PATH})
    message(
        FATAL_ERROR "The compiler or the libraries for AArch64 are missing; this command installs both: board/compiler"
    )
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${project}/scripts/board run)
