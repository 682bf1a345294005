#include "tools/trace/clipboard.h"

#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"

#include <algorithm>

namespace velt
{
namespace
{
struct GlobalMemoryTraits
{
    using Type = HGLOBAL;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type memory) noexcept
    {
        ::GlobalFree(memory);
    }
};

/// Programs that watch the clipboard have it open for a moment whenever it changes, and while one
/// has, nobody else can open it.
constexpr DWORD kPatienceMs = 1000;
constexpr DWORD kPauseMs = 10;

class OpenedClipboard
{
public:
    explicit OpenedClipboard(HWND owner)
    {
        const DWORD start = ::GetTickCount();
        while (!::OpenClipboard(owner))
        {
            if (::GetTickCount() - start >= kPatienceMs)
            {
                ThrowLastError();
            }
            ::Sleep(kPauseMs);
        }
    }

    OpenedClipboard(const OpenedClipboard&) = delete;
    OpenedClipboard& operator=(const OpenedClipboard&) = delete;

    ~OpenedClipboard()
    {
        ::CloseClipboard();
    }
};
} // namespace

void CopyToClipboard(HWND owner, std::wstring_view text)
{
    UniqueHandle<GlobalMemoryTraits> memory(
        ::GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t)));
    auto* const characters = memory ? static_cast<wchar_t*>(::GlobalLock(memory.Get())) : nullptr;
    if (!characters)
    {
        ThrowLastError();
    }
    *std::copy(text.begin(), text.end(), characters) = L'\0';
    ::GlobalUnlock(memory.Get());

    const OpenedClipboard clipboard(owner);
    if (!::EmptyClipboard() || !::SetClipboardData(CF_UNICODETEXT, memory.Get()))
    {
        ThrowLastError();
    }
    static_cast<void>(memory.Release()); // the clipboard's now
}
} // namespace velt
