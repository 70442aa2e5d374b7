# Compiler and linker options of the whole tree.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# The target system, as in the names of folders and files for one system.
string(TOLOWER "${CMAKE_SYSTEM_NAME}" VEXLANE_SYSTEM)

set(VEXLANE_SANITIZERS "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")

add_library(vexlane_build INTERFACE)
if(MSVC)
    target_compile_options(vexlane_build INTERFACE /W4 /WX)
else()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # -Wthread-safety checks the annotations of platform/mutex.h. Some warnings disabled elsewhere exist only in GCC.
        target_compile_options(vexlane_build INTERFACE -Wthread-safety -Wno-unknown-warning-option)
    endif()
    # No fused multiply-add, so that floating-point results are the same on every processor.
    target_compile_options(vexlane_build INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wnull-dereference
        -Wdouble-promotion -Wold-style-cast -Woverloaded-virtual -Werror -ffp-contract=off)
endif()
if(VEXLANE_SANITIZERS)
    # No vptr check: objects of the contract come from other images, each with its own type information.
    target_compile_options(vexlane_build INTERFACE -fsanitize=${VEXLANE_SANITIZERS} -fno-sanitize=vptr
        -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)
    if(VEXLANE_SANITIZERS MATCHES "fuzzer")
        # Fuzzers run long enough to repay optimisation.
        target_compile_options(vexlane_build INTERFACE -O2)
    endif()
    target_link_options(vexlane_build INTERFACE -fsanitize=${VEXLANE_SANITIZERS})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND VEXLANE_SANITIZERS MATCHES "address")
        # GCC defines it.
        target_compile_definitions(vexlane_build INTERFACE __SANITIZE_ADDRESS__)
    endif()
    # In instrumented code these warnings have false positives.
    target_compile_options(vexlane_build INTERFACE -Wno-null-dereference -Wno-maybe-uninitialized)
    if(VEXLANE_SANITIZERS MATCHES "thread")
        # Boost's headers contain fences, which the sanitizer does not support; the code in use does not execute them.
        target_compile_options(vexlane_build INTERFACE -Wno-tsan)
    endif()
endif()
target_compile_definitions(vexlane_build INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS)

set(Boost_NO_WARN_NEW_VERSIONS ON)
if(WIN32)
    # Binaries are linked statically except for the system's libraries. Builds are reproducible in any folder: binaries
    # contain no times and no paths.
    set(Boost_USE_STATIC_LIBS ON)
    target_compile_definitions(vexlane_build INTERFACE _WIN32_WINNT=0x0601 NOMINMAX WIN32_LEAN_AND_MEAN BOOST_ALL_NO_LIB)
    if(MINGW)
        target_compile_options(vexlane_build INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # Windows aligns the stack to 16 bytes, but GCC assumes 32 for wide registers
            # (https://gcc.gnu.org/bugzilla/show_bug.cgi?id=54412). Unaligned moves do not fault.
            target_compile_options(vexlane_build INTERFACE -Wa,-muse-unaligned-vector-move)
        endif()
        target_link_options(vexlane_build INTERFACE -static "LINKER:--no-insert-timestamp" $<$<CONFIG:Release>:-s>)
    endif()
else()
    target_compile_definitions(vexlane_build INTERFACE BOOST_ALL_DYN_LINK)
endif()
find_package(Boost 1.81 REQUIRED COMPONENTS thread)

# not_optimised(<file>...): compiles files of the current folder without optimisation. For code that runs once, when a
# program starts: files that parse command lines take long to compile, most of it in the optimiser.
function(not_optimised)
    if(NOT MSVC)
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O0)
    endif()
endfunction()
