# velt_add_test(<name> FOLDER <labels> SOURCES <files> [LINKS <libraries>] [ARGS <arguments>]
#               [SERVERS] [WAITS])
#
# One test program and its ctest test, which carries the product folder as its label, or several. Programs for
# Windows run in a Wine prefix of their own, named for the test. Tests of what needs no platform are
# programs named <folder>_core_test, and are built for both systems. With SERVERS, a real web server
# and a real proxy run beside the program; see scripts/with_servers.sh and tests/support/real_servers.h.
#
# velt_add_script_test(<name> FOLDER <labels> COMMAND <command...> [WAITS])
#
# A test that is a script.
#
# WAITS marks a test that takes many seconds: ./test --quick leaves it out. Tests that need programs
# of Debian's are labelled so. The target `tests` builds all of them with what they start, `benches`
# all benches.

add_custom_target(tests)
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
endfunction()

function(velt_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERVERS;WAITS" "" "FOLDER;SOURCES;LINKS;ARGS")
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE velt_test_main ${arg_LINKS})
    if(WIN32)
        target_link_libraries(${name} PRIVATE velt_test_support)
    endif()
    if(name MATCHES "_core_test$")
        target_precompile_headers(${name} REUSE_FROM velt_core_test_headers)
    else()
        target_precompile_headers(${name} REUSE_FROM velt_platform_test_headers)
    endif()
    add_dependencies(tests ${name})
    velt_wine_command(${name} wine)
    set(servers "")
    if(arg_SERVERS)
        set(servers "${PROJECT_SOURCE_DIR}/scripts/with_servers.sh")
    endif()
    add_test(NAME ${name} COMMAND ${servers} ${wine} "$<TARGET_FILE:${name}>" ${arg_ARGS})
    set(labels ${arg_FOLDER})
    if(arg_SERVERS)
        list(APPEND labels debian)
    endif()
    if(arg_WAITS)
        list(APPEND labels waits)
    endif()
    velt_label_test(${name} ${labels})
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
