# The type library, the published header and the identifiers, made from the IDL by widl.

find_program(VELT_WIDL NAMES i686-w64-mingw32-widl widl REQUIRED)
# The cross tools bring no IDL files; Wine's are the same, and its stdole2.tlb too.
find_path(VELT_IDL_DIR oaidl.idl
    PATHS /usr/include/wine/wine/windows /usr/include/wine/windows
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path(VELT_STDOLE_DIR stdole2.tlb
    PATHS /usr/lib/i386-linux-gnu/wine/i386-windows "$ENV{SystemRoot}/SysWOW64"
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)
# widl writes the time of day into a type library. With a fixed one, builds can be compared.
find_program(VELT_FAKETIME NAMES faketime)
set(widl "${VELT_WIDL}")
if(VELT_FAKETIME)
    set(widl "${CMAKE_COMMAND}" -E env TZ=UTC "${VELT_FAKETIME}" -f "2000-01-01 00:00:00"
        "${VELT_WIDL}")
else()
    message(STATUS "faketime not found: the type library will carry the time of the build")
endif()

set(VELT_PUBLISHED_DIR "${VELT_BIN_DIR}/include")
file(MAKE_DIRECTORY "${VELT_PUBLISHED_DIR}")

# Run beside the source, so that no path of the build gets into the output.
set(idl_dir "${PROJECT_SOURCE_DIR}/server")
function(velt_idl_output output kind)
    add_custom_command(
        OUTPUT "${output}"
        COMMAND ${widl} -m32 ${kind} -I "${VELT_IDL_DIR}" -L "${VELT_STDOLE_DIR}" -o "${output}"
            provider_lib.idl
        WORKING_DIRECTORY "${idl_dir}"
        DEPENDS "${idl_dir}/provider_lib.idl"
        COMMENT "widl ${kind} provider_lib.idl"
        VERBATIM)
endfunction()

set(VELT_TYPELIB_FILE "${VELT_BIN_DIR}/VeltHTTPClient12OEM.tlb")
velt_idl_output("${VELT_TYPELIB_FILE}" -t)
velt_idl_output("${VELT_PUBLISHED_DIR}/provider_lib.h" -h)
velt_idl_output("${VELT_PUBLISHED_DIR}/provider_lib_i.c" -u)

add_custom_target(velt_idl DEPENDS "${VELT_TYPELIB_FILE}")
add_library(velt_interfaces STATIC
    "${VELT_PUBLISHED_DIR}/provider_lib_i.c" "${VELT_PUBLISHED_DIR}/provider_lib.h")
target_include_directories(velt_interfaces SYSTEM PUBLIC "${VELT_PUBLISHED_DIR}")
target_compile_options(velt_interfaces PRIVATE -ffunction-sections -fdata-sections)
add_dependencies(velt_interfaces velt_idl)
