// A collection in one apartment and its callers in others, as the system's marshalling connects
// them. The cases run in a child process whose heaps are checked.

#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/late_bound.h"
#include "tests/support/outer_object.h"
#include "tests/support/process_usage.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <string>
#include <utility>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
constexpr int kManyTexts = 300;
constexpr int kFewTexts = 20;
constexpr LONGLONG kLargeNumber = 0x1122334455667788;

/// That this is the child process, and that the system knows how to marshal the interfaces: the
/// program has a prefix of its own.
void RequireSurroundings()
{
    REQUIRE(AreHeapsChecked());
    static const HRESULT registered = ComponentLibrary().RegisterServer();
    REQUIRE(registered == S_OK);
}

/// An interface in a form that another apartment can make one of its own from, once.
template <class Interface>
class Packed
{
public:
    Packed() = default;

    explicit Packed(const ComPtr<Interface>& object)
    {
        REQUIRE(::CoMarshalInterThreadInterfaceInStream(__uuidof(Interface), object.Get(),
                                                        &m_stream) == S_OK);
    }

    ComPtr<Interface> Unpack()
    {
        ComPtr<Interface> object;
        REQUIRE(::CoGetInterfaceAndReleaseStream(std::exchange(m_stream, nullptr),
                                                 IID_PPV_ARGS(&object)) == S_OK);
        return object;
    }

private:
    IStream* m_stream = nullptr;
};

/// Whether two interfaces are of one object, as COM sees it.
bool AreSame(IUnknown* first, IUnknown* second)
{
    ComPtr<IUnknown> identity;
    ComPtr<IUnknown> other;
    REQUIRE(first->QueryInterface(IID_PPV_ARGS(&identity)) == S_OK);
    REQUIRE(second->QueryInterface(IID_PPV_ARGS(&other)) == S_OK);
    return identity.Get() == other.Get();
}

/// A collection that lives in an apartment of its own, and what this thread has of it.
class Neighbour
{
public:
    Neighbour()
    {
        RequireSurroundings();
        m_home.Do([&] {
            m_collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
            m_packed = Packed<IEnumVariantCol>(m_collection);
        });
        proxy = m_packed.Unpack();
        ComPtr<IMultiQI> manager;
        REQUIRE(proxy.As(&manager) == S_OK); // that it is one
    }

    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

    ~Neighbour()
    {
        proxy.Reset();
        Forget();
        m_home.End();
        CHECK(library.CanUnloadNow() == S_OK);
        CHECK(AreHeapsValid());
    }

    /// Runs a function in the collection's apartment.
    template <class Work>
    void AtHome(Work&& work)
    {
        m_home.Do([&] { work(m_collection); });
    }

    /// Gives up the collection's own interface at home.
    void Forget()
    {
        m_home.Do([&] { m_collection.Reset(); });
    }

    const ComponentLibrary library;
    ComPtr<IEnumVariantCol> proxy;

private:
    ApartmentThread m_home;
    ComPtr<IEnumVariantCol> m_collection; // home only
    Packed<IEnumVariantCol> m_packed;
};

/// The two ways to call the collection. Values are lent on the way in; the caller owns what comes
/// out, and the collection's memory must not show through either.
class Caller
{
public:
    Caller(IEnumVariantCol* collection, bool early) : m_collection(collection), m_early(early) {}

    HRESULT Add(const VARIANT& value) const
    {
        return m_early ? m_collection->Add(value) : Late().Call(L"Add", {value});
    }

    HRESULT Item(const VARIANT& index, VARIANT* value) const
    {
        ::VariantInit(value);
        return m_early ? m_collection->get_Item(index, value) : Late().Get(L"Item", {index}, value);
    }

    VARIANT Item(LONG position) const
    {
        VARIANT value;
        REQUIRE(Item(Long(position), &value) == S_OK);
        return value;
    }

    HRESULT Remove(const VARIANT& index) const
    {
        return m_early ? m_collection->Remove(index) : Late().Call(L"Remove", {index});
    }

    HRESULT Clear() const
    {
        return m_early ? m_collection->Clear() : Late().Call(L"Clear");
    }

    LONG Count() const
    {
        LONG count = -1;
        REQUIRE(m_collection->get_Count(&count) == S_OK);
        return count;
    }

private:
    LateBound Late() const
    {
        return LateBound(m_collection);
    }

    IEnumVariantCol* m_collection;
    bool m_early;
};

std::wstring NumberedText(int number)
{
    return L"text " + std::to_wstring(number);
}

