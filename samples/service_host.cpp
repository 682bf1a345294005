// A compiled host of the registered component: it uses the HTTP service object early and late bound
// and listens to its events.
//
// Build it in the folder of the developer package, where include, x86 and x64 lie;
// for the 64-bit edition with x86_64-w64-mingw32-g++ and x64 in the place of x86:
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude samples/service_host.cpp
//       include/provider_lib_i.c -o x86/service_host.exe -lole32 -loleaut32 -luuid
// Run it as: x86\service_host.exe          all calls
//            x86\service_host.exe wait     and stay until queued update work has run, half a minute
// With Visual C++, at the prompt of its tools for x86; for the 64-bit edition at that for x64:
//   cl /std:c++20 /EHsc /MT /DUNICODE /Iinclude samples\service_host.cpp
//       include\provider_lib_i.c /Fe:x86\service_host.exe
//       ole32.lib oleaut32.lib uuid.lib user32.lib

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace
{
const _bstr_t kSite(L"http://host.velt.example/");
const _bstr_t kProduct(L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}");
const _bstr_t kVersion(L"3.0");
constexpr LONG kLocale = 1033;
constexpr DWORD kPatienceMs = 90'000; // queued work runs after 30 s

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

const char* YesNo(VARIANT_BOOL flag)
{
    return flag != VARIANT_FALSE ? "yes" : "no";
}

/// Prints a text that a call has returned; null when it returned none.
void Show(const char* what, const _bstr_t& text)
{
    std::printf("    %s: %ls\n", what,
                text.length() > 0 ? static_cast<const wchar_t*>(text) : L"(none)");
}

/// Puts the thread into a single-threaded apartment until the end of the scope.
class Apartment
{
public:
    Apartment()
    {
        Check(::CoInitialize(nullptr), "CoInitialize");
    }

    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    ~Apartment()
    {
        ::CoUninitialize();
    }
};

/// Takes the service's events. It lives on the heap, because whoever marshals it may keep it for
/// longer than it is connected. Made without a reference.
class EventSink final : public IDispatch
{
public:
    EventSink() noexcept : m_start(::GetTickCount64()) {}

    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

    int Count() const noexcept
    {
        return m_count;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown = ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IDispatch) ||
                             ::IsEqualIID(iid, DIID_IVeltHTTPServiceEvents);
        *object = isKnown ? this : nullptr;
        if (!isKnown)
        {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG left = ::InterlockedDecrement(&m_references);
        if (left == 0)
        {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override
    {
        *info = nullptr;
        return DISP_E_BADINDEX;
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return DISP_E_UNKNOWNNAME;
    }

    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT*, EXCEPINFO*,
                        UINT*) override
    {
        constexpr DISPID kNotify = 1;
        if (id != kNotify || parameters->cArgs != 2)
        {
            return DISP_E_MEMBERNOTFOUND;
        }
        const VARIANT& event = parameters->rgvarg[1]; // arguments stand in reverse order
        const VARIANT& text = parameters->rgvarg[0];
        std::printf(
            "    event %s %ls, after %llu s\n", event.lVal == self_upgrade ? "self_upgrade" : "?",
            text.vt == VT_BSTR ? text.bstrVal : L"?", (::GetTickCount64() - m_start) / 1000);
        ++m_count;
        return S_OK;
    }

private:
    ~EventSink() = default;

    const ULONGLONG m_start;
    int m_count = 0;
    LONG m_references = 0;
};

/// Connects a sink to an object's events until the end of the scope.
class Connection
{
public:
    Connection(IUnknown* source, IUnknown* sink)
    {
        ComPtr<IConnectionPointContainer> container;
        Check(source->QueryInterface(IID_PPV_ARGS(&container)), "QueryInterface");
        Check(container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, &m_point),
              "FindConnectionPoint");
        Check(m_point->Advise(sink, &m_cookie), "Advise");
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ~Connection()
    {
        m_point->Unadvise(m_cookie);
    }

private:
    ComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
};

/// The members that return a text leave it as it is when they have none.
template <class Call>
_bstr_t TextOf(const char* what, Call&& call)
{
    BSTR text = nullptr;
    Check(call(&text), what);
    return _bstr_t(text, false);
}

void UseEarlyBound(IVeltHTTPService* service)
{
    std::printf("early bound:\n");
    const _bstr_t name(L"visits");
    const _bstr_t user(L"user");
    Check(service->WriteData(kSite, name, _bstr_t(L"3")), "WriteData");
    Show("ReadData", TextOf("ReadData", [&](BSTR* text) {
             return service->ReadData(kSite, name, text); // all cookies, whatever the name is
         }));
    Check(service->put_domain(_bstr_t(L"host.velt.example")), "domain");
    Show("GetDomain", TextOf("GetDomain", [&](BSTR* text) { return service->GetDomain(text); }));
    Check(service->SafeWriteData(kSite, user, _bstr_t(L"Ann; visits=4")), "SafeWriteData");
    Show("SafeReadData", TextOf("SafeReadData", [&](BSTR* text) {
             return service->SafeReadData(kSite, user, text);
         }));
    Show("Redirect", TextOf("Redirect", [&](BSTR* text) { return service->get_Redirect(text); }));
    Show("GetServiceTag",
         TextOf("GetServiceTag", [&](BSTR* text) { return service->GetServiceTag(text); }));
    VARIANT_BOOL isConnected = VARIANT_FALSE;
    Check(service->get_IsConnected(&isConnected), "IsConnected");
    std::printf("    IsConnected, before queued work has run: %s\n", YesNo(isConnected));
}

/// One late-bound call; `arguments` stand in reverse order.
_variant_t Invoke(IDispatch* object, const wchar_t* name, WORD flags,
                  std::vector<_variant_t> arguments = {})
{
    std::wstring writable = name;
    LPOLESTR names[] = {writable.data()};
    DISPID id = 0;
    Check(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), "GetIDsOfNames");
    DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    DISPID put = DISPID_PROPERTYPUT;
    if (flags == DISPATCH_PROPERTYPUT)
    {
        parameters.rgdispidNamedArgs = &put;
        parameters.cNamedArgs = 1;
    }
    _variant_t result;
    Check(object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters, &result, nullptr,
                         nullptr),
          "Invoke");
    return result;
}

