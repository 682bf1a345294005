// A compiled host that shows the trace viewer at work: it starts velt-trace.exe, then loads the
// library, makes it trace, and saves a picture of the viewer's window. The viewer may be of the
// other edition, and so may a program that runs beside this one, whose trace it shows as well.
//
// Build it in the folder of the developer package, where include, x86 and x64 lie;
// for the 64-bit edition with x86_64-w64-mingw32-g++ and x64 in the place of x86:
//   i686-w64-mingw32-g++ -std=c++20 -municode -static -Iinclude samples/viewer_host.cpp
//       include/provider_lib_i.c -o x86/viewer_host.exe -lole32 -loleaut32 -luuid -lgdi32 -lgdiplus
// Run it as: x86\viewer_host.exe x86\VeltHTTPClient12OEM.dll x86\velt-trace.exe velt-trace.png
//            and, to run another one beside it, with a program and its arguments after these
// With Visual C++, at the prompt of its tools for x86; for the 64-bit edition at that for x64:
//   cl /std:c++20 /EHsc /MT /DUNICODE /Iinclude samples\viewer_host.cpp
//       include\provider_lib_i.c /Fe:x86\viewer_host.exe
//       ole32.lib oleaut32.lib uuid.lib user32.lib gdi32.lib gdiplus.lib

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <gdiplus.h>
#include <wrl/client.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;

namespace
{
constexpr wchar_t kViewerWindow[] = L"VeltTraceViewer";
constexpr DWORD kLimitMs = 60'000;
constexpr int kListId = 301; // children of the viewer's window
constexpr int kHighlightId = 304;
constexpr int kDetailsId = 305;

void Require(bool condition, const char* what)
{
    if (!condition)
    {
        throw std::runtime_error(what);
    }
}

/// Asks again and again, up to a limit.
template <class Condition>
void WaitFor(Condition&& condition, const char* what)
{
    const DWORD start = ::GetTickCount();
    while (!condition())
    {
        Require(::GetTickCount() - start < kLimitMs, what);
        ::Sleep(20);
    }
}

/// The viewer's process, from its start to the end of its window.
class Viewer
{
public:
    explicit Viewer(const std::wstring& path)
    {
        std::wstring commandLine = L"\"" + path + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        Require(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                 nullptr, &startup, &m_process),
                "the viewer cannot be started");
        ::CloseHandle(m_process.hThread);
        // Once its window is visible, programs find the viewer too.
        WaitFor(
            [&] {
                m_window = ::FindWindowW(kViewerWindow, nullptr);
                return m_window && ::IsWindowVisible(m_window);
            },
            "the viewer shows no window");
    }

    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    ~Viewer()
    {
        ::PostMessageW(m_window, WM_CLOSE, 0, 0);
        ::WaitForSingleObject(m_process.hProcess, kLimitMs);
        ::CloseHandle(m_process.hProcess);
    }

    HWND Window() const noexcept
    {
        return m_window;
    }

    int Rows() const noexcept
    {
        constexpr UINT kGetItemCount = 0x1004; // LVM_GETITEMCOUNT
        return static_cast<int>(
            ::SendMessageW(::GetDlgItem(m_window, kListId), kGetItemCount, 0, 0));
    }

private:
    PROCESS_INFORMATION m_process{};
    HWND m_window = nullptr;
};

VARIANT Integer(LONG value)
{
    VARIANT variant;
    ::VariantInit(&variant);
    variant.vt = VT_I4;
    variant.lVal = value;
    return variant;
}

/// Calls that succeed and calls that fail.
void UseCollection(const wchar_t* path)
{
    const HMODULE module = ::LoadLibraryW(path);
    Require(module, "the library cannot be loaded");
    const auto getClassObject = reinterpret_cast<HRESULT(WINAPI*)(REFCLSID, REFIID, void**)>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DllGetClassObject")));
    Require(getClassObject, "the library has no DllGetClassObject");
    ComPtr<IClassFactory> factory;
    ComPtr<IEnumVariantCol> collection;
    Require(SUCCEEDED(getClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&factory))) &&
                SUCCEEDED(factory->CreateInstance(nullptr, IID_PPV_ARGS(&collection))),
            "no collection");
    for (LONG i = 1; i <= 3; ++i)
    {
        Require(SUCCEEDED(collection->Add(Integer(i))), "Add");
    }
    VARIANT item = Integer(0);
    Require(SUCCEEDED(collection->get_Item(Integer(2), &item)), "Item");
    VARIANT wrong = Integer(0);
    wrong.vt = 0x7FFF; // no type that exists
    Require(FAILED(collection->Remove(wrong)), "Remove of a wrong type");
    Require(SUCCEEDED(collection->Clear()), "Clear");
}

