# kest_headers(TARGET FOLDER)
#
# Lets a target reach the headers of its folder as "folder/Header.h", through a directory that holds this folder
# alone: an include that follows no arrow of the architecture does not compile.
function(kest_headers target folder)
    get_target_property(type ${target} TYPE)
    set(scope PUBLIC)
    if(type STREQUAL "INTERFACE_LIBRARY")
        set(scope INTERFACE)
    endif()
    set(root ${CMAKE_BINARY_DIR}/include/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
    target_include_directories(${target} ${scope} ${root})
endfunction()

# kest_library(NAME [LINKS libraries...] [SOURCES files...])
#
# Makes the library of one folder, which may use those it links and no others. Without sources it is a library
# of headers alone.
function(kest_library name)
    cmake_parse_arguments(arg "" "" "LINKS;SOURCES" ${ARGN})
    list(TRANSFORM arg_LINKS PREPEND kest_)
    if(arg_SOURCES)
        add_library(kest_${name} STATIC ${arg_SOURCES})
        target_link_libraries(kest_${name} PUBLIC ${arg_LINKS} Threads::Threads)
    else()
        add_library(kest_${name} INTERFACE)
        target_link_libraries(kest_${name} INTERFACE ${arg_LINKS})
    endif()
    kest_headers(kest_${name} ${name})
endfunction()
