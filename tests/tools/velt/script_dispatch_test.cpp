#include "tools/velt/script_dispatch.h"

#include "tools/velt/command_context.h"

#include <windows.h>

#include <oleauto.h>

#include <catch.hpp>

#include <array>
#include <cstring>
#include <new>
#include <string>

using velt::tool::CommandFailure;
using velt::tool::ScriptDispatch;
using velt::tool::ScriptMember;
using velt::tool::ScriptMemberKind;

namespace
{
enum MemberId : DISPID
{
    kPlain = 1,
    kMistyped,
    kWithoutMemory,
};

constexpr ScriptMember kMembers[] = {
    {L"Plain", kPlain, ScriptMemberKind::method, 0, 1},
    {L"Mistyped", kMistyped, ScriptMemberKind::method, 0, 0},
    {L"WithoutMemory", kWithoutMemory, ScriptMemberKind::property, 0, 0},
};

/// All of its members fail, each in another way.
class FailingObject final : public ScriptDispatch
{
public:
    FailingObject() : ScriptDispatch(kMembers) {}

    /// Uses a member whichever way it is used, and tells what is told about the failure.
    HRESULT Use(DISPID id, EXCEPINFO* exception)
    {
        DISPPARAMS none{};
        return Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                      &none, nullptr, exception, nullptr);
    }

private:
    _variant_t Call(DISPID id, Values) override
    {
        switch (id)
        {
        case kPlain:
            throw CommandFailure{E_ACCESSDENIED, L"a file"};
        case kMistyped:
            throw CommandFailure{DISP_E_TYPEMISMATCH, L"a text"};
        default:
            throw std::bad_alloc();
        }
    }
};

/// What a caller hands in that has not cleared it.
EXCEPINFO UsedInformation()
{
    EXCEPINFO used;
    std::memset(&used, 0x5A, sizeof(used));
    return used;
}
} // namespace

TEST_CASE("ScriptDispatch: a failure is told whole, whatever the caller's information held before",
          "[tools]")
{
    FailingObject object;
    EXCEPINFO told = UsedInformation();
    CHECK(object.Use(kPlain, &told) == DISP_E_EXCEPTION);
    CHECK(told.scode == E_ACCESSDENIED);
    CHECK(told.wCode == 0); // one of the two
    CHECK(std::wstring(told.bstrSource) == L"velt");
    CHECK(std::wstring(told.bstrDescription) == L"a file");
    CHECK(told.bstrHelpFile == nullptr); // the caller frees it
    CHECK(told.dwHelpContext == 0);
    CHECK(told.pvReserved == nullptr);
    CHECK(told.pfnDeferredFillIn == nullptr); // the caller would call it
    ::SysFreeString(told.bstrSource);
    ::SysFreeString(told.bstrDescription);
}

TEST_CASE("ScriptDispatch: engines have words of their own for failures of automation", "[tools]")
{
    FailingObject object;
    const EXCEPINFO before = UsedInformation();
    EXCEPINFO told = before;
    CHECK(object.Use(kMistyped, &told) == DISP_E_TYPEMISMATCH);
    CHECK(object.Use(kWithoutMemory, &told) == E_OUTOFMEMORY);
    CHECK(object.Use(77, &told) == DISP_E_MEMBERNOTFOUND);
    CHECK(std::memcmp(&told, &before, sizeof(told)) == 0);
    CHECK(object.Use(kPlain, nullptr) == E_ACCESSDENIED); // nobody wants to know more

    std::array<VARIANT, 2> values{};
    DISPPARAMS two{values.data(), nullptr, static_cast<UINT>(values.size()), 0};
    const auto use = [&](DISPID id, WORD how) {
        return object.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, how, &two, nullptr, nullptr,
                             nullptr);
    };
    CHECK(use(kPlain, DISPATCH_METHOD) == DISP_E_BADPARAMCOUNT);
    CHECK(use(kPlain, DISPATCH_PROPERTYGET) == DISP_E_MEMBERNOTFOUND);
    CHECK(use(kWithoutMemory, DISPATCH_PROPERTYPUT) == DISP_E_MEMBERNOTFOUND);
}

TEST_CASE("ScriptDispatch: names do not mind case, and arguments have none", "[tools]")
{
    FailingObject object;
    wchar_t name[] = L"mISTYPED";
    wchar_t argument[] = L"value";
    wchar_t unknown[] = L"Unknown";
    const auto ids = [&](wchar_t* first, UINT count, std::array<DISPID, 2>& found) {
        found = {77, 77};
        LPOLESTR names[] = {first, argument};
        return object.GetIDsOfNames(IID_NULL, names, count, LOCALE_USER_DEFAULT, found.data());
    };
    std::array<DISPID, 2> found{};
    CHECK(ids(name, 1, found) == S_OK);
    CHECK(found == std::array<DISPID, 2>{kMistyped, 77});
    CHECK(ids(name, 2, found) == DISP_E_UNKNOWNNAME);
    CHECK(found == std::array<DISPID, 2>{kMistyped, DISPID_UNKNOWN});
    CHECK(ids(unknown, 1, found) == DISP_E_UNKNOWNNAME);
    CHECK(found == std::array<DISPID, 2>{DISPID_UNKNOWN, 77});
    CHECK(ids(name, 0, found) == E_INVALIDARG);
}
