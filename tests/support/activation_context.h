#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace velt::test
{
/// A side-by-side manifest in force on the calling thread until the end of the scope. The manifest
/// is written to a temporary file; the files that it names lie in `directory`.
class ActivationContext
{
public:
    ActivationContext(std::string_view manifest, const std::wstring& directory)
    {
        wchar_t folder[MAX_PATH];
        wchar_t path[MAX_PATH];
        ::GetTempPathW(MAX_PATH, folder);
        ::GetTempFileNameW(folder, L"vlt", 0, path);
        m_path = path;
        {
            const HANDLE file = ::CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                              FILE_ATTRIBUTE_NORMAL, nullptr);
            DWORD written = 0;
            ::WriteFile(file, manifest.data(), static_cast<DWORD>(manifest.size()), &written,
                        nullptr);
            ::CloseHandle(file);
        }
        ACTCTXW description{};
        description.cbSize = sizeof(description);
        description.dwFlags = ACTCTX_FLAG_ASSEMBLY_DIRECTORY_VALID;
        description.lpSource = path;
        description.lpAssemblyDirectory = directory.c_str();
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
        ::DeleteFileW(m_path.c_str());
    }

private:
    std::wstring m_path;
    HANDLE m_context = INVALID_HANDLE_VALUE;
    ULONG_PTR m_cookie = 0;
};
} // namespace velt::test
