#include "tools/trace/error_text.h"

#include "foundation/velt_exception.h"
#include "foundation/wide_text.h"

#include <new>
#include <string>

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
            const std::string subject = e.GetDetail().empty() ? "" : e.GetDetail() + ": ";
            return WideFromUtf8(subject + e.GetMessage());
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
