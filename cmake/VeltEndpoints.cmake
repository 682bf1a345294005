# The hosts of the service's operator, in one generated header: foundation/endpoints.h.

set(VELT_REDIRECT_HOST redirect.velt.example CACHE STRING "Host of the redirect service")
set(VELT_UPDATE_HOST update.velt.example CACHE STRING "Host of the update server")

foreach(name VELT_REDIRECT_HOST VELT_UPDATE_HOST)
    if(NOT "${${name}}" MATCHES "^[A-Za-z0-9.-]+(:[0-9]+)?$")
        message(FATAL_ERROR "${name} is no host: \"${${name}}\"")
    endif()
endforeach()

# Headers that are made while configuring and building, included from the root like all others.
set(VELT_GENERATED_DIR "${PROJECT_BINARY_DIR}/generated")
configure_file(src/foundation/endpoints.h.in "${VELT_GENERATED_DIR}/foundation/endpoints.h" @ONLY)
target_include_directories(velt_options SYSTEM INTERFACE "${VELT_GENERATED_DIR}")
