# What widl makes from the IDL files: the type library, the published header and the identifiers,
# and the update agent's header.

find_program(VELT_WIDL NAMES ${VELT_TRIPLE}-widl i686-w64-mingw32-widl widl REQUIRED)
# The cross tools bring no IDL files; Wine's are the same, and its stdole2.tlb too.
find_path(VELT_IDL_DIR oaidl.idl
    PATHS /usr/include/wine/wine/windows /usr/include/wine/windows "$ENV{MINGW_PREFIX}/include"
    NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path(VELT_STDOLE_DIR stdole2.tlb
    PATHS ${VELT_WINE_LIBRARIES}
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

# velt_idl_output(<idl file, from the root> <output> <widl's option for the kind of output>)
# Run beside the source, so that no path of the build gets into the output.
function(velt_idl_output idl output kind)
    get_filename_component(folder "${PROJECT_SOURCE_DIR}/${idl}" DIRECTORY)
    get_filename_component(file "${idl}" NAME)
    add_custom_command(
        OUTPUT "${output}"
        COMMAND ${widl} ${VELT_WIDL_EDITION} ${kind} -I "${VELT_IDL_DIR}" -L "${VELT_STDOLE_DIR}" -o "${output}"
            "${file}"
        WORKING_DIRECTORY "${folder}"
        DEPENDS "${PROJECT_SOURCE_DIR}/${idl}"
        COMMENT "widl ${kind} ${idl}"
        VERBATIM)
endfunction()

set(VELT_TYPELIB_FILE "${VELT_BIN_DIR}/VeltHTTPClient12OEM.tlb")
velt_idl_output(src/server/provider_lib.idl "${VELT_TYPELIB_FILE}" -t)
velt_idl_output(src/server/provider_lib.idl "${VELT_PUBLISHED_DIR}/provider_lib.h" -h)
velt_idl_output(src/server/provider_lib.idl "${VELT_PUBLISHED_DIR}/provider_lib_i.c" -u)

add_custom_target(velt_idl DEPENDS "${VELT_TYPELIB_FILE}")
add_library(velt_interfaces STATIC
    "${VELT_PUBLISHED_DIR}/provider_lib_i.c" "${VELT_PUBLISHED_DIR}/provider_lib.h")
target_include_directories(velt_interfaces SYSTEM PUBLIC "${VELT_PUBLISHED_DIR}")
target_compile_options(velt_interfaces PRIVATE -ffunction-sections -fdata-sections)
add_dependencies(velt_interfaces velt_idl)

# The update agent's interfaces, which are another maker's and not published with the component.
set(agent_header "${VELT_GENERATED_DIR}/update/update_agent.h")
file(MAKE_DIRECTORY "${VELT_GENERATED_DIR}/update")
velt_idl_output(src/update/update_agent.idl "${agent_header}" -h)
velt_idl_output(src/update/update_agent.idl "${VELT_GENERATED_DIR}/update/update_agent_i.c" -u)
add_custom_target(velt_agent_idl DEPENDS "${agent_header}")
add_library(velt_agent_interfaces STATIC
    "${VELT_GENERATED_DIR}/update/update_agent_i.c" "${agent_header}")
target_compile_options(velt_agent_interfaces PRIVATE -ffunction-sections -fdata-sections)
add_dependencies(velt_agent_interfaces velt_agent_idl)
