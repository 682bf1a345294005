# How every target of ours is compiled: velt_options carries it, and velt_add_library makes one
# library a folder from its two lists of sources.

add_library(velt_options INTERFACE)
target_compile_features(velt_options INTERFACE cxx_std_20)
target_include_directories(velt_options INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_compile_options(velt_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wundef -Wcast-qual
    -Wold-style-cast -Wextra-semi -Woverloaded-virtual -Wimplicit-fallthrough -Werror)
# Nothing that is built names a folder of this machine, generated code included.
foreach(folder IN ITEMS "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/src" "${PROJECT_BINARY_DIR}")
    add_compile_options("$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${folder}/=>")
endforeach()

if(WIN32)
    target_compile_definitions(velt_options INTERFACE
        UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0601 WINVER=0x0601)
    # No run-time DLL of the compiler's beside ours; the linker leaves out what nobody calls. The
    # image says that it can be moved and holds no code in its data. No time stamp: two builds of one
    # commit are the same bytes.
    target_compile_options(velt_options INTERFACE -ffunction-sections -fdata-sections)
    target_link_options(velt_options INTERFACE
        -static -Wl,--gc-sections -Wl,--enable-stdcall-fixup -Wl,--no-insert-timestamp
        -Wl,--dynamicbase -Wl,--nxcompat ${VELT_IMAGE_OPTIONS})
    if(VELT_CHECKED)
        # The system's marshallers ask for interfaces by IIDs at odd places in their own data; the
        # native build checks alignment.
        target_compile_definitions(velt_options INTERFACE _GLIBCXX_ASSERTIONS)
        target_compile_options(velt_options INTERFACE
            -fsanitize=undefined -fno-sanitize=alignment -fsanitize-undefined-trap-on-error)
    endif()
else()
    target_compile_definitions(velt_options INTERFACE _GLIBCXX_ASSERTIONS)
    target_compile_options(velt_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(velt_options INTERFACE -fsanitize=address,undefined)
endif()

# What is shipped is compiled to be small.
add_library(velt_shipped_options INTERFACE)
target_link_libraries(velt_shipped_options INTERFACE velt_options)
target_compile_options(velt_shipped_options INTERFACE $<$<CONFIG:Release>:-Os>)
if(WIN32)
    # Sections begin at pages of the file, so a loader may map them and read only what is used.
    target_link_options(velt_shipped_options INTERFACE -Wl,--file-alignment=4096)
endif()

# The headers that most sources of the product name first, read once for all of them. The checked
# build does without, so that a source that does not name what it needs is found there.
if(WIN32 AND NOT VELT_CHECKED)
    add_library(velt_product_headers OBJECT "${PROJECT_SOURCE_DIR}/cmake/empty.cpp")
    target_link_libraries(velt_product_headers PRIVATE velt_shipped_options)
    target_precompile_headers(velt_product_headers PRIVATE
        <algorithm> <array> <memory> <optional> <span> <string> <string_view> <utility> <vector>
        <windows.h> <comdef.h> <oaidl.h> <ocidl.h> <wrl/client.h>)
endif()

# velt_precompile(<target>): has a target of the product use them.
function(velt_precompile target)
    if(TARGET velt_product_headers)
        target_precompile_headers(${target} REUSE_FROM velt_product_headers)
    endif()
endfunction()

# velt_add_library(<folder> CORE <sources> PLATFORM <sources> LINKS <libraries> HOT <sources>)
# CORE needs no Windows header and is built for both systems. HOT names those of the sources that
# are compiled to be quick instead: the benches show these.
function(velt_add_library folder)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "CORE;PLATFORM;LINKS;HOT")
    set(sources ${arg_CORE})
    if(WIN32)
        list(APPEND sources ${arg_PLATFORM})
    endif()
    if(NOT sources)
        return()
    endif()
    add_library(velt_${folder} STATIC ${sources})
    target_link_libraries(velt_${folder} PUBLIC velt_options ${arg_LINKS} PRIVATE velt_shipped_options)
    velt_precompile(velt_${folder})
    if(arg_HOT)
        set_property(SOURCE ${arg_HOT} APPEND PROPERTY COMPILE_OPTIONS $<$<CONFIG:Release>:-O2>)
        set_property(SOURCE ${arg_HOT} PROPERTY SKIP_PRECOMPILE_HEADERS ON)
    endif()
endfunction()
