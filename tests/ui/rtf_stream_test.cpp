#include "ui/rtf_stream.h"

#include "tests/support/import_patch.h"
#include "tests/support/temp_folder.h"
#include "tests/support/trace_recorder.h"
#include "tests/ui/plain_window.h"

#include <richedit.h>

#include <catch.hpp>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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

/// A view that has enough of the text after some bytes, as one does whose limit is reached, and
/// answers with an error code of its own.
class ImpatientView
{
public:
    ImpatientView(LONG bytes, DWORD error)
    {
        s_bytes = bytes;
        s_error = error;
        ::SetWindowLongPtrW(m_window.Window(), GWLP_WNDPROC,
                            reinterpret_cast<LONG_PTR>(&ImpatientView::Receive));
    }

    HWND Window() const noexcept
    {
        return m_window.Window();
    }

private:
    static LRESULT CALLBACK Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message != EM_STREAMIN)
        {
            return ::DefWindowProcW(window, message, wParam, lParam);
        }
        auto& stream = *reinterpret_cast<EDITSTREAM*>(lParam);
        std::string buffer(static_cast<std::size_t>(s_bytes), '\0');
        LONG read = 0;
        stream.pfnCallback(stream.dwCookie, reinterpret_cast<BYTE*>(buffer.data()), s_bytes, &read);
        stream.dwError = s_error;
        return read;
    }

    inline static LONG s_bytes = 0;
    inline static DWORD s_error = 0;

    const velt::test::PlainWindow m_window;
};

/// A view that asks for the text in pieces of random sizes and keeps what it gets.
class PiecewiseView
{
public:
    explicit PiecewiseView(unsigned seed)
    {
        s_random.seed(seed);
        s_text.clear();
        ::SetWindowLongPtrW(m_window.Window(), GWLP_WNDPROC,
                            reinterpret_cast<LONG_PTR>(&PiecewiseView::Receive));
    }

    HWND Window() const noexcept
    {
        return m_window.Window();
    }

    const std::string& Text() const noexcept
    {
        return s_text;
    }

private:
    static LRESULT CALLBACK Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message != EM_STREAMIN)
        {
            return ::DefWindowProcW(window, message, wParam, lParam);
        }
        constexpr LONG kMost = 5'000;
        constexpr BYTE kUntouched = 0xA5;
        auto& stream = *reinterpret_cast<EDITSTREAM*>(lParam);
        for (LONG wanted = 0, read = 0; read == wanted;)
        {
            wanted = static_cast<LONG>(s_random() % kMost) + 1;
            std::vector<BYTE> buffer(static_cast<std::size_t>(wanted) + 1, kUntouched);
            read = -1;
            stream.dwError = stream.pfnCallback(stream.dwCookie, buffer.data(), wanted, &read);
            if (stream.dwError != 0 || read < 0 || read > wanted || buffer.back() != kUntouched)
            {
                s_text = "more than was asked for";
                break;
            }
            s_text.append(buffer.begin(), buffer.begin() + read);
        }
        return static_cast<LRESULT>(s_text.size());
    }

    inline static std::mt19937 s_random;
    inline static std::string s_text;

    const velt::test::PlainWindow m_window;
};

/// How often it was traced, as an error, that a text is not whole.
std::size_t Complaints(TraceRecorder& trace)
{
    std::size_t count = 0;
    for (const TraceRecorder::Message& message : trace.Messages())
    {
        const bool isOne = message.text.starts_with("the agreement was not read to its end: ");
        count += message.level == 1 && isOne ? 1U : 0U;
    }
    return count;
}
} // namespace

TEST_CASE("StreamRtfFile: a read that fails ends the text like the end of the file", "[ui]")
{
    TraceRecorder trace;
    const TempFolder folder;
    const View view;
    std::string rtf = "{\\rtf1 first\\par ";
    for (int i = 0; i < 1'000; ++i)
    {
        rtf += std::string(40, 'x') + "\\par\n";
    }
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
    CHECK(Complaints(trace) == 1);
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

TEST_CASE("StreamRtfFile: it is traced when the view does not want the whole file", "[ui]")
{
    const auto [size, bytes, error, complaints] =
        GENERATE(table<std::size_t, LONG, DWORD, std::size_t>({
            {10'000, 10'000, 0, 0},
            {10'000, 9'999, 0, 1},
            {10'000, 1, 0, 1},
            {10'000, 10'000, static_cast<DWORD>(E_OUTOFMEMORY), 1},
            {1, 1, 0, 0},
            {1, 0, 0, 1},
        }));
    TraceRecorder trace;
    const TempFolder folder;
    folder.Write(L"agreement.rtf", std::string(size, 'x'));
    const ImpatientView view(bytes, error);
    CHECK(velt::StreamRtfFile(view.Window(), folder.File(L"agreement.rtf")));
    CHECK(Complaints(trace) == complaints);
    CHECK(trace.Messages().size() == complaints);
}

TEST_CASE("StreamRtfFile: pieces of any size make up the file, whatever its bytes are", "[ui]")
{
    constexpr unsigned kFiles = 100;
    TraceRecorder trace;
    const TempFolder folder;
    for (unsigned seed = 0; seed < kFiles; ++seed)
    {
        CAPTURE(seed);
        std::mt19937 random(seed);
        std::string bytes(random() % 20'000, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        folder.Write(L"agreement.rtf", bytes);
        const PiecewiseView view(seed);
        REQUIRE(velt::StreamRtfFile(view.Window(), folder.File(L"agreement.rtf")));
        REQUIRE((view.Text() == bytes)); // which no message shows
    }
    CHECK(trace.Messages().empty());
}

TEST_CASE("StreamRtfFile: nothing is traced of a file that was read to its end", "[ui]")
{
    // More than a control asks for at once, in short lines, which it lays out quickly.
    const int lines = GENERATE(0, 1, 300);
    std::string rtf = "{\\rtf1 ";
    for (int i = 0; i < lines; ++i)
    {
        rtf += std::string(40, 'x') + "\\par\n";
    }
    TraceRecorder trace;
    const TempFolder folder;
    const View view;
    folder.Write(L"agreement.rtf", rtf + "last}\r\n");
    CHECK(velt::StreamRtfFile(view.Window(), folder.File(L"agreement.rtf")));
    CHECK(view.Text().find("last") != std::string::npos);
    CHECK(trace.Messages().empty());
}
