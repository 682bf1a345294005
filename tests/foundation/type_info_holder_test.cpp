#include "foundation/type_info_holder.h"

#include "tests/support/test_module.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <cstdint>
#include <utility>
#include <vector>

using velt::TypeInfoHolder;
using velt::test::TestModule;

namespace
{
/// A library's module that keeps its termination functions for the test, or refuses them.
class RecordingModule final : public velt::ComModule
{
public:
    LONG Lock() noexcept override
    {
        return m_served.Lock();
    }

    LONG Unlock() noexcept override
    {
        return m_served.Unlock();
    }

    HRESULT GetGITPtr(IGlobalInterfaceTable** table) noexcept override
    {
        return m_served.GetGITPtr(table);
    }

    HRESULT AddTermFunc(TermFunc function, void* argument) noexcept override
    {
        if (FAILED(refusal))
        {
            return refusal;
        }
        added.emplace_back(function, argument);
        return S_OK;
    }

    HRESULT GetTypeLibrary(ITypeLib** result) noexcept override
    {
        ++asked;
        const HRESULT hr = library ? S_OK : m_served.GetTypeLibrary(&library);
        if (SUCCEEDED(hr))
        {
            library->AddRef();
            *result = library;
        }
        return hr;
    }

    RecordingModule(TestModule& served) noexcept : m_served(served) {}

    ~RecordingModule()
    {
        if (library)
        {
            library->Release();
        }
    }

    HRESULT refusal = S_OK;
    int asked = 0;
    ITypeLib* library = nullptr; // one for all who ask, so that references can be counted
    std::vector<std::pair<TermFunc, void*>> added;

private:
    TestModule& m_served;
};

struct Module
{
    TestModule served;
    RecordingModule recording{served}; // the library's from now on
};

ITypeInfo* Poison()
{
    return reinterpret_cast<ITypeInfo*>(static_cast<std::uintptr_t>(0xCDCDCDCD));
}

ULONG ReferencesOf(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}
} // namespace

TEST_CASE("TypeInfoHolder: the description is loaded once and kept until the module ends",
          "[foundation]")
{
    Module module;
    TypeInfoHolder holder(IID_IEnumVariantCol);
    ITypeInfo* first = Poison();
    ITypeInfo* second = Poison();
    REQUIRE(holder.Get(&first) == S_OK);
    REQUIRE(holder.Get(&second) == S_OK);
    CHECK(first == second);
    CHECK(module.recording.asked == 1);
    TYPEATTR* attributes = nullptr;
    REQUIRE(first->GetTypeAttr(&attributes) == S_OK);
    CHECK(::IsEqualGUID(attributes->guid, IID_IEnumVariantCol));
    first->ReleaseTypeAttr(attributes);

    // The holder's one reference goes with the module.
    REQUIRE(module.recording.added.size() == 1);
    first->AddRef();
    const ULONG before = ReferencesOf(first);
    const auto [function, argument] = module.recording.added.front();
    function(argument);
    CHECK(ReferencesOf(first) == before - 1);
    function(argument); // a second time there is nothing left to give back
    CHECK(ReferencesOf(first) == before - 1);
    first->Release();
}

TEST_CASE("TypeInfoHolder: a description that could not be given back is not kept", "[foundation]")
{
    Module module;
    TypeInfoHolder holder(IID_IEnumVariantCol);
    ITypeInfo* info = Poison();
    module.recording.refusal = E_OUTOFMEMORY;
    REQUIRE(holder.Get(&info) == E_OUTOFMEMORY);
    CHECK(info == nullptr);
    const ULONG references = ReferencesOf(module.recording.library);
    info = Poison();
    CHECK(holder.Get(&info) == E_OUTOFMEMORY); // and so the next use fails as well
    CHECK(info == nullptr);
    CHECK(ReferencesOf(module.recording.library) == references);

    module.recording.refusal = S_OK;
    REQUIRE(holder.Get(&info) == S_OK);
    REQUIRE(info != nullptr);
    REQUIRE(module.recording.added.size() == 1);
    module.recording.added[0].first(module.recording.added[0].second);
}

TEST_CASE("TypeInfoHolder: an interface that the library does not describe has no description",
          "[foundation]")
{
    Module module;
    TypeInfoHolder holder(IID_IStream);
    ITypeInfo* info = Poison();
    CHECK(holder.Get(&info) == TYPE_E_ELEMENTNOTFOUND);
    CHECK(info == nullptr);
    CHECK(module.recording.added.empty());
}
