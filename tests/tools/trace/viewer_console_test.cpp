#include "foundation/trace_record.h"
#include "foundation/wide_text.h"
#include "tests/support/child_process.h"
#include "tests/support/component_library.h"
#include "tests/support/temp_folder.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"
#include "tools/common/output_file.h"

#include <windows.h>

#include <psapi.h>

#include <catch.hpp>

#include <algorithm>
#include <string>

using namespace velt::test;

namespace
{
/// Starts it, and waits for its end; what it says on standard error.
std::string Fails(const std::wstring& arguments, DWORD code)
{
    ViewerProcess viewer(arguments);
    CHECK(viewer.AwaitExit() == code);
    CHECK(viewer.Output().empty());
    return viewer.Errors();
}
} // namespace

TEST_CASE("velt-trace: --help prints how it is used", "[tools]")
{
    ViewerProcess viewer(L"--help");
    CHECK(viewer.AwaitExit() == 0);
    CHECK_THAT(viewer.Output(), Catch::Contains("usage: velt-trace"));
    CHECK(viewer.Errors().empty());
}

TEST_CASE("velt-trace: a command line that cannot be followed is wrong usage", "[tools]")
{
    CHECK(Fails(L"--nothing", 2) == "velt-trace: unknown argument: --nothing\r\n"
                                    "velt-trace --help tells how it is used\r\n");
    CHECK_THAT(Fails(L"--save", 2), Catch::Contains("--save needs a value"));
    CHECK_THAT(Fails(L"--console --level x", 2), Catch::Contains("--level needs a number"));
}

TEST_CASE("velt-trace: --console prints what the component traces", "[tools]")
{
    ViewerProcess viewer(L"--console");
    viewer.AwaitReceiver();
    const std::string process =
        "  4  tools_trace_viewer_test.exe (" + std::to_string(::GetCurrentProcessId()) + ")  ";
    const std::string exit = process + "DllCanUnloadNow - return = 0\r\n";
    int records = 0;
    {
        // Output does not wait long for who has the library: the first lines may have no name.
        const ComponentLibrary library;
        REQUIRE(Eventually([&] {
            library.CanUnloadNow();
            records += 2;
            const auto printed = [&] { return std::ranges::count(viewer.OutputWaiting(), '\n'); };
            return Eventually([&] { return printed() == records; }) &&
                   viewer.OutputWaiting().ends_with(exit);
        }));
    }
    SendBytes(viewer.Receiver(), "junk");
    CHECK(viewer.Close() == 0);
    const std::string output = viewer.Output();
    CHECK_THAT(output, Catch::Contains(process + "DllCanUnloadNow - enter\r\n"));
    CHECK_THAT(output, Catch::Contains(exit));
    CHECK_THAT(output, Catch::Contains("  !  "));
    CHECK_THAT(output, Catch::EndsWith("malformed record (too short), 4 bytes: 6A 75 6E 6B\r\n"));
    CHECK(viewer.Errors() ==
          "velt-trace: " + std::to_string(records + 1) + " records, 1 malformed, 0 lost\r\n");
}

