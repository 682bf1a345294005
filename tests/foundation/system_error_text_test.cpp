#include "foundation/system_error_text.h"

#include "foundation/library_utils.h"
#include "tests/support/import_patch.h"
#include "tests/support/message_module.h"

#include <catch.hpp>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using velt::HResultText;
using velt::Win32ErrorText;
using velt::test::BesideProgram;
using velt::test::ImportPatch;
using velt::test::InSystemFolder;
using velt::test::MessageModule;

namespace
{
/// The system's own text with its line end, as FormatMessage gives it.
std::wstring SystemText(DWORD id)
{
    std::array<wchar_t, 512> text{};
    ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, id, 0,
                     text.data(), static_cast<DWORD>(text.size()), nullptr);
    return text.data();
}

bool EndsLine(std::wstring_view text)
{
    return text.ends_with(L'\n') || text.ends_with(L'\r');
}

/// A message module in the system directory whose text is its own name. Null, with a warning, where
/// the system has such a module itself or lets nobody write.
std::unique_ptr<MessageModule> Install(const std::wstring& name, HRESULT id)
{
    try
    {
        return std::make_unique<MessageModule>(InSystemFolder(name), static_cast<DWORD>(id), name);
    }
    catch (const std::runtime_error& e)
    {
        WARN(std::string(name.begin(), name.end()) << ": " << e.what());
        return nullptr;
    }
}

/// A question for a message, as FormatMessageW is asked.
struct Question
{
    DWORD flags;
    DWORD id;
    DWORD language;

    bool operator==(const Question&) const = default;
};

/// Sees the questions for messages.
class Questions
{
public:
    const std::vector<Question>& Asked() const noexcept
    {
        return m_asked;
    }

private:
    using Patch = ImportPatch<"FormatMessageW", decltype(::FormatMessageW)>;

    std::vector<Question> m_asked;
    Patch m_patch{"kernel32.dll", [this](DWORD flags, const void* source, DWORD id, DWORD language,
                                         LPWSTR buffer, DWORD size, va_list* arguments) {
                      m_asked.push_back({flags, id, language});
                      return Patch::Original(flags, source, id, language, buffer, size, arguments);
                  }};
};

HRESULT Failure(DWORD facility, DWORD code)
{
    return static_cast<HRESULT>(0x80000000 | facility << 16 | code);
}
} // namespace

TEST_CASE("HResultText: the system's text comes without its line end", "[foundation]")
{
    REQUIRE(EndsLine(SystemText(static_cast<DWORD>(E_ACCESSDENIED))));
    const std::wstring text = HResultText(E_ACCESSDENIED);
    CHECK_FALSE(text.empty());
    CHECK_FALSE(EndsLine(text));
    CHECK(SystemText(static_cast<DWORD>(E_ACCESSDENIED)).starts_with(text));
}

TEST_CASE("HResultText: a code that nobody knows has an empty text", "[foundation]")
{
    CHECK(HResultText(static_cast<HRESULT>(0xA0ABCDEF)).empty());
    CHECK(HResultText(Failure(12, 0xABCD)).empty());
    CHECK(HResultText(Failure(7, 0xFFFE)).empty());
}

TEST_CASE("HResultText: modules are asked in the order of the table, the system last",
          "[foundation]")
{
    struct Case
    {
        DWORD facility;
        std::vector<std::wstring> modules;
    };
    const Case row =
        GENERATE(Case{7, {L"WMERROR.DLL", L"NETMSG.DLL"}}, Case{13, {L"WMERROR.DLL"}},
                 Case{12, {L"MSXML6R.DLL", L"MSXML5R.DLL", L"MSXML4R.DLL", L"MSXML3R.DLL"}});
    const HRESULT hr = Failure(row.facility, 5);
    const std::wstring without = HResultText(hr);

    std::vector<std::unique_ptr<MessageModule>> installed;
    for (const std::wstring& name : row.modules)
    {
        installed.push_back(Install(name, hr));
    }
    for (std::size_t i = 0; i < installed.size(); ++i)
    {
        INFO("facility " << row.facility << ", row " << i);
        if (installed[i])
        {
            CHECK(HResultText(hr) == row.modules[i]);
            CHECK(::GetModuleHandleW(row.modules[i].c_str()) == nullptr); // freed again
            installed[i].reset();
        }
    }
    CHECK(HResultText(hr) == without);
}

