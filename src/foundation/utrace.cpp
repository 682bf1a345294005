#include "foundation/utrace.h"

#include "foundation/last_error_scope.h"
#include "foundation/trace_record.h"
#include "foundation/trace_state.h"
#include "foundation/trace_time.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string_view>
#include <system_error>

namespace UTrace
{
namespace
{
constexpr std::int32_t kScopeLevel = 4;
constexpr DWORD kLookUpPeriodMs = 3000;

using MessageBuffer = std::array<char, 1024>;

/// Formats "<function> - <text>", or the text alone without a function, cut to the buffer.
MessageBuffer FormatMessageText(const char* function, const char* format,
                                std::va_list arguments) noexcept
{
    MessageBuffer message{};
    std::size_t used = 0;
    if (function)
    {
        const int length = std::snprintf(message.data(), message.size(), "%s - ", function);
        used = std::clamp<std::size_t>(static_cast<std::size_t>(length), 0, message.size() - 1);
    }
    if (std::vsnprintf(message.data() + used, message.size() - used, format, arguments) < 0)
    {
        message[used] = '\0'; // arguments that the formatter refuses
    }
    return message;
}

/// Microseconds from an arbitrary origin.
std::uint64_t Microseconds() noexcept
{
    constexpr std::uint64_t kPerSecond = 1'000'000;
    LARGE_INTEGER frequency;
    LARGE_INTEGER counter;
    if (!::QueryPerformanceFrequency(&frequency) || !::QueryPerformanceCounter(&counter))
    {
        return static_cast<std::uint64_t>(std::clock()) * kPerSecond / 1000;
    }
    // counter * 1000000 / frequency, without its overflow after some days of uptime.
    const auto perSecond = static_cast<std::uint64_t>(frequency.QuadPart);
    const auto ticks = static_cast<std::uint64_t>(counter.QuadPart);
    return ticks / perSecond * kPerSecond + ticks % perSecond * kPerSecond / perSecond;
}

void WriteToDebugger(const char* source, const char* line)
{
    const std::string prefix = source ? std::string(source) + ": " : std::string();
    ::OutputDebugStringA(prefix.c_str());
    ::OutputDebugStringA(line);
    ::OutputDebugStringA("\r\n");
}

void SendToViewer(const State& state, const char* source, std::int32_t level, std::string_view line)
{
    velt::TraceRecord record =
        velt::EncodeTraceRecord(level, state.category, source ? source : "", line);
    COPYDATASTRUCT data{};
    data.dwData = velt::kTraceMagic;
    data.cbData = static_cast<DWORD>(record.size);
    data.lpData = record.bytes.data();
    ::SendMessageW(state.viewer, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
}

/// Writes one line to the sinks. The caller holds the trace lock.
void TraceEmit(State& state, const char* source, std::int32_t level, std::uint32_t depth,
               const char* function, const char* format, std::va_list arguments) noexcept
{
    if (!state.initialised || format == silent)
    {
        return;
    }
    try
    {
        const MessageBuffer message = FormatMessageText(function, format, arguments);
        std::string line;
        if ((state.flags & kFlagTime) != 0)
        {
            line = velt::FormatTraceTime(Microseconds()).data();
        }
        line.append(std::size_t{2} * depth, ' ').append(message.data());

        if ((state.flags & kFlagDebugger) != 0)
        {
            WriteToDebugger(source, line.c_str());
        }
        const FilterHook filter = state.filter;
        if (filter && !filter(level, source, message.data()))
        {
            return;
        }
        if ((state.flags & kFlagNoViewer) != 0)
        {
            return; // any window of the class would be sent the line, whoever made it
        }
        if (state.viewerState == kViewerNotLookedUp)
        {
            state.viewerState = FindTraceViewer() ? kViewerFound : kViewerNone;
        }
        if (state.viewerState == kViewerFound)
        {
            SendToViewer(state, source, level, line);
        }
    }
    catch (const std::exception&)
    {
        // No memory for the line: it is dropped, because tracing reports no failure.
    }
}

void EmitExitLine(State& state, const char* source, std::uint32_t depth, const char* function,
                  const char* format, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, format);
    TraceEmit(state, source, kScopeLevel, depth, function, format, arguments);
    va_end(arguments);
}

void TraceMessage(std::int32_t level, const char* format, std::va_list arguments)
{
    State* const state = State::Current();
    if (!state || !State::IsAnybodyListening())
    {
        return;
    }
    const velt::LastErrorScope keep;
    const VeltAutoCriticalSection lock(&state->Lock());
    if (state->threshold < level && (state->flags & kFlagAllLevels) == 0)
    {
        return;
    }
    TraceEmit(*state, state->source.data(), level, state->Depth(), nullptr, format, arguments);
}

/// A flags word in the environment replaces the start value.
void ApplyEnvironment() noexcept
{
    std::array<char, 32> text{};
    const DWORD length =
        ::GetEnvironmentVariableA("VELT_TRACE", text.data(), static_cast<DWORD>(text.size()));
    if (length == 0 || length >= text.size())
    {
        return;
    }
    const bool hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + length;
    std::uint32_t flags = 0;
    const auto [end, error] = std::from_chars(first, last, flags, hexadecimal ? 16 : 10);
    if (error == std::errc() && end == last)
    {
        TraceSetFlags(flags);
    }
}
} // namespace

bool TraceInitialise()
{
    State* const state = State::Current();
    if (!state || state->initialised)
    {
        return false;
    }
    state->source.fill('\0');
    state->threshold = 0;
    state->flags = kFlagDebugger | kFlagAllLevels;
    state->filter = nullptr;
    state->Depth() = 0;
    state->viewerState = kViewerNotLookedUp;
    state->viewer = nullptr;
    state->viewerState = FindTraceViewer() ? kViewerFound : kViewerNone;
    state->initialised = true;
    return true;
}

void EndThread() noexcept
{
    if (State* const state = State::Current())
    {
        state->EndThread();
    }
}

void StartUp() noexcept
{
    TraceSetFlags(kFlagDebugger | kFlagAllLevels | kFlagTime);
    try
    {
        TraceInitialise();
        TraceSetThreshold(kScopeLevel);
    }
    catch (...)
    {
        // The library works untraced.
    }
    ApplyEnvironment();
}

void TraceSetThreshold(std::int32_t threshold) noexcept
{
    if (State* const state = State::Current())
    {
        state->threshold = threshold;
    }
}

void TraceSetFlags(std::uint32_t flags) noexcept
{
    if (State* const state = State::Current())
    {
        state->flags = flags;
    }
}

void TraceLevel1(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    TraceMessage(1, format, arguments);
    va_end(arguments);
}

void TraceLevel3(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    TraceMessage(3, format, arguments);
    va_end(arguments);
}

bool FindTraceViewer() noexcept
{
    State* const state = State::Current();
    if (!state)
    {
        return false;
    }
    const DWORD now = ::GetTickCount();
    const bool recent = now - state->lastLookUpMs <= kLookUpPeriodMs;
    if (state->viewerState == kViewerNotLookedUp || !recent)
    {
        state->lastLookUpMs = now;
        state->viewer = ::FindWindowW(velt::kTraceViewerClass, nullptr);
    }
    return state->viewer != nullptr;
}

void ITrace::Enter(const char* format, std::va_list arguments)
{
    if (!m_thread)
    {
        return;
    }
    if (format != silent && State::IsAnybodyListening())
    {
        WriteEntryLine(format ? format : "enter", arguments);
    }
    ++m_thread->depth;
}

void ITrace::WriteEntryLine(const char* format, std::va_list arguments)
{
    State& state = *State::Current();
    const VeltAutoCriticalSection lock(&state.Lock());
    TraceEmit(state, Source(), kScopeLevel, m_thread->depth, m_function, format, arguments);
}

void ITrace::WriteExitLine() noexcept
{
    State& state = *State::Current();
    const velt::LastErrorScope keep;
    const VeltAutoCriticalSection lock(&state.Lock());
    if (m_showValue)
    {
        EmitExitLine(state, Source(), m_savedDepth, m_function, "return = %ld",
                     static_cast<long>(m_returnValue));
    }
    else
    {
        const bool hasText = m_texts && !m_texts->returnText.empty();
        EmitExitLine(state, Source(), m_savedDepth, m_function, "%s",
                     hasText ? m_texts->returnText.c_str() : "return");
    }
}

const char* ITrace::Source() const noexcept
{
    return m_texts ? m_texts->source.c_str() : "";
}

void ITrace::KeepSource(const State& state)
{
    m_texts = std::make_unique<Texts>();
    m_texts->source = state.source.data();
}

std::int32_t ITrace::GetReturn() const noexcept
{
    return m_returnValue;
}

std::int32_t ITrace::Return(std::int32_t value, const char* format, ...)
{
    m_returnValue = value;
    m_quiet = format == silent || m_quiet;
    m_showValue = format == nullptr;
    if (format && format != silent)
    {
        std::va_list arguments;
        va_start(arguments, format);
        if (!m_texts)
        {
            m_texts = std::make_unique<Texts>();
        }
        m_texts->returnText = FormatMessageText(nullptr, format, arguments).data();
        va_end(arguments);
    }
    return value;
}

// Here, with all that it calls, because this file is compiled to be quick: most scopes are made and
// left with nobody listening.
Function::Function(const char* function) : ITrace(function)
{
    Enter();
}

Function::Function(const char* function, const char* format, ...) : ITrace(function)
{
    std::va_list arguments;
    va_start(arguments, format);
    Enter(format, arguments);
    va_end(arguments);
}
} // namespace UTrace