TEST_CASE("velt-trace: who starts it from the desktop reads in a box what it has to say", "[tools]")
{
    const auto [file, said] = GENERATE(table<std::wstring, std::wstring>({
        {L"", L"A trace viewer is running already."},
        {L" C:\\nowhere\\missing.csv", L"C:\\nowhere\\missing.csv"},
    }));
    ViewerProcess first(L"--console");
    first.AwaitReceiver();
    STARTUPINFOW startup{};
    startup.dwFlags = STARTF_USESTDHANDLES; // none
    DWORD flags = DETACHED_PROCESS;
    velt::UniqueKernelObject nowhere;
    if (GENERATE(false, true))
    {
        SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
        nowhere.Reset(::CreateFileW(L"NUL", GENERIC_WRITE, 0, &inherit, OPEN_EXISTING, 0, nullptr));
        startup.hStdError = nowhere.Get();
        flags = CREATE_NEW_CONSOLE;
    }
    CAPTURE(file, flags);
    const ChildProcess second =
        StartProcess(L"\"" + ShippedFile(L"velt-trace.exe") + L"\"" + file, flags, startup);
    HWND box = nullptr;
    std::wstring text;
    CHECK(Eventually([&] { return (box = BoxOf(second.id, text)) != nullptr; }));
    CHECK(text.find(said) != text.npos);
    ::PostMessageW(box, WM_COMMAND, IDOK, 0);
    CHECK(::WaitForSingleObject(second.process.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    ::TerminateProcess(second.process.Get(), 97);
}

TEST_CASE("velt-trace: without a record the answer is nothing", "[tools]")
{
    ViewerProcess viewer(L"--console --filter wanted");
    viewer.AwaitReceiver();
    SendRecord(viewer.Receiver(), "other");
    CHECK(viewer.Close() == 1);
    CHECK(viewer.Output().empty());
    CHECK(viewer.Errors() == "velt-trace: 0 records, 0 malformed, 0 lost\r\n");
}

TEST_CASE("velt-trace: --save records to a file without a window", "[tools]")
{
    const TempFolder folder(L"recorded");
    folder.Write(L"trace.csv", "what was there before, and is longer than what comes now.........");
    ViewerProcess viewer(L"--level 3 --save \"" + folder.File(L"trace.csv") + L"\"");
    viewer.AwaitReceiver();
    SendRecord(viewer.Receiver(), "a \"detail\"", 3);
    SendRecord(viewer.Receiver(), "a call", 4);
    // Records are in the file while the recording goes on.
    CHECK(Eventually(
        [&] { return folder.Read(L"trace.csv").ends_with(",?,3,,\"a \"\"detail\"\"\"\r\n"); }));
    CHECK(::FindWindowW(L"VeltTraceViewer", nullptr) == nullptr);
    CHECK(viewer.Close() == 0);
    CHECK(viewer.Output().empty());
    CHECK_THAT(folder.Read(L"trace.csv"),
               Catch::StartsWith("\xEF\xBB\xBFtime,process,level,source,text\r\n"));
}

TEST_CASE("velt-trace: a recording with a limit goes on in numbered files", "[tools]")
{
    const TempFolder folder(L"recorded");
    const auto has = [&](const wchar_t* name) {
        return ::GetFileAttributesW(folder.File(name).c_str()) != INVALID_FILE_ATTRIBUTES;
    };
    constexpr std::size_t kLimit = std::size_t{1} << 20;
    ViewerProcess viewer(L"--save \"" + folder.File(L"trace.csv") +
                         L"\" --save-size 1 --save-files 2");
    viewer.AwaitReceiver();
    const std::string filling(1000, 'x');
    int sent = 0;
    for (; sent < 2500; ++sent) // some 2.6 MB
    {
        SendRecord(viewer.Receiver(), std::to_string(sent) + filling);
    }
    CHECK(viewer.Close() == 0);
    CHECK_THAT(viewer.Errors(), Catch::Contains("2,500 records"));
    CHECK_FALSE(has(L"trace.csv"));
    CHECK_FALSE(has(L"trace.4.csv"));
    const std::string second = folder.Read(L"trace.2.csv");
    const std::string third = folder.Read(L"trace.3.csv");
    CHECK(second.size() <= kLimit);
    CHECK(second.size() > kLimit - 2000);
    CHECK_THAT(second.substr(0, 50), Catch::StartsWith("\xEF\xBB\xBFtime,process,"));
    CHECK_THAT(third.substr(0, 50), Catch::StartsWith("\xEF\xBB\xBFtime,process,"));
    CHECK(third.ends_with(",2499" + filling + "\r\n"));
    // Nothing is missing between them.
    const std::size_t last = second.rfind(",,") + 2;
    const int lastNumber = std::stoi(second.substr(last));
    CHECK(third.find(",," + std::to_string(lastNumber + 1) + "x") != std::string::npos);
}

TEST_CASE("velt-trace: a file that cannot be made is a failure that says why", "[tools]")
{
    const TempFolder folder(L"recorded");
    const std::string missing = Fails(L"--save \"" + folder.File(L"missing\\trace.txt") + L"\"", 3);
    CHECK_THAT(missing, Catch::Contains("0x00000003")); // ERROR_PATH_NOT_FOUND
    CHECK_THAT(missing,
               Catch::StartsWith(
                   "velt-trace: " + velt::Utf8FromWide(folder.File(L"missing\\trace.txt")) + ": "));
    // A folder cannot be written as a file.
    CHECK_THAT(Fails(L"--save \"" + folder.Path() + L"\"", 3), Catch::Contains("0x00000005"));
    folder.Write(L"taken.txt", "what was there");
    const velt::UniqueFile open(::CreateFileW(folder.File(L"taken.txt").c_str(), GENERIC_READ, 0,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
    REQUIRE(open);
    CHECK_THAT(Fails(L"--save \"" + folder.File(L"taken.txt") + L"\"", 3),
               Catch::Contains("0x00000020"));
}

TEST_CASE("velt-trace: a disk that is full ends the recording", "[tools]")
{
    // A device of the host's that takes nothing stands for the disk.
    ViewerProcess viewer(L"--save Z:\\dev\\full");
    viewer.AwaitReceiver();
    SendRecord(viewer.Receiver(), "text");
    CHECK(viewer.AwaitExit() == 3);
    CHECK_THAT(viewer.Errors(), Catch::Contains("0x00000070")); // ERROR_DISK_FULL
}

TEST_CASE("OutputFile: until it is committed the former file stays", "[tools]")
{
    const TempFolder folder(L"output");
    folder.Write(L"file.txt", "former");
    {
        velt::OutputFile file(folder.File(L"file.txt"));
        file.Write("half");
        CHECK(folder.Read(L"file.txt") == "former");
    }
    CHECK(folder.Read(L"file.txt") == "former");
    velt::OutputFile file(folder.File(L"file.txt"));
    file.Write("");
    file.Write("new");
    file.Commit();
    CHECK(folder.Read(L"file.txt") == "new");
    CHECK(::DeleteFileW(folder.File(L"file.txt").c_str()) != 0); // nobody has it open
}

TEST_CASE("OutputFile: on its way it has a name of its own, which nobody else has", "[tools]")
{
    const TempFolder folder(L"output");
    const std::wstring begin = L"velt-" + std::to_wstring(::GetCurrentProcessId()) + L"-";
    const auto exists = [&](const std::wstring& name) {
        return ::GetFileAttributesW(folder.File(name).c_str()) != INVALID_FILE_ATTRIBUTES;
    };
    folder.Write(begin + L"1.part", "somebody's");
    {
        velt::OutputFile first(folder.File(L"first.txt"));
        velt::OutputFile second(folder.File(L"second.txt"));
        CHECK(exists(begin + L"2.part"));
        CHECK(exists(begin + L"3.part"));
        first.Write("first");
        second.Write("second");
        first.Commit();
        CHECK_FALSE(exists(begin + L"2.part"));
    }
    CHECK_FALSE(exists(begin + L"3.part"));
    CHECK_FALSE(exists(L"second.txt"));
    CHECK(folder.Read(L"first.txt") == "first");
    CHECK(folder.Read(begin + L"1.part") == "somebody's");
}

TEST_CASE("OutputFile: a device is written and never replaced", "[tools]")
{
    velt::OutputFile file(L"Z:\\dev\\full");
    CHECK_THROWS(file.Write("text"));
    CHECK_NOTHROW(file.Commit());
    velt::OutputFile again(L"Z:\\dev\\full"); // still the device
    CHECK_THROWS(again.Write("text"));
}

TEST_CASE("Viewer: it takes records as fast as one program sends them, and loses none", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    constexpr int kRecords = 10'000;
    for (int i = 0; i < kRecords; ++i)
    {
        SendRecord(viewer.Receiver(),
                   "    CEnumVariantCol::get_Item - return = " + std::to_string(i));
    }
    REQUIRE(viewer.AwaitRows(kRecords));
    CHECK(viewer.AwaitStatus(0, L"10,000 records"));
    CHECK(viewer.AwaitStatus(2, L"none dropped"));
    CHECK(viewer.Cell(kRecords - 1, 4) == L"    CEnumVariantCol::get_Item - return = 9999");
    CHECK(viewer.Cell(0, 4) == L"    CEnumVariantCol::get_Item - return = 0");

    viewer.Type(ViewerProcess::kFilter, L"return = 999");
    CHECK(viewer.AwaitRows(11));
    PROCESS_MEMORY_COUNTERS counters{};
    ::GetProcessMemoryInfo(viewer.Process(), &counters, sizeof(counters));
    CHECK(counters.PeakPagefileUsage < 64u * 1024 * 1024);
    CHECK(viewer.Close() == 0);
}