_bstr_t TextIn(const _variant_t& value)
{
    return value.vt == VT_BSTR ? _bstr_t(value.bstrVal) : _bstr_t();
}

void UseLateBound(IDispatch* service)
{
    std::printf("late bound:\n");
    const _variant_t site(kSite);
    const _variant_t user(L"user");
    Show("SafeReadData", TextIn(Invoke(service, L"SafeReadData", DISPATCH_METHOD, {user, site})));
    Invoke(service, L"SafeWriteData", DISPATCH_METHOD, {_variant_t(L"Bob"), user, site});
    Show("SafeReadData", TextIn(Invoke(service, L"SafeReadData", DISPATCH_METHOD, {user, site})));
    Invoke(service, L"domain", DISPATCH_PROPERTYPUT, {_variant_t(L".velt.example")});
    Show("GetDomain", TextIn(Invoke(service, L"GetDomain", DISPATCH_METHOD)));
    Show("Redirect", TextIn(Invoke(service, L"Redirect", DISPATCH_PROPERTYGET)));
    std::printf("    IsConnected, before queued work has run: %s\n",
                YesNo(Invoke(service, L"IsConnected", DISPATCH_PROPERTYGET).boolVal));
}

/// Dispatches messages, events among them, until the sink has that many events.
void WaitForEvents(const EventSink& sink, int count)
{
    const ULONGLONG limit = ::GetTickCount64() + kPatienceMs;
    while (sink.Count() < count)
    {
        const ULONGLONG now = ::GetTickCount64();
        if (now >= limit)
        {
            throw std::runtime_error("the event does not come");
        }
        // Also for messages that came before: COM has looked through the queue during our calls,
        // and what it left there is not new any more.
        ::MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(limit - now), QS_ALLINPUT,
                                      MWMO_INPUTAVAILABLE);
        MSG message{};
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::DispatchMessageW(&message);
        }
    }
}

void Update(IVeltHTTPService* service, bool wait)
{
    std::printf("updates:\n");
    for (const VARIANT_BOOL connect : {VARIANT_FALSE, VARIANT_TRUE})
    {
        VARIANT_BOOL available = VARIANT_FALSE;
        Check(service->IsUpdateOrMessageAvailable(kProduct, kVersion, kLocale, connect, &available),
              "IsUpdateOrMessageAvailable");
        std::printf("    %s: %s\n",
                    connect ? "an update or a message was found" : "there is an update agent",
                    YesNo(available));
    }
    const ComPtr<EventSink> sink(new EventSink);
    const Connection connection(service, sink.Get());
    std::printf("    InvokeUpdate, in the foreground\n");
    Check(service->InvokeUpdate(kProduct, kVersion, kLocale, _bstr_t(L"The sample")),
          "InvokeUpdate");
    WaitForEvents(*sink.Get(), 1);
    std::printf("    StartUpdateService, queued for the background\n");
    Check(service->StartUpdateService(kProduct, kVersion, kLocale, _bstr_t(L"")),
          "StartUpdateService");
    if (wait)
    {
        WaitForEvents(*sink.Get(), 2);
        VARIANT_BOOL isConnected = VARIANT_FALSE;
        Check(service->get_IsConnected(&isConnected), "IsConnected");
        std::printf("    IsConnected, after it has run: %s\n", YesNo(isConnected));
    }
    Check(service->StartService(), "StartService"); // the component's own update, queued as well
}

void Run(bool wait)
{
    ComPtr<IVeltHTTPService> service;
    Check(::CoCreateInstance(CLSID_CVeltHTTPService, nullptr, CLSCTX_INPROC_SERVER,
                             IID_PPV_ARGS(&service)),
          "CoCreateInstance");
    UseEarlyBound(service.Get());
    UseLateBound(service.Get());
    Update(service.Get(), wait);
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    const bool wait = argc == 2 && std::wcscmp(argv[1], L"wait") == 0;
    if (argc > 2 || (argc == 2 && !wait))
    {
        std::fprintf(stderr, "usage: service_host [wait]\n");
        return 2;
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0); // lines are seen when they are printed
    try
    {
        const Apartment apartment; // left also when a call fails
        Run(wait);
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "service_host: %s\n", e.what());
        return 1;
    }
    catch (const _com_error& e)
    {
        std::fprintf(stderr, "service_host: 0x%08lX\n", static_cast<unsigned long>(e.Error()));
        return 1;
    }
}
