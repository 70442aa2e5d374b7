# Like windows-mingw.cmake, with clang instead of GCC; headers, libraries and linker are those of mingw-w64.
include("${CMAKE_CURRENT_LIST_DIR}/windows-mingw.cmake")

file(GLOB runtime /usr/lib/gcc/x86_64-w64-mingw32/*-posix)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_FLAGS_INIT
    "-stdlib++-isystem ${runtime}/include/c++ -cxx-isystem ${runtime}/include/c++/x86_64-w64-mingw32")
# Boost was built by GCC, which puts some of its variables into other sections than clang.
foreach(kind IN ITEMS EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-B${runtime} -L${runtime} -fuse-ld=/usr/bin/x86_64-w64-mingw32-ld -pthread -Wl,--allow-multiple-definition")
endforeach()
