// What the HTTP service object costs, each measure beside a known one in the same run.

#include "foundation/bstr.h"
#include "foundation/library_utils.h"
#include "service/scrambled_text.h"
#include "service/sink_list.h"
#include "tests/benchmarks/paired.h"
#include "tests/benchmarks/table.h"
#include "tests/support/component_library.h"
#include "tests/support/recording_sink.h"
#include "tests/support/test_module.h"

#include <provider_lib.h>

#include <windows.h>

#include <wininet.h>
#include <wrl/client.h>

#include <cstdio>
#include <deque>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;
using velt::MakeBstr;
using velt::bench::MeasurePaired;
using velt::test::ComponentLibrary;

namespace
{
constexpr std::size_t kRounds = 15;
constexpr wchar_t kUrl[] = L"http://bench.velt.example/folder/page";

void Check(HRESULT hr)
{
    if (FAILED(hr))
    {
        throw std::runtime_error("a call failed: " + std::to_string(hr));
    }
}

/// The debugger calls of one scope's two lines.
void WriteBareLines(const char* enter, const char* leave)
{
    for (const char* line : {enter, leave})
    {
        ::OutputDebugStringA(": ");
        ::OutputDebugStringA(line);
        ::OutputDebugStringA("\r\n");
    }
}

void BenchData(IVeltHTTPService* service)
{
    constexpr std::size_t kTimes = 100;
    const velt::UniqueBstr url = MakeBstr(kUrl);
    const velt::UniqueBstr name = MakeBstr(L"name");
    const velt::UniqueBstr value = MakeBstr(L"value");
    velt::bench::PrintRow("WriteData, traced", "bare InternetSetCookieW and lines",
                          MeasurePaired(
                              kRounds, kTimes,
                              [&] {
                                  for (std::size_t i = 0; i < kTimes; ++i)
                                  {
                                      Check(service->WriteData(url.Get(), name.Get(), value.Get()));
                                  }
                              },
                              [&] {
                                  for (std::size_t i = 0; i < kTimes; ++i)
                                  {
                                      WriteBareLines("CVeltHTTPService::WriteData - enter",
                                                     "CVeltHTTPService::WriteData - return = 0");
                                      ::InternetSetCookieW(url.Get(), name.Get(), value.Get());
                                  }
                              }),
                          "<= 1.10");
    velt::bench::PrintRow("ReadData, traced", "bare InternetGetCookieW and lines",
                          MeasurePaired(
                              kRounds, kTimes,
                              [&] {
                                  for (std::size_t i = 0; i < kTimes; ++i)
                                  {
                                      BSTR text = nullptr;
                                      Check(service->ReadData(url.Get(), name.Get(), &text));
                                      ::SysFreeString(text);
                                  }
                              },
                              [&] {
                                  for (std::size_t i = 0; i < kTimes; ++i)
                                  {
                                      WriteBareLines("CVeltHTTPService::ReadData - enter",
                                                     "CVeltHTTPService::ReadData - return = 0");
                                      DWORD size = 0;
                                      ::InternetGetCookieW(url.Get(), nullptr, nullptr, &size);
                                      std::wstring text(size + 1, L'\0');
                                      ::InternetGetCookieW(url.Get(), nullptr, text.data(), &size);
                                      ::SysFreeString(::SysAllocString(text.c_str()));
                                  }
                              }),
                          "<= 1.10");
}

void BenchSafeData(IVeltHTTPService* service, bool traced)
{
    constexpr std::size_t kNames = 20;
    const velt::UniqueBstr url = MakeBstr(kUrl);
    std::vector<velt::UniqueBstr> names;
    std::vector<std::string> cookies;
    for (std::size_t i = 0; i < kNames; ++i)
    {
        names.push_back(MakeBstr(L"name" + std::to_wstring(i)));
        cookies.push_back("name" + std::to_string(i) +
                          "=value;expires=Sat, 5-May-2035  9: 4: 0 GMT");
    }
    const auto ours = [&] {
        for (const velt::UniqueBstr& name : names)
        {
            Check(service->SafeWriteData(url.Get(), name.Get(), name.Get()));
        }
        for (const velt::UniqueBstr& name : names)
        {
            BSTR text = nullptr;
            Check(service->SafeReadData(url.Get(), name.Get(), &text));
            ::SysFreeString(text);
        }
    };
    const auto bare = [&](bool withLines) {
        for (const std::string& cookie : cookies)
        {
            if (withLines)
            {
                WriteBareLines("CVeltHTTPService::SafeWriteData - enter",
                               "CVeltHTTPService::SafeWriteData - return = 0");
            }
            ::InternetSetCookieA("http://bare.velt.example/folder/page", nullptr, cookie.c_str());
        }
        for (std::size_t i = 0; i < kNames; ++i)
        {
            if (withLines)
            {
                WriteBareLines("CVeltHTTPService::SafeReadData - enter",
                               "CVeltHTTPService::SafeReadData - return = 0");
            }
            char text[8192];
            DWORD size = sizeof(text);
            ::InternetGetCookieA("http://bare.velt.example/folder/page", nullptr, text, &size);
        }
    };
    velt::bench::PrintRow(traced ? "20 names safely written and read, traced"
                                 : "20 names safely written and read",
                          traced ? "bare cookie calls and lines" : "bare cookie calls",
                          MeasurePaired(kRounds, kNames, ours, [&] { bare(traced); }), "<= 2.00");
    if (traced)
    {
        velt::bench::PrintRow("20 names safely written and read, traced", "bare cookie calls alone",
                              MeasurePaired(kRounds, kNames, ours, [&] { bare(false); }), "");
    }
}

void BenchScramble()
{
    const std::string clear(1 << 20, 'x');
    const std::string text = velt::Scramble(clear);
    std::vector<double> scramble;
    std::vector<double> unscramble;
    const auto rate = [&](auto&& body) {
        return static_cast<double>(clear.size()) * 1e3 / velt::bench::NanosecondsOf(body);
    };
    for (std::size_t i = 0; i < kRounds; ++i)
    {
        scramble.push_back(rate([&] { velt::Scramble(clear); }));
        unscramble.push_back(rate([&] { velt::Unscramble(text); }));
    }
    velt::bench::PrintFigure("scramble", velt::bench::Median(scramble), "MB/s", ">= 300");
    velt::bench::PrintFigure("unscramble", velt::bench::Median(unscramble), "MB/s", ">= 300");
}

void GetLateBound(IDispatch* object, const wchar_t* name, std::size_t times, bool traced)
{
    std::wstring writable = name;
    LPOLESTR names[] = {writable.data()};
    DISPID id = 0;
    Check(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id));
    for (std::size_t i = 0; i < times; ++i)
    {
        DISPPARAMS none{};
        VARIANT result;
        ::VariantInit(&result);
        if (traced)
        {
            WriteBareLines("CVeltHTTPService::get_IsConnected - enter",
                           "CVeltHTTPService::get_IsConnected - return = 0");
        }
        Check(object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &none,
                             &result, nullptr, nullptr));
    }
}

