# Builds for 64-bit Windows with mingw-w64 and runs the programs through Wine. scripts/setup-windows installs the libraries
# in the folders searched here.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_DLLTOOL x86_64-w64-mingw32-dlltool)
set(CMAKE_OBJDUMP x86_64-w64-mingw32-objdump)

execute_process(
    COMMAND "${CMAKE_CURRENT_LIST_DIR}/../scripts/setup-windows" --print-prefixes
    OUTPUT_VARIABLE vexlane_windows_prefixes OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\n" ";" vexlane_windows_prefixes "${vexlane_windows_prefixes}")
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${vexlane_windows_prefixes})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine")