/// Adds texts, of which each side frees its own, and reads them so often that memory which was
/// freed by the wrong side has long been used again.
void ExchangeTexts(const Caller& caller, int count)
{
    for (int i = 1; i <= count; ++i)
    {
        VARIANT text = Text(NumberedText(i).c_str());
        REQUIRE(caller.Add(text) == S_OK);
        REQUIRE(TextOf(text) == NumberedText(i));
        ::VariantClear(&text);
    }
    for (int round = 0; round < 3; ++round)
    {
        for (int i = 1; i <= count; ++i)
        {
            VARIANT text = caller.Item(i);
            REQUIRE(TextOf(text) == NumberedText(i));
            ::VariantClear(&text);
        }
    }
    VARIANT index = Text(L"2");
    CHECK(caller.Remove(index) == S_OK);
    ::VariantClear(&index);
    VARIANT text = caller.Item(2);
    CHECK(TextOf(text) == NumberedText(3));
    ::VariantClear(&text);
    CHECK(caller.Count() == count - 1);
    CHECK(caller.Clear() == S_OK);
    CHECK(caller.Count() == 0);
    CHECK(AreHeapsValid());
}

void ExchangeNumbers(const Caller& caller)
{
    REQUIRE(caller.Add(Double(0.1)) == S_OK);
    REQUIRE(caller.Add(Int64(kLargeNumber)) == S_OK);
    const VARIANT number = caller.Item(1);
    CHECK(number.vt == VT_R8);
    CHECK(number.dblVal == 0.1);
    const VARIANT large = caller.Item(2);
    CHECK(large.vt == VT_I8);
    CHECK(large.llVal == kLargeNumber);
    CHECK(caller.Clear() == S_OK);
}

/// The object lives in this apartment, the collection keeps it in another one.
void ExchangeObjects(const Caller& caller)
{
    StandInObject object;
    REQUIRE(caller.Add(object.Lent()) == S_OK);
    const LONG held = object.References();
    CHECK(held > 1);
    for (int i = 0; i < 10; ++i)
    {
        VARIANT value = caller.Item(1);
        CHECK(value.vt == VT_DISPATCH);
        CHECK(value.pdispVal == &object);
        ::VariantClear(&value);
    }
    CHECK(object.References() == held);
    CHECK(caller.Remove(Long(1)) == S_OK);
    CHECK(object.References() == 1);
}

void ExchangeEverything(const Caller& caller, int texts = kFewTexts)
{
    ExchangeTexts(caller, texts);
    ExchangeNumbers(caller);
    ExchangeObjects(caller);
}
} // namespace

TEST_CASE("CEnumVariantCol through a proxy: each side frees what it has", "[.proxy]")
{
    const COINIT apartment = GENERATE(COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED);
    const bool early = GENERATE(true, false);
    CAPTURE(apartment, early);
    const ComApartment here(apartment);
    Neighbour neighbour;
    ExchangeEverything(Caller(neighbour.proxy.Get(), early), kManyTexts);
}

TEST_CASE("CEnumVariantCol through a proxy: failures are the members' own", "[.proxy]")
{
    const bool early = GENERATE(true, false);
    CAPTURE(early);
    const ComApartment here;
    Neighbour neighbour;
    const Caller caller(neighbour.proxy.Get(), early);
    VARIANT value;
    CHECK(caller.Item(Long(1), &value) == E_FAIL);
    CHECK(caller.Item(Long(0), &value) == E_INVALIDARG);
    CHECK(value.vt == VT_EMPTY);
    CHECK(caller.Remove(Long(1)) == E_INVALIDARG);
    VARIANT word = Text(L"word");
    CHECK(caller.Item(word, &value) == DISP_E_TYPEMISMATCH);
    CHECK(caller.Remove(word) == DISP_E_TYPEMISMATCH);
    ::VariantClear(&word);
}

TEST_CASE("CEnumVariantCol through a proxy: what came through the vtable is not freed by it",
          "[.proxy]")
{
    const bool early = GENERATE(true, false);
    CAPTURE(early);
    const ComApartment here;
    Neighbour neighbour;
    neighbour.AtHome([](const ComPtr<IEnumVariantCol>& collection) {
        REQUIRE(collection->Add(Text(L"given")) == S_OK); // the collection's from now on
    });
    const Caller caller(neighbour.proxy.Get(), early);
    for (int i = 0; i < 10; ++i)
    {
        VARIANT text = caller.Item(1);
        CHECK(TextOf(text) == L"given");
        ::VariantClear(&text);
    }
    neighbour.AtHome([](const ComPtr<IEnumVariantCol>& collection) {
        VARIANT first = OfType(VT_EMPTY);
        VARIANT second = OfType(VT_EMPTY);
        CHECK(collection->get_Item(Long(1), &first) == S_OK);
        CHECK(collection->get_Item(Long(1), &second) == S_OK);
        CHECK(TextOf(first) == L"given");
        CHECK(first.bstrVal == second.bstrVal); // lent, as ever
    });
    CHECK(caller.Remove(Long(1)) == S_OK);
}

