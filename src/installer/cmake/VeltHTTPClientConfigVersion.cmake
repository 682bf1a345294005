# The version of the package, which is that of the component in it: the one that the assembly's
# manifest names. A host that was written for one version works with later ones of the same first
# number.

set(PACKAGE_VERSION "")
foreach(edition IN ITEMS x86 x64)
    set(manifest "${CMAKE_CURRENT_LIST_DIR}/../${edition}/VeltHTTPClient12OEM.Assembly.manifest")
    if(EXISTS "${manifest}")
        file(STRINGS "${manifest}" PACKAGE_VERSION
            REGEX "name=\"VeltHTTPClient12OEM.Assembly\" version=" LIMIT_COUNT 1)
        string(REGEX REPLACE ".* version=\"([0-9.]+)\".*" "\\1" PACKAGE_VERSION "${PACKAGE_VERSION}")
        break()
    endif()
endforeach()
string(REGEX MATCH "^[0-9]+" first_number "${PACKAGE_VERSION}")

set(PACKAGE_VERSION_COMPATIBLE FALSE)
set(PACKAGE_VERSION_EXACT FALSE)
if(PACKAGE_VERSION STREQUAL "")
    set(PACKAGE_VERSION_UNSUITABLE TRUE)
elseif(PACKAGE_FIND_VERSION_RANGE)
    if(PACKAGE_FIND_VERSION_MIN_MAJOR STREQUAL first_number
            AND PACKAGE_VERSION VERSION_GREATER_EQUAL PACKAGE_FIND_VERSION_MIN
            AND (PACKAGE_VERSION VERSION_LESS PACKAGE_FIND_VERSION_MAX
                OR (PACKAGE_FIND_VERSION_RANGE_MAX STREQUAL "INCLUDE"
                    AND PACKAGE_VERSION VERSION_EQUAL PACKAGE_FIND_VERSION_MAX)))
        set(PACKAGE_VERSION_COMPATIBLE TRUE)
    endif()
elseif(PACKAGE_FIND_VERSION_MAJOR STREQUAL first_number
        AND PACKAGE_VERSION VERSION_GREATER_EQUAL PACKAGE_FIND_VERSION)
    set(PACKAGE_VERSION_COMPATIBLE TRUE)
    if(PACKAGE_VERSION VERSION_EQUAL PACKAGE_FIND_VERSION)
        set(PACKAGE_VERSION_EXACT TRUE)
    endif()
endif()
unset(edition)
unset(manifest)
unset(first_number)
