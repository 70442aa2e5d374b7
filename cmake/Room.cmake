# room(<folder> [MAY_INCLUDE <room or header>...|ANY] [SOURCES <file>...] [LIBRARIES <library>...])
#
# Declares the current folder, given by its path from the root, as a room. MAY_INCLUDE lists the rooms or single headers
# that it may include; scripts/check-rooms compares the list with the actual includes. The room's library, with SOURCES or
# without, is vexlane_<folder>, with _ for /. It links the libraries of the rooms that it may include, and LIBRARIES.
function(room name)
    cmake_parse_arguments(ROOM "" "" "MAY_INCLUDE;SOURCES;LIBRARIES" ${ARGN})
    set(neighbours "")
    foreach(neighbour IN LISTS ROOM_MAY_INCLUDE)
        if(NOT neighbour MATCHES "^ANY$|[.]h$")
            string(REPLACE "/" "_" neighbour "${neighbour}")
            list(APPEND neighbours "vexlane_${neighbour}")
        endif()
    endforeach()

    string(REPLACE "/" "_" library "vexlane_${name}")
    if(ROOM_SOURCES)
        add_library(${library} STATIC ${ROOM_SOURCES})
        target_include_directories(${library} PUBLIC "${PROJECT_SOURCE_DIR}")
        target_link_libraries(${library} PUBLIC ${neighbours} ${ROOM_LIBRARIES} PRIVATE vexlane_build)
    else()
        add_library(${library} INTERFACE)
        target_include_directories(${library} INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>")
        target_link_libraries(${library} INTERFACE ${neighbours} ${ROOM_LIBRARIES})
    endif()
endfunction()
