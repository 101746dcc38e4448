# Libraries that Debian has no Windows packages of: what scripts/windows-fftw.sh has built, and
# GoogleTest from its sources.
set(VELORINE_WINDOWS_PREFIX "$ENV{HOME}/.cache/velorine/i686-w64-mingw32" CACHE PATH
    "Where the cross-built libraries stand")
foreach(library fftw3 fftw3f)
    if(NOT EXISTS ${VELORINE_WINDOWS_PREFIX}/lib/lib${library}.a)
        message(FATAL_ERROR "No ${library} for Windows: run scripts/windows-fftw.sh ${VELORINE_WINDOWS_PREFIX}")
    endif()
    add_library(${library} STATIC IMPORTED)
    set_target_properties(${library} PROPERTIES
        IMPORTED_LOCATION ${VELORINE_WINDOWS_PREFIX}/lib/lib${library}.a
        INTERFACE_INCLUDE_DIRECTORIES ${VELORINE_WINDOWS_PREFIX}/include)
endforeach()

set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(name gtest gtest_main gmock)
    if(NOT TARGET GTest::${name})
        add_library(GTest::${name} ALIAS ${name})
    endif()
endforeach()
