# VeltHTTPClient for hosts that are built with CMake. Everything is found from this file's place in
# the developer package, so the package can lie anywhere.
#
#   find_package(VeltHTTPClient 12 CONFIG REQUIRED)     with -DVeltHTTPClient_DIR=<package>/cmake
#
# Targets:
#
#   VeltHTTPClient::Headers      provider_lib.h; the identifiers are compiled into whoever links it
#   VeltHTTPClient::SideBySide   the same for a program whose manifest is to depend on the component's
#                                assembly: it creates the classes, and nothing is registered. For
#                                Visual C++ the dependency is merged into the program's manifest; for
#                                other compilers it is the program's manifest, and one that has its
#                                own links Headers and names the dependency there.
#
# Variables, for the edition of what is being built:
#
#   VeltHTTPClient_EDITION       x86 or x64
#   VeltHTTPClient_DLL           the component
#   VeltHTTPClient_MANIFEST      describes it as an assembly; belongs beside it
#   VeltHTTPClient_TYPE_LIBRARY
#   VeltHTTPClient_INCLUDE_DIR
#
# Function:
#
#   velt_http_client_beside(<program>)   after each build of the program, which is a target of the same
#                                        folder, the component and its manifest lie beside it

get_filename_component(_velt_package "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)

set(_velt_failure "")
string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR} ${CMAKE_C_COMPILER_ARCHITECTURE_ID}" _velt_processor)
if(NOT CMAKE_C_COMPILER_LOADED)
    set(_velt_failure "The identifiers are a C file: enable the language C first.")
elseif(NOT WIN32 OR _velt_processor MATCHES "arm|aarch64")
    set(_velt_failure "There are editions for x86 and x64 Windows only.")
elseif(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(VeltHTTPClient_EDITION x86)
else()
    set(VeltHTTPClient_EDITION x64)
endif()
if(_velt_failure STREQUAL "")
    set(_velt_folder "${_velt_package}/${VeltHTTPClient_EDITION}")
    set(VeltHTTPClient_INCLUDE_DIR "${_velt_package}/include")
    set(VeltHTTPClient_DLL "${_velt_folder}/VeltHTTPClient12OEM.dll")
    set(VeltHTTPClient_MANIFEST "${_velt_folder}/VeltHTTPClient12OEM.Assembly.manifest")
    set(VeltHTTPClient_TYPE_LIBRARY "${_velt_folder}/VeltHTTPClient12OEM.tlb")
    foreach(_velt_file IN ITEMS "${VeltHTTPClient_INCLUDE_DIR}/provider_lib.h"
            "${VeltHTTPClient_INCLUDE_DIR}/provider_lib_i.c" "${VeltHTTPClient_DLL}"
            "${VeltHTTPClient_MANIFEST}" "${VeltHTTPClient_TYPE_LIBRARY}")
        if(NOT EXISTS "${_velt_file}")
            set(_velt_failure "The package is not whole: there is no ${_velt_file}")
        endif()
    endforeach()
endif()

if(NOT _velt_failure STREQUAL "")
    set(VeltHTTPClient_FOUND FALSE)
    set(VeltHTTPClient_NOT_FOUND_MESSAGE "${_velt_failure}")
elseif(NOT TARGET VeltHTTPClient::Headers)
    add_library(VeltHTTPClient::Headers INTERFACE IMPORTED)
    target_include_directories(VeltHTTPClient::Headers INTERFACE "${VeltHTTPClient_INCLUDE_DIR}")
    target_sources(VeltHTTPClient::Headers INTERFACE
        "${VeltHTTPClient_INCLUDE_DIR}/provider_lib_i.c")
    target_link_libraries(VeltHTTPClient::Headers INTERFACE ole32 oleaut32 uuid)

    # One text for both kinds of compilers. The star is the program's own processor.
    set(_velt_manifest "${CMAKE_CURRENT_BINARY_DIR}/VeltHTTPClient/side_by_side.manifest")
    file(CONFIGURE OUTPUT "${_velt_manifest}" @ONLY CONTENT
"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>
<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">
  <dependency>
    <dependentAssembly>
      <assemblyIdentity type=\"win32\" name=\"VeltHTTPClient12OEM.Assembly\"
          version=\"@VeltHTTPClient_VERSION@\" processorArchitecture=\"*\"/>
    </dependentAssembly>
  </dependency>
</assembly>
")
    add_library(VeltHTTPClient::SideBySide INTERFACE IMPORTED)
    target_link_libraries(VeltHTTPClient::SideBySide INTERFACE VeltHTTPClient::Headers)
    if(MSVC)
        target_sources(VeltHTTPClient::SideBySide INTERFACE "${_velt_manifest}")
    else()
        enable_language(RC)
        # 1 is the number under which the system looks for a program's manifest, 24 RT_MANIFEST.
        set(_velt_resource "${CMAKE_CURRENT_BINARY_DIR}/VeltHTTPClient/side_by_side.rc")
        file(CONFIGURE OUTPUT "${_velt_resource}" @ONLY CONTENT "1 24 \"@_velt_manifest@\"\n")
        target_sources(VeltHTTPClient::SideBySide INTERFACE "${_velt_resource}")
        unset(_velt_resource)
    endif()
    unset(_velt_manifest)
endif()
unset(_velt_package)
unset(_velt_failure)
unset(_velt_processor)
unset(_velt_folder)
unset(_velt_file)

function(velt_http_client_beside program)
    add_custom_command(TARGET ${program} POST_BUILD
        COMMAND "${CMAKE_COMMAND}" -E copy_if_different
            "${VeltHTTPClient_DLL}" "${VeltHTTPClient_MANIFEST}" "$<TARGET_FILE_DIR:${program}>"
        VERBATIM)
endfunction()
