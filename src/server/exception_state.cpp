#include "server/exception_state.h"

#include "server/run_time_symbols.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

// What the library's own unwinder knows about a thread (the exceptions in flight) is a thread-local
// variable, and on this platform the compiler emulates those. Its emulation takes a thread-local
// index at the first exception, ends the process when there is none, and never gives it back: a
// host that loads and frees the library some thousand times would be ended. This one takes its
// index when the library is loaded and gives it back when it is unloaded.

extern "C"
{
    /// A thread-local variable as the compiler describes it.
    struct EmulatedVariable
    {
        std::size_t sizeBytes;
        std::size_t alignment;
        void* reserved;
        const void* initialBytes; // null for zeros
    };

    void* AddressOnThread(EmulatedVariable* variable) asm(VELT_SYMBOL("__emutls_get_address"));

    // The start-up code's: has a function called when a thread with a value at the index ends.
    int CallAtThreadEnd(unsigned long index,
                        void (*function)(void* value)) asm(VELT_SYMBOL("__mingwthr_key_dtor"));
}

namespace
{
/// One thread's copy of one variable; its bytes follow.
struct alignas(std::max_align_t) Copy
{
    const EmulatedVariable* variable;
    Copy* nextOfThread;
    Copy* next; // in the list of all
    Copy* previous;
};

/// A copy for a thread that finds no memory, or no place at its thread-local index, for one of its
/// own: what is thrown then is mostly that there is no memory. Held from then on until the thread
/// ends.
struct Spare
{
    static constexpr std::size_t kMostBytes = 64; // of a variable; the run-time's have 16

    std::atomic<DWORD> thread = 0; // 0 for none
    Copy copy{};
    std::array<std::byte, kMostBytes> bytes{};
};
static_assert(offsetof(Spare, bytes) == offsetof(Spare, copy) + sizeof(Copy));

/// The copies of all threads.
class ExceptionState
{
public:
    ExceptionState() noexcept : m_index(::TlsAlloc())
    {
        if (IsValid())
        {
            CallAtThreadEnd(m_index, &ExceptionState::EndThread);
        }
    }

    ExceptionState(const ExceptionState&) = delete;
    ExceptionState& operator=(const ExceptionState&) = delete;

    /// Without the lock: a thread that is gone may hold it, and no other one is in the library.
    ~ExceptionState()
    {
        while (m_first)
        {
            Copy* const copy = m_first;
            m_first = copy->next;
            std::free(copy);
        }
        if (IsValid())
        {
            ::TlsFree(m_index);
        }
    }

    bool IsValid() const noexcept
    {
        return m_index != TLS_OUT_OF_INDEXES;
    }

    /// The calling thread's copy. Ends the process when there is not even a spare one, because this
    /// is asked for while an exception is thrown.
    void* Find(const EmulatedVariable& variable) noexcept
    {
        const DWORD lastError = ::GetLastError();
        auto* const ofThread = static_cast<Copy*>(::TlsGetValue(m_index));
        Copy* copy = ofThread;
        while (copy && copy->variable != &variable)
        {
            copy = copy->nextOfThread;
        }
        if (!copy)
        {
            copy = FindSpare(variable);
        }
        if (!copy)
        {
            copy = Make(variable, ofThread);
        }
        ::SetLastError(lastError);
        return copy + 1;
    }

    /// Gives back the spare copies of the calling thread, which ends.
    void EndSpares() noexcept
    {
        const DWORD thread = ::GetCurrentThreadId();
        for (Spare& spare : m_spares)
        {
            DWORD expected = thread;
            if (m_takenSpares > 0 && spare.thread.compare_exchange_strong(expected, 0))
            {
                --m_takenSpares;
            }
        }
    }

private:
    Copy* Make(const EmulatedVariable& variable, Copy* ofThread) noexcept
    {
        auto* const copy = static_cast<Copy*>(std::calloc(1, sizeof(Copy) + variable.sizeBytes));
        if (!copy || !::TlsSetValue(m_index, copy))
        {
            std::free(copy);
            return TakeSpare(variable);
        }
        if (variable.initialBytes)
        {
            std::memcpy(copy + 1, variable.initialBytes, variable.sizeBytes);
        }
        copy->variable = &variable;
        copy->nextOfThread = ofThread;
        ::AcquireSRWLockExclusive(&m_lock);
        copy->next = m_first;
        if (m_first)
        {
            m_first->previous = copy;
        }
        m_first = copy;
        ::ReleaseSRWLockExclusive(&m_lock);
        return copy;
    }

    /// The calling thread's spare copy; null when it has none.
    Copy* FindSpare(const EmulatedVariable& variable) noexcept
    {
        if (m_takenSpares == 0)
        {
            return nullptr;
        }
        const DWORD thread = ::GetCurrentThreadId();
        for (Spare& spare : m_spares)
        {
            if (spare.thread == thread && spare.copy.variable == &variable)
            {
                return &spare.copy;
            }
        }
        return nullptr;
    }

    Copy* TakeSpare(const EmulatedVariable& variable) noexcept
    {
        if (variable.sizeBytes <= Spare::kMostBytes)
        {
            const DWORD thread = ::GetCurrentThreadId();
            for (Spare& spare : m_spares)
            {
                DWORD expected = 0;
                if (spare.thread.compare_exchange_strong(expected, thread))
                {
                    ++m_takenSpares;
                    spare.copy.variable = &variable;
                    spare.bytes.fill(std::byte{0});
                    if (variable.initialBytes)
                    {
                        std::memcpy(&spare.copy + 1, variable.initialBytes, variable.sizeBytes);
                    }
                    return &spare.copy;
                }
            }
        }
        std::abort(); // as many threads as that have found no memory, and live
    }

    void Free(Copy* copy) noexcept
    {
        ::AcquireSRWLockExclusive(&m_lock);
        (copy->previous ? copy->previous->next : m_first) = copy->next;
        if (copy->next)
        {
            copy->next->previous = copy->previous;
        }
        ::ReleaseSRWLockExclusive(&m_lock);
        std::free(copy);
    }

    static void EndThread(void* value);

    static constexpr std::size_t kSpares = 32;

    // constant after construction
    DWORD m_index;

    // each belongs to the thread that has taken it
    std::array<Spare, kSpares> m_spares{};
    std::atomic<int> m_takenSpares = 0; // how many are taken

    // guarded by m_lock
    SRWLOCK m_lock = SRWLOCK_INIT;
    Copy* m_first = nullptr;
};

// Constructed before and destroyed after everything that may throw.
ExceptionState g_exceptionState __attribute__((init_priority(101)));

void ExceptionState::EndThread(void* value)
{
    ::TlsSetValue(g_exceptionState.m_index, nullptr); // the thread may still throw: a new copy then
    for (auto* copy = static_cast<Copy*>(value); copy;)
    {
        Copy* const next = copy->nextOfThread;
        g_exceptionState.Free(copy);
        copy = next;
    }
}
} // namespace

extern "C" void* AddressOnThread(EmulatedVariable* variable)
{
    return g_exceptionState.Find(*variable);
}

namespace velt
{
bool HasExceptionState() noexcept
{
    return g_exceptionState.IsValid();
}

void EndExceptionStateOfThread() noexcept
{
    g_exceptionState.EndSpares();
}
} // namespace velt
