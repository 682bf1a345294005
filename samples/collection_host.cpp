// A compiled host that needs no registration: it loads the library, makes the collection through
// DllGetClassObject, uses it early and late bound, and watches the library's trace arrive.
//
// Build it in the folder of the developer package, where include, x86 and x64 lie;
// for the 64-bit edition with x86_64-w64-mingw32-g++ and x64 in the place of x86:
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude samples/collection_host.cpp
//       include/provider_lib_i.c -o x86/collection_host.exe -lole32 -loleaut32 -luuid
// Run it as: x86\collection_host.exe x86\VeltHTTPClient12OEM.dll
// With Visual C++, at the prompt of its tools for x86; for the 64-bit edition at that for x64:
//   cl /std:c++20 /EHsc /MT /DUNICODE /Iinclude samples\collection_host.cpp
//       include\provider_lib_i.c /Fe:x86\collection_host.exe
//       ole32.lib oleaut32.lib uuid.lib user32.lib

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace
{
constexpr wchar_t kTraceViewerClass[] = L"Pembrook Corporation::Trace::1.0";
constexpr std::size_t kTraceTextOffset = 81; // of the text in a trace record

void Check(HRESULT hr, const char* what)
{
    if (FAILED(hr))
    {
        char text[120];
        std::snprintf(text, sizeof(text), "%s failed: 0x%08lX", what,
                      static_cast<unsigned long>(hr));
        throw std::runtime_error(text);
    }
}

/// A window that the library finds when it is loaded; it prints each trace line.
class TraceWindow
{
public:
    TraceWindow()
    {
        WNDCLASSW type{};
        type.lpfnWndProc = &TraceWindow::Procedure;
        type.hInstance = ::GetModuleHandleW(nullptr);
        type.lpszClassName = kTraceViewerClass;
        ::RegisterClassW(&type);
        m_window = ::CreateWindowW(kTraceViewerClass, kTraceViewerClass, 0, 0, 0, 0, 0, nullptr,
                                   nullptr, type.hInstance, nullptr);
        if (!m_window)
        {
            throw std::runtime_error("no window for the trace");
        }
    }

    TraceWindow(const TraceWindow&) = delete;
    TraceWindow& operator=(const TraceWindow&) = delete;

    ~TraceWindow()
    {
        ::DestroyWindow(m_window);
    }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message != WM_COPYDATA)
        {
            return ::DefWindowProcW(window, message, wParam, lParam);
        }
        const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
        if (data->cbData > kTraceTextOffset)
        {
            std::printf("        trace: %s\n",
                        static_cast<const char*>(data->lpData) + kTraceTextOffset);
        }
        return TRUE;
    }

    HWND m_window;
};

/// The library and the two of its exports that a host calls.
class Library
{
public:
    explicit Library(const std::wstring& path) : m_module(::LoadLibraryW(path.c_str()))
    {
        if (!m_module)
        {
            throw std::runtime_error("the library cannot be loaded");
        }
        Find("DllGetClassObject", m_getClassObject);
        Find("DllCanUnloadNow", m_canUnloadNow);
    }

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    ~Library()
    {
        ::FreeLibrary(m_module);
    }

    template <class Interface>
    ComPtr<Interface> Create(REFCLSID clsid) const
    {
        ComPtr<IClassFactory> factory;
        ComPtr<Interface> object;
        Check(m_getClassObject(clsid, IID_PPV_ARGS(&factory)), "DllGetClassObject");
        Check(factory->CreateInstance(nullptr, IID_PPV_ARGS(&object)), "CreateInstance");
        return object;
    }

    HRESULT CanUnloadNow() const
    {
        return m_canUnloadNow();
    }

private:
    template <class Function>
    void Find(const char* name, Function& function)
    {
        const FARPROC found = ::GetProcAddress(m_module, name);
        if (!found)
        {
            throw std::runtime_error(std::string("the library has no ") + name);
        }
        std::memcpy(&function, &found, sizeof(function));
    }

