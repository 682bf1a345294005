#include "foundation/failure_trace.h"

#include "foundation/utrace.h"
#include "foundation/wide_text.h"

#include <array>
#include <cstdio>
#include <exception>
#include <string>

namespace velt
{
namespace
{
/// The failure that the calling thread has traced last, or S_OK; null when it cannot trace.
std::int32_t* LastFailure() noexcept
{
    try
    {
        UTrace::State* const state = UTrace::State::Current();
        return state ? &state->OfThread().failure : nullptr;
    }
    catch (const std::exception&)
    {
        return nullptr;
    }
}

/// Whether a late-bound call has failed without a trace.
bool IsUntraced(HRESULT result) noexcept
{
    const std::int32_t* const last = FAILED(result) ? LastFailure() : nullptr;
    return last && *last == S_OK;
}
} // namespace

void TraceFailure(HRESULT failure, const char* what) noexcept
{
    try
    {
        UTrace::TraceLevel1("failed: 0x%08lX%s%s", static_cast<unsigned long>(failure),
                            *what ? " " : "", what);
    }
    catch (const std::exception&)
    {
        // No thread-local storage.
    }
    NoteTracedFailure(failure);
}

void NoteTracedFailure(HRESULT failure) noexcept
{
    if (std::int32_t* const last = LastFailure())
    {
        *last = failure;
    }
}

void TraceReturnedFailure(HRESULT failure) noexcept
{
    const std::int32_t* const last = LastFailure();
    if (last && *last != failure)
    {
        TraceFailure(failure, "");
    }
}

UnscopedCall::UnscopedCall(const char* method) noexcept : m_method(method)
{
    if (std::int32_t* const last = LastFailure())
    {
        *last = S_OK;
    }
}

HRESULT UnscopedCall::Return(HRESULT result) const noexcept
{
    if (IsUntraced(result))
    {
        TraceFailure(result, m_method);
    }
    return result;
}

HRESULT UnscopedCall::Return(HRESULT result, DISPID member) const noexcept
{
    if (IsUntraced(result))
    {
        std::array<char, 16> number{};
        std::snprintf(number.data(), number.size(), "%ld", member);
        Trace(result, number.data());
    }
    return result;
}

HRESULT UnscopedCall::Return(HRESULT result, const wchar_t* name) const noexcept
{
    if (IsUntraced(result))
    {
        try
        {
            Trace(result, Utf8FromWide(name).c_str());
        }
        catch (const std::exception&)
        {
            TraceFailure(result, m_method); // no memory for more
        }
    }
    return result;
}

void UnscopedCall::Trace(HRESULT failure, const char* what) const noexcept
{
    std::array<char, 256> text{}; // a name may be cut
    std::snprintf(text.data(), text.size(), "%s of %s", m_method, what);
    TraceFailure(failure, text.data());
}
} // namespace velt
