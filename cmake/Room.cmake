# room(<name> [MAY_INCLUDE <room>...] [SOURCES <file>...] [LIBRARIES <library>...])
#
# Declares the room that is the current folder: its sources, the rooms whose headers it may include, and the libraries
# from outside that it uses. scripts/check-rooms compares MAY_INCLUDE with the real includes.
function(room name)
    cmake_parse_arguments(ROOM "" "" "MAY_INCLUDE;SOURCES;LIBRARIES" ${ARGN})
    set(neighbours "")
    foreach(neighbour IN LISTS ROOM_MAY_INCLUDE)
        list(APPEND neighbours "vexlane_${neighbour}")
    endforeach()

    if(ROOM_SOURCES)
        add_library(vexlane_${name} STATIC ${ROOM_SOURCES})
        target_include_directories(vexlane_${name} PUBLIC "${PROJECT_SOURCE_DIR}")
        target_link_libraries(vexlane_${name} PUBLIC ${neighbours} ${ROOM_LIBRARIES} PRIVATE vexlane_build)
    else()
        add_library(vexlane_${name} INTERFACE)
        target_include_directories(vexlane_${name} INTERFACE "${PROJECT_SOURCE_DIR}")
        target_link_libraries(vexlane_${name} INTERFACE ${neighbours} ${ROOM_LIBRARIES})
    endif()
endfunction()
