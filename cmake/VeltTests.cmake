# velt_add_test(<name> FOLDER <product folder> SOURCES <files> [LINKS <libraries>] [ARGS <arguments>]
#               [TIMEOUT <seconds>] [SERVERS])
#
# One test program and its ctest test, which carries the product folder as its label. Programs for
# Windows run in a Wine prefix of their own, named for the test. With SERVERS, a real web server and
# a real proxy run beside the program; see scripts/with_servers.sh and tests/support/real_servers.h.

find_path(VELT_CATCH_DIR catch.hpp
    PATHS /usr/include/catch2 PATH_SUFFIXES catch2
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)

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

function(velt_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERVERS" "FOLDER;TIMEOUT" "SOURCES;LINKS;ARGS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE velt_test_main ${arg_LINKS})
    if(WIN32)
        target_link_libraries(${name} PRIVATE velt_test_support)
    endif()
    velt_wine_command(${name} wine)
    set(servers "")
    if(arg_SERVERS)
        set(servers "${PROJECT_SOURCE_DIR}/scripts/with_servers.sh")
    endif()
    add_test(NAME ${name} COMMAND ${servers} ${wine} "$<TARGET_FILE:${name}>" ${arg_ARGS})
    set_tests_properties(${name} PROPERTIES LABELS "${arg_FOLDER}" TIMEOUT ${arg_TIMEOUT})
endfunction()
