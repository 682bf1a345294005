#include "samples/update_agent/registration.h"

#include "samples/update_agent/agent_files.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <array>
#include <cstddef>
#include <string>

using Microsoft::WRL::ComPtr;

namespace registration
{
namespace
{
#ifdef _WIN64
constexpr wchar_t kOtherSystem[] = L"win32";
#else
constexpr wchar_t kOtherSystem[] = L"win64";
#endif
constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{D8F219B9-D0C0-470C-8210-74650E79D3DC}";

LSTATUS WriteDefault(const std::wstring& key, const std::wstring& value)
{
    const std::size_t sizeBytes = (value.size() + 1) * sizeof(wchar_t);
    return ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, REG_SZ, value.c_str(),
                             static_cast<DWORD>(sizeBytes));
}

HRESULT GetIdentity(ITypeLib& library, TLIBATTR& identity)
{
    TLIBATTR* attributes = nullptr;
    const HRESULT hr = library.GetLibAttr(&attributes);
    if (SUCCEEDED(hr))
    {
        identity = *attributes;
        library.ReleaseTLibAttr(attributes);
    }
    return hr;
}

/// Where programs of the other kind look for the type library. The system registers it only for
/// programs of this one's kind, but a local server has clients of both.
std::wstring OtherKindKey(const TLIBATTR& identity)
{
    std::array<wchar_t, 40> guid{};
    ::StringFromGUID2(identity.guid, guid.data(), static_cast<int>(guid.size()));
    std::array<wchar_t, 40> place{};
    ::wsprintfW(place.data(), L"\\%x.%x\\%x\\", identity.wMajorVerNum, identity.wMinorVerNum,
                static_cast<unsigned>(identity.lcid));
    return std::wstring(L"Software\\Classes\\TypeLib\\") + guid.data() + place.data() +
           kOtherSystem;
}

/// Removes this program's entry there, not that of an agent of the other kind.
void RemoveOtherKind(const std::wstring& key)
{
    const std::wstring program = agent_files::ProgramPath();
    std::array<wchar_t, 1024> registered{};
    DWORD sizeBytes = sizeof(registered);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr,
                       registered.data(), &sizeBytes) == ERROR_SUCCESS &&
        program == registered.data())
    {
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, key.c_str());
    }
}
} // namespace

HRESULT Register()
{
    std::wstring program = agent_files::ProgramPath();
    LSTATUS error = WriteDefault(kClassKey, L"Sample update agent");
    if (error == ERROR_SUCCESS)
    {
        error = WriteDefault(std::wstring(kClassKey) + L"\\LocalServer32", L'"' + program + L'"');
    }
    if (error != ERROR_SUCCESS)
    {
        return HRESULT_FROM_WIN32(static_cast<DWORD>(error));
    }
    ComPtr<ITypeLib> library;
    HRESULT hr = ::LoadTypeLibEx(program.c_str(), REGKIND_NONE, &library);
    if (SUCCEEDED(hr))
    {
        hr = ::RegisterTypeLib(library.Get(), program.data(), nullptr);
    }
    TLIBATTR identity{};
    if (SUCCEEDED(hr))
    {
        hr = GetIdentity(*library.Get(), identity);
    }
    if (FAILED(hr))
    {
        return hr;
    }
    error = WriteDefault(OtherKindKey(identity), program);
    return HRESULT_FROM_WIN32(static_cast<DWORD>(error)); // S_OK for none
}

HRESULT Unregister()
{
    const LSTATUS error = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    ComPtr<ITypeLib> library;
    HRESULT hr = ::LoadTypeLibEx(agent_files::ProgramPath().c_str(), REGKIND_NONE, &library);
    TLIBATTR identity{};
    if (SUCCEEDED(hr))
    {
        hr = GetIdentity(*library.Get(), identity);
    }
    if (SUCCEEDED(hr))
    {
        RemoveOtherKind(OtherKindKey(identity)); // first: the system removes what is empty then
        hr = ::UnRegisterTypeLib(identity.guid, identity.wMajorVerNum, identity.wMinorVerNum,
                                 identity.lcid, identity.syskind);
    }
    return error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND
               ? hr
               : HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}
} // namespace registration
