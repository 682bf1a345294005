// A compiled host that shows a licence agreement through the registered component and prints the
// user's answer.
//
// Build it in the folder of the developer package, where include, x86 and x64 lie;
// for the 64-bit edition with x86_64-w64-mingw32-g++ and x64 in the place of x86:
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude samples/eula_host.cpp
//       include/provider_lib_i.c -o x86/eula_host.exe -lole32 -loleaut32 -luuid
// Run it as: x86\eula_host.exe samples\eula\agreement.rtf samples\eula\texts\DEU.xml
//            once the component is registered
// With Visual C++, at the prompt of its tools for x86; for the 64-bit edition at that for x64:
//   cl /std:c++20 /EHsc /MT /DUNICODE /Iinclude samples\eula_host.cpp
//       include\provider_lib_i.c /Fe:x86\eula_host.exe ole32.lib oleaut32.lib uuid.lib

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
