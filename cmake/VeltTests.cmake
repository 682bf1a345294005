# velt_add_test(<name> FOLDER <labels> SOURCES <files> [LINKS <libraries>] [ARGS <arguments>]
#               [SERVERS] [WAITS]) or
# velt_add_test(<name> FOLDER <labels> PROGRAM <another test> [ARGS <arguments>])
#
# One test program and its ctest test, which carries the product folder as its label, or several. A run
# that does not reach the program's end fails; see scripts/to_its_end.sh. Programs for Windows run in a
# Wine prefix of their own, named for the test. Tests of what needs no platform are
# programs named <folder>_core_test, and are built for both systems. With SERVERS, a real web server
# and a real proxy run beside the program; see scripts/with_servers.sh and tests/support/real_servers.h.
#
# velt_add_script_test(<name> FOLDER <labels> COMMAND <command...> [WAITS])
#
# A test that is a script.
#
# WAITS marks a test that takes many seconds: it is started first, and ./test --quick leaves it out. Tests that need programs
# of Debian's are labelled so. The target `tests` builds all of them with what they start,
# `checks` only what the checked build takes from the release, `benches` all benches.

add_custom_target(tests)
add_custom_target(checks)
add_custom_target(benches)

# The path of a file as a program in the target system sees it.
function(velt_target_path path result)
    if(WIN32 AND NOT CMAKE_HOST_WIN32)
        string(PREPEND path "Z:") # Wine's drive for the host's files
    endif()
    if(WIN32)
        string(REPLACE "/" "\\" path "${path}")
    endif()
    set(${result} "${path}" PARENT_SCOPE)
endfunction()

# Runs a Windows program the way this host can.
function(velt_wine_command prefix result)
    if(WIN32 AND NOT CMAKE_HOST_WIN32)
        set(${result} "${PROJECT_SOURCE_DIR}/scripts/in_wine.sh"
            "${PROJECT_BINARY_DIR}/prefixes/${prefix}" PARENT_SCOPE)
    else()
        set(${result} "" PARENT_SCOPE)
    endif()
endfunction()

# velt_label_test(<name> <label>...): the limit of time is far beyond what a machine needs that has
# much else to do.
function(velt_label_test name)
    set_tests_properties(${name} PROPERTIES LABELS "${ARGN}" TIMEOUT 1200)
    if(waits IN_LIST ARGN)
        set_tests_properties(${name} PROPERTIES COST 100)
    endif()
endfunction()

# What the tests check is built for each preset; the checks themselves are not: the checked build
# links those that the release has compiled, in this folder. They carry the assertions and traps
# of the checked build in both.
if(VELT_CHECKED)
    set(VELT_CHECKS_DIR "${PROJECT_SOURCE_DIR}/build/${VELT_RELEASE_PRESET}/checks" CACHE PATH
        "The release's tests")
else()
    set(VELT_CHECKS_DIR "${PROJECT_BINARY_DIR}/checks")
endif()

# velt_add_checks(<target> <precompiled headers> <sources> [libraries...])
#
# A library of checks, for programs to link as a whole: they register themselves.
function(velt_add_checks target headers sources)
    set(file "${VELT_CHECKS_DIR}/lib${target}.a")
    if(VELT_CHECKED)
        add_library(${target} STATIC IMPORTED GLOBAL)
        set_target_properties(${target} PROPERTIES IMPORTED_LOCATION "${file}")
        return()
    endif()
    add_library(${target} STATIC ${sources})
    # Eight files at a time: reading the same headers for each is a third of a test build's time. So
    # names that the files of one program have for themselves differ.
    set_target_properties(${target} PROPERTIES ARCHIVE_OUTPUT_DIRECTORY "${VELT_CHECKS_DIR}"
        UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    target_link_libraries(${target} PRIVATE velt_test_options ${ARGN})
    if(headers)
        target_precompile_headers(${target} REUSE_FROM ${headers})
    endif()
    add_dependencies(checks ${target})
endfunction()

# velt_test_definitions(<test> <definition>...)
function(velt_test_definitions name)
    if(NOT VELT_CHECKED)
        target_compile_definitions(${name}_checks PRIVATE ${ARGN})
    endif()
endfunction()

function(velt_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERVERS;WAITS" "PROGRAM" "FOLDER;SOURCES;LINKS;ARGS")
    if(NOT arg_PROGRAM)
        set(arg_PROGRAM ${name})
        set(checks ${arg_SOURCES})
        list(FILTER checks INCLUDE REGEX "\\.cpp$")
        list(FILTER arg_SOURCES EXCLUDE REGEX "\\.cpp$")
        if(WIN32)
            list(APPEND arg_LINKS velt_test_support)
        endif()
        if(name MATCHES "_core_test$")
            set(headers velt_core_test_headers)
        else()
            set(headers velt_platform_test_headers)
        endif()
        velt_add_checks(${name}_checks ${headers} "${checks}" ${arg_LINKS})
        add_executable(${name} ${arg_SOURCES} "${PROJECT_SOURCE_DIR}/cmake/empty.cpp")
        target_link_libraries(${name} PRIVATE
            $<LINK_LIBRARY:WHOLE_ARCHIVE,${name}_checks,velt_test_main> velt_options ${arg_LINKS})
        add_dependencies(tests ${name})
    endif()
    velt_wine_command(${name} wine)
    set(servers "")
    if(arg_SERVERS)
        set(servers "${PROJECT_SOURCE_DIR}/scripts/with_servers.sh")
    endif()
    add_test(NAME ${name}
        COMMAND "${PROJECT_SOURCE_DIR}/scripts/to_its_end.sh" ${servers} ${wine}
            "$<TARGET_FILE:${arg_PROGRAM}>" ${arg_ARGS})
    set(labels ${arg_FOLDER})
    if(arg_SERVERS)
        list(APPEND labels debian)
    endif()
    if(arg_WAITS)
        list(APPEND labels waits)
    endif()
    velt_label_test(${name} ${labels})
    # Local time is not universal time there, nor whole hours from it, on whichever machine.
    set_tests_properties(${name} PROPERTIES ENVIRONMENT TZ=IST-5:30)
endfunction()

function(velt_add_script_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "WAITS" "" "FOLDER;COMMAND")
    add_test(NAME ${name} COMMAND ${arg_COMMAND})
    set(labels ${arg_FOLDER} debian)
    if(arg_WAITS)
        list(APPEND labels waits)
    endif()
    velt_label_test(${name} ${labels})
endfunction()