    HMODULE m_module;
    HRESULT(WINAPI* m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(WINAPI* m_canUnloadNow)() = nullptr;
};

void Show(const char* what, const VARIANT& value)
{
    _variant_t text;
    Check(::VariantChangeType(&text, const_cast<VARIANT*>(&value), 0, VT_BSTR),
          "VariantChangeType");
    std::printf("    %s = %ls (type %u)\n", what, text.bstrVal, value.vt);
}

VARIANT Integer(LONG value)
{
    VARIANT variant;
    ::VariantInit(&variant);
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

VARIANT Text(const wchar_t* value)
{
    VARIANT variant;
    ::VariantInit(&variant);
    variant.vt = VT_BSTR;
    variant.bstrVal = ::SysAllocString(value);
    return variant;
}

LONG CountOf(IEnumVariantCol* collection)
{
    LONG count = 0;
    Check(collection->get_Count(&count), "Count");
    return count;
}

void UseEarlyBound(IEnumVariantCol* collection)
{
    std::printf("early bound:\n");
    // Through the vtable the collection takes over what the VARIANT owns: the text is its own now.
    Check(collection->Add(Text(L"first")), "Add");
    Check(collection->Add(Integer(42)), "Add");
    Check(collection->Add(Text(L"last")), "Add");
    std::printf("    Count = %ld\n", CountOf(collection));

    VARIANT item = Integer(0);
    Check(collection->get_Item(Integer(3), &item), "Item");
    Show("Item(3)", item); // lent: not to be freed
    Check(collection->Remove(Integer(2)), "Remove");
    std::printf("    after Remove(2): Count = %ld\n", CountOf(collection));
}

/// One late-bound call: `flags` says whether a method is called or a property read.
_variant_t Invoke(IDispatch* object, const wchar_t* name, WORD flags,
                  std::vector<_variant_t> arguments)
{
    std::wstring writable = name;
    LPOLESTR names[] = {writable.data()};
    DISPID id = 0;
    Check(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), "GetIDsOfNames");
    DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    _variant_t result;
    Check(object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters, &result, nullptr,
                         nullptr),
          "Invoke");
    return result;
}

void UseLateBound(IDispatch* collection)
{
    std::printf("late bound:\n");
    // Here automation's rules hold: each side frees what it has.
    Invoke(collection, L"Add", DISPATCH_METHOD, {_variant_t(3.5)});
    Show("Count", Invoke(collection, L"Count", DISPATCH_PROPERTYGET, {}));
    Show("Item(\"3\")", Invoke(collection, L"Item", DISPATCH_PROPERTYGET, {_variant_t(L"3")}));
}

void Enumerate(IEnumVariantCol* collection)
{
    std::printf("enumerated:\n");
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> enumerator;
    Check(collection->get__NewEnum(&unknown), "_NewEnum");
    Check(unknown.As(&enumerator), "QueryInterface");
    _variant_t value;
    while (enumerator->Next(1, &value, nullptr) == S_OK)
    {
        Show("value", value);
        value.Clear();
    }
}

void Run(const std::wstring& path)
{
    const TraceWindow window; // there before the library is loaded, which looks for it then
    const Library library(path);
    {
        const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        std::printf("DllCanUnloadNow with an object alive: %ld\n", library.CanUnloadNow());
        UseEarlyBound(collection.Get());
        UseLateBound(collection.Get());
        Enumerate(collection.Get());
        Check(collection->Clear(), "Clear");
        std::printf("after Clear: Count = %ld\n", CountOf(collection.Get()));
    }
    std::printf("DllCanUnloadNow after the last release: %ld\n", library.CanUnloadNow());
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: collection_host <path of VeltHTTPClient12OEM.dll>\n");
        return 2;
    }
    try
    {
        Check(::CoInitialize(nullptr), "CoInitialize");
        Run(argv[1]);
        ::CoUninitialize();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "collection_host: %s\n", e.what());
        return 1;
    }
}
