#pragma once

#include "tools/velt/command_context.h"

#include <windows.h>

#include <string>

namespace velt::tool
{
/// The component's side-by-side manifest, which lies beside it.
inline constexpr wchar_t kManifestName[] = L"VeltHTTPClient12OEM.Assembly.manifest";

/// A side-by-side manifest in force on the current thread until the end of the scope: its classes
/// can be created without registration. Throws CommandFailure.
class ManifestScope
{
public:
    explicit ManifestScope(const std::wstring& file)
    {
        ACTCTXW description{};
        description.cbSize = sizeof(description);
        description.lpSource = file.c_str();
        m_context = ::CreateActCtxW(&description);
        if (m_context == INVALID_HANDLE_VALUE)
        {
            throw LastFailure(file);
        }
        if (!::ActivateActCtx(m_context, &m_cookie))
        {
            CommandFailure failure = LastFailure(file);
            ::ReleaseActCtx(m_context);
            throw failure;
        }
    }

    ManifestScope(const ManifestScope&) = delete;
    ManifestScope& operator=(const ManifestScope&) = delete;

    ~ManifestScope()
    {
        ::DeactivateActCtx(0, m_cookie);
        ::ReleaseActCtx(m_context);
    }

private:
    HANDLE m_context = INVALID_HANDLE_VALUE;
    ULONG_PTR m_cookie = 0;
};
} // namespace velt::tool
