// What the component costs, each measure beside a known one in the same run.

#include "foundation/library_utils.h"
#include "foundation/trace_state.h"
#include "foundation/utrace.h"
#include "tests/benchmarks/paired.h"
#include "tests/benchmarks/table.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"

#include <provider_lib.h>

#include <windows.h>

#include <oleauto.h>
#include <wrl/client.h>

#include <array>
#include <cstdio>
#include <exception>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;
using velt::bench::MeasurePaired;
using velt::bench::PairedTimes;
using velt::test::ComponentLibrary;

namespace
{
constexpr std::size_t kRounds = 15;

void Check(HRESULT hr)
{
    if (FAILED(hr))
    {
        throw std::runtime_error("a call failed: " + std::to_string(hr));
    }
}

CLSID DictionaryClass()
{
    CLSID clsid;
    Check(::CLSIDFromProgID(L"Scripting.Dictionary", &clsid));
    return clsid;
}

VARIANT Integer(LONG value)
{
    VARIANT variant;
    ::VariantInit(&variant);
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

/// The component as it is with the environment variable VELT_TRACE at load set to a text, or unset.
class Component
{
public:
    explicit Component(const wchar_t* traceFlags)
    {
        ::SetEnvironmentVariableW(L"VELT_TRACE", traceFlags);
        m_library.emplace();
        ::SetEnvironmentVariableW(L"VELT_TRACE", nullptr);
    }

    const ComponentLibrary& Library() const
    {
        return *m_library;
    }

private:
    std::optional<ComponentLibrary> m_library;
};

constexpr const wchar_t* kUntraced = L"0";
constexpr const wchar_t* kTraced = nullptr;

void CreateAndRelease(IClassFactory* factory, std::size_t times)
{
    for (std::size_t i = 0; i < times; ++i)
    {
        ComPtr<IDispatch> object;
        Check(factory->CreateInstance(nullptr, IID_PPV_ARGS(&object)));
    }
}

PairedTimes BenchCreate(const wchar_t* trace, std::size_t times)
{
    const Component component(trace);
    const auto ours = component.Library().Factory(CLSID_CEnumVariantCol);
    ComPtr<IClassFactory> against;
    Check(::CoGetClassObject(DictionaryClass(), CLSCTX_INPROC_SERVER, nullptr,
                             IID_PPV_ARGS(&against)));
    return MeasurePaired(
        kRounds, times, [&] { CreateAndRelease(ours.Get(), times); },
        [&] { CreateAndRelease(against.Get(), times); });
}

constexpr std::size_t kChunk = 64;

void FillAndEnumerate(const ComponentLibrary& library, std::size_t count)
{
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    for (std::size_t i = 0; i < count; ++i)
    {
        Check(collection->Add(Integer(static_cast<LONG>(i))));
    }
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> enumerator;
    Check(collection->get__NewEnum(&unknown));
    Check(unknown.As(&enumerator));
    std::array<VARIANT, kChunk> chunk;
    ULONG fetched = 0;
    std::size_t total = 0;
    do
    {
        Check(enumerator->Next(kChunk, chunk.data(), &fetched));
        total += fetched;
    } while (fetched == kChunk);
    if (total != count)
    {
        throw std::runtime_error("values were lost");
    }
}

void FillAndCopyBare(std::size_t count)
{
    std::vector<VARIANT> values;
    for (std::size_t i = 0; i < count; ++i)
    {
        values.push_back(Integer(static_cast<LONG>(i)));
    }
    std::array<VARIANT, kChunk> chunk;
    volatile LONG sink = 0; // keeps the copies from being left out
    for (std::size_t at = 0; at < count; at += kChunk)
    {
        std::copy_n(values.begin() + static_cast<std::ptrdiff_t>(at), std::min(kChunk, count - at),
                    chunk.begin());
        sink = chunk.front().lVal;
    }
    static_cast<void>(sink);
}

PairedTimes BenchFill(const wchar_t* trace, std::size_t count)
{
    const Component component(trace);
    return MeasurePaired(
        kRounds, count, [&] { FillAndEnumerate(component.Library(), count); },
        [&] { FillAndCopyBare(count); });
}

/// Asks for Item of the keys 1 to `keys`, over and over.
void GetItems(IDispatch* object, DISPID id, LONG keys, std::size_t times)
{
    for (std::size_t i = 0; i < times; ++i)
    {
        VARIANT key = Integer(static_cast<LONG>(i) % keys + 1);
        DISPPARAMS parameters{&key, nullptr, 1, 0};
        VARIANT result;
        ::VariantInit(&result);
        Check(object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &parameters,
                             &result, nullptr, nullptr));
    }
}

DISPID IdOf(IDispatch* object, const wchar_t* name)
{
    std::wstring writable = name;
    LPOLESTR names[] = {writable.data()};
    DISPID id = 0;
    Check(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id));
    return id;
}

