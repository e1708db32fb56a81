# Builds for AArch64 Linux, with the cross compiler or, on AArch64, the system's own. What to build against comes from
# Debian packages unpacked below build/, and the programs built run on the board, tests included.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH project)
execute_process(COMMAND ${project}/board/compiler COMMAND_ERROR_IS_FATAL ANY)

set(CMAKE_FIND_ROOT_PATH ${project}/build/board/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${project}/scripts/board run)
