#include "service/service_tag.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/utrace.h"

#include <comdef.h>
#include <wbemcli.h>
#include <wrl/client.h>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
/// A step's result on its way on; a failure is traced.
bool Succeeded(HRESULT hr, const char* step)
{
    if (FAILED(hr))
    {
        UTrace::TraceLevel1("%s failed: 0x%08lX", step, static_cast<unsigned long>(hr));
    }
    return SUCCEEDED(hr);
}

/// Lets the other side act for the user. How the process as a whole deals with COM's security is
/// its own affair. Objects of this process have no proxy and need none.
void LetActForUser(IUnknown* proxy)
{
    const HRESULT hr = ::CoSetProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                           RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE,
                                           nullptr, EOAC_NONE);
    if (FAILED(hr))
    {
        UTrace::TraceLevel3("CoSetProxyBlanket: 0x%08lX", static_cast<unsigned long>(hr));
    }
}

/// The first object that a query yields; null when a step fails or there is none.
ComPtr<IWbemClassObject> FirstOf(IWbemServices* services, const wchar_t* query)
{
    const UniqueBstr language = MakeBstr(L"WQL");
    const UniqueBstr text = MakeBstr(query);
    ComPtr<IEnumWbemClassObject> objects;
    if (!Succeeded(services->ExecQuery(language.Get(), text.Get(),
                                       WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                       nullptr, objects.GetAddressOf()),
                   "ExecQuery") ||
        !objects)
    {
        return nullptr;
    }
    LetActForUser(objects.Get());
    ComPtr<IWbemClassObject> object;
    ULONG count = 0;
    if (!Succeeded(
            objects->Next(static_cast<LONG>(WBEM_INFINITE), 1, object.GetAddressOf(), &count),
            "Next") ||
        count != 1)
    {
        return nullptr;
    }
    return object;
}
UniqueBstr AskForTag()
{
    ComPtr<IWbemLocator> locator;
    if (!Succeeded(
            ::CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_ALL, IID_PPV_ARGS(&locator)),
            "the management locator"))
    {
        return {};
    }
    const UniqueBstr place = MakeBstr(L"\\\\.\\root\\cimv2");
    ComPtr<IWbemServices> services;
    if (!Succeeded(locator->ConnectServer(place.Get(), nullptr, nullptr, nullptr, 0, nullptr,
                                          nullptr, services.GetAddressOf()),
                   "ConnectServer") ||
        !services)
    {
        return {};
    }
    LetActForUser(services.Get());
    const ComPtr<IWbemClassObject> enclosure =
        FirstOf(services.Get(), L"select * from Win32_SystemEnclosure");
    _variant_t number;
    if (!enclosure ||
        !Succeeded(enclosure->Get(L"SerialNumber", 0, &number, nullptr, nullptr), "Get") ||
        number.vt != VT_BSTR || !number.bstrVal)
    {
        return {};
    }
    return UniqueBstr(number.Detach().bstrVal);
}
} // namespace

UniqueBstr ReadServiceTag() noexcept
{
    try
    {
        return AskForTag();
    }
    catch (...)
    {
        TraceCurrentException();
        return {};
    }
}
} // namespace velt
