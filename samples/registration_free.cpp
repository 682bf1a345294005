// A compiled host that needs no registration and loads no library itself: its manifest depends on
// the component's, so CoCreateInstance finds the classes by CLSID and by ProgID. Beside the program
// lie VeltHTTPClient12OEM.dll and VeltHTTPClient12OEM.Assembly.manifest.
//
// Build it in the folder of the developer package, where include, x86 and x64 lie;
// for the 64-bit edition with x86_64-w64-mingw32-g++, its windres and x64 in the place of x86:
//   i686-w64-mingw32-windres samples/registration_free.rc registration_free_rc.o
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude samples/registration_free.cpp
//       include/provider_lib_i.c registration_free_rc.o -o x86/registration_free.exe
//       -lole32 -loleaut32 -luuid
// Run it as: x86\registration_free.exe
// With Visual C++, at the prompt of its tools for x86; for the 64-bit edition at that for x64:
//   cl /std:c++20 /EHsc /MT /DUNICODE /Iinclude samples\registration_free.cpp
//       include\provider_lib_i.c /Fe:x86\registration_free.exe ole32.lib oleaut32.lib uuid.lib
//       /link /MANIFEST:EMBED /MANIFESTINPUT:samples\registration_free.exe.manifest

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <wrl/client.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

using Microsoft::WRL::ComPtr;

namespace
{
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

/// COM on this thread until the end of the scope, after all objects are gone.
class Apartment
{
public:
    Apartment()
    {
        Check(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), "CoInitializeEx");
    }

    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    ~Apartment()
    {
        ::CoUninitialize();
    }
};

void Show(IEnumVariantCol* collection, LONG position)
{
    VARIANT item;
    ::VariantInit(&item);
    Check(collection->get_Item(_variant_t(position), &item), "Item");
    // Lent by the collection, by design: it is read here and not freed.
    std::printf("    Item(%ld) = %ls\n", position, item.bstrVal);
}

void UseByClass()
{
    ComPtr<IEnumVariantCol> collection;
    Check(::CoCreateInstance(CLSID_CEnumVariantCol, nullptr, CLSCTX_INPROC_SERVER,
                             IID_PPV_ARGS(&collection)),
          "CoCreateInstance");
    // Through the vtable the collection takes over what the VARIANT owns, so it is handed a text
    // that nobody here frees.
    for (const wchar_t* word : {L"no", L"registration"})
    {
        Check(collection->Add(_variant_t(word).Detach()), "Add");
    }
    std::printf("by CLSID:\n");
    Show(collection.Get(), 1);
    Show(collection.Get(), 2);
    Check(collection->Clear(), "Clear"); // frees both texts; the last Release would not
}

void UseByProgId()
{
    CLSID clsid{};
    Check(::CLSIDFromProgID(L"VeltHTTPClient.EnumVariantCol12OEM", &clsid), "CLSIDFromProgID");
    ComPtr<IDispatch> collection;
    Check(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&collection)),
          "CoCreateInstance by ProgID");
    wchar_t count[] = L"Count";
    LPOLESTR name = count;
    DISPID id = 0;
    Check(collection->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id), "GetIDsOfNames");
    DISPPARAMS none{};
    _variant_t result;
    Check(collection->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none,
                             &result, nullptr, nullptr),
          "Count");
    std::printf("by ProgID, late bound:\n    Count = %ld\n", static_cast<long>(result));
}
} // namespace

int wmain()
{
    try
    {
        const Apartment apartment;
        UseByClass();
        UseByProgId();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "registration_free: %s\n", e.what());
        return 1;
    }
    catch (const _com_error& e)
    {
        std::fprintf(stderr, "registration_free: 0x%08lX\n", static_cast<unsigned long>(e.Error()));
        return 1;
    }
}
