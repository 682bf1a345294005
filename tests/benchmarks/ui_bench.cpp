// What the skinned dialog's drawing costs, each measure beside the system's own calls in the same
// run.

#include "tests/benchmarks/paired.h"
#include "tests/benchmarks/table.h"
#include "ui/bitmap_region.h"
#include "ui/drawing_scopes.h"
#include "ui/gdi_handles.h"
#include "ui/halden_style_button.h"
#include "ui/pixel_bitmap.h"
#include "ui/resources/resource_ids.h"
#include "ui/skin_composer.h"

#include <windows.h>

#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <vector>

using namespace velt;
using velt::bench::MeasurePaired;
using velt::bench::PairedTimes;

namespace
{
constexpr Size kClient{719, 421}; // the licence dialog's, at large fonts
constexpr CornerSizes kCorners{{109, 63}, {109, 63}, {109, 63}, {109, 63}};
constexpr COLORREF kOutside = RGB(255, 0, 0);

void Check(bool condition, const char* what)
{
    if (!condition)
    {
        throw std::runtime_error(what);
    }
}

UniqueBitmap Load(UINT id)
{
    UniqueBitmap bitmap(::LoadBitmapW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id)));
    Check(static_cast<bool>(bitmap), "no bitmap");
    return bitmap;
}

Size SizeOf(const UniqueBitmap& bitmap)
{
    BITMAP info{};
    ::GetObjectW(bitmap.Get(), sizeof(info), &info);
    return {info.bmWidth, info.bmHeight};
}

/// The data of a region, for ExtCreateRegion.
std::vector<char> DataOf(const UniqueRegion& region)
{
    std::vector<char> data(::GetRegionData(region.Get(), 0, nullptr));
    ::GetRegionData(region.Get(), static_cast<DWORD>(data.size()),
                    reinterpret_cast<RGNDATA*>(data.data()));
    return data;
}

/// `makesBitmap`: the system's calls draw on a new bitmap each time, as ours do, and not on one
/// that is there already. The first touch of its memory is what a new one costs.
PairedTimes BenchCompose(bool makesBitmap)
{
    constexpr int kOperations = 20;
    const WindowDc screen(nullptr);
    const UniqueBitmap skin = Load(VELT_SKIN);
    const Size skinSize = SizeOf(skin);
    const auto compose = [&] {
        const UniqueBitmap composed = ComposeSkin(skin.Get(), kCorners, kClient);
        return RegionFromBitmap(composed.Get(), {0, 0}, kClient, kOutside);
    };
    const std::vector<char> data = DataOf(compose());
    Check(data.size() > sizeof(RGNDATAHEADER), "no region");

    const UniqueMemoryDc from(::CreateCompatibleDC(screen.Get()));
    const UniqueMemoryDc to(::CreateCompatibleDC(screen.Get()));
    const UniqueBitmap kept(::CreateCompatibleBitmap(screen.Get(), kClient.width, kClient.height));
    const auto ours = [&] {
        for (int i = 0; i < kOperations; ++i)
        {
            Check(static_cast<bool>(compose()), "not composed");
        }
    };
    const auto against = [&] {
        const SelectScope selectedFrom(from.Get(), skin.Get());
        const SelectScope selectedTo(to.Get(), kept.Get());
        ::SetStretchBltMode(to.Get(), COLORONCOLOR);
        for (int i = 0; i < kOperations; ++i)
        {
            UniqueBitmap made;
            std::optional<SelectScope> selectedMade;
            if (makesBitmap)
            {
                made = MakePixelBitmap(kClient);
                selectedMade.emplace(to.Get(), made.Get());
            }
            ::StretchBlt(to.Get(), 0, 0, kClient.width, kClient.height, from.Get(), 0, 0,
                         skinSize.width, skinSize.height, SRCCOPY);
            const UniqueRegion region(
                ::ExtCreateRegion(nullptr, static_cast<DWORD>(data.size()),
                                  reinterpret_cast<const RGNDATA*>(data.data())));
            Check(static_cast<bool>(region), "no region");
        }
    };
    return MeasurePaired(31, kOperations, ours, against);
}

