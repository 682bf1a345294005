#include "tools/common/write_all.h"

#include "foundation/system_exception.h"

#include <algorithm>
#include <cstddef>

namespace velt
{
void WriteAll(HANDLE file, std::string_view bytes)
{
    constexpr std::size_t kMost = std::size_t{1} << 20; // of one call
    while (!bytes.empty())
    {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(bytes.size(), kMost));
        if (!::WriteFile(file, bytes.data(), size, &written, nullptr))
        {
            ThrowLastError();
        }
        if (written == 0)
        {
            throw SystemException::Win32(ERROR_WRITE_FAULT);
        }
        bytes.remove_prefix(written);
    }
}
} // namespace velt
