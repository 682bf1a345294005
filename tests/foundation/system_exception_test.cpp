#include "foundation/system_exception.h"

#include "foundation/system_error_text.h"
#include "foundation/wide_text.h"
#include "tests/support/language_scope.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <typeinfo>

using velt::Utf8FromWide;
using velt::test::LanguageScope;
using velt::test::TempFolder;
using velt::test::VirtualSlot;

TEST_CASE("SystemException::HRESULT: the message has the code and its text", "[foundation]")
{
    const LanguageScope scope;
    const SystemException::HRESULT e(E_ACCESSDENIED);
    CHECK(e.GetCode() == E_ACCESSDENIED);
    CHECK(e.GetId() == -14);
    const std::string text = Utf8FromWide(velt::HResultText(E_ACCESSDENIED));
    CHECK_FALSE(text.empty());
    CHECK(e.GetMessage() == "operating system error: HRESULT = 0x80070005 - " + text);
    CHECK(e.GetDetail().empty());
}

TEST_CASE("SystemException::Win32: the message has the number in hexadecimal and its text",
          "[foundation]")
{
    const LanguageScope scope;
    const SystemException::Win32 e(ERROR_FILE_NOT_FOUND);
    CHECK(e.GetCode() == ERROR_FILE_NOT_FOUND);
    CHECK(e.GetId() == -12);
    const std::string text = Utf8FromWide(velt::Win32ErrorText(ERROR_FILE_NOT_FOUND));
    CHECK_FALSE(text.empty());
    CHECK(e.GetMessage() == "operating system error: number = 0x00000002 - " + text);
}

TEST_CASE("SystemException: the code is eight upper-case digits, its text may be missing",
          "[foundation]")
{
    const LanguageScope scope;
    CHECK(SystemException::HRESULT(static_cast<::HRESULT>(0xA0ABCDEF)).GetMessage() ==
          "operating system error: HRESULT = 0xA0ABCDEF - ");
    CHECK(SystemException::Win32(0xA0ABCDEF).GetMessage() ==
          "operating system error: number = 0xA0ABCDEF - ");
    CHECK(SystemException::Win32(0xA0ABCDEF).GetCode() == 0xA0ABCDEF);
}

TEST_CASE("SystemException: the messages follow the language", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", "\xEF\xBB\xBF-12 Fehler %0 (%1)\n-14 %1, HRESULT %0\n");
    VeltText::Language().SetLanguage(7, Utf8FromWide(folder.Path()));
    CHECK(SystemException::Win32(0xA0ABCDEF).GetMessage() == "Fehler 0xA0ABCDEF ()");
    // The wrong way round: the text's placeholder stays as it is.
    CHECK(SystemException::HRESULT(E_FAIL).GetMessage() == "%1, HRESULT 0x80004005");
}

TEST_CASE("SystemException: a clone keeps type, code and texts", "[foundation]")
{
    SystemException::Win32 win32(ERROR_ACCESS_DENIED);
    win32.SetDetail("detail");
    const VeltException& base = win32;
    const std::unique_ptr<VeltException> clone = base.Clone();
    REQUIRE(clone);
    REQUIRE(typeid(*clone) == typeid(SystemException::Win32));
    CHECK(static_cast<const SystemException::Win32&>(*clone).GetCode() == ERROR_ACCESS_DENIED);
    CHECK(clone->GetMessage() == win32.GetMessage());
    CHECK(clone->GetDetail() == "detail");
    CHECK(clone->GetId() == -12);

    const SystemException::HRESULT hresult(E_NOINTERFACE);
    const std::unique_ptr<VeltException> other = hresult.Clone();
    REQUIRE(other);
    REQUIRE(typeid(*other) == typeid(SystemException::HRESULT));
    CHECK(static_cast<const SystemException::HRESULT&>(*other).GetCode() == E_NOINTERFACE);
}

TEST_CASE("SystemException: Raise through the base throws the very type", "[foundation]")
{
    SystemException::Win32 win32(ERROR_BUSY);
    const VeltException& base = win32.SetDetail("detail");
    try
    {
        base.Raise();
        FAIL("nothing was thrown");
    }
    catch (const SystemException::Win32& e)
    {
        CHECK(e.GetCode() == ERROR_BUSY);
        CHECK(e.GetDetail() == "detail");
        CHECK(&e != &win32);
    }

    const SystemException::HRESULT hresult(E_ABORT);
    const VeltException& otherBase = hresult;
    try
    {
        otherBase.Raise();
        FAIL("nothing was thrown");
    }
    catch (const SystemException::HRESULT& e)
    {
        CHECK(e.GetCode() == E_ABORT);
    }
}

TEST_CASE("SystemException: the overrides add no slots", "[foundation]")
{
    CHECK(VirtualSlot(&SystemException::Win32::Clone) == VirtualSlot(&VeltException::Clone));
    CHECK(VirtualSlot(&SystemException::Win32::Raise) == VirtualSlot(&VeltException::Raise));
    CHECK(VirtualSlot(&SystemException::HRESULT::Clone) == VirtualSlot(&VeltException::Clone));
    CHECK(VirtualSlot(&SystemException::HRESULT::Raise) == VirtualSlot(&VeltException::Raise));
    CHECK(VirtualSlot(&SystemException::Win32::GetCode) == velt::test::kNotVirtual);
    CHECK(VirtualSlot(&SystemException::HRESULT::GetCode) == velt::test::kNotVirtual);
}

TEST_CASE("ThrowIfFailed: only a failure is thrown, with its code", "[foundation]")
{
    CHECK_NOTHROW(velt::ThrowIfFailed(S_OK));
    CHECK_NOTHROW(velt::ThrowIfFailed(S_FALSE));
    CHECK_NOTHROW(velt::ThrowIfFailed(0x7FFFFFFF));
    try
    {
        velt::ThrowIfFailed(E_HANDLE);
        FAIL("nothing was thrown");
    }
    catch (const SystemException::HRESULT& e)
    {
        CHECK(e.GetCode() == E_HANDLE);
    }
}

TEST_CASE("ThrowLastError: the thread's last error is thrown", "[foundation]")
{
    ::SetLastError(ERROR_SHARING_VIOLATION);
    try
    {
        velt::ThrowLastError();
        FAIL("nothing was thrown");
    }
    catch (const SystemException::Win32& e)
    {
        CHECK(e.GetCode() == ERROR_SHARING_VIOLATION);
    }
}
