#include "tests/support/com_apartment.h"
#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "ui/resources/resource_ids.h"

#include <initguid.h>

#include <oleacc.h>
#include <richedit.h>
#include <wrl/client.h>

#include <catch.hpp>

#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
/// A dialog with the keyboard.
struct Active
{
    Active() : session(library, Agreement(), Texts())
    {
        session.Activate();
    }

    bool FocusComesTo(int id)
    {
        return WaitUntil([&] { return session.FocusedId() == id; });
    }

    bool IsChosen(int id)
    {
        return WaitUntil([&] { return session.IsChecked(id); });
    }

    std::wstring Agreement() const
    {
        folder.Write(L"agreement.rtf", kSmallAgreement);
        return folder.File(L"agreement.rtf");
    }

    std::wstring Texts() const
    {
        folder.Write(L"texts.xml", "<T><RECORD><K>enu_user_license_agreement</K><V>Vertrag</V>"
                                   "</RECORD></T>");
        return folder.File(L"texts.xml");
    }

    const TempFolder folder;
    const ComponentLibrary library;
    EulaSession session;
};

std::wstring AccessibleName(HWND window)
{
    ComPtr<IAccessible> accessible;
    REQUIRE(SUCCEEDED(
        ::AccessibleObjectFromWindow(window, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                     reinterpret_cast<void**>(accessible.GetAddressOf()))));
    VARIANT self;
    ::VariantInit(&self);
    self.vt = VT_I4;
    self.lVal = CHILDID_SELF;
    BSTR name = nullptr;
    const HRESULT hr = accessible->get_accName(self, &name);
    CHECK(SUCCEEDED(hr));
    const std::wstring text = name ? name : L"";
    ::SysFreeString(name);
    return text;
}
} // namespace

TEST_CASE("CEulaDialog: Tab reaches and leaves every control, both ways", "[ui]")
{
    Active active;
    REQUIRE(active.FocusComesTo(VELT_EULA_DECLINE));
    for (const int id : {VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK, VELT_EULA_DECLINE,
                         VELT_EULA_ACCEPT, VELT_EULA_VIEW})
    {
        CAPTURE(id);
        active.session.Press(VK_TAB);
        REQUIRE(active.FocusComesTo(id));
    }
    for (const int id : {VELT_EULA_ACCEPT, VELT_EULA_DECLINE, VELT_EULA_OK, VELT_EULA_VIEW})
    {
        CAPTURE(id);
        active.session.Press(VK_TAB, {VK_SHIFT});
        REQUIRE(active.FocusComesTo(id));
    }
}

TEST_CASE("CEulaDialog: Tab passes the choices and makes none", "[ui]")
{
    const bool isAccepted = GENERATE(false, true); // chosen before
    const int chosen = isAccepted ? VELT_EULA_ACCEPT : VELT_EULA_DECLINE;
    Active active;
    REQUIRE(active.FocusComesTo(VELT_EULA_DECLINE));
    // Both are stops as long as the user has not clicked one.
    ::SendMessageW(active.session.Item(VELT_EULA_DECLINE), BM_SETCHECK,
                   isAccepted ? BST_UNCHECKED : BST_CHECKED, 0);
    ::SendMessageW(active.session.Item(VELT_EULA_ACCEPT), BM_SETCHECK,
                   isAccepted ? BST_CHECKED : BST_UNCHECKED, 0);
    for (const int id : {VELT_EULA_DECLINE, VELT_EULA_ACCEPT})
    {
        const HWND item = active.session.Item(id);
        ::SetWindowLongW(item, GWL_STYLE, ::GetWindowLongW(item, GWL_STYLE) | WS_TABSTOP);
    }
    for (const int id : {VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK, VELT_EULA_DECLINE,
                         VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK})
    {
        CAPTURE(id);
        active.session.Press(VK_TAB);
        REQUIRE(active.FocusComesTo(id));
        CHECK(active.session.IsChecked(VELT_EULA_DECLINE) == (chosen == VELT_EULA_DECLINE));
        CHECK(active.session.IsChecked(VELT_EULA_ACCEPT) == (chosen == VELT_EULA_ACCEPT));
    }
    active.session.Press(VK_SPACE);
    CHECK(active.session.Join().accepted == (isAccepted ? VARIANT_TRUE : VARIANT_FALSE));
}

