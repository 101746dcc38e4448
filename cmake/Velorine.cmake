# What all targets share.

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
endif()

# Rounding is part of what we promise: no contraction, no fast math, the same on both platforms.
add_library(velorine_options INTERFACE)
target_compile_options(velorine_options INTERFACE -ffp-contract=off)
target_include_directories(velorine_options INTERFACE ${PROJECT_SOURCE_DIR})

if(VELORINE_SANITIZE)
    target_compile_options(velorine_options INTERFACE
        -fsanitize=${VELORINE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(velorine_options INTERFACE -fsanitize=${VELORINE_SANITIZE})
    # A block that is handed out again would hide its use after free.
    target_compile_definitions(velorine_options INTERFACE VELORINE_KEEP_FREED_BLOCKS=0)
endif()
if(VELORINE_FUZZ)
    target_compile_options(velorine_options INTERFACE
        -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
    target_link_options(velorine_options INTERFACE -fsanitize=address,undefined)
    target_compile_definitions(velorine_options INTERFACE VELORINE_KEEP_FREED_BLOCKS=0)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(velorine_options INTERFACE -Wthread-safety)
endif()

# Warnings for our own code, as errors.
add_library(velorine_warnings INTERFACE)
target_compile_options(velorine_warnings INTERFACE
    -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wdouble-promotion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(velorine_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wsuggest-override>)
endif()

if(WIN32)
    set(VELORINE_PLATFORM win32)
else()
    set(VELORINE_PLATFORM posix)
endif()

# velorine_library(NAME SOURCES ... LINKS ...): one static library a folder.
function(velorine_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC velorine_options ${ARG_LINKS} PRIVATE velorine_warnings)
endfunction()

# Sources that may use wider instructions than the rest, chosen at run time.
function(velorine_instructions flags)
    foreach(source ${ARGN})
        set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "${flags}")
    endforeach()
endfunction()