TEST_CASE("CEnumVariantCol through a proxy: enumerators hand out copies", "[.proxy]")
{
    const ComApartment here;
    Neighbour neighbour;
    const Caller caller(neighbour.proxy.Get(), true);
    VARIANT text = Text(L"text");
    REQUIRE(caller.Add(text) == S_OK);
    REQUIRE(caller.Add(Double(0.1)) == S_OK);
    ::VariantClear(&text);
    ComPtr<IUnknown> unknown;
    REQUIRE(neighbour.proxy->get__NewEnum(&unknown) == S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    REQUIRE(unknown.As(&enumerator) == S_OK);
    neighbour.proxy.Reset();
    neighbour.Forget(); // the enumerator keeps the collection alive
    for (int round = 0; round < 3; ++round)
    {
        VARIANT values[3] = {OfType(VT_EMPTY), OfType(VT_EMPTY), OfType(VT_EMPTY)};
        ULONG fetched = 0;
        REQUIRE(enumerator->Next(3, values, &fetched) == S_FALSE);
        REQUIRE(fetched == 2);
        CHECK(TextOf(values[0]) == L"text");
        CHECK(values[1].dblVal == 0.1);
        ::VariantClear(&values[0]);
        REQUIRE(enumerator->Reset() == S_OK);
    }
    // What the collection still holds stays, by design: it was given up without a Clear.
}

TEST_CASE("CEnumVariantCol through a proxy: it keeps the collection alive, and only it", "[.proxy]")
{
    const ComApartment here;
    Neighbour neighbour;
    neighbour.Forget();
    CHECK(neighbour.library.CanUnloadNow() == S_FALSE);
    const Caller caller(neighbour.proxy.Get(), true);
    ExchangeEverything(caller);
    neighbour.proxy.Reset();
    CHECK(neighbour.library.CanUnloadNow() == S_OK);
}

TEST_CASE("CEnumVariantCol through proxies: the collection is one object", "[.proxy]")
{
    const ComApartment here;
    Neighbour neighbour;
    Packed<IEnumVariantCol> packed;
    Packed<IDispatch> packedDispatch;
    neighbour.AtHome([&](const ComPtr<IEnumVariantCol>& collection) {
        packed = Packed<IEnumVariantCol>(collection);
        ComPtr<IDispatch> dispatch;
        REQUIRE(collection.As(&dispatch) == S_OK);
        packedDispatch = Packed<IDispatch>(dispatch);
    });
    const ComPtr<IEnumVariantCol> again = packed.Unpack();
    const ComPtr<IDispatch> dispatch = packedDispatch.Unpack();
    CHECK(AreSame(again.Get(), neighbour.proxy.Get()));
    CHECK(AreSame(dispatch.Get(), neighbour.proxy.Get()));
}

TEST_CASE("CEnumVariantCol that comes home: it has automation's ownership", "[.proxy]")
{
    const bool early = GENERATE(true, false);
    CAPTURE(early);
    const ComApartment here;
    Neighbour neighbour;
    Packed<IEnumVariantCol> packed(neighbour.proxy);
    neighbour.AtHome([&](const ComPtr<IEnumVariantCol>& collection) {
        ComPtr<IEnumVariantCol> returned = packed.Unpack();
        ComPtr<IMultiQI> manager;
        REQUIRE(returned.As(&manager) == E_NOINTERFACE); // a direct interface, not a proxy
        ExchangeEverything(Caller(returned.Get(), early));

        // Another identity, but the same values.
        CHECK_FALSE(AreSame(returned.Get(), collection.Get()));
        ComPtr<IDispatch> dispatch;
        REQUIRE(returned.As(&dispatch) == S_OK);
        CHECK(AreSame(dispatch.Get(), returned.Get()));
        REQUIRE(returned->Add(Long(5)) == S_OK);
        LONG count = 0;
        CHECK(collection->get_Count(&count) == S_OK);
        CHECK(count == 1);

        // It can go out again, and is still the same object there.
        packed = Packed<IEnumVariantCol>(returned);
    });
    const ComPtr<IEnumVariantCol> again = packed.Unpack();
    CHECK(AreSame(again.Get(), neighbour.proxy.Get()));
}

TEST_CASE("CEnumVariantCol that comes home: it keeps the collection alive", "[.proxy]")
{
    const ComApartment here;
    Neighbour neighbour;
    Packed<IEnumVariantCol> packed(neighbour.proxy);
    neighbour.proxy.Reset();
    neighbour.AtHome([&](ComPtr<IEnumVariantCol>& collection) {
        ComPtr<IEnumVariantCol> returned = packed.Unpack();
        collection.Reset();
        CHECK(neighbour.library.CanUnloadNow() == S_FALSE);
        ExchangeNumbers(Caller(returned.Get(), true));
        returned.Reset();
        CHECK(neighbour.library.CanUnloadNow() == S_OK);
    });
}

TEST_CASE("CEnumVariantCol in the global interface table: it is called as through a proxy",
          "[.proxy]")
{
    const ComApartment here(COINIT_MULTITHREADED);
    Neighbour neighbour;
    ComPtr<IGlobalInterfaceTable> table;
    REQUIRE(::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&table)) == S_OK);
    DWORD cookie = 0;
    neighbour.AtHome([&](const ComPtr<IEnumVariantCol>& collection) {
        REQUIRE(table->RegisterInterfaceInGlobal(collection.Get(), IID_IEnumVariantCol, &cookie) ==
                S_OK);
    });
    for (int i = 0; i < 3; ++i)
    {
        ComPtr<IEnumVariantCol> collection;
        REQUIRE(table->GetInterfaceFromGlobal(cookie, IID_PPV_ARGS(&collection)) == S_OK);
        ExchangeTexts(Caller(collection.Get(), true), kFewTexts);
    }
    neighbour.AtHome([&](const ComPtr<IEnumVariantCol>&) {
        CHECK(table->RevokeInterfaceFromGlobal(cookie) == S_OK);
    });
}