TEST_CASE("HResultText: a module that is there and has no text is passed over", "[foundation]")
{
    const HRESULT hr = Failure(12, 5);
    const auto first = Install(L"MSXML6R.DLL", Failure(12, 6));
    const auto last = Install(L"MSXML3R.DLL", hr);
    if (first && last)
    {
        CHECK(HResultText(hr) == L"MSXML3R.DLL");
        CHECK(HResultText(Failure(12, 6)) == L"MSXML6R.DLL");
    }
}

TEST_CASE("HResultText: a module answers for its own facilities only", "[foundation]")
{
    const auto [name, facility] = GENERATE(table<std::wstring, DWORD>({{L"NETMSG.DLL", 13},
                                                                       {L"NETMSG.DLL", 4},
                                                                       {L"WMERROR.DLL", 12},
                                                                       {L"WMERROR.DLL", 0},
                                                                       {L"MSXML3R.DLL", 7},
                                                                       {L"MSXML6R.DLL", 13}}));
    const HRESULT hr = Failure(facility, 0xABCD);
    const auto installed = Install(name, hr);
    CHECK(HResultText(hr) != name);
}

TEST_CASE("HResultText: the facility has thirteen bits", "[foundation]")
{
    // Bit 28 lies above the code's facility 7 and makes it another one; bit 29 does not belong to
    // it.
    const auto other = static_cast<HRESULT>(0x9007ABCD);
    const auto same = static_cast<HRESULT>(0xA007ABCD);
    {
        const auto installed = Install(L"WMERROR.DLL", other);
        CHECK(HResultText(other) != L"WMERROR.DLL");
    }
    if (const auto installed = Install(L"WMERROR.DLL", same))
    {
        CHECK(HResultText(same) == L"WMERROR.DLL");
    }
}

TEST_CASE("HResultText: a code that no module knows comes from the system", "[foundation]")
{
    SECTION("facility 12, for every code that has a text here")
    {
        int known = 0;
        for (DWORD code = 2; code < 0x20; ++code)
        {
            const HRESULT hr = Failure(12, code);
            const std::wstring text = SystemText(static_cast<DWORD>(hr));
            CHECK(text.starts_with(HResultText(hr)));
            CHECK(HResultText(hr).empty() == text.empty());
            known += text.empty() ? 0 : 1;
        }
        if (known == 0)
        {
            WARN("this system has no text of facility 12");
        }
    }
    SECTION("with modules that know another code")
    {
        const std::wstring before = HResultText(E_ACCESSDENIED);
        REQUIRE_FALSE(before.empty());
        const auto first = Install(L"WMERROR.DLL", E_HANDLE);
        const auto second = Install(L"NETMSG.DLL", E_HANDLE);
        CHECK(HResultText(E_ACCESSDENIED) == before);
        if (first)
        {
            CHECK(HResultText(E_HANDLE) == L"WMERROR.DLL");
        }
    }
}

TEST_CASE("HResultText: inserts stay as they are, line ends go from the end only", "[foundation]")
{
    const HRESULT hr = Failure(13, 0xABCD);
    try
    {
        const MessageModule module(InSystemFolder(L"WMERROR.DLL"), static_cast<DWORD>(hr),
                                   L"first\r\nsecond %1 \r\n\r\n");
        CHECK(HResultText(hr) == L"first\r\nsecond %1 ");
    }
    catch (const std::runtime_error& e)
    {
        WARN(e.what());
    }
}

TEST_CASE("HResultText: a text of line ends is empty", "[foundation]")
{
    const HRESULT hr = Failure(13, 0xABCD);
    try
    {
        const MessageModule module(InSystemFolder(L"WMERROR.DLL"), static_cast<DWORD>(hr),
                                   L"\r\n\r\n");
        CHECK(HResultText(hr).empty());
    }
    catch (const std::runtime_error& e)
    {
        WARN(e.what());
    }
}

TEST_CASE("HResultText: a message module beside the program is not asked", "[foundation]")
{
    const std::wstring name = L"WMERROR.DLL";
    const std::wstring before = HResultText(E_ACCESSDENIED);
    const MessageModule planted(BesideProgram(name), static_cast<DWORD>(E_ACCESSDENIED),
                                L"planted");
    CHECK(HResultText(E_ACCESSDENIED) == before);
    CHECK(before != L"planted");
    // The plant is a good one: the usual search finds it, unless the system has one of its own.
    const CLibraryUtils::CLibraryUtilsImpl usual(::LoadLibraryW(name.c_str()));
    CHECK(usual.GetModule() != nullptr);
}

