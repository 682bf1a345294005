#include "server/exception_state.h"

#include "server/run_time_symbols.h"

#include <windows.h>

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

    /// The calling thread's copy. Ends the process when it cannot be made, because this is asked
    /// for while an exception is thrown.
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
            copy = Make(variable, ofThread);
        }
        ::SetLastError(lastError);
        return copy + 1;
    }

private:
    Copy* Make(const EmulatedVariable& variable, Copy* ofThread) noexcept
    {
        auto* const copy = static_cast<Copy*>(std::calloc(1, sizeof(Copy) + variable.sizeBytes));
        if (!copy || !::TlsSetValue(m_index, copy))
        {
            std::abort();
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

    // constant after construction
    DWORD m_index;

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
} // namespace velt
