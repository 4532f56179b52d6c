# kest_library(NAME [LINKS libraries...] SOURCES files...)
#
# Makes the library of one folder. Its headers are reached as "folder/Header.h" through a directory that
# holds this folder alone, so an include that follows no arrow of the architecture does not compile.
function(kest_library name)
    cmake_parse_arguments(arg "" "" "LINKS;SOURCES" ${ARGN})
    set(root ${CMAKE_BINARY_DIR}/include/${name})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${name} SYMBOLIC)
    add_library(kest_${name} STATIC ${arg_SOURCES})
    target_include_directories(kest_${name} PUBLIC ${root})
    list(TRANSFORM arg_LINKS PREPEND kest_)
    target_link_libraries(kest_${name} PUBLIC ${arg_LINKS} Threads::Threads)
endfunction()
