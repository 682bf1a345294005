#pragma once

#include "foundation/library_utils.h"
#include "tools/velt/command_context.h"
#include "tools/velt/component.h"

#include <provider_lib.h>

#include <comutil.h>
#include <wrl/client.h>

#include <optional>
#include <string>
#include <utility>

namespace velt::tool
{
/// The HTTP service object, with everything that it needs to live.
class ServiceHost
{
public:
    ServiceHost() : m_service(m_component.Create<IVeltHTTPService>(CLSID_CVeltHTTPService)) {}

    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    ~ServiceHost() = default;

    IVeltHTTPService* operator->() const noexcept
    {
        return m_service.Get();
    }

    IVeltHTTPService* Get() const noexcept
    {
        return m_service.Get();
    }

    const Component& Library() const noexcept
    {
        return m_component;
    }

    /// Asks the service for a text, which it leaves out when it has none.
    /// `ask` gets the place for the text and answers with an HRESULT.
    template <class Ask>
    static std::optional<std::wstring> TextOf(const wchar_t* what, Ask&& ask)
    {
        BSTR text = nullptr;
        const HRESULT hr = std::forward<Ask>(ask)(&text);
        const _bstr_t owner(text, false);
        Require(hr, what);
        return text ? std::optional(std::wstring(text, ::SysStringLen(text))) : std::nullopt;
    }

private:
    const CLibraryUtils::SmartComInitializer m_com; // lives longest
    const Component m_component;
    const Microsoft::WRL::ComPtr<IVeltHTTPService> m_service;
};
} // namespace velt::tool
