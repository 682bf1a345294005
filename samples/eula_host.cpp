// A compiled host that shows a licence agreement through the registered component and prints the
// user's answer.
//
// Build it in the folder of the library, with the two files that are made from the component's IDL;
// for the 64-bit edition with x86_64-w64-mingw32-g++:
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -I include samples/eula_host.cpp
//       include/provider_lib_i.c -o eula_host.exe -lole32 -loleaut32 -luuid
// Run it as: eula_host.exe samples/eula/agreement.rtf samples/eula/texts/DEU.xml
//            once the component is registered

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <wrl/client.h>

#include <cstdio>
#include <exception>

using Microsoft::WRL::ComPtr;

namespace
{
constexpr wchar_t kProgId[] = L"VeltHTTPClientX.VeltEulaDlg12OEM";

void Check(HRESULT hr)
{
    if (FAILED(hr))
    {
        throw _com_error(hr);
    }
}

void ShowAgreement(const wchar_t* agreement, const wchar_t* texts)
{
    CLSID clsid;
    Check(::CLSIDFromProgID(kProgId, &clsid));
    ComPtr<IVeltEulaDlg> dialog;
    Check(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&dialog)));
    VARIANT_BOOL accepted = VARIANT_FALSE;
    Check(dialog->LaunchEula(_bstr_t(agreement), _bstr_t(texts), &accepted));
    std::printf("%s\n", accepted != VARIANT_FALSE ? "accepted" : "declined");
}

/// COM on this thread; what it creates must be gone by the end of the scope.
struct Apartment
{
    Apartment()
    {
        Check(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
    }

    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    ~Apartment()
    {
        ::CoUninitialize();
    }
};
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count != 3)
    {
        std::fprintf(stderr, "usage: eula_host <agreement.rtf> <texts.xml>\n");
        return 2;
    }
    try
    {
        const Apartment apartment;
        ShowAgreement(arguments[1], arguments[2]);
        return 0;
    }
    catch (const _com_error& e)
    {
        std::fprintf(stderr, "failed: 0x%08lX\n", static_cast<unsigned long>(e.Error()));
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "failed: %s\n", e.what());
    }
    return 1;
}
