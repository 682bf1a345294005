#include "ui/activex_children.h"

#include "foundation/find_function.h"
#include "foundation/library_utils.h"
#include "foundation/utrace.h"
#include "ui/own_module.h"

#include <cstddef>
#include <string>

namespace velt
{
namespace
{
constexpr wchar_t kHostLibrary[] = L"ATL.DLL";
constexpr wchar_t kHostClass[] = L"AtlAxWin";

bool IsHostClassKnown() noexcept
{
    WNDCLASSEXW known{};
    known.cbSize = sizeof(known);
    return ::GetClassInfoExW(OwnModule(), kHostClass, &known) != FALSE;
}

/// A control's data as a window gets those of a dialog template with its creation: their size in
/// bytes (16 bits), and then they follow. Nothing for none, and for more than a size can say.
std::vector<std::byte> CreationParameter(const ActiveXItem& item)
{
    const std::size_t size = item.data.size();
    if (size > UINT16_MAX)
    {
        UTrace::TraceLevel1("ActiveX child %u: its data are too long", item.id);
    }
    if (size == 0 || size > UINT16_MAX)
    {
        return {};
    }
    std::vector<std::byte> parameter{static_cast<std::byte>(size & 0xFF),
                                     static_cast<std::byte>(size >> 8)};
    parameter.insert(parameter.end(), item.data.begin(), item.data.end());
    return parameter;
}

/// The host, or null.
HWND CreateHost(HWND dialog, HINSTANCE module, const ActiveXItem& item)
{
    // Each number is turned into pixels for itself, the size too, as the system does it.
    RECT place{item.place.x, item.place.y, item.place.width, item.place.height};
    ::MapDialogRect(dialog, &place);
    const std::wstring classId(item.classId.begin(), item.classId.end());
    std::vector<std::byte> parameter = CreationParameter(item);
    const HWND child = ::CreateWindowExW(
        item.exStyle, kHostClass, classId.c_str(), item.style | WS_CHILD, place.left, place.top,
        place.right, place.bottom, dialog, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(item.id)),
        module, parameter.empty() ? nullptr : parameter.data());
    if (!child)
    {
        UTrace::TraceLevel1("ActiveX child %u: error %lu", item.id, ::GetLastError());
    }
    return child;
}

/// The children that a dialog has, in their order.
std::vector<HWND> ChildrenOf(HWND dialog)
{
    std::vector<HWND> children;
    for (HWND child = ::GetWindow(dialog, GW_CHILD); child; child = ::GetWindow(child, GW_HWNDNEXT))
    {
        children.push_back(child);
    }
    return children;
}
} // namespace

bool InitActiveXHosts() noexcept
{
    const CLibraryUtils::CLibraryUtilsImpl library(LoadSystemLibrary(kHostLibrary));
    const auto init = FindFunction<BOOL(WINAPI*)()>(library.GetModule(), "AtlAxWinInit");
    if (!init || (!init() && !IsHostClassKnown())) // not every system says yes a second time
    {
        return false;
    }
    // It stays for as long as the process: the window class points into it.
    HMODULE pinned = nullptr;
    return ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN |
                                    GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                                reinterpret_cast<const wchar_t*>(init), &pinned) != FALSE;
}

void CreateActiveXChildren(HWND dialog, HINSTANCE module, const std::vector<ActiveXItem>& items)
{
    // The tab order is that of the template; numbers of controls may repeat, so places count.
    const std::vector<HWND> others = ChildrenOf(dialog);
    HWND previous = HWND_TOP;
    std::size_t passed = 0; // of the others
    for (const ActiveXItem& item : items)
    {
        if (item.before > passed && item.before <= others.size())
        {
            passed = item.before;
            previous = others[passed - 1];
        }
        if (const HWND host = CreateHost(dialog, module, item))
        {
            ::SetWindowPos(host, previous, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
            previous = host;
        }
    }
}
} // namespace velt
