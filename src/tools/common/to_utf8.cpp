#include "tools/common/to_utf8.h"

#include "foundation/trace_record.h"
#include "foundation/wide_text.h"

#include <windows.h>

namespace velt
{
namespace
{
bool IsUtf8(std::string_view text) noexcept
{
    return text.empty() || ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                                 static_cast<int>(text.size()), nullptr, 0) > 0;
}
} // namespace

std::string ToUtf8(std::string_view text)
{
    for (std::size_t cut = 0; cut < 4 && cut <= text.size(); ++cut)
    {
        const std::string_view front = text.substr(0, text.size() - cut);
        if (IsUtf8(front))
        {
            return std::string(front);
        }
        if (text.size() < kTraceTextMax)
        {
            break;
        }
    }
    return Utf8FromWide(WideFromNarrow(text, CP_ACP));
}
} // namespace velt
