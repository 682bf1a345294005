// What the list does for every event, apart from the rest of it: compiled for speed.

#include "service/sink_list.h"

#include "foundation/bstr.h"
#include "foundation/exception_to_hresult.h"

#include <provider_lib.h>

#include <array>

namespace velt
{
namespace
{
constexpr DISPID kNotify = 1;
} // namespace

void SinkList::NotifySelfUpgrade(std::wstring_view installerGuid) noexcept
{
    try
    {
        const std::shared_ptr<const Sinks> sinks = Snapshot();
        if (!sinks)
        {
            return;
        }
        const UniqueBstr text = MakeBstr(installerGuid);
        std::array<VARIANTARG, 2> arguments{}; // the last one first
        arguments[0].vt = VT_BSTR;
        arguments[0].bstrVal = text.Get();
        arguments[1].vt = VT_I4;
        arguments[1].lVal = self_upgrade;
        const Apartment here = Apartment::Current();
        for (const std::shared_ptr<EventSink>& sink : *sinks)
        {
            sink->Fire(here, kNotify, arguments);
        }
    }
    catch (...)
    {
        TraceCurrentException();
    }
}
} // namespace velt
