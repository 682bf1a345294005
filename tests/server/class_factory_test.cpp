#include "tests/server/poison.h"
#include "tests/support/component_library.h"
#include "tests/support/outer_object.h"
#include "tests/support/thread_group.h"

#include <provider_lib.h>

#include <array>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::test::ComponentLibrary;
using velt::test::OuterObject;
using velt::test::Poison;
using velt::test::RunTogether;

TEST_CASE("CClassFactory: answers to IUnknown and IClassFactory with one identity", "[server]")
{
    const ComponentLibrary library;
    const ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    ComPtr<IUnknown> unknown;
    REQUIRE(factory.As(&unknown) == S_OK);
    ComPtr<IClassFactory> again;
    REQUIRE(unknown.As(&again) == S_OK);
    CHECK(again.Get() == factory.Get());
    ComPtr<IUnknown> unknownAgain;
    REQUIRE(again.As(&unknownAgain) == S_OK);
    CHECK(unknownAgain.Get() == unknown.Get());

    void* object = Poison();
    CHECK(factory->QueryInterface(IID_IDispatch, &object) == E_NOINTERFACE);
    CHECK(object == nullptr);
    CHECK(factory->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
}

TEST_CASE("CClassFactory: counts its references and outlives them", "[server]")
{
    const ComponentLibrary library;
    IClassFactory* const factory = library.Factory(CLSID_CEnumVariantCol).Detach();
    CHECK(factory->AddRef() == 2);
    CHECK(factory->AddRef() == 3);
    CHECK(factory->Release() == 2);
    CHECK(factory->Release() == 1);
    CHECK(factory->Release() == 0);
    CHECK(library.CanUnloadNow() == S_OK);
    const ComPtr<IClassFactory> again = library.Factory(CLSID_CEnumVariantCol);
    CHECK(again.Get() == factory);
    ComPtr<IEnumVariantCol> object;
    CHECK(again->CreateInstance(nullptr, IID_PPV_ARGS(&object)) == S_OK);
}

TEST_CASE("CClassFactory: CreateInstance makes a new object each time", "[server]")
{
    const ComponentLibrary library;
    const ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;
    REQUIRE(factory->CreateInstance(nullptr, IID_PPV_ARGS(&first)) == S_OK);
    REQUIRE(factory->CreateInstance(nullptr, IID_PPV_ARGS(&second)) == S_OK);
    CHECK(first.Get() != second.Get());
    IUnknown* const raw = first.Detach();
    CHECK(raw->Release() == 0);
}

TEST_CASE("CClassFactory: CreateInstance refuses null and interfaces that are not there",
          "[server]")
{
    const ComponentLibrary library;
    const ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    CHECK(factory->CreateInstance(nullptr, IID_IUnknown, nullptr) == E_POINTER);
    const auto aggregate = OuterObject::Make();
    OuterObject& outer = *aggregate.Get();
    CHECK(factory->CreateInstance(&outer, IID_IUnknown, nullptr) == E_POINTER);
    CHECK(factory->CreateInstance(&outer, IID_IDispatch, nullptr) == E_POINTER);

    void* object = Poison();
    CHECK(factory->CreateInstance(nullptr, IID_IVeltHTTPService, &object) == E_NOINTERFACE);
    CHECK(object == nullptr);
}

TEST_CASE("CClassFactory: an aggregated object is asked for IUnknown first", "[server]")
{
    const ComponentLibrary library;
    const ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    const auto aggregate = OuterObject::Make();
    OuterObject& outer = *aggregate.Get();
    void* object = Poison();
    CHECK(factory->CreateInstance(&outer, IID_IEnumVariantCol, &object) == CLASS_E_NOAGGREGATION);
    CHECK(object == nullptr);
    CHECK(outer.References() == 1);
}

TEST_CASE("CClassFactory: an aggregated object is part of its outer one", "[server]")
{
    const ComponentLibrary library;
    const auto aggregate = OuterObject::Make();
    OuterObject& outer = *aggregate.Get();
    {
        const ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
        REQUIRE(outer.Aggregate(*factory.Get()) == S_OK);
    }
    CHECK(outer.References() == 1); // the inner object holds none of the outer's
    CHECK(library.CanUnloadNow() == S_FALSE);
    CHECK(outer.Inner() != static_cast<IUnknown*>(&outer));

    ComPtr<IEnumVariantCol> collection;
    REQUIRE(outer.QueryInterface(IID_PPV_ARGS(&collection)) == S_OK);
    CHECK(outer.References() == 2);
    ComPtr<IUnknown> identity;
    REQUIRE(collection.As(&identity) == S_OK);
    CHECK(identity.Get() == static_cast<IUnknown*>(&outer));
    CHECK(outer.References() == 3);
    ComPtr<IDispatch> dispatch;
    REQUIRE(collection.As(&dispatch) == S_OK);
    REQUIRE(dispatch.As(&identity) == S_OK);
    CHECK(identity.Get() == static_cast<IUnknown*>(&outer));
    void* object = Poison();
    CHECK(collection->QueryInterface(IID_IClassFactory, &object) == E_NOINTERFACE);
    CHECK(object == nullptr);

    // It works like any other.
    LONG count = 77;
    CHECK(collection->get_Count(&count) == S_OK);
    CHECK(count == 0);

    collection.Reset();
    dispatch.Reset();
    identity.Reset();
    CHECK(outer.References() == 1);
    outer.ReleaseInner();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("CClassFactory: the inner unknown of an aggregate keeps its own identity", "[server]")
{
    const ComponentLibrary library;
    const auto aggregate = OuterObject::Make();
    OuterObject& outer = *aggregate.Get();
    REQUIRE(outer.Aggregate(*library.Factory(CLSID_CEnumVariantCol).Get()) == S_OK);
    ComPtr<IUnknown> inner;
    REQUIRE(outer.Inner()->QueryInterface(IID_PPV_ARGS(&inner)) == S_OK);
    CHECK(inner.Get() == outer.Inner());
    CHECK(outer.References() == 1);
    CHECK(outer.Inner()->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
}

TEST_CASE("CEnumVariantCol: QueryInterface keeps the rules of identity", "[server]")
{
    const ComponentLibrary library;
    const auto object = library.Create<IUnknown>(CLSID_CEnumVariantCol);
    const std::array<const IID*, 3> iids = {&IID_IUnknown, &IID_IDispatch, &IID_IEnumVariantCol};
    for (const IID* from : iids)
    {
        ComPtr<IUnknown> first;
        REQUIRE(object->QueryInterface(*from, &first) == S_OK);
        ComPtr<IUnknown> identity;
        REQUIRE(first.As(&identity) == S_OK);
        CHECK(identity.Get() == object.Get()); // one identity from everywhere
        for (const IID* to : iids)
        {
            ComPtr<IUnknown> second;
            REQUIRE(first->QueryInterface(*to, &second) == S_OK); // each leads to each
            ComPtr<IUnknown> back;
            REQUIRE(second->QueryInterface(*from, &back) == S_OK); // and back
            CHECK(back.Get() == first.Get());
        }
        for (const IID* missing : {&IID_IClassFactory, &IID_IVeltHTTPService, &CLSID_NULL})
        {
            void* none = Poison();
            CHECK(first->QueryInterface(*missing, &none) == E_NOINTERFACE); // always the same
            CHECK(none == nullptr);
        }
        CHECK(first->QueryInterface(*from, nullptr) == E_POINTER);
    }
}

TEST_CASE("CClassFactory: eight threads create and release objects at once", "[server]")
{
    const ComponentLibrary library;
    constexpr int kRounds = 150;
    std::array<int, 8> failures{};
    RunTogether(8, [&](unsigned thread) {
        for (int round = 0; round < kRounds; ++round)
        {
            ComPtr<IClassFactory> factory;
            ComPtr<IEnumVariantCol> object;
            LONG count = 77;
            const bool works =
                library.GetClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&factory)) == S_OK &&
                factory->CreateInstance(nullptr, IID_PPV_ARGS(&object)) == S_OK &&
                object->get_Count(&count) == S_OK && count == 0 &&
                factory->LockServer(TRUE) == S_OK && factory->LockServer(FALSE) == S_OK &&
                library.CanUnloadNow() == S_FALSE;
            failures[thread] += works ? 0 : 1;
        }
    });
    CHECK(failures == std::array<int, 8>{});
    CHECK(library.CanUnloadNow() == S_OK); // no count was lost
}
