# What version blocks and packages say about the product, in one generated header:
# foundation/velt_version.h.

set(VELT_PUBLISHER Velt CACHE STRING "Who publishes the product: a company or a person")
if(NOT VELT_PUBLISHER MATCHES "^[^\"\\\\\r\n]+$")
    message(FATAL_ERROR "VELT_PUBLISHER is no name for a version block: \"${VELT_PUBLISHER}\"")
endif()
set(VELT_SUPPORT_URL https://velt.example/support CACHE STRING
    "Where the list of programs sends people for support")
# For those who look into the build folder, too.
set(VELT_COPYRIGHT "Copyright (c) 2026 ${VELT_PUBLISHER}" CACHE INTERNAL "Whose the product is")

string(REPLACE "." "," VELT_VERSION_NUMBERS "${PROJECT_VERSION}")
configure_file(src/foundation/velt_version.h.in
    "${VELT_GENERATED_DIR}/foundation/velt_version.h" @ONLY)
