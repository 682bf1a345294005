#include "tools/common/search_path.h"

#include "foundation/find_function.h"

#include <windows.h>

namespace velt
{
void SearchSystemFolderOnly() noexcept
{
    using SetFunction = BOOL(WINAPI*)(DWORD flags);
    const auto set =
        FindFunction<SetFunction>(::GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories");
    if (set)
    {
        set(LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
}
} // namespace velt