TEST_CASE("Win32ErrorText: the system's text comes without its line end", "[foundation]")
{
    const DWORD error = GENERATE(DWORD{ERROR_SUCCESS}, DWORD{ERROR_FILE_NOT_FOUND},
                                 DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_NOT_OWNER});
    const std::wstring text = Win32ErrorText(error);
    CHECK_FALSE(text.empty());
    CHECK_FALSE(EndsLine(text));
    CHECK(SystemText(error).starts_with(text));
}

TEST_CASE("Win32ErrorText: an unknown number has an empty text", "[foundation]")
{
    CHECK(Win32ErrorText(0xA0ABCDEF).empty());
}

TEST_CASE("Win32ErrorText: a text with inserts, for which there are no arguments, is no harm",
          "[foundation]")
{
    // ERROR_BAD_EXE_FORMAT: "%1 is not a valid Win32 application." Inserts are not ignored here, so
    // Windows gives no text at all.
    const std::wstring ignored = SystemText(ERROR_BAD_EXE_FORMAT);
    const std::wstring text = Win32ErrorText(ERROR_BAD_EXE_FORMAT);
    if (ignored.find(L'%') == ignored.npos)
    {
        WARN("this system's text has no insert");
        CHECK(ignored.starts_with(text));
    }
    else if (!text.empty())
    {
        WARN("this system gives a text: " << std::string(text.begin(), text.end()));
        CHECK(text.find(L"not a valid") != text.npos);
    }
    CHECK_FALSE(EndsLine(text));
}

TEST_CASE("HResultText: each facility has its modules, in their order", "[foundation]")
{
    struct Case
    {
        DWORD facility;
        std::vector<std::wstring> modules;
    };
    const Case row = GENERATE(
        Case{4, {L"QUARTZ.DLL"}}, Case{7, {L"WMERROR.DLL", L"NETMSG.DLL"}},
        Case{13, {L"WMERROR.DLL"}},
        Case{12, {L"MSXML6R.DLL", L"MSXML5R.DLL", L"MSXML4R.DLL", L"MSXML3R.DLL", L"WININET.DLL"}},
        Case{0, {}}, Case{3, {}}, Case{10, {}});
    CAPTURE(row.facility);
    std::vector<std::wstring> loaded;
    const ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)> none(
        "kernel32.dll", [&](const wchar_t* name, HANDLE, DWORD) -> HMODULE {
            loaded.emplace_back(name);
            ::SetLastError(ERROR_MOD_NOT_FOUND);
            return nullptr;
        });
    HResultText(Failure(row.facility, 0xABCD));
    CHECK(loaded == row.modules);
}

TEST_CASE("HResultText: modules are asked in the default language, the system in any, inserts "
          "ignored",
          "[foundation]")
{
    const HRESULT hr = Failure(13, 0xABCD);
    const auto id = static_cast<DWORD>(hr);
    const auto installed = Install(L"WMERROR.DLL", Failure(13, 0xABCE));
    const Questions questions;
    HResultText(hr);
    std::vector<Question> expected;
    if (installed)
    {
        expected.push_back({0x0B00, id, 0x0400});
    }
    expected.push_back({0x1300, id, 0});
    CHECK(questions.Asked() == expected);
}

TEST_CASE("Win32ErrorText: the system is asked in any language, inserts not ignored",
          "[foundation]")
{
    const Questions questions;
    Win32ErrorText(ERROR_ACCESS_DENIED);
    CHECK(questions.Asked() == std::vector<Question>{{0x1100, ERROR_ACCESS_DENIED, 0}});
}

TEST_CASE("HResultText, Win32ErrorText: the second one gives the text's memory back, the first one "
          "keeps it by design",
          "[foundation]")
{
    using Patch = ImportPatch<"LocalFree", decltype(::LocalFree)>;
    std::vector<HLOCAL> freed;
    const Patch patch("kernel32.dll", [&](HLOCAL memory) {
        freed.push_back(memory);
        return Patch::Original(memory);
    });
    REQUIRE_FALSE(HResultText(E_ACCESSDENIED).empty());
    CHECK(freed.empty());
    REQUIRE_FALSE(Win32ErrorText(ERROR_ACCESS_DENIED).empty());
    REQUIRE(freed.size() == 1);
    CHECK(freed[0] != nullptr);
}
