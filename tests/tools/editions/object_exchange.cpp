// Two processes with an object between them, for processes of different kinds.
//
//   object_exchange serve FILE EVENT   makes a collection and a service, writes both to the file as
//                                      other processes can unpack them, signals EVENT-ready and
//                                      serves until EVENT-done
//   object_exchange use FILE           calls them by their interfaces and prints what it sees
//
// Every failure is an exit code other than 0, and a line that says what failed.

#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/late_bound.h"
#include "tests/support/recording_sink.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <windows.h>

#include <ocidl.h>
#include <wrl/client.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
void Require(HRESULT hr, const char* what)
{
    if (hr != S_OK)
    {
        char text[160];
        std::snprintf(text, sizeof(text), "%s: 0x%08lX", what, static_cast<unsigned long>(hr));
        throw std::runtime_error(text);
    }
}

ComPtr<IStream> NewStream()
{
    ComPtr<IStream> stream;
    Require(::CreateStreamOnHGlobal(nullptr, TRUE, &stream), "a stream");
    return stream;
}

template <class Interface>
std::string Pack(Interface* object)
{
    const ComPtr<IStream> stream = NewStream();
    Require(::CoMarshalInterface(stream.Get(), __uuidof(Interface), object, MSHCTX_LOCAL, nullptr,
                                 MSHLFLAGS_NORMAL),
            "packing");
    STATSTG status{};
    Require(stream->Stat(&status, STATFLAG_NONAME), "the size");
    std::string bytes(static_cast<std::size_t>(status.cbSize.QuadPart), '\0');
    Require(stream->Seek({}, STREAM_SEEK_SET, nullptr), "the start");
    Require(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), "the bytes");
    return bytes;
}

template <class Interface>
ComPtr<Interface> Unpack(const std::string& bytes)
{
    const ComPtr<IStream> stream = NewStream();
    Require(stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), nullptr), "the bytes");
    Require(stream->Seek({}, STREAM_SEEK_SET, nullptr), "the start");
    ComPtr<Interface> object;
    Require(::CoUnmarshalInterface(stream.Get(), IID_PPV_ARGS(&object)), "unpacking");
    return object;
}

