#include "foundation/com_object.h"

#include "foundation/module_lock.h"
#include "tests/support/outer_object.h"
#include "tests/support/test_module.h"
#include "tests/support/test_object.h"
#include "tests/support/test_thread.h"

#include <servprov.h>
#include <wrl/client.h>

#include <catch.hpp>

#include <memory>
#include <stdexcept>
#include <vector>

using Microsoft::WRL::ComPtr;
using velt::CreateComObject;
using velt::test::OuterObject;
using velt::test::TestEvent;
using velt::test::TestModule;
using velt::test::TestObject;
using velt::test::TestObjectHooks;
using velt::test::TestThread;

namespace
{
void* Poison()
{
    return reinterpret_cast<void*>(static_cast<ULONG_PTR>(0xCDCDCDCD));
}

template <class Interface>
ComPtr<Interface> Make(TestObjectHooks hooks = {})
{
    ComPtr<Interface> object;
    REQUIRE(CreateComObject<TestObject>(nullptr, __uuidof(Interface),
                                        reinterpret_cast<void**>(object.GetAddressOf()),
                                        std::move(hooks)) == S_OK);
    return object;
}

/// What an interface answers to a question; the reference is given back.
void* Ask(IUnknown* from, REFIID iid)
{
    void* found = Poison();
    const HRESULT hr = from->QueryInterface(iid, &found);
    if (hr != S_OK)
    {
        CHECK(hr == E_NOINTERFACE);
        CHECK(found == nullptr);
        return nullptr;
    }
    static_cast<IUnknown*>(found)->Release();
    return found;
}

ULONG ReferencesOf(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

const IID* const kIids[] = {&IID_IUnknown, &IID_IPersist, &IID_IPersistStreamInit, &IID_IOleWindow};

/// The identity rules of QueryInterface for all interfaces that can be reached from one.
void CheckIdentity(IUnknown* object)
{
    void* const identity = Ask(object, IID_IUnknown);
    REQUIRE(identity != nullptr);
    for (const IID* first : kIids)
    {
        auto* const from = static_cast<IUnknown*>(Ask(object, *first));
        REQUIRE(from != nullptr);
        CHECK(Ask(from, IID_IUnknown) == identity);
        CHECK(Ask(from, *first) == from); // reflexive, and the same pointer each time
        for (const IID* second : kIids)
        {
            auto* const to = static_cast<IUnknown*>(Ask(from, *second)); // transitive
            REQUIRE(to != nullptr);
            CHECK(Ask(to, *first) == from); // symmetric
        }
        CHECK(Ask(from, IID_IDispatch) == nullptr);
        CHECK(Ask(from, IID_NULL) == nullptr);
    }
}
} // namespace

TEST_CASE("ComObject: QueryInterface keeps the identity rules", "[foundation]")
{
    TestModule module;
    const auto object = Make<IOleWindow>();
    CheckIdentity(object.Get());
    CHECK(ReferencesOf(object.Get()) == 1);
}

TEST_CASE("ComObject: QueryInterface refuses a null pointer", "[foundation]")
{
    TestModule module;
    const auto object = Make<IUnknown>();
    CHECK(object->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
    ComPtr<IOleWindow> window;
    REQUIRE(object.As(&window) == S_OK);
    CHECK(window->QueryInterface(IID_IOleWindow, nullptr) == E_POINTER);
    CHECK(window->QueryInterface(IID_IDispatch, nullptr) == E_POINTER);
}

TEST_CASE("ComObject: all interfaces share one count of references", "[foundation]")
{
    TestModule module;
    const auto object = Make<IUnknown>();
    CHECK(object->AddRef() == 2);
    ComPtr<IOleWindow> window;
    REQUIRE(object.As(&window) == S_OK);
    CHECK(window->AddRef() == 4);
    CHECK(window->Release() == 3);
    CHECK(object->Release() == 2);
    window.Reset();
    CHECK(ReferencesOf(object.Get()) == 1);
}

TEST_CASE("ComObject: the last release destroys it, through whichever interface", "[foundation]")
{
    TestModule module;
    int destroyed = 0;
    auto unknown = Make<IUnknown>({nullptr, [&](IUnknown*) { ++destroyed; }});
    ComPtr<IPersistStreamInit> persist;
    REQUIRE(unknown.As(&persist) == S_OK);
    unknown.Reset();
    CHECK(destroyed == 0);
    CHECK(persist->InitNew() == S_OK);
    CHECK(persist.Detach()->Release() == 0);
    CHECK(destroyed == 1);
}

TEST_CASE("ComObject: references that come and go during destruction do no harm", "[foundation]")
{
    TestModule module;
    int destroyed = 0;
    auto object = Make<IUnknown>({nullptr, [&](IUnknown* self) {
                                      ++destroyed;
                                      const ComPtr<IUnknown> held(self);
                                      ComPtr<IPersist> persist;
                                      CHECK(held.As(&persist) == S_OK);
                                  }});
    object.Reset();
    CHECK(destroyed == 1);
    CHECK(module.LockCount() == 0);
}

TEST_CASE("ComObject: a live object holds one module lock", "[foundation]")
{
    TestModule module;
    LONG inDestructor = -1;
    auto first = Make<IUnknown>({nullptr, [&](IUnknown*) { inDestructor = module.LockCount(); }});
    CHECK(module.LockCount() == 1);
    auto second = Make<IOleWindow>();
    CHECK(module.LockCount() == 2);
    const ComPtr<IOleWindow> third = second;
    CHECK(module.LockCount() == 2);
    first.Reset();
    CHECK(inDestructor == 2); // held until the object is gone
    CHECK(module.LockCount() == 1);
    second.Reset();
    CHECK(module.LockCount() == 1);
}

TEST_CASE("CreateComObject: a constructor that throws leaves nothing", "[foundation]")
{
    TestModule module;
    void* object = Poison();
    TestObjectHooks hooks;
    LONG during = -1;
    hooks.made = [&](IUnknown*) {
        during = module.LockCount();
        throw std::runtime_error("no");
    };
    CHECK_THROWS_AS(CreateComObject<TestObject>(nullptr, IID_IUnknown, &object, std::move(hooks)),
                    std::runtime_error);
    CHECK(during == 1);
    CHECK(object == nullptr);
    CHECK(module.LockCount() == 0);
}

TEST_CASE("CreateComObject: an interface that is not there leaves nothing", "[foundation]")
{
    TestModule module;
    int destroyed = 0;
    void* object = Poison();
    TestObjectHooks hooks{nullptr, [&](IUnknown*) { ++destroyed; }};
    CHECK(CreateComObject<TestObject>(nullptr, IID_IDispatch, &object, std::move(hooks)) ==
          E_NOINTERFACE);
    CHECK(object == nullptr);
    CHECK(destroyed == 1);
    CHECK(module.LockCount() == 0);
}

TEST_CASE("CreateComObject: a null pointer is refused before anything is made", "[foundation]")
{
    TestModule module;
    int made = 0;
    TestObjectHooks hooks{[&](IUnknown*) { ++made; }, nullptr};
    CHECK(CreateComObject<TestObject>(nullptr, IID_IUnknown, nullptr, std::move(hooks)) ==
          E_POINTER);
    CHECK(made == 0);
    CHECK(module.LockCount() == 0);
}

TEST_CASE("CreateComObject: an aggregated object is first asked for IUnknown only", "[foundation]")
{
    TestModule module;
    bool alive = false;
    const ComPtr<OuterObject> outer = OuterObject::Make(&alive);
    int made = 0;
    for (const IID* iid : kIids)
    {
        void* inner = Poison();
        TestObjectHooks hooks{[&](IUnknown*) { ++made; }, nullptr};
        const HRESULT hr = CreateComObject<TestObject>(outer.Get(), *iid, &inner, std::move(hooks));
        if (iid == &IID_IUnknown)
        {
            CHECK(hr == S_OK);
            static_cast<IUnknown*>(inner)->Release();
        }
        else
        {
            CHECK(hr == CLASS_E_NOAGGREGATION);
            CHECK(inner == nullptr);
        }
    }
    CHECK(made == 1);
    CHECK(module.LockCount() == 0);
    CHECK(ReferencesOf(outer.Get()) == 1);
}

TEST_CASE("ComObject: an aggregate is one object from outside", "[foundation]")
{
    TestModule module;
    bool alive = false;
    int destroyed = 0;
    {
        ComPtr<OuterObject> outer = OuterObject::Make(&alive);
        TestObjectHooks hooks{nullptr, [&](IUnknown*) { ++destroyed; }};
        REQUIRE(CreateComObject<TestObject>(outer.Get(), IID_IUnknown, outer->InnerPlace(),
                                            std::move(hooks)) == S_OK);
        CHECK(ReferencesOf(outer.Get()) == 1); // the inner object holds none on its outer

        CheckIdentity(outer.Get());
        ComPtr<IOleWindow> window;
        REQUIRE(outer.As(&window) == S_OK);
        CHECK(ReferencesOf(outer.Get()) == 2); // inner interfaces count on the outer object
        CHECK(Ask(window.Get(), IID_IUnknown) == Ask(outer.Get(), IID_IUnknown));
        CHECK(Ask(window.Get(), IID_IServiceProvider) == static_cast<void*>(outer.Get()));
        CheckIdentity(window.Get());

        outer.Reset();
        CHECK(alive); // by the inner interface
        HWND handle = reinterpret_cast<HWND>(Poison());
        CHECK(window->GetWindow(&handle) == S_OK);
        CHECK(destroyed == 0);
    }
    CHECK_FALSE(alive);
    CHECK(destroyed == 1);
    CHECK(module.LockCount() == 0);
}

TEST_CASE("ComObject: the inner unknown of an aggregate answers for itself", "[foundation]")
{
    TestModule module;
    bool alive = false;
    const ComPtr<OuterObject> outer = OuterObject::Make(&alive);
    ComPtr<IUnknown> inner;
    REQUIRE(CreateComObject<TestObject>(outer.Get(), IID_IUnknown,
                                        reinterpret_cast<void**>(inner.GetAddressOf())) == S_OK);
    CHECK(Ask(inner.Get(), IID_IUnknown) == inner.Get());
    CHECK(inner.Get() != static_cast<IUnknown*>(outer.Get()));
    CHECK(Ask(inner.Get(), IID_IServiceProvider) == nullptr);
    CHECK(inner->AddRef() == 2);
    CHECK(inner->Release() == 1);
    CHECK(ReferencesOf(outer.Get()) == 1);
}

TEST_CASE("ComObject: eight threads may add and release references at once", "[foundation]")
{
    TestModule module;
    int destroyed = 0;
    auto object = Make<IUnknown>({nullptr, [&](IUnknown*) { ++destroyed; }});
    {
        TestEvent start;
        std::vector<std::unique_ptr<TestThread>> threads;
        for (int i = 0; i < 8; ++i)
        {
            threads.push_back(std::make_unique<TestThread>([&] {
                start.Wait();
                for (int round = 0; round < 5'000; ++round)
                {
                    ComPtr<IOleWindow> window;
                    object.As(&window);
                }
            }));
        }
        start.Set();
        for (const auto& thread : threads)
        {
            thread->Join();
        }
    }
    CHECK(destroyed == 0);
    CHECK(ReferencesOf(object.Get()) == 1);
    object.Reset();
    CHECK(destroyed == 1);
}

TEST_CASE("ModuleLock: it is given back at the end of the scope, unless somebody keeps it",
          "[foundation]")
{
    TestModule module;
    {
        const velt::ModuleLock lock;
        CHECK(module.LockCount() == 1);
    }
    CHECK(module.LockCount() == 0);
    {
        velt::ModuleLock lock;
        lock.Keep();
    }
    CHECK(module.LockCount() == 1);
}
