#include "ui/activex_children.h"

#include "foundation/find_function.h"
#include "foundation/library_utils.h"
#include "foundation/utrace.h"

#include <string>

namespace velt
{
namespace
{
constexpr wchar_t kHostLibrary[] = L"ATL.DLL";
constexpr wchar_t kHostClass[] = L"AtlAxWin";

void CreateChild(HWND dialog, HINSTANCE module, const ActiveXItem& item)
{
    const Area& place = item.place;
    RECT area{place.x, place.y, place.x + place.width, place.y + place.height};
    ::MapDialogRect(dialog, &area);
    const std::wstring classId(item.classId.begin(), item.classId.end());
    const HWND child = ::CreateWindowExW(
        item.exStyle, kHostClass, classId.c_str(), item.style | WS_CHILD, area.left, area.top,
        area.right - area.left, area.bottom - area.top, dialog,
        reinterpret_cast<HMENU>(static_cast<UINT_PTR>(item.id)), module, nullptr);
    if (!child)
    {
        UTrace::TraceLevel1("ActiveX child %u: error %lu", item.id, ::GetLastError());
        return;
    }
    // The tab order is that of the template.
    const HWND before = ::GetDlgItem(dialog, static_cast<int>(item.idBefore));
    ::SetWindowPos(child, before ? before : HWND_TOP, 0, 0, 0, 0,
                   SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
}
} // namespace

bool InitActiveXHosts() noexcept
{
    const CLibraryUtils::CLibraryUtilsImpl library(LoadSystemLibrary(kHostLibrary));
    const auto init = FindFunction<BOOL(WINAPI*)()>(library.GetModule(), "AtlAxWinInit");
    if (!init || !init())
    {
        return false;
    }
    // It stays for as long as the process: the window class points into it.
    HMODULE pinned = nullptr;
    return ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, kHostLibrary, &pinned) != FALSE;
}

void CreateActiveXChildren(HWND dialog, HINSTANCE module, const std::vector<ActiveXItem>& items)
{
    for (const ActiveXItem& item : items)
    {
        CreateChild(dialog, module, item);
    }
}
} // namespace velt
