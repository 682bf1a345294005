#include "ui/rtf_stream.h"

#include "tests/support/import_patch.h"
#include "tests/support/temp_folder.h"

#include <richedit.h>

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
using ReadFilePatch = ImportPatch<"ReadFile", decltype(::ReadFile)>;

/// A rich edit control of its own.
class View
{
public:
    View()
        : m_library(::LoadLibraryW(L"riched32.dll")),
          m_window(::CreateWindowExW(0, L"RICHEDIT", L"", WS_POPUP | ES_MULTILINE, 0, 0, 300, 200,
                                     nullptr, nullptr, nullptr, nullptr))
    {
        REQUIRE(m_window);
    }

    View(const View&) = delete;
    View& operator=(const View&) = delete;

    ~View()
    {
        ::DestroyWindow(m_window);
        ::FreeLibrary(m_library);
    }

    HWND Window() const noexcept
    {
        return m_window;
    }

    std::string Text() const
    {
        std::string text(static_cast<std::size_t>(::GetWindowTextLengthA(m_window)) + 1, '\0');
        text.resize(static_cast<std::size_t>(
            ::GetWindowTextA(m_window, text.data(), static_cast<int>(text.size()))));
        return text;
    }

private:
    HMODULE m_library;
    HWND m_window;
};
} // namespace

TEST_CASE("StreamRtfFile: a read that fails ends the text like the end of the file", "[ui]")
{
    const TempFolder folder;
    const View view;
    std::string rtf = "{\\rtf1 first\\par ";
    rtf += std::string(200'000, 'x');
    folder.Write(L"long.rtf", rtf + "last}");
    {
        int reads = 0;
        const ReadFilePatch patch("kernel32.dll", [&](HANDLE file, LPVOID buffer, DWORD wanted,
                                                      LPDWORD read, LPOVERLAPPED overlapped) {
            if (++reads > 3)
            {
                ::SetLastError(ERROR_CRC);
                return FALSE;
            }
            return ReadFilePatch::Original(file, buffer, wanted, read, overlapped);
        });
        CHECK(velt::StreamRtfFile(view.Window(), folder.File(L"long.rtf")));
        CHECK(reads == 4);
    }
    CHECK(view.Text().rfind("first", 0) == 0);
    CHECK(view.Text().find("last") == std::string::npos);
}

TEST_CASE("StreamRtfFile: a file that cannot be opened leaves the text and says why", "[ui]")
{
    const TempFolder folder;
    const View view;
    ::SetWindowTextW(view.Window(), L"as it was");
    CHECK_FALSE(velt::StreamRtfFile(view.Window(), folder.File(L"missing.rtf")));
    CHECK(::GetLastError() == ERROR_FILE_NOT_FOUND);
    CHECK(view.Text() == "as it was");
}
