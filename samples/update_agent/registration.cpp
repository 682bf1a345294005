#include "samples/update_agent/registration.h"

#include "samples/update_agent/agent_files.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <cstddef>
#include <string>

using Microsoft::WRL::ComPtr;

namespace registration
{
namespace
{
constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{D8F219B9-D0C0-470C-8210-74650E79D3DC}";

LSTATUS WriteDefault(const std::wstring& key, const std::wstring& value)
{
    const std::size_t sizeBytes = (value.size() + 1) * sizeof(wchar_t);
    return ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, REG_SZ, value.c_str(),
                             static_cast<DWORD>(sizeBytes));
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
    const HRESULT hr = ::LoadTypeLibEx(program.c_str(), REGKIND_NONE, &library);
    return FAILED(hr) ? hr : ::RegisterTypeLib(library.Get(), program.data(), nullptr);
}

HRESULT Unregister()
{
    const LSTATUS error = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    ComPtr<ITypeLib> library;
    HRESULT hr = ::LoadTypeLibEx(agent_files::ProgramPath().c_str(), REGKIND_NONE, &library);
    TLIBATTR* attributes = nullptr;
    if (SUCCEEDED(hr))
    {
        hr = library->GetLibAttr(&attributes);
    }
    if (SUCCEEDED(hr))
    {
        const TLIBATTR identity = *attributes;
        library->ReleaseTLibAttr(attributes);
        hr = ::UnRegisterTypeLib(identity.guid, identity.wMajorVerNum, identity.wMinorVerNum,
                                 identity.lcid, identity.syskind);
    }
    return error == ERROR_SUCCESS || error == ERROR_FILE_NOT_FOUND
               ? hr
               : HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}
} // namespace registration