/// Each text with its length before it.
void WriteTexts(const wchar_t* path, std::initializer_list<std::string> texts)
{
    std::ofstream file(path, std::ios::binary);
    for (const std::string& text : texts)
    {
        const auto size = static_cast<std::uint32_t>(text.size());
        file.write(reinterpret_cast<const char*>(&size), sizeof(size));
        file.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
}

std::string ReadText(std::ifstream& file)
{
    std::uint32_t size = 0;
    file.read(reinterpret_cast<char*>(&size), sizeof(size));
    std::string text(size, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file)
    {
        throw std::runtime_error("the file has no such object");
    }
    return text;
}

velt::UniqueKernelObject Event(const std::wstring& name)
{
    velt::UniqueKernelObject event(::CreateEventW(nullptr, TRUE, FALSE, name.c_str()));
    if (!event)
    {
        throw std::runtime_error("no event");
    }
    return event;
}

void Serve(const wchar_t* path, const std::wstring& event)
{
    const velt::UniqueKernelObject ready = Event(event + L"-ready");
    const velt::UniqueKernelObject done = Event(event + L"-done");
    const ComponentLibrary library;
    {
        const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        WriteTexts(path, {Pack(collection.Get()), Pack(service.Get())});
        ::SetEvent(ready.Get());
        const HANDLE handle = done.Get();
        while (::MsgWaitForMultipleObjects(1, &handle, FALSE, INFINITE, QS_ALLINPUT) ==
               WAIT_OBJECT_0 + 1)
        {
            MSG message{};
            while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
            {
                ::DispatchMessageW(&message);
            }
        }
    }
}

void Print(const char* what, const VARIANT& value)
{
    std::printf("%s: type %u, value ", what, value.vt);
    if (value.vt == VT_BSTR)
    {
        std::printf("%s\n", velt::Utf8FromWide(TextOf(value)).c_str());
    }
    else if (value.vt == VT_BOOL)
    {
        std::printf("%d\n", value.boolVal);
    }
    else if (value.vt == VT_I4)
    {
        std::printf("%ld\n", value.lVal);
    }
    else
    {
        std::printf("%016llX\n", static_cast<unsigned long long>(value.llVal));
    }
}

void UseCollection(IEnumVariantCol* collection)
{
    RecordingSink object; // stands for any object of the caller's
    VARIANT values[] = {
        Int64(0x1122334455667788), Double(1.5),     Text(L"\x00E4\x4E2D"), Long(-7),
        OfType(VT_BOOL),           OfType(VT_DATE), OfType(VT_CY),         OfType(VT_DISPATCH)};
    values[4].boolVal = VARIANT_TRUE;
    values[5].date = 45000.25;
    values[6].cyVal.int64 = -123456789012345;
    values[7].pdispVal = &object;
    for (const VARIANT& value : values)
    {
        Require(collection->Add(value), "Add");
    }
    ::SysFreeString(values[2].bstrVal);
    LONG count = 0;
    Require(collection->get_Count(&count), "Count");
    std::printf("count: %ld\n", count);
    for (LONG i = 1; i <= count; ++i)
    {
        VARIANT early = OfType(VT_EMPTY);
        VARIANT late = OfType(VT_EMPTY);
        Require(collection->get_Item(Long(i), &early), "Item");
        Require(LateBound(collection).Get(L"Item", {Long(i)}, &late), "Item, late-bound");
        for (VARIANT* const value : {&early, &late})
        {
            if (value->vt == VT_DISPATCH)
            {
                std::printf("item: the caller's own object: %d\n", value->pdispVal == &object);
            }
            else
            {
                Print("item", *value);
            }
            ::VariantClear(value);
        }
    }
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> walker;
    Require(collection->get__NewEnum(&unknown), "_NewEnum");
    Require(unknown.As(&walker), "IEnumVARIANT");
    VARIANT walked[3];
    ULONG fetched = 0;
    Require(walker->Next(3, walked, &fetched), "Next");
    for (ULONG i = 0; i < fetched; ++i)
    {
        Print("walked", walked[i]);
        ::VariantClear(&walked[i]);
    }
    Require(collection->Clear(), "Clear");
}

void UseService(IVeltHTTPService* service)
{
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    Require(service->QueryInterface(IID_PPV_ARGS(&container)), "IConnectionPointContainer");
    Require(container->FindConnectionPoint(DIID_IVeltHTTPServiceEvents, &point), "the point");
    RecordingSink sink;
    DWORD cookie = 0;
    Require(point->Advise(&sink, &cookie), "Advise");
    VARIANT product = Text(L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}");
    VARIANT version = Text(L"3.0");
    VARIANT description = Text(L"");
    Require(service->InvokeUpdate(product.bstrVal, version.bstrVal, 1033, description.bstrVal),
            "InvokeUpdate");
    ::VariantClear(&product);
    ::VariantClear(&version);
    ::VariantClear(&description);
    for (const RecordingSink::Event& event : sink.Events())
    {
        std::printf("event: member %ld, %ld, %s\n", event.member, event.event,
                    velt::Utf8FromWide(event.text).c_str());
    }
    Require(point->Unadvise(cookie), "Unadvise");
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    int result = 0;
    ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    try
    {
        const std::wstring mode = count > 2 ? arguments[1] : L"";
        if (mode == L"serve" && count == 4)
        {
            Serve(arguments[2], arguments[3]);
        }
        else if (mode == L"use" && count == 3)
        {
            std::ifstream file(arguments[2], std::ios::binary);
            UseCollection(Unpack<IEnumVariantCol>(ReadText(file)).Get());
            UseService(Unpack<IVeltHTTPService>(ReadText(file)).Get());
        }
        else
        {
            throw std::runtime_error("usage: object_exchange serve FILE EVENT | use FILE");
        }
    }
    catch (const std::exception& e)
    {
        std::printf("failed: %s\n", e.what());
        result = 3;
    }
    ::CoUninitialize();
    return result;
}
