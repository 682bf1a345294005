#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

namespace velt::test
{
struct FileTraits
{
    using Type = HANDLE;

    static Type Invalid() noexcept
    {
        return INVALID_HANDLE_VALUE;
    }

    static void Close(Type file) noexcept
    {
        ::CloseHandle(file);
    }
};
using UniqueFile = UniqueHandle<FileTraits>;

/// A folder as a host that registers nothing has it: a library and its side-by-side manifest. The
/// manifest is in force on the calling thread until the end of the scope; then the folder goes.
class ActivationContext
{
public:
    ActivationContext(std::string_view manifest, const std::wstring& library)
    {
        std::array<wchar_t, MAX_PATH> temporary{};
        ::GetTempPathW(MAX_PATH, temporary.data());
        m_folder = std::wstring(temporary.data()) + L"velt_side_by_side_" +
                   std::to_wstring(::GetCurrentProcessId());
        ::CreateDirectoryW(m_folder.c_str(), nullptr);
        m_library = m_folder + library.substr(library.rfind(L'\\'));
        m_manifest = m_folder + L"\\host.manifest";
        if (!::CopyFileW(library.c_str(), m_library.c_str(), FALSE))
        {
            throw std::runtime_error("the library cannot be copied");
        }
        Write(manifest);
        ACTCTXW description{};
        description.cbSize = sizeof(description);
        description.lpSource = m_manifest.c_str();
        m_context = ::CreateActCtxW(&description);
        if (m_context == INVALID_HANDLE_VALUE || !::ActivateActCtx(m_context, &m_cookie))
        {
            throw std::runtime_error("the manifest is refused");
        }
    }

    ActivationContext(const ActivationContext&) = delete;
    ActivationContext& operator=(const ActivationContext&) = delete;

    ~ActivationContext()
    {
        ::DeactivateActCtx(0, m_cookie);
        ::ReleaseActCtx(m_context);
        ::DeleteFileW(m_manifest.c_str());
        ::DeleteFileW(m_library.c_str());
        ::RemoveDirectoryW(m_folder.c_str());
    }

    /// The library's full path in that folder.
    const std::wstring& Library() const noexcept
    {
        return m_library;
    }

private:
    void Write(std::string_view manifest) const
    {
        const UniqueFile file(::CreateFileW(m_manifest.c_str(), GENERIC_WRITE, 0, nullptr,
                                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD written = 0;
        if (!::WriteFile(file.Get(), manifest.data(), static_cast<DWORD>(manifest.size()), &written,
                         nullptr))
        {
            throw std::runtime_error("the manifest cannot be written");
        }
    }

    std::wstring m_folder;
    std::wstring m_library;
    std::wstring m_manifest;
    HANDLE m_context = INVALID_HANDLE_VALUE;
    ULONG_PTR m_cookie = 0;
};
} // namespace velt::test
