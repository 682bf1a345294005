#include "tools/velt/component.h"

#include "foundation/find_function.h"
#include "server/registration.h"
#include "tools/velt/command_context.h"

#include <vector>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
constexpr wchar_t kFileName[] = L"VeltHTTPClient12OEM.dll";

HMODULE Load(const std::wstring& path)
{
    // What the library needs comes from its own folder or the system's, never from the current one.
    const HMODULE module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!module)
    {
        throw LastFailure(path);
    }
    return module;
}
} // namespace

std::wstring FileBesideProgram(const wchar_t* name)
{
    const std::wstring program = ModulePath(nullptr);
    return program.substr(0, program.rfind(L'\\') + 1) + name;
}

Component::Component() : m_path(FileBesideProgram(kFileName)), m_library(Load(m_path)) {}

std::wstring Component::Version() const
{
    const DWORD size = ::GetFileVersionInfoSizeW(m_path.c_str(), nullptr);
    std::vector<std::byte> block(size);
    VS_FIXEDFILEINFO* info = nullptr; // in the block
    UINT length = 0;
    if (size == 0 || !::GetFileVersionInfoW(m_path.c_str(), 0, size, block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length) ||
        length < sizeof(*info))
    {
        throw LastFailure(m_path);
    }
    return std::to_wstring(HIWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionMS)) + L"." +
           std::to_wstring(HIWORD(info->dwFileVersionLS)) + L"." +
           std::to_wstring(LOWORD(info->dwFileVersionLS));
}

HRESULT Component::Register() const
{
    using RegisterFunction = HRESULT(STDAPICALLTYPE*)();
    const auto registerServer = FindFunction<RegisterFunction>(Module(), "DllRegisterServer");
    if (!registerServer)
    {
        throw LastFailure(m_path + L", DllRegisterServer");
    }
    return registerServer();
}

void Component::Create(REFCLSID clsid, REFIID iid, void** object) const
{
    using GetFunction = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = FindFunction<GetFunction>(Module(), "DllGetClassObject");
    if (!getClassObject)
    {
        throw LastFailure(m_path + L", DllGetClassObject");
    }
    ComPtr<IClassFactory> factory;
    Require(getClassObject(clsid, IID_PPV_ARGS(&factory)), L"the class's factory");
    Require(factory->CreateInstance(nullptr, iid, object), L"a new object");
}
} // namespace velt::tool
