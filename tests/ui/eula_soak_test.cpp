#include "foundation/bstr.h"
#include "tests/support/child_process.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/gui_usage.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_folder.h"
#include "tests/ui/bare_view.h"
#include "tests/ui/eula_files.h"
#include "ui/resources/resource_ids.h"

#include <provider_lib.h>

#include <windows.h>

#include <richedit.h>

#include <catch.hpp>

#include <random>
#include <string>
#include <string_view>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
constexpr int kDialogs = 1000;

/// What may come and go between two measurements without a leak.
constexpr std::size_t kSlackBytes = 512 * 1024;

/// Presses OK in every dialog of the thread that waits for its user, until the end of the scope.
class AnsweringTimer
{
public:
    AnsweringTimer() : m_timer(::SetTimer(nullptr, 0, USER_TIMER_MINIMUM, &AnsweringTimer::Answer))
    {
    }

    AnsweringTimer(const AnsweringTimer&) = delete;
    AnsweringTimer& operator=(const AnsweringTimer&) = delete;

    ~AnsweringTimer()
    {
        ::KillTimer(nullptr, m_timer);
    }

private:
    static void CALLBACK Answer(HWND, UINT, UINT_PTR, DWORD)
    {
        const HWND focus = ::GetFocus();
        const HWND dialog = focus ? ::GetParent(focus) : nullptr;
        if (dialog && ::GetDlgItem(dialog, VELT_EULA_VIEW))
        {
            ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
        }
    }

    UINT_PTR m_timer;
};

void Show(const ComponentLibrary& library, const std::wstring& agreement, const std::wstring& texts,
          int times)
{
    const BSTR agreementText = ::SysAllocString(agreement.c_str());
    const BSTR textsText = ::SysAllocString(texts.c_str());
    for (int i = 0; i < times; ++i)
    {
        const auto dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
        VARIANT_BOOL accepted = 0x5A5A;
        if (dialog->LaunchEula(agreementText, textsText, &accepted) != S_OK ||
            accepted != VARIANT_FALSE)
        {
            FAIL("a dialog failed");
        }
    }
    ::SysFreeString(agreementText);
    ::SysFreeString(textsText);
}

std::string RandomBytes(std::size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (char& byte : bytes)
    {
        byte = static_cast<char>(random() & 0xFF);
    }
    return bytes;
}

/// What the system's own control keeps for each document that it has read, when its library is
/// loaded for each as the dialog loads it: 0 on Windows.
std::size_t BytesKeptByBareView()
{
    constexpr int kViews = 400;
    const auto read = [](int times) {
        for (int i = 0; i < times; ++i)
        {
            velt::test::ReadWithBareView();
        }
    };
    read(5);
    const std::size_t before = CurrentUsage().heapBytes;
    read(kViews);
    const std::size_t after = CurrentUsage().heapBytes;
    return after > before ? (after - before) / kViews : 0;
}

void ShowContent(const std::string& content)
{
    const ComApartment com;
    const TempFolder folder;
    folder.Write(L"agreement.rtf", content);
    const ComponentLibrary library;
    const AnsweringTimer answering;
    Show(library, folder.File(L"agreement.rtf"), {}, 1);
}
} // namespace

