#pragma once

#include "foundation/tls_data.h"
#include "foundation/trace_record.h"
#include "foundation/velt_critical_section.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>

namespace UTrace
{
/// Asked about each message, without its indentation and time; false keeps it from the viewer.
using FilterHook = bool (*)(std::int32_t level, const char* source, const char* message);

/// Bits of the flags.
inline constexpr std::uint32_t kFlagDebugger = 1;  // write to the debugger output
inline constexpr std::uint32_t kFlagAllLevels = 2; // emit level messages whatever the threshold
inline constexpr std::uint32_t kFlagTime = 4;      // prefix each line with a time stamp
inline constexpr std::uint32_t kFlagNoViewer = 8;  // send nothing to a viewer

/// Answers of the search for a viewer.
inline constexpr std::int32_t kViewerNotLookedUp = -1;
inline constexpr std::int32_t kViewerNone = 0;
inline constexpr std::int32_t kViewerFound = 1;

/// What tracing keeps for a thread.
struct ThreadTrace
{
    std::uint32_t depth = 0;  // live scopes
    std::int32_t failure = 0; // HRESULT traced last since the innermost scope began, else 0
};

/// Everything that tracing keeps for the process. One lives from load to unload; without one,
/// scopes and messages do nothing. The settings are plain words that any thread sets and reads
/// without the lock.
class State
{
public:
    /// Throws SystemException::Win32 when the system has no thread-local index left.
    State() : m_threads(1, {})
    {
        s_current = this;
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    ~State()
    {
        s_current = nullptr;
    }

    /// Null when none lives.
    static State* Current() noexcept
    {
        return s_current;
    }

    /// Whether anybody would see a line; if not, there is no need to make one.
    static bool IsAnybodyListening() noexcept
    {
        return s_current && s_current->initialised &&
               ((s_current->flags & kFlagDebugger) != 0 || s_current->filter != nullptr ||
                (s_current->viewerState != kViewerNone && (s_current->flags & kFlagNoViewer) == 0));
    }

    /// Serialises entry lines, exit lines and level messages.
    VeltCriticalSection& Lock() noexcept
    {
        return m_lock;
    }

    /// The calling thread's nesting depth; throws what tls_data throws.
    std::uint32_t& Depth()
    {
        return OfThread().depth;
    }

    /// What is the calling thread's; throws what tls_data throws.
    ThreadTrace& OfThread()
    {
        return m_threads.Slots()[0];
    }

    /// When the calling thread ends: what is its own is the next one's.
    void EndThread() noexcept
    {
        m_threads.LetGo();
    }

    /// A word without ordering: loads and stores are plain moves.
    template <class Type>
    class Word
    {
    public:
        constexpr explicit Word(Type value) noexcept : m_value(value) {}

        operator Type() const noexcept
        {
            return m_value.load(std::memory_order_relaxed);
        }

        Word& operator=(Type value) noexcept
        {
            m_value.store(value, std::memory_order_relaxed);
            return *this;
        }

    private:
        std::atomic<Type> m_value;
    };

    Word<bool> initialised{false};
    std::array<char, velt::kTraceSourceMax + 1> source{}; // of the emitting module; stays empty
    Word<std::int32_t> threshold{0};                      // highest level that is emitted
    Word<std::uint32_t> flags{kFlagDebugger | kFlagAllLevels};
    Word<FilterHook> filter{nullptr};
    Word<std::int32_t> viewerState{kViewerNotLookedUp};
    Word<HWND> viewer{nullptr};
    Word<DWORD> lastLookUpMs{0};
    std::uint32_t category = 0; // carried in every record

private:
    inline static constinit State* s_current = nullptr;

    VeltCriticalSection m_lock;
    tls_data<ThreadTrace> m_threads;
};
} // namespace UTrace