TEST_CASE("CEnumVariantCol disconnected: calls through proxies end, the collection does not",
          "[.proxy]")
{
    const ComApartment here;
    Neighbour neighbour;
    REQUIRE(neighbour.proxy->Add(Long(5)) == S_OK);
    neighbour.AtHome([](const ComPtr<IEnumVariantCol>& collection) {
        CHECK(::CoDisconnectObject(collection.Get(), 0) == S_OK);
    });
    CHECK(FAILED(neighbour.proxy->Add(Long(6))));
    neighbour.AtHome([](const ComPtr<IEnumVariantCol>& collection) {
        LONG count = 0;
        CHECK(collection->get_Count(&count) == S_OK);
        CHECK(count == 1);
    });
}

TEST_CASE("CEnumVariantCol aggregated: an outer object that hands on what it does not know "
          "is marshalled whole",
          "[.proxy]")
{
    const ComApartment here;
    RequireSurroundings();
    const ComponentLibrary library;
    ApartmentThread home;
    bool alive = false;
    Packed<IEnumVariantCol> packed;
    Packed<IUnknown> packedUnknown;
    home.Do([&] {
        ComPtr<OuterObject> outer = OuterObject::Make(&alive);
        REQUIRE(outer->Aggregate(*library.Factory(CLSID_CEnumVariantCol).Get()) == S_OK);
        ComPtr<IEnumVariantCol> collection;
        REQUIRE(outer.As(&collection) == S_OK);
        packed = Packed<IEnumVariantCol>(collection);
        ComPtr<IUnknown> unknown;
        REQUIRE(outer.As(&unknown) == S_OK);
        packedUnknown = Packed<IUnknown>(unknown);
    });
    CHECK(alive);
    ComPtr<IEnumVariantCol> proxy = packed.Unpack();
    CHECK(AreSame(packedUnknown.Unpack().Get(), proxy.Get()));
    ExchangeEverything(Caller(proxy.Get(), true));
    ExchangeEverything(Caller(proxy.Get(), false));
    ComPtr<IServiceProvider> services; // the outer object's own
    CHECK(proxy.As(&services) == S_OK);
    services.Reset();
    proxy.Reset();
    CHECK_FALSE(alive);
    home.End();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("CEnumVariantCol marshalled: what it does not have is refused", "[.proxy]")
{
    const ComApartment here;
    RequireSurroundings();
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    IStream* stream = nullptr;
    CHECK(::CoMarshalInterThreadInterfaceInStream(IID_IServiceProvider, collection.Get(),
                                                  &stream) == E_NOINTERFACE);
    CHECK(stream == nullptr);
}

TEST_CASE("CEnumVariantCol: its marshalling is an interface of the same object", "[collection]")
{
    const ComApartment here;
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    ComPtr<IMarshal> marshal;
    REQUIRE(collection.As(&marshal) == S_OK);
    CHECK(AreSame(marshal.Get(), collection.Get()));
    ComPtr<IEnumVariantCol> back;
    REQUIRE(marshal.As(&back) == S_OK);
    CHECK(back.Get() == collection.Get());
}

TEST_CASE("CEnumVariantCol marshalled by hand: its data are the standard marshaler's",
          "[collection]")
{
    const ComApartment here;
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    ComPtr<IMarshal> marshal;
    REQUIRE(collection.As(&marshal) == S_OK);
    CLSID reader = CLSID_NULL;
    DWORD size = 0;
    ComPtr<IStream> stream;
    REQUIRE(::CreateStreamOnHGlobal(nullptr, TRUE, &stream) == S_OK);
    const auto rewind = [&] { return stream->Seek({}, STREAM_SEEK_SET, nullptr); };
    for (const DWORD context : {MSHCTX_INPROC, MSHCTX_LOCAL})
    {
        CAPTURE(context);
        REQUIRE(marshal->GetUnmarshalClass(IID_IDispatch, collection.Get(), context, nullptr,
                                           MSHLFLAGS_NORMAL, &reader) == S_OK);
        CHECK(::IsEqualCLSID(reader, CLSID_StdMarshal));
        REQUIRE(marshal->GetMarshalSizeMax(IID_IDispatch, collection.Get(), context, nullptr,
                                           MSHLFLAGS_NORMAL, &size) == S_OK);
        CHECK(size > 0);

        REQUIRE(rewind() == S_OK);
        REQUIRE(marshal->MarshalInterface(stream.Get(), IID_IDispatch, collection.Get(), context,
                                          nullptr, MSHLFLAGS_NORMAL) == S_OK);
        ULARGE_INTEGER written{};
        REQUIRE(stream->Seek({}, STREAM_SEEK_CUR, &written) == S_OK);
        CHECK(written.QuadPart <= size);
        REQUIRE(rewind() == S_OK);
        ComPtr<IDispatch> dispatch;
        REQUIRE(marshal->UnmarshalInterface(stream.Get(), IID_PPV_ARGS(&dispatch)) == S_OK);
        CHECK(LateBound(dispatch.Get()).Call(L"Add", {Long(5)}) == S_OK);

        REQUIRE(rewind() == S_OK);
        REQUIRE(marshal->MarshalInterface(stream.Get(), IID_IDispatch, collection.Get(), context,
                                          nullptr, MSHLFLAGS_NORMAL) == S_OK);
        REQUIRE(rewind() == S_OK);
        CHECK(marshal->ReleaseMarshalData(stream.Get()) == S_OK);
    }
    LONG count = 0;
    CHECK(collection->get_Count(&count) == S_OK);
    CHECK(count == 2);
    collection->AddRef();
    CHECK(collection->Release() == 2); // this test's two: marshalled data have left none
}

TEST_CASE("CEnumVariantCol: its marshalling checks its arguments", "[collection]")
{
    const ComApartment here;
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    ComPtr<IMarshal> marshal;
    REQUIRE(collection.As(&marshal) == S_OK);
    CHECK(marshal->GetUnmarshalClass(IID_IDispatch, nullptr, MSHCTX_INPROC, nullptr,
                                     MSHLFLAGS_NORMAL, nullptr) == E_POINTER);
    CHECK(marshal->GetMarshalSizeMax(IID_IDispatch, nullptr, MSHCTX_INPROC, nullptr,
                                     MSHLFLAGS_NORMAL, nullptr) == E_POINTER);
    CHECK(marshal->MarshalInterface(nullptr, IID_IDispatch, nullptr, MSHCTX_INPROC, nullptr,
                                    MSHLFLAGS_NORMAL) == E_POINTER);
    CHECK(marshal->ReleaseMarshalData(nullptr) == E_POINTER);
    ComPtr<IStream> stream;
    REQUIRE(::CreateStreamOnHGlobal(nullptr, TRUE, &stream) == S_OK);
    CHECK(marshal->UnmarshalInterface(stream.Get(), IID_IDispatch, nullptr) == E_POINTER);
    ComPtr<IDispatch> dispatch;
    CHECK(marshal->UnmarshalInterface(nullptr, IID_PPV_ARGS(&dispatch)) == E_POINTER);
    CHECK(FAILED(marshal->UnmarshalInterface(stream.Get(), IID_PPV_ARGS(&dispatch)))); // empty
    CHECK(dispatch.Get() == nullptr);
}

TEST_CASE("CEnumVariantCol through proxies: all of it under heap checks", "[collection]")
{
    CheckHeapsOfChildren();
    const EnvironmentVariable trace("VELT_TRACE", "0"); // thousands of calls
    CHECK(RunInChild("[proxy]") == 0);
}