void BenchIsConnected(IVeltHTTPService* service, bool traced)
{
    const std::size_t times = traced ? 200 : 20'000;
    CLSID clsid;
    Check(::CLSIDFromProgID(L"Scripting.Dictionary", &clsid));
    ComPtr<IDispatch> dictionary;
    Check(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&dictionary)));
    velt::bench::PrintRow(
        traced ? "late-bound IsConnected, traced" : "late-bound IsConnected, untraced",
        traced ? "late-bound Count and lines" : "late-bound Count",
        MeasurePaired(
            kRounds, times, [&] { GetLateBound(service, L"IsConnected", times, false); },
            [&] { GetLateBound(dictionary.Get(), L"Count", times, traced); }),
        traced ? "<= 1.20" : "");
}

/// A sink that does what small sinks do: it reads its arguments.
HRESULT ReadArguments(DISPPARAMS* parameters)
{
    return parameters->cArgs == 2 ? S_OK : DISP_E_BADPARAMCOUNT;
}

/// The list of sinks by itself: what a service does around it is measured with the members.
void BenchNotify()
{
    constexpr std::size_t kSinks = 1000;
    velt::test::TestModule module;
    std::deque<velt::test::RecordingSink> sinks;
    velt::SinkList list;
    for (std::size_t i = 0; i < kSinks; ++i)
    {
        DWORD cookie = 0;
        Check(list.Advise(&sinks.emplace_back(&ReadArguments), &cookie));
    }
    velt::bench::PrintRow("Notify to 1,000 sinks, by the list itself", "1,000 bare Invoke calls",
                          MeasurePaired(
                              kRounds, kSinks, [&] { list.NotifySelfUpgrade(L"{a GUID}"); },
                              [&] {
                                  const velt::UniqueBstr text = MakeBstr(L"{a GUID}");
                                  for (velt::test::RecordingSink& sink : sinks)
                                  {
                                      VARIANTARG arguments[2];
                                      arguments[0].vt = VT_BSTR;
                                      arguments[0].bstrVal = text.Get();
                                      arguments[1].vt = VT_I4;
                                      arguments[1].lVal = self_upgrade;
                                      DISPPARAMS parameters{arguments, nullptr, 2, 0};
                                      sink.Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                                  &parameters, nullptr, nullptr, nullptr);
                                  }
                              }),
                          "<= 1.50");
    list.Clear();
}

void Run()
{
    const CLibraryUtils::SmartComInitializer com;
    velt::bench::PrintHeading("");
    {
        const ComponentLibrary library;
        const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        BenchData(service.Get());
        BenchSafeData(service.Get(), true);
        BenchIsConnected(service.Get(), true);
    }
    {
        ::SetEnvironmentVariableW(L"VELT_TRACE", L"0");
        const ComponentLibrary library;
        ::SetEnvironmentVariableW(L"VELT_TRACE", nullptr);
        const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        BenchSafeData(service.Get(), false);
        BenchIsConnected(service.Get(), false);
    }
    BenchScramble();
    BenchNotify();
}
} // namespace

int main()
{
    try
    {
        Run();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
}
