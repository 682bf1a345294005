// The viewer's files: saving from its window, and opening what was saved.

#include "foundation/unique_file.h"
#include "tests/support/temp_folder.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"

#include <windows.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
/// Saves through the system's dialog, replacing what exists; returns the text of the error box that
/// follows, if one does.
std::wstring SaveAs(const ViewerProcess& viewer, const std::wstring& path)
{
    ::PostMessageW(viewer.Window(), WM_COMMAND, ViewerProcess::kSaveCommand, 0);
    if (!NameFile(viewer.Id(), path))
    {
        return L"no dialog";
    }
    for (;;)
    {
        HWND box = nullptr;
        std::wstring text;
        if (!Eventually([&] {
                box = BoxOf(viewer.Id(), text);
                return box || (DialogOf(viewer.Id()) == nullptr &&
                               viewer.Status(4).ends_with(L"records saved"));
            }))
        {
            return L"neither saved nor failed";
        }
        if (!box)
        {
            return {};
        }
        const bool isQuestion = ::GetDlgItem(box, IDYES) != nullptr; // whether to replace it
        ::PostMessageW(box, WM_COMMAND, isQuestion ? IDYES : IDOK, 0);
        if (!Eventually([&] { return !::IsWindow(box); }))
        {
            return L"the box stays";
        }
        if (!isQuestion)
        {
            return text;
        }
    }
}
} // namespace

TEST_CASE("Viewer: it saves what it shows, as text or CSV", "[tools]")
{
    const TempFolder folder(L"viewer");
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "  first, with a comma", 3);
    SendRecord(viewer.Receiver(), "hidden", 1);
    REQUIRE(viewer.AwaitRows(2));
    viewer.Type(ViewerProcess::kFilter, L"first");
    REQUIRE(viewer.AwaitRows(1));

    CHECK(SaveAs(viewer, folder.File(L"trace.txt")).empty());
    CHECK(viewer.AwaitStatus(4, L"1 records saved"));
    CHECK_THAT(folder.Read(L"trace.txt"), Catch::EndsWith("  3  ?    first, with a comma\r\n"));

    viewer.Type(ViewerProcess::kFilter, L"");
    REQUIRE(viewer.AwaitRows(2));
    CHECK(SaveAs(viewer, folder.File(L"trace.csv")).empty());
    CHECK(viewer.AwaitStatus(4, L"2 records saved"));
    const std::string csv = folder.Read(L"trace.csv");
    CHECK_THAT(csv, Catch::StartsWith("\xEF\xBB\xBFtime,process,level,source,text\r\n"));
    CHECK_THAT(csv, Catch::Contains(",?,3,,\"  first, with a comma\"\r\n"));
    CHECK_THAT(csv, Catch::EndsWith(",?,1,,hidden\r\n"));
}

