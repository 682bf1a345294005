#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/ui/plain_window.h"
#include "tests/ui/stand_in_document.h"
#include "ui/eula_texts_file.h"

#include <comdef.h>

#include <catch.hpp>

#include <optional>

using Microsoft::WRL::ComPtr;
using velt::EulaTexts;
using namespace velt::test;

namespace
{
constexpr LONG kLoading = 1;
constexpr LONG kComplete = 4;

ComPtr<IXMLDOMDocument> Content()
{
    ComPtr<IXMLDOMDocument> document;
    REQUIRE(::CoCreateInstance(CLSID_DOMDocument, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IXMLDOMDocument,
                               reinterpret_cast<void**>(document.GetAddressOf())) == S_OK);
    const BSTR xml = ::SysAllocString(L"<T><RECORD><K>btn_ok</K><V>done</V></RECORD></T>");
    VARIANT_BOOL loaded = VARIANT_FALSE;
    CHECK(document->loadXML(xml, &loaded) == S_OK);
    ::SysFreeString(xml);
    return document;
}

/// What has come to the thread's windows by WM_APP.
struct Arrived
{
    Arrived()
    {
        s_count = 0;
        ::SetWindowLongPtrW(window.Window(), GWLP_WNDPROC,
                            reinterpret_cast<LONG_PTR>(&Arrived::Receive));
    }

    static LRESULT CALLBACK Receive(HWND target, UINT message, WPARAM wParam, LPARAM lParam)
    {
        s_count += message == WM_APP ? 1 : 0;
        return ::DefWindowProcW(target, message, wParam, lParam);
    }

    static bool Any() noexcept
    {
        return s_count > 0;
    }

    inline static int s_count = 0;

    const PlainWindow window;
};
} // namespace

TEST_CASE("ReadEulaTexts: a document that completes on a message is waited for", "[ui]")
{
    const ComApartment com;
    const PlainWindow dialog;
    const Arrived arrived;
    const StandInDocument document([] { return Arrived::Any() ? kComplete : kLoading; },
                                   Content().Get());
    ::PostMessageW(arrived.window.Window(), WM_APP, 0, 0);
    const EulaTexts texts = velt::ReadEulaTexts(L"any", dialog.Window(), [] { return false; });
    CHECK(texts.ok == L"done");
    CHECK(document.Loads() == 1);
    CHECK(document.Aborts() == 0);
    CHECK(document.References() == 0);
}

TEST_CASE("ReadEulaTexts: what has arrived of a document after 5 s is read, and the rest given up",
          "[ui]")
{
    const ComApartment com;
    const PlainWindow dialog;
    const bool hasArrived = GENERATE(true, false);
    const ComPtr<IXMLDOMDocument> content = hasArrived ? Content() : nullptr;
    const StandInDocument document([] { return kLoading; }, content.Get());
    const ULONGLONG start = ::GetTickCount64();
    const EulaTexts texts = velt::ReadEulaTexts(L"any", dialog.Window(), [] { return false; });
    CHECK(::GetTickCount64() - start >= 5'000);
    CHECK(texts.ok.has_value() == hasArrived);
    CHECK(texts.ok.value_or(L"done") == L"done");
    CHECK(document.Aborts() == 1);
    CHECK(document.References() == 0);
}

TEST_CASE("ReadEulaTexts: when it is over before the document completes, there are no texts",
          "[ui]")
{
    const ComApartment com;
    const PlainWindow dialog;
    const Arrived arrived;
    const bool isComplete = GENERATE(false, true); // by the same message
    const StandInDocument document(
        [=] { return isComplete && Arrived::Any() ? kComplete : kLoading; }, Content().Get());
    ::PostMessageW(arrived.window.Window(), WM_APP, 0, 0);
    int answers = 0; // that it is over
    const EulaTexts texts = velt::ReadEulaTexts(L"any", dialog.Window(), [&] {
        answers += Arrived::Any() ? 1 : 0;
        return Arrived::Any();
    });
    CHECK(answers > 0);
    CHECK(answers < 10); // it looks every 10 ms, and would for 5 s
    CHECK_FALSE(texts.ok);
    CHECK(document.Aborts() == 1);
}

TEST_CASE("ReadEulaTexts: want of memory is an exception", "[ui]")
{
    const ComApartment com;
    const PlainWindow dialog;
    const ImportPatch<"SysAllocString", decltype(::SysAllocString)> none(
        "oleaut32.dll", [](const OLECHAR*) { return static_cast<BSTR>(nullptr); });
    try
    {
        velt::ReadEulaTexts(L"any", dialog.Window(), [] { return false; });
        FAIL("read");
    }
    catch (const _com_error& e)
    {
        CHECK(e.Error() == E_OUTOFMEMORY);
    }
}
