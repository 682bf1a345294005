#include "tests/support/gui_usage.h"

#include "tests/support/edition.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace velt::test
{
namespace
{
/// A row of the table of drawing objects, which the process environment block points to.
struct GdiRow
{
    std::uint64_t object;
    std::uint32_t owner;
    std::uint16_t unique;
    std::uint8_t type; // 0 for a free row
    std::uint8_t flags;
    std::uint64_t userData;
};
static_assert(sizeof(GdiRow) == 24);

constexpr std::size_t kRows = 0x4000;
constexpr std::size_t kTableOffset = kIs64Bit ? 0xF8 : 0x94; // in the process environment block

/// Counted in the table where the system does not tell the number, as Wine does not.
std::size_t CountGdiObjects(HANDLE process)
{
    if (const DWORD told = ::GetGuiResources(process, GR_GDIOBJECTS))
    {
        return told;
    }
    PROCESS_BASIC_INFORMATION information{};
    if (::NtQueryInformationProcess(process, ProcessBasicInformation, &information,
                                    sizeof(information), nullptr) < 0)
    {
        throw std::runtime_error("the system does not tell of drawing objects");
    }
    const auto* const block = reinterpret_cast<const char*>(information.PebBaseAddress);
    const void* table = nullptr;
    std::vector<GdiRow> rows(kRows);
    if (!::ReadProcessMemory(process, block + kTableOffset, &table, sizeof(table), nullptr) ||
        !::ReadProcessMemory(process, table, rows.data(), kRows * sizeof(GdiRow), nullptr))
    {
        throw std::runtime_error("there is no table of drawing objects");
    }
    return static_cast<std::size_t>(
        std::count_if(rows.begin(), rows.end(), [](const GdiRow& row) { return row.type != 0; }));
}

/// The windows of a process, as they are counted.
struct Windows
{
    DWORD process;
    std::size_t count;
};

BOOL CALLBACK CountChild(HWND, LPARAM count) noexcept
{
    ++reinterpret_cast<Windows*>(count)->count;
    return TRUE;
}

BOOL CALLBACK CountWindow(HWND window, LPARAM count) noexcept
{
    auto& windows = *reinterpret_cast<Windows*>(count);
    DWORD process = 0;
    ::GetWindowThreadProcessId(window, &process);
    if (process == windows.process)
    {
        ++windows.count;
        ::EnumChildWindows(window, &CountChild, count);
    }
    return TRUE;
}

std::size_t CountWindows(HANDLE process)
{
    Windows windows{::GetProcessId(process), 0};
    const auto count = reinterpret_cast<LPARAM>(&windows);
    ::EnumWindows(&CountWindow, count);
    HWND window = nullptr;
    while ((window = ::FindWindowExW(HWND_MESSAGE, window, nullptr, nullptr)) != nullptr)
    {
        CountWindow(window, count);
    }
    return windows.count;
}
} // namespace

GuiUsage GuiUsageOf(HANDLE process)
{
    return {CountGdiObjects(process), CountWindows(process)};
}

GuiUsage CurrentGuiUsage()
{
    return GuiUsageOf(::GetCurrentProcess());
}

std::size_t GdiObjectsKeptOfShapedWindow()
{
    constexpr int kWindows = 20;
    const auto show = [](int times) {
        for (int i = 0; i < times; ++i)
        {
            const HWND window = ::CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0,
                                                  100, 100, nullptr, nullptr, nullptr, nullptr);
            ::SetWindowRgn(window, ::CreateRectRgn(0, 0, 80, 80), TRUE); // the system owns it
            ::DestroyWindow(window);
        }
    };
    show(2); // what is made once is there now
    const std::size_t before = CountGdiObjects(::GetCurrentProcess());
    show(kWindows);
    const std::size_t after = CountGdiObjects(::GetCurrentProcess());
    return after > before ? (after - before) / kWindows : 0;
}
} // namespace velt::test