PairedTimes BenchItem(const wchar_t* trace, std::size_t times)
{
    constexpr LONG kKeys = 100; // more, and Wine takes different numbers for one key
    const Component component(trace);
    const auto ours = component.Library().Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    ComPtr<IDispatch> against;
    Check(::CoCreateInstance(DictionaryClass(), nullptr, CLSCTX_INPROC_SERVER,
                             IID_PPV_ARGS(&against)));
    const DISPID add = IdOf(against.Get(), L"Add");
    for (LONG i = 1; i <= kKeys; ++i)
    {
        Check(ours->Add(Integer(i)));
        VARIANT pair[] = {Integer(i), Integer(i)};
        DISPPARAMS parameters{pair, nullptr, 2, 0};
        Check(against->Invoke(add, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters,
                              nullptr, nullptr, nullptr));
    }
    const DISPID ourItem = IdOf(ours.Get(), L"Item");
    const DISPID theirItem = IdOf(against.Get(), L"Item");
    return MeasurePaired(
        kRounds, times, [&] { GetItems(ours.Get(), ourItem, kKeys, times); },
        [&] { GetItems(against.Get(), theirItem, kKeys, times); });
}

PairedTimes BenchScope(std::size_t times)
{
    UTrace::State state;
    UTrace::StartUp();
    const auto scope = [&] {
        for (std::size_t i = 0; i < times; ++i)
        {
            UTrace::Function trace("CEnumVariantCol::get_Item");
            trace.Return(0, nullptr);
        }
    };
    const auto bare = [&] {
        for (std::size_t i = 0; i < times; ++i)
        {
            ::OutputDebugStringA(": ");
            ::OutputDebugStringA("CEnumVariantCol::get_Item - enter");
            ::OutputDebugStringA("\r\n");
            ::OutputDebugStringA(": ");
            ::OutputDebugStringA("CEnumVariantCol::get_Item - return = 0");
            ::OutputDebugStringA("\r\n");
        }
    };
    return MeasurePaired(kRounds, times, scope, bare);
}

/// Loads a library, makes one object of it and unloads it.
void LoadAndCreate(const std::wstring& path, REFCLSID clsid)
{
    const CLibraryUtils::CLibraryUtilsImpl module(::LoadLibraryW(path.c_str()));
    const FARPROC found = ::GetProcAddress(module.GetModule(), "DllGetClassObject");
    using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    ComPtr<IClassFactory> factory;
    Check(reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(found))(clsid,
                                                                           IID_PPV_ARGS(&factory)));
    CreateAndRelease(factory.Get(), 1);
}

PairedTimes BenchLoad(const wchar_t* trace, std::size_t times)
{
    ::SetEnvironmentVariableW(L"VELT_TRACE", trace);
    const std::wstring ours = velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll");
    const CLSID dictionary = DictionaryClass();
    const PairedTimes times1 = MeasurePaired(
        kRounds, times,
        [&] {
            for (std::size_t i = 0; i < times; ++i)
            {
                LoadAndCreate(ours, CLSID_CEnumVariantCol);
            }
        },
        [&] {
            for (std::size_t i = 0; i < times; ++i)
            {
                LoadAndCreate(L"scrrun.dll", dictionary);
            }
        });
    ::SetEnvironmentVariableW(L"VELT_TRACE", nullptr);
    return times1;
}

void PrintTracedRow(const char* measure, const char* against, const PairedTimes& times,
                    const char* reach, const PairedTimes& traced)
{
    velt::bench::PrintStart(measure, against, times, reach);
    std::printf("  %12.1f\n", traced.oursNs);
    std::fflush(stdout);
}

/// The bytes of the dialog's pictures in the library.
DWORD PictureBytes(const std::wstring& path)
{
    const HMODULE library = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    DWORD bytes = 0;
    const auto add = [](HMODULE module, const wchar_t* type, wchar_t* name, LONG_PTR sum)
                         WINAPI -> BOOL {
        *reinterpret_cast<DWORD*>(sum) +=
            ::SizeofResource(module, ::FindResourceW(module, name, type));
        return TRUE;
    };
    if (!library ||
        !::EnumResourceNamesW(library, RT_BITMAP, add, reinterpret_cast<LONG_PTR>(&bytes)))
    {
        throw std::runtime_error("the library's pictures are not found");
    }
    ::FreeLibrary(library);
    return bytes;
}

void PrintSize()
{
    const std::wstring path = velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll");
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    velt::bench::PrintFigure("size of the stripped DLL, pictures aside",
                             (data.nFileSizeLow - PictureBytes(path)) / 1024.0, "KB",
                             velt::test::kIs64Bit ? "<= 520 KB" : "<= 450 KB");
}

void Run()
{
    const CLibraryUtils::SmartComInitializer com;
    std::printf("Medians, nanoseconds an operation; the ratio is ours to the other one's.\n\n");
    velt::bench::PrintHeading("ours, traced");

    // First, because nothing may have loaded scrrun.dll yet.
    PairedTimes traced = BenchLoad(kTraced, 20);
    PrintTracedRow("LoadLibrary and the first object", "the same of scrrun.dll",
                   BenchLoad(kUntraced, 20), "<= 1.00", traced);
    traced = BenchCreate(kTraced, 50);
    PrintTracedRow("create and release a collection", "Scripting.Dictionary",
                   BenchCreate(kUntraced, 20000), "<= 0.50", traced);
    traced = BenchFill(kTraced, 200);
    PrintTracedRow("Add 1,000,000 integers, enumerate by 64", "bare std::vector<VARIANT>",
                   BenchFill(kUntraced, 1'000'000), "<= 1.50", traced);
    traced = BenchItem(kTraced, 50);
    PrintTracedRow("late-bound Item", "late-bound Dictionary Item", BenchItem(kUntraced, 50000),
                   "< 1.00", traced);
    velt::bench::PrintRow("one trace scope, no listener", "its six OutputDebugStringA calls",
                          BenchScope(200), "<= 1.15");
    PrintSize();
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
