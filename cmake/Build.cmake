# How everything in this tree is compiled.

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

# The system that this is built for, as folders and files are named that belong to one system alone.
string(TOLOWER "${CMAKE_SYSTEM_NAME}" VEXLANE_SYSTEM)

set(VEXLANE_SANITIZERS "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")

add_library(vexlane_build INTERFACE)
if(MSVC)
    target_compile_options(vexlane_build INTERFACE /W4 /WX)
else()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # Members are touched under their mutexes alone: platform/mutex.h. Some warnings that are left out are GCC's own.
        target_compile_options(vexlane_build INTERFACE -Wthread-safety -Wno-unknown-warning-option)
    endif()
    # No contraction into fused operations: the arithmetic is the same on every processor.
    target_compile_options(vexlane_build INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wnull-dereference
        -Wdouble-promotion -Wold-style-cast -Woverloaded-virtual -Werror -ffp-contract=off)
endif()
if(VEXLANE_SANITIZERS)
    # The table check is left out: contract objects come from other images, each with its own type information.
    target_compile_options(vexlane_build INTERFACE -fsanitize=${VEXLANE_SANITIZERS} -fno-sanitize=vptr
        -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)
    if(VEXLANE_SANITIZERS MATCHES "fuzzer")
        # Built once and run a hundred million times.
        target_compile_options(vexlane_build INTERFACE -O2)
    endif()
    target_link_options(vexlane_build INTERFACE -fsanitize=${VEXLANE_SANITIZERS})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND VEXLANE_SANITIZERS MATCHES "address")
        # As GCC says it.
        target_compile_definitions(vexlane_build INTERFACE __SANITIZE_ADDRESS__)
    endif()
    # The optimiser's guesses about null and bounds go wrong in instrumented code.
    target_compile_options(vexlane_build INTERFACE -Wno-null-dereference -Wno-maybe-uninitialized)
    if(VEXLANE_SANITIZERS MATCHES "thread")
        # Boost's reference counts are used through headers alone; fences are not.
        target_compile_options(vexlane_build INTERFACE -Wno-tsan)
    endif()
endif()
target_compile_definitions(vexlane_build INTERFACE BOOST_BIND_GLOBAL_PLACEHOLDERS)

set(Boost_NO_WARN_NEW_VERSIONS ON)
if(WIN32)
    # A binary carries everything but the system's own libraries. Two builds, from whatever folders, are the same bytes:
    # they hold neither times nor paths.
    set(Boost_USE_STATIC_LIBS ON)
    target_compile_definitions(vexlane_build INTERFACE _WIN32_WINNT=0x0601 NOMINMAX WIN32_LEAN_AND_MEAN BOOST_ALL_NO_LIB)
    if(MINGW)
        target_compile_options(vexlane_build INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # Windows aligns the stack to 16 bytes, and this compiler expects 32 of it for wide registers
            # (https://gcc.gnu.org/bugzilla/show_bug.cgi?id=54412): the moves that would fault are made those that do not.
            target_compile_options(vexlane_build INTERFACE -Wa,-muse-unaligned-vector-move)
        endif()
        target_link_options(vexlane_build INTERFACE -static "LINKER:--no-insert-timestamp" $<$<CONFIG:Release>:-s>)
    endif()
else()
    target_compile_definitions(vexlane_build INTERFACE BOOST_ALL_DYN_LINK)
endif()
find_package(Boost 1.81 REQUIRED COMPONENTS thread)

# not_optimised(<file>...): for files of the current folder that work once, when a program starts. Those that read command
# lines were among the ten that took longest to compile, and most of it went into optimising.
function(not_optimised)
    if(NOT MSVC)
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O0)
    endif()
endfunction()
