# Cross-compiles for Windows, 64-bit unless KEST_WINDOWS_PROCESSOR says otherwise; the posix thread model brings
# std::thread and std::mutex.
if(NOT KEST_WINDOWS_PROCESSOR)
    set(KEST_WINDOWS_PROCESSOR x86_64)
endif()
set(prefix ${KEST_WINDOWS_PROCESSOR}-w64-mingw32)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${KEST_WINDOWS_PROCESSOR})
set(CMAKE_C_COMPILER ${prefix}-gcc-posix)  # GoogleTest asks for one
set(CMAKE_CXX_COMPILER ${prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${prefix}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
