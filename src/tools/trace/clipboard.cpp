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

class OpenedClipboard
{
public:
    explicit OpenedClipboard(HWND owner)
    {
        if (!::OpenClipboard(owner))
        {
            ThrowLastError();
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