/// Runs another program to its end; it fails unless that ends with 0.
void RunBeside(const wchar_t* program, const std::vector<std::wstring>& arguments)
{
    std::wstring commandLine = std::wstring(L"\"") + program + L"\"";
    for (const auto& argument : arguments)
    {
        commandLine += L" \"" + argument + L"\""; // neither quotes nor a backslash at the end
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    Require(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                             nullptr, &startup, &process),
            "the other program cannot be started");
    ::CloseHandle(process.hThread);
    const DWORD waited = ::WaitForSingleObject(process.hProcess, kLimitMs);
    DWORD exitCode = 1;
    ::GetExitCodeProcess(process.hProcess, &exitCode);
    ::CloseHandle(process.hProcess);
    Require(waited == WAIT_OBJECT_0 && exitCode == 0, "the other program failed");
}

CLSID PngEncoder()
{
    constexpr CLSID kPng = {
        0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};
    return kPng;
}

/// Copies the window from the screen into a file.
void SavePicture(HWND window, const wchar_t* path)
{
    RECT bounds{};
    Require(::GetWindowRect(window, &bounds), "the window has gone");
    const int width = static_cast<int>(bounds.right - bounds.left);
    const int height = static_cast<int>(bounds.bottom - bounds.top);
    const HDC screen = ::GetDC(nullptr);
    const HDC memory = ::CreateCompatibleDC(screen);
    const HBITMAP picture = ::CreateCompatibleBitmap(screen, width, height);
    const HGDIOBJ former = ::SelectObject(memory, picture);
    ::BitBlt(memory, 0, 0, width, height, screen, static_cast<int>(bounds.left),
             static_cast<int>(bounds.top), SRCCOPY);
    ::SelectObject(memory, former);

    ULONG_PTR token = 0;
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::Status status = Gdiplus::GdiplusStartup(&token, &input, nullptr);
    if (status == Gdiplus::Ok)
    {
        Gdiplus::Bitmap bitmap(picture, nullptr);
        const CLSID encoder = PngEncoder();
        status = bitmap.Save(path, &encoder, nullptr);
    }
    ::DeleteObject(picture);
    ::DeleteDC(memory);
    ::ReleaseDC(nullptr, screen);
    // The bitmap is gone; ending the process ends GDI+ as well.
    Require(status == Gdiplus::Ok, "the picture cannot be saved");
}

void Run(wchar_t** arguments, int count)
{
    const wchar_t* const picture = arguments[2];
    const Viewer viewer(arguments[1]);
    UseCollection(arguments[0]);
    WaitFor([&] { return viewer.Rows() > 0; }, "the viewer shows nothing");
    if (count > 3)
    {
        const int rows = viewer.Rows();
        RunBeside(arguments[3], {arguments + 4, arguments + count});
        WaitFor([&] { return viewer.Rows() > rows; }, "the viewer shows nothing of the other");
    }
    const HWND list = ::GetDlgItem(viewer.Window(), kListId);
    const HWND highlight = ::GetDlgItem(viewer.Window(), kHighlightId);
    const HWND details = ::GetDlgItem(viewer.Window(), kDetailsId);
    ::SendMessageW(highlight, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"Remove"));
    // The first row is selected from the keyboard, and told about below the list.
    ::SetForegroundWindow(viewer.Window());
    ::PostMessageW(list, WM_KEYDOWN, VK_HOME, 0);
    WaitFor([&] { return ::SendMessageW(details, WM_GETTEXTLENGTH, 0, 0) > 0; },
            "the viewer does not tell about the selected record");
    ::UpdateWindow(viewer.Window());
    std::printf("    the viewer shows %d records\n", viewer.Rows());
    SavePicture(viewer.Window(), picture);
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 4)
    {
        std::fprintf(stderr, "usage: viewer_host <VeltHTTPClient12OEM.dll> <velt-trace.exe> "
                             "<picture.png> [<program> <argument>...]\n");
        return 2;
    }
    try
    {
        Run(argv + 1, argc - 1);
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "viewer_host: %s\n", e.what());
        return 1;
    }
}