/// The parent of both buttons: it draws the stock one with one bitmap, and has a brush for ours.
class Parent
{
public:
    Parent() : m_face(Load(VELT_BUTTON_NORMAL)), m_faceSize(SizeOf(m_face))
    {
        WNDCLASSW type{};
        type.lpfnWndProc = &Parent::Procedure;
        type.hInstance = ::GetModuleHandleW(nullptr);
        type.lpszClassName = L"VeltBenchParent";
        ::RegisterClassW(&type);
        m_window.Reset(::CreateWindowExW(0, type.lpszClassName, L"", WS_POPUP | WS_VISIBLE, 10, 10,
                                         300, 100, nullptr, nullptr, type.hInstance, nullptr));
        Check(static_cast<bool>(m_window), "no window");
        ::SetWindowLongPtrW(m_window.Get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }

    HWND AddButton(int x, DWORD style)
    {
        const HWND button =
            ::CreateWindowExW(0, L"BUTTON", L"OK", WS_CHILD | WS_VISIBLE | style, x, 10, 88, 28,
                              m_window.Get(), nullptr, nullptr, nullptr);
        Check(button != nullptr, "no button");
        return button;
    }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam,
                                      LPARAM lParam) noexcept
    {
        if (message == WM_CTLCOLORSTATIC)
        {
            return reinterpret_cast<LRESULT>(::GetStockObject(LTGRAY_BRUSH));
        }
        if (message == WM_DRAWITEM)
        {
            const auto* const self =
                reinterpret_cast<const Parent*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
            self->DrawItem(*reinterpret_cast<const DRAWITEMSTRUCT*>(lParam));
            return TRUE;
        }
        return ::DefWindowProcW(window, message, wParam, lParam);
    }

    void DrawItem(const DRAWITEMSTRUCT& item) const noexcept
    {
        const UniqueMemoryDc memory(::CreateCompatibleDC(item.hDC));
        const SelectScope selected(memory.Get(), m_face.Get());
        RECT area = item.rcItem;
        ::SetStretchBltMode(item.hDC, COLORONCOLOR);
        ::StretchBlt(item.hDC, 0, 0, area.right, area.bottom, memory.Get(), 0, 0, m_faceSize.width,
                     m_faceSize.height, SRCCOPY);
        ::SetBkMode(item.hDC, TRANSPARENT);
        ::DrawTextW(item.hDC, L"OK", 2, &area, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    }

    UniqueBitmap m_face;
    Size m_faceSize;
    UniqueWindow m_window;
};

PairedTimes BenchButton()
{
    constexpr int kOperations = 100;
    Parent parent;
    const HWND stock = parent.AddButton(10, BS_OWNERDRAW);
    CHaldenStyleButton button(VELT_BUTTON_NORMAL, VELT_BUTTON_HOT, VELT_BUTTON_PRESSED);
    const HWND ours = parent.AddButton(120, BS_PUSHBUTTON);
    Check(button.SubclassWindow(ours), "not subclassed");
    const auto repaint = [](HWND window) {
        for (int i = 0; i < kOperations; ++i)
        {
            ::InvalidateRect(window, nullptr, TRUE);
            ::UpdateWindow(window);
        }
        ::GdiFlush();
    };
    return MeasurePaired(
        51, kOperations, [&] { repaint(ours); }, [&] { repaint(stock); });
}

void Run()
{
    bench::PrintHeading("");
    std::printf("\n");
    bench::PrintRow("compose and region, 719 x 421", "one StretchBlt, one ExtCreateRegion",
                    BenchCompose(false), "<= 2.00");
    bench::PrintRow("compose and region, 719 x 421", "the same on a bitmap of its own",
                    BenchCompose(true), "");
    bench::PrintRow("button repaint", "owner-drawn button with one bitmap", BenchButton(),
                    "<= 2.00");
}
} // namespace

int main()
{
    try
    {
        Run();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
}
