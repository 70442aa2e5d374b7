# cmake --install: the files of the package. For Windows scripts/package makes a ZIP file of them.
#
# vexlane.dll (libvexlane.so), plate-host and this package's README.txt are at the top, so that the program finds the
# library beside it. reference-engine/ holds the reference engine and its server, recording-engine/ the one that records,
# scripted-engine/ the one of "plate-host validate", include/sdk/ the headers, example-host/ a host to start from, lib/ the
# import library and what find_package(vexlane CONFIG) reads, with the target vexlane::sdk.

include(CMakePackageConfigHelpers)

install(TARGETS vexlane RUNTIME DESTINATION . LIBRARY DESTINATION . ARCHIVE DESTINATION lib)
file(GLOB sdk_headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/sdk/*.h")
install(FILES ${sdk_headers} DESTINATION include/sdk)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/tools/example_host/" DESTINATION example-host)

install(TARGETS vexlane_sdk EXPORT vexlane)
install(EXPORT vexlane NAMESPACE vexlane:: DESTINATION lib/cmake/vexlane FILE vexlane-config.cmake)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/vexlane-config-version.cmake"
    COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
install(FILES "${PROJECT_BINARY_DIR}/vexlane-config-version.cmake" DESTINATION lib/cmake/vexlane)

if(TARGET plate-host)
    install(TARGETS plate-host RUNTIME DESTINATION .)
    install(TARGETS vexlane_engine_recording RUNTIME DESTINATION recording-engine LIBRARY DESTINATION recording-engine)
    install(FILES ${VEXLANE_HOST_DLLS} DESTINATION .)
endif()
if(TARGET plate-server)
    install(TARGETS vexlane_engine_reading plate-server
        RUNTIME DESTINATION reference-engine LIBRARY DESTINATION reference-engine)
endif()

if(TARGET plate-host AND TARGET vexlane_engine_scripted)
    install(TARGETS vexlane_engine_scripted RUNTIME DESTINATION scripted-engine LIBRARY DESTINATION scripted-engine)
endif()

if(WIN32)
    configure_file("${PROJECT_SOURCE_DIR}/docs/windows-package.txt" "${PROJECT_BINARY_DIR}/README.txt"
        @ONLY NEWLINE_STYLE CRLF)
    install(FILES "${PROJECT_BINARY_DIR}/README.txt" "${PROJECT_SOURCE_DIR}/docs/troubleshooting.md" DESTINATION .)
endif()

# The licences of the libraries that are linked in or beside plate-host, from Debian's packages.
if(CMAKE_CROSSCOMPILING)
    set(notices boost=libboost1.81-dev gcc-runtime=gcc-mingw-w64-base mingw-w64=mingw-w64-common)
    if(TARGET plate-host)
        list(APPEND notices cli11=libcli11-dev nlohmann-json=nlohmann-json3-dev
            stb=libstb-dev xxhash=libxxhash-dev)
    endif()
    if(TARGET plate-server)
        list(APPEND notices opencv=libopencv-dnn-dev protobuf=protobuf-compiler zlib=libz-mingw-w64-dev)
    endif()
    if(VEXLANE_HOST_DLLS)
        list(APPEND notices ffmpeg=libavcodec-dev)
        # The text of its licence, its version and its configuration.
        list(GET VEXLANE_HOST_DLLS 0 dll)
        cmake_path(GET dll PARENT_PATH folder)
        install(FILES "${folder}/../notice.txt" DESTINATION third-party RENAME ffmpeg-lgpl.txt)
    endif()
    foreach(notice IN LISTS notices)
        string(REGEX MATCH "^(.*)=(.*)$" notice "${notice}")
        install(FILES "/usr/share/doc/${CMAKE_MATCH_2}/copyright" DESTINATION third-party RENAME ${CMAKE_MATCH_1}.txt)
    endforeach()
endif()

if(WIN32)
    install(CODE [[
        cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_PREFIX NORMALIZE OUTPUT_VARIABLE prefix)
        set(sums "")
        list(SORT CMAKE_INSTALL_MANIFEST_FILES)
        foreach(file IN LISTS CMAKE_INSTALL_MANIFEST_FILES)
            file(SHA256 "$ENV{DESTDIR}${file}" sum)
            cmake_path(NORMAL_PATH file)
            cmake_path(RELATIVE_PATH file BASE_DIRECTORY "${prefix}" OUTPUT_VARIABLE name)
            string(APPEND sums "${sum}  ${name}\n")
        endforeach()
        file(WRITE "$ENV{DESTDIR}${prefix}/SHA256SUMS" "${sums}")
    ]])
endif()
