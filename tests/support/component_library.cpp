#include "tests/support/component_library.h"

#include "tests/support/built_file.h"

#include <cstdio>
#include <stdexcept>

namespace velt::test
{
namespace
{
template <class Function>
void Find(HMODULE module, const char* name, Function& function)
{
    const FARPROC found = ::GetProcAddress(module, name);
    if (!found)
    {
        throw std::runtime_error(std::string("no export ") + name);
    }
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}
} // namespace

std::wstring ShippedFile(const wchar_t* name)
{
    static const std::wstring s_folder = BuiltFile(L"bin\\VeltHTTPClient12OEM.dll");
    return s_folder.substr(0, s_folder.rfind(L'\\') + 1) + name;
}

ComponentLibrary::ComponentLibrary()
    : m_module(::LoadLibraryW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str()))
{
    if (!m_module)
    {
        throw std::runtime_error("the component cannot be loaded");
    }
    Find(m_module, "DllGetClassObject", m_getClassObject);
    Find(m_module, "DllCanUnloadNow", m_canUnloadNow);
    Find(m_module, "DllRegisterServer", m_registerServer);
}

ComponentLibrary::~ComponentLibrary()
{
    ::FreeLibrary(m_module);
}

Microsoft::WRL::ComPtr<IClassFactory> ComponentLibrary::Factory(REFCLSID clsid) const
{
    Microsoft::WRL::ComPtr<IClassFactory> factory;
    Check(m_getClassObject(clsid, IID_PPV_ARGS(&factory)));
    return factory;
}

void ComponentLibrary::Check(HRESULT hr)
{
    if (FAILED(hr))
    {
        char text[40];
        std::snprintf(text, sizeof(text), "failed: 0x%08lX", static_cast<unsigned long>(hr));
        throw std::runtime_error(text);
    }
}
} // namespace velt::test