TEST_CASE("child: many dialogs", "[.child]")
{
    const ComApartment com;
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    folder.Write(L"texts.xml", "<T><RECORD><K>i_accept</K><V>Ja</V></RECORD></T>");
    const ComponentLibrary library;
    const AnsweringTimer answering;
    const auto show = [&](int times) {
        Show(library, folder.File(L"agreement.rtf"), folder.File(L"texts.xml"), times);
    };
    const std::size_t keptBytes = kDialogs * BytesKeptByBareView();
    const std::size_t keptGdiObjects = kDialogs * GdiObjectsKeptOfShapedWindow();
    show(100); // what is made once is there now
    const ProcessUsage before = CurrentUsage();
    const GuiUsage guiBefore = CurrentGuiUsage();
    show(kDialogs);
    const ProcessUsage after = CurrentUsage();
    const GuiUsage guiAfter = CurrentGuiUsage();
    CHECK(after.handles <= before.handles);
    // Blocks of several sizes, each with a group of its own where blocks are grouped.
    const std::size_t uncertainBytes = 4 * UncertainHeapBytes();
    CHECK(after.heapBytes <= before.heapBytes + keptBytes + 64 * 1024 + uncertainBytes);
    CHECK(after.privateBytes <= before.privateBytes + keptBytes + kSlackBytes);
    CHECK(guiAfter.gdiObjects <= guiBefore.gdiObjects + keptGdiObjects);
    CHECK(guiAfter.windows <= guiBefore.windows);
    CHECK(guiBefore.gdiObjects > 0);
}

TEST_CASE("CEulaDialog: 1,000 dialogs leave no handles, drawing objects, windows or memory behind",
          "[ui]")
{
    const EnvironmentVariable trace("VELT_TRACE", "0");
    CHECK(RunInChild("child: many dialogs") == 0);
}

TEST_CASE("child: libraries planted beside the host", "[.child]")
{
    // This copy of the program stands in a folder where somebody has put libraries.
    const ComApartment com;
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    const ComponentLibrary library;
    const AnsweringTimer answering;
    Show(library, folder.File(L"agreement.rtf"), {}, 1); // fails without the view's class
    const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    const auto nowhere = velt::MakeBstr(L"nowhere");
    CHECK(service->WriteData(nowhere.Get(), nowhere.Get(), nowhere.Get()) == S_OK);
    // The first is the dialog's, the second the cookies'; nothing else here wants them.
    CHECK(::GetModuleHandleW(L"comctl32.dll") != nullptr);
    CHECK(::GetModuleHandleW(L"wininet.dll") != nullptr);
}

TEST_CASE("The library: what it loads late is not taken from beside the host", "[ui]")
{
    const TempFolder folder;
    wchar_t program[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::wstring copy = folder.File(L"host.exe");
    REQUIRE(::CopyFileW(program, copy.c_str(), TRUE));
    // No libraries at all: whoever tried to load one of them would be left without.
    folder.Write(L"riched32.dll", "planted");
    folder.Write(L"riched20.dll", "planted");
    folder.Write(L"comctl32.dll", "planted");
    folder.Write(L"wininet.dll", "planted");
    REQUIRE(::SetCurrentDirectoryW(folder.Path().c_str()));
    const DWORD exitCode =
        RunProcess(L"\"" + copy + L"\" \"child: libraries planted beside the host\"");
    wchar_t system[MAX_PATH] = {};
    ::GetSystemDirectoryW(system, MAX_PATH);
    ::SetCurrentDirectoryW(system);
    CHECK(exitCode == 0);
}

TEST_CASE("child: random bytes", "[.child]")
{
    for (unsigned seed = 1; seed <= 5; ++seed)
    {
        ShowContent(RandomBytes(20'000, seed));
        ShowContent("{\\rtf1\\ansi " + RandomBytes(20'000, seed) + "}");
    }
}

TEST_CASE("CEulaDialog: agreements of random bytes are shown as far as the view can", "[ui]")
{
    CHECK(RunInChild("child: random bytes") == 0);
}

TEST_CASE("child: 20 MB", "[.child]")
{
    std::string rtf = "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 ";
    const std::string line = std::string(500, 'x') + "\\par\n";
    while (rtf.size() < 1u << 20)
    {
        rtf += line;
    }
    // What makes agreements large: data that a control may pass over, as pictures are.
    rtf += "{\\*\\veltdata ";
    while (rtf.size() < 20u << 20)
    {
        rtf += "00112233445566778899aabbccddeeff\n";
    }
    ShowContent(rtf + "}\\par the end}");
}

TEST_CASE("CEulaDialog: an agreement of 20 MB is shown", "[ui]")
{
    CHECK(RunInChild("child: 20 MB") == 0);
}