TEST_CASE("Viewer: a save that fails says why and leaves what was there", "[tools]")
{
    const TempFolder folder(L"viewer");
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));

    folder.Write(L"kept.txt", "what was there");
    {
        // Another program has the file open and shares it with nobody.
        const velt::UniqueFile open(::CreateFileW(folder.File(L"kept.txt").c_str(), GENERIC_READ, 0,
                                                  nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(open);
        CHECK(SaveAs(viewer, folder.File(L"kept.txt")).find(L"0x00000020") !=
              std::wstring::npos); // ERROR_SHARING_VIOLATION
    }
    CHECK(folder.Read(L"kept.txt") == "what was there");
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: a disk that is full is told, and the viewer goes on", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));
    // The host's device that takes nothing; see scripts/in_wine.sh.
    CHECK(SaveAs(viewer, L"C:\\full.txt").find(L"0x00000070") != std::wstring::npos);
    CHECK_FALSE(viewer.Status(4).ends_with(L"saved"));
    SendRecord(viewer.Receiver(), "after");
    CHECK(viewer.AwaitRows(2));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: it opens what it saved, while another one receives", "[tools]")
{
    const TempFolder folder(L"viewer");
    const bool csv = GENERATE(false, true);
    const std::wstring path = folder.File(csv ? L"trace.csv" : L"trace.txt");
    std::vector<std::wstring> cells;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "CName::Add - enter");
    SendRecord(viewer.Receiver(), "  failed: 0x80070057", 1);
    SendRecord(viewer.Receiver(), "a detail, too", 3, "module");
    SendRecord(viewer.Receiver(), "CName::Add - return = 0");
    SendBytes(viewer.Receiver(), "?");
    REQUIRE(viewer.AwaitRows(5));
    const auto cellsOf = [](const ViewerProcess& of) {
        std::vector<std::wstring> all;
        for (int row = 0; row < of.Rows(); ++row)
        {
            for (int column = 0; column < 5; ++column)
            {
                all.push_back(of.Cell(row, column));
            }
        }
        return all;
    };
    CHECK(SaveAs(viewer, path).empty());

    ViewerProcess reader(L"\"" + path + L"\"");
    reader.AwaitFileWindow();
    REQUIRE(reader.AwaitRows(5));
    CHECK(cellsOf(reader) == cellsOf(viewer));
    CHECK(reader.AwaitStatus(3, L"1 malformed"));
    CHECK(reader.AwaitStatus(4, (csv ? L"5 records of trace.csv" : L"5 records of trace.txt")));
    SendRecord(viewer.Receiver(), "after"); // not for the one that reads
    REQUIRE(viewer.AwaitRows(6));
    CHECK(reader.Rows() == 5);

    // Dropped, it comes behind what is there.
    viewer.Drop(path);
    REQUIRE(viewer.AwaitRows(11));
    CHECK(viewer.Cell(6, 4) == L"CName::Add - enter");
    CHECK(reader.Close() == 0);
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: the dialog opens a file, and says what is wrong with another one", "[tools]")
{
    const TempFolder folder(L"viewer");
    folder.Write(L"trace.txt", "2024-02-29 12:34:56.000789  4  ?  first\r\n"
                               "2024-02-29 12:34:56.000790  1  ?  last\r\n");
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "before");
    REQUIRE(viewer.AwaitRows(1));
    Press(viewer.Window(), {VK_CONTROL, 'O'});
    REQUIRE(NameFile(viewer.Id(), folder.File(L"trace.txt")));
    REQUIRE(viewer.AwaitRows(3));
    CHECK(viewer.Texts() == std::vector<std::wstring>{L"before", L"first", L"last"});
    CHECK(viewer.AwaitStatus(4, L"2 records of trace.txt"));

    // One that another program has and shares with nobody.
    {
        const velt::UniqueFile open(::CreateFileW(folder.File(L"trace.txt").c_str(), GENERIC_READ,
                                                  0, nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(open);
        ::PostMessageW(viewer.Window(), WM_COMMAND, ViewerProcess::kOpenCommand, 0);
        REQUIRE(NameFile(viewer.Id(), folder.File(L"trace.txt")));
        HWND box = nullptr;
        std::wstring text;
        REQUIRE(Eventually([&] { return (box = BoxOf(viewer.Id(), text)) != nullptr; }));
        CHECK(text.find(L"trace.txt") != std::wstring::npos);
        if (text.find(L"0x00000020") == std::wstring::npos) // ERROR_SHARING_VIOLATION
        {
            WARN("the system's dialog says itself that the file is in use");
        }
        ::PostMessageW(box, WM_COMMAND, IDOK, 0);
        REQUIRE(Eventually([&] { return !::IsWindow(box); }));
        if (const HWND dialog = DialogOf(viewer.Id()))
        {
            ::PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
            REQUIRE(Eventually([&] { return !::IsWindow(dialog); }));
        }
    }
    // One that is no trace at all.
    folder.Write(L"picture.txt", std::string("\x89PNG\r\n\x1A\n\0\0", 10));
    ::PostMessageW(viewer.Window(), WM_COMMAND, ViewerProcess::kOpenCommand, 0);
    REQUIRE(NameFile(viewer.Id(), folder.File(L"picture.txt")));
    REQUIRE(viewer.AwaitRows(4));
    CHECK(viewer.Cell(3, 4).find(L"of picture.txt could not be read") != std::wstring::npos);
    SendRecord(viewer.Receiver(), "after");
    CHECK(viewer.AwaitRows(5));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: it opens a file that somebody goes on writing", "[tools]")
{
    const TempFolder folder(L"viewer");
    const std::wstring path = folder.File(L"trace.txt");
    folder.Write(L"trace.txt", "2024-02-29 12:34:56.000789  4  ?  first\r\n");
    const velt::UniqueFile writing(
        ::CreateFileW(path.c_str(), GENERIC_WRITE | DELETE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, 0, nullptr));
    REQUIRE(writing);
    ViewerProcess reader(L"\"" + path + L"\"");
    reader.AwaitFileWindow();
    CHECK(reader.AwaitRows(1));
    CHECK(reader.Close() == 0);
}

TEST_CASE("Viewer: what it cannot read of a file is told at the end", "[tools]")
{
    const TempFolder folder(L"viewer");
    folder.Write(L"damaged.txt", "2024-02-29 12:34:56.000789  4  ?  first\r\nnot a record\r\n"
                                 "2024-02-29 12:34:56.000790  4  ?  last\r\n");
    ViewerProcess reader(L"\"" + folder.File(L"damaged.txt") + L"\"");
    reader.AwaitFileWindow();
    REQUIRE(reader.AwaitRows(3));
    CHECK(reader.Cell(1, 4) == L"last");
    CHECK(reader.Cell(2, 4) == L"1 line of damaged.txt could not be read: 2");
    CHECK(reader.Cell(2, 3) == L"velt-trace");
    CHECK(reader.AwaitStatus(
        4, L"2 records of damaged.txt; 1 line of damaged.txt could not be read: 2"));
    // Nobody finds it to send to.
    CHECK(::FindWindowW(L"Pembrook Corporation::Trace::1.0", nullptr) == nullptr);
    CHECK(reader.Close() == 0);
}

TEST_CASE("Viewer: a file that cannot be opened is named", "[tools]")
{
    const TempFolder folder(L"viewer");
    ViewerProcess reader(L"\"" + folder.File(L"missing.txt") + L"\"");
    CHECK(reader.AwaitExit() == 3);
    const std::string errors = reader.Errors();
    CHECK_THAT(errors, Catch::Contains("missing.txt: "));
    CHECK_THAT(errors, Catch::Contains("0x00000002")); // ERROR_FILE_NOT_FOUND
}
