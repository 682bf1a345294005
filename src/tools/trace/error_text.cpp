#include "tools/trace/error_text.h"

#include "foundation/velt_exception.h"
#include "foundation/wide_text.h"

#include <new>

namespace velt
{
std::wstring CurrentErrorText() noexcept
{
    try
    {
        throw;
    }
    catch (const VeltException& e)
    {
        try
        {
            return WideFromUtf8(e.GetMessage());
        }
        catch (const std::bad_alloc&)
        {
            return {};
        }
    }
    catch (const std::bad_alloc&)
    {
        return L"no memory"; // short enough to need none
    }
    catch (...)
    {
        return L"failed";
    }
}
} // namespace velt
