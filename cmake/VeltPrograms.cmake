# What the programs that are shipped need beside their sources.

# velt_delay_load(<target> <library>...)
#
# Has the target load DLLs of the system, named as their import libraries are, at the first call of
# one of their functions instead of at its start. They come from the system's folder alone; where one
# cannot be loaded, the call throws: see src/server/delay_load.cpp. Their import libraries are made
# anew from those of the compiler.
function(velt_delay_load target)
    foreach(library IN LISTS ARGN)
        # Folders of their own, so that a target finds no more there than what it asks for.
        set(folder "${PROJECT_BINARY_DIR}/delay_load/${library}")
        if(NOT TARGET velt_delay_${library})
            add_custom_command(
                OUTPUT "${folder}/lib${library}.a"
                COMMAND "${PROJECT_SOURCE_DIR}/cmake/delay_load_library.sh" ${library}
                    "${folder}/lib${library}.a" "${CMAKE_CXX_COMPILER}" "${CMAKE_NM}"
                    "${CMAKE_DLLTOOL}" "${CMAKE_OBJCOPY}"
                DEPENDS "${PROJECT_SOURCE_DIR}/cmake/delay_load_library.sh"
                COMMENT "delay-load library of ${library}.dll"
                VERBATIM)
            add_custom_target(velt_delay_${library} DEPENDS "${folder}/lib${library}.a")
        endif()
        add_dependencies(${target} velt_delay_${library})
        # Found before the compiler's own library of the same name.
        target_link_directories(${target} BEFORE PRIVATE "${folder}")
    endforeach()
    target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src/server/delay_load.cpp")
    target_link_libraries(${target} PRIVATE delayimp)
endfunction()

# velt_wrap(<target> <function>): has the linker send the calls of a function to one of the target's.
function(velt_wrap target function)
    target_link_options(${target} PRIVATE "-Wl,--wrap=${function}")
endfunction()

# velt_wrap_import(<target> <function of the system's> <bytes of its arguments in 32 bits>): the same;
# see src/server/run_time_symbols.h.
function(velt_wrap_import target function bytes)
    if(VELT_ARCHITECTURE STREQUAL x86)
        velt_wrap(${target} "_imp__${function}@${bytes}")
    else()
        velt_wrap(${target} "__imp_${function}")
    endif()
endfunction()

# velt_split_symbols(<target>): finishes the file of a shipped program. Its symbols are moved into
# VELT_SYMBOLS_DIR, as <target>.debug; strip writes a time stamp: the fixed one of the type library.
# Sections that are only read lose the right to be written, and the build identifier is one of the
# content.
find_program(VELT_PYTHON NAMES /usr/bin/python3 python3 REQUIRED)
function(velt_split_symbols target)
    set(symbols "${VELT_SYMBOLS_DIR}/${target}.debug")
    target_link_options(${target} PRIVATE -Wl,--build-id)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${VELT_SYMBOLS_DIR}"
        COMMAND "${CMAKE_OBJCOPY}" --only-keep-debug "$<TARGET_FILE:${target}>" "${symbols}"
        COMMAND "${CMAKE_COMMAND}" -E env SOURCE_DATE_EPOCH=946684800
            "${CMAKE_STRIP}" --strip-all "$<TARGET_FILE:${target}>"
        COMMAND "${VELT_PYTHON}" "${PROJECT_SOURCE_DIR}/cmake/finish_program.py"
            "$<TARGET_FILE:${target}>" "${symbols}" .CRT .rsrc .tls
        VERBATIM)
endfunction()
