#include "foundation/library_utils.h"

#include <objbase.h>

#include <array>
#include <cwchar>

namespace CLibraryUtils
{
CLibraryUtilsImpl::CLibraryUtilsImpl(HMODULE module) noexcept : m_module(module) {}

CLibraryUtilsImpl::~CLibraryUtilsImpl()
{
    if (m_module)
    {
        ::FreeLibrary(m_module);
        m_module = nullptr;
    }
}

HMODULE CLibraryUtilsImpl::GetModule() const noexcept
{
    return m_module;
}

SmartComInitializer::SmartComInitializer() : m_result(::CoInitialize(nullptr)) {}

SmartComInitializer::~SmartComInitializer()
{
    if (m_result != RPC_E_CHANGED_MODE)
    {
        ::CoUninitialize();
    }
}

HRESULT SmartComInitializer::GetResult() const noexcept
{
    return m_result;
}
} // namespace CLibraryUtils

namespace velt
{
HMODULE LoadSystemLibrary(const wchar_t* fileName) noexcept
{
    const HMODULE module = ::LoadLibraryExW(fileName, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (module || ::GetLastError() != ERROR_INVALID_PARAMETER)
    {
        return module;
    }
    // Systems that do not know the flag: the full path names the same file.
    std::array<wchar_t, MAX_PATH> path{};
    const std::size_t length = ::GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size()));
    const std::size_t nameLength = std::wcslen(fileName);
    if (length == 0 || length + 1 + nameLength >= path.size())
    {
        ::SetLastError(ERROR_BAD_PATHNAME);
        return nullptr;
    }
    path[length] = L'\\';
    std::wmemcpy(path.data() + length + 1, fileName, nameLength + 1);
    return ::LoadLibraryExW(path.data(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}
} // namespace velt
