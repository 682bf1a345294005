# What differs between the two editions of what is shipped, and follows from the processor that the
# toolchain file names. Everything else is the same for both.
#
#   VELT_ARCHITECTURE     the processor as manifests name it
#   VELT_EDITION          the edition as people read it
#   VELT_RELEASE_PRESET   the preset that ships it
#   VELT_IMAGE_FORMAT     the format of its programs as binutils name it
#   VELT_WIDL_EDITION     widl's option; it decides the kind of system in a type library too
#   VELT_WINE_LIBRARIES   where Wine's libraries of the same kind lie, and the system's own
#   VELT_IMAGE_OPTIONS    what images of the one kind can say and those of the other cannot
#   VELT_OWN_UNWINDER     whether a module carries an unwinder, and not the system
#   VELT_SHARED_UNWINDER  the DLL of the compiler's that programs of others may share
#   VELT_LARGE_ADDRESSES  for a program that needs more than 2 GB
#   VELT_START_ADDRESS    the symbol where a DLL is entered

set(VELT_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
if(VELT_ARCHITECTURE STREQUAL x86)
    set(VELT_EDITION 32-bit)
    set(VELT_RELEASE_PRESET release)
    set(VELT_IMAGE_FORMAT pei-i386)
    set(VELT_WIDL_EDITION -m32)
    set(VELT_WINE_LIBRARIES /usr/lib/i386-linux-gnu/wine/i386-windows "$ENV{SystemRoot}/SysWOW64")
    # There are no structured exception handlers in it.
    set(VELT_IMAGE_OPTIONS -Wl,--no-seh)
    set(VELT_OWN_UNWINDER ON)
    set(VELT_SHARED_UNWINDER libgcc_s_dw2-1.dll)
    set(VELT_LARGE_ADDRESSES -Wl,--large-address-aware)
    set(VELT_START_ADDRESS _DllMainCRTStartup@12)
elseif(VELT_ARCHITECTURE STREQUAL amd64)
    set(VELT_EDITION 64-bit)
    set(VELT_RELEASE_PRESET release64)
    set(VELT_IMAGE_FORMAT pei-x86-64)
    set(VELT_WIDL_EDITION -m64)
    set(VELT_WINE_LIBRARIES /usr/lib/x86_64-linux-gnu/wine/x86_64-windows
        "$ENV{SystemRoot}/System32")
    # It can be anywhere in 64 bits.
    set(VELT_IMAGE_OPTIONS -Wl,--high-entropy-va)
    set(VELT_OWN_UNWINDER OFF)
    set(VELT_SHARED_UNWINDER libgcc_s_seh-1.dll)
    set(VELT_LARGE_ADDRESSES "")
    set(VELT_START_ADDRESS DllMainCRTStartup)
else()
    message(FATAL_ERROR "there is no edition for the processor \"${VELT_ARCHITECTURE}\"")
endif()
# For those who look into the build folder, such as src/installer/make_package.sh.
set(VELT_EDITION ${VELT_EDITION} CACHE INTERNAL "The edition as people read it")
