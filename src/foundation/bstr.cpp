#include "foundation/bstr.h"

#include "foundation/system_exception.h"

#include <limits>

namespace velt
{
UniqueBstr MakeBstr(std::wstring_view text)
{
    constexpr std::size_t kLimit = std::numeric_limits<UINT>::max() / sizeof(wchar_t) - 8;
    UniqueBstr made(text.size() > kLimit
                        ? nullptr
                        : ::SysAllocStringLen(text.data(), static_cast<UINT>(text.size())));
    if (!made)
    {
        throw SystemException::HRESULT(E_OUTOFMEMORY);
    }
    return made;
}
} // namespace velt