TEST_CASE("CEulaDialog: entering the view selects nothing, and its text can be walked", "[ui]")
{
    Active active;
    active.session.Press(VK_TAB);
    active.session.Press(VK_TAB);
    REQUIRE(active.FocusComesTo(VELT_EULA_VIEW));
    const auto selection = [&] {
        const LRESULT both = ::SendMessageW(active.session.Item(VELT_EULA_VIEW), EM_GETSEL, 0, 0);
        return std::pair(LOWORD(both), HIWORD(both));
    };
    const auto [start, end] = selection();
    CHECK(start == end);
    active.session.Press(VK_HOME, {VK_CONTROL});
    active.session.Press(VK_RIGHT, {VK_SHIFT});
    CHECK(WaitUntil([&] { return selection() == std::pair(WORD{0}, WORD{1}); }));
    // It is read-only.
    const std::wstring before = active.session.Text(VELT_EULA_VIEW);
    active.session.Press('X');
    active.session.Press(VK_DELETE);
    active.session.Press(VK_TAB);
    REQUIRE(active.FocusComesTo(VELT_EULA_OK));
    CHECK(active.session.Text(VELT_EULA_VIEW) == before);
}

TEST_CASE("CEulaDialog: arrow keys go round between the two choices", "[ui]")
{
    Active active;
    const WORD key = GENERATE(as<WORD>{}, VK_DOWN, VK_RIGHT, VK_UP, VK_LEFT);
    CAPTURE(key);
    for (const int id : {VELT_EULA_ACCEPT, VELT_EULA_DECLINE, VELT_EULA_ACCEPT})
    {
        active.session.Press(key);
        REQUIRE(active.FocusComesTo(id));
        REQUIRE(active.IsChosen(id));
    }
    active.session.Press(VK_TAB);
    active.session.Press(VK_TAB);
    REQUIRE(active.FocusComesTo(VELT_EULA_OK));
    active.session.Press(VK_SPACE);
    CHECK(active.session.Join().accepted == VARIANT_TRUE);
}

TEST_CASE("CEulaDialog: mnemonics choose", "[ui]")
{
    Active active;
    active.session.Press('A', {VK_MENU});
    REQUIRE(active.IsChosen(VELT_EULA_ACCEPT));
    active.session.Press('D', {VK_MENU});
    REQUIRE(active.IsChosen(VELT_EULA_DECLINE));
    active.session.Press('A', {VK_MENU});
    REQUIRE(active.IsChosen(VELT_EULA_ACCEPT));
}

TEST_CASE("CEulaDialog: Space and Enter press OK", "[ui]")
{
    const WORD key = GENERATE(as<WORD>{}, VK_SPACE, VK_RETURN);
    const bool accept = GENERATE(false, true);
    Active active;
    if (accept)
    {
        active.session.Press(VK_DOWN);
        REQUIRE(active.IsChosen(VELT_EULA_ACCEPT));
    }
    active.session.Press(VK_TAB, {VK_SHIFT}); // the choice that is not made is no stop by then
    REQUIRE(active.FocusComesTo(VELT_EULA_OK));
    active.session.Press(key);
    CHECK(active.session.Join().accepted == (accept ? VARIANT_TRUE : VARIANT_FALSE));
}

TEST_CASE("CEulaDialog: Escape does nothing wherever the keyboard is", "[ui]")
{
    Active active;
    for (const int id :
         {VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK, VELT_EULA_DECLINE, VELT_EULA_ACCEPT})
    {
        CAPTURE(id);
        active.session.Press(VK_ESCAPE);
        active.session.Press(VK_TAB); // seen after it
        REQUIRE(active.FocusComesTo(id));
        CHECK(active.session.IsOpen());
    }
    active.session.PressOk();
    CHECK(active.session.Join().accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: screen readers find a name for every control", "[ui]")
{
    const ComApartment com;
    Active active;
    CHECK(AccessibleName(active.session.Item(VELT_EULA_DECLINE)) ==
          L"I do not accept the terms in the license agreement");
    CHECK(AccessibleName(active.session.Item(VELT_EULA_ACCEPT)) ==
          L"I accept the terms in the license agreement");
    CHECK(AccessibleName(active.session.Item(VELT_EULA_OK)) == L"OK");
    // The static control right before the view names it, also when it is hidden. Wine names such a
    // control by its content instead.
    const HWND view = active.session.Item(VELT_EULA_VIEW);
    CHECK(::GetWindow(view, GW_HWNDPREV) == active.session.Item(VELT_EULA_TITLE));
    CHECK(active.session.Text(VELT_EULA_TITLE) == L"Vertrag");
    const std::wstring name = AccessibleName(view);
    CHECK((name == L"Vertrag" || name == active.session.Text(VELT_EULA_VIEW)));
}
