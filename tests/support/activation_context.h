#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
/// A side-by-side manifest in force on the calling thread until the end of the scope, as in a host
/// that registers nothing. Other threads that need it make one of their own from the same file.
class ActivationContext
{
public:
    /// `manifest` is the full path of a manifest file. Throws std::runtime_error when the system
    /// refuses it.
    explicit ActivationContext(const std::wstring& manifest)
    {
        ACTCTXW description{};
        description.cbSize = sizeof(description);
        description.lpSource = manifest.c_str();
        m_context = ::CreateActCtxW(&description);
        if (m_context == INVALID_HANDLE_VALUE)
        {
            throw std::runtime_error("the manifest is refused");
        }
        if (!::ActivateActCtx(m_context, &m_cookie))
        {
            ::ReleaseActCtx(m_context);
            throw std::runtime_error("the manifest cannot be put in force");
        }
    }

    ActivationContext(const ActivationContext&) = delete;
    ActivationContext& operator=(const ActivationContext&) = delete;

    ~ActivationContext()
    {
        ::DeactivateActCtx(0, m_cookie);
        ::ReleaseActCtx(m_context);
    }

private:
    HANDLE m_context;
    ULONG_PTR m_cookie = 0;
};
} // namespace velt::test
