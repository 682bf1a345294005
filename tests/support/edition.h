#pragma once

#include <windows.h>

#include <oaidl.h>

#include <cstddef>

namespace velt::test
{
/// What differs between the two editions of the component, as its contract has it. A test that is
/// about one of them asks here.
struct Edition
{
    const wchar_t* name;         // as people read it
    const wchar_t* architecture; // as manifests have it
    const wchar_t* system;       // the key of its kind of system below a registered type library
    const wchar_t* otherSystem;
    REGSAM otherView; // of the registry
    SYSKIND systemKind;
    WORD machine;          // of an image's header
    std::size_t lentBytes; // of a value, by Item through the vtable
};

inline constexpr bool kIs64Bit = sizeof(void*) == 8;

inline constexpr Edition kEdition = kIs64Bit ? Edition{L"64-bit",
                                                       L"amd64",
                                                       L"win64",
                                                       L"win32",
                                                       KEY_WOW64_32KEY,
                                                       SYS_WIN64,
                                                       IMAGE_FILE_MACHINE_AMD64,
                                                       8}
                                             : Edition{L"32-bit",
                                                       L"x86",
                                                       L"win32",
                                                       L"win64",
                                                       KEY_WOW64_64KEY,
                                                       SYS_WIN32,
                                                       IMAGE_FILE_MACHINE_I386,
                                                       4};
} // namespace velt::test
