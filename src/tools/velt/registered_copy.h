#pragma once

#include "server/registrar_writer.h"

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace velt::tool
{
inline constexpr bool kIs64Bit = sizeof(void*) == 8;

/// What programs of one kind find registered in one scope.
struct RegisteredCopy
{
    bool is64Bit = false;
    RegistrationScope scope = RegistrationScope::machine;
    std::optional<std::wstring> library; // full path as it is registered; nothing without one
    bool several = false;                // classes are registered with different files

    /// Such as "32-bit, machine".
    std::wstring Name() const;

    bool IsOwnEdition() const noexcept
    {
        return is64Bit == kIs64Bit;
    }
};

/// Whether programs that run elevated find what is registered in a scope: of them COM looks at the
/// machine's classes only.
constexpr bool IsSeenByElevated(RegistrationScope scope) noexcept
{
    return scope == RegistrationScope::machine;
}

/// Each kind of programs that the system runs, and each scope. Of several files the one at `own` is
/// named when it is among them. Throws std::bad_alloc only.
std::vector<RegisteredCopy> FindRegisteredCopies(const std::wstring& own);

/// What the classes key has in the view of one kind of programs as the default value of a class's
/// subkey; nothing without a text. `root` is HKEY_CLASSES_ROOT, or with the user's or the machine's
/// classes as `classes`. Throws std::bad_alloc only.
std::optional<std::wstring> ReadClassText(HKEY root, const std::wstring& classes,
                                          const CLSID& clsid, const wchar_t* subkey, bool is64Bit);

/// Whether two paths are the same, capitals aside.
bool IsSamePath(const std::wstring& a, const std::wstring& b) noexcept;

/// Whether a path is that of a file that is there.
bool IsFile(const std::wstring& path) noexcept;
} // namespace velt::tool
