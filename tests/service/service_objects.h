#pragma once

#include "foundation/bstr.h"
#include "tests/support/component_library.h"

#include <provider_lib.h>

#include <windows.h>

#include <ocidl.h>
#include <wrl/client.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
inline constexpr wchar_t kGuid[] = L"{0F8FAD5B-D9CB-469F-A165-70867728950E}";

/// The service's connection point of its events.
inline Microsoft::WRL::ComPtr<IConnectionPoint> EventsOf(IUnknown* service)
{
    Microsoft::WRL::ComPtr<IConnectionPointContainer> container;
    Microsoft::WRL::ComPtr<IConnectionPoint> point;
    if (FAILED(service->QueryInterface(IID_PPV_ARGS(&container))) ||
        FAILED(container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, &point)))
    {
        throw std::runtime_error("no connection point");
    }
    return point;
}

/// Connects a sink and returns its cookie.
inline DWORD Advise(IUnknown* service, IUnknown* sink)
{
    DWORD cookie = 0;
    if (FAILED(EventsOf(service)->Advise(sink, &cookie)))
    {
        throw std::runtime_error("the sink is not taken");
    }
    return cookie;
}

/// Work that ends with an event, whatever the update agent does.
inline HRESULT Invoke(IVeltHTTPService* service, const wchar_t* guid = kGuid)
{
    return service->InvokeUpdate(MakeBstr(guid).Get(), MakeBstr(L"1.0").Get(), 1033,
                                 MakeBstr(L"").Get());
}

/// A BSTR that an out value holds before a call, to see whether it was touched.
inline BSTR PoisonText() noexcept
{
    return reinterpret_cast<BSTR>(static_cast<UINT_PTR>(0xCDCDCDCD)); // NOLINT
}

/// Takes over what a method handed out.
inline std::wstring Taken(BSTR text)
{
    const UniqueBstr owned(text);
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring(L"<null>");
}
} // namespace velt::test
