#pragma once

#include <windows.h>

#include <oaidl.h>

// Failures are traced before they are reported, each one once: where an exception becomes an
// HRESULT; where a COM method returns one; or, for a late-bound call that does not get as far as
// its member, where it is refused. So it is noted for each thread what it has traced last. Nothing
// here throws: a thread that cannot trace still gets its result.

namespace velt
{
/// Writes the level 1 trace of a failure; `what` may be empty.
void TraceFailure(HRESULT failure, const char* what) noexcept;

/// Has a failure count as the one that the thread has traced last: the line of its cause stands.
void NoteTracedFailure(HRESULT failure) noexcept;

/// The same trace for a failure that a COM method returns, unless it is the one that the thread has
/// traced last since its innermost scope began.
void TraceReturnedFailure(HRESULT failure) noexcept;

/// A call of a method that opens no trace scope, as those of IDispatch. It returns through this
/// object: a failure is traced with the method's name, and with what was asked for, unless one was
/// traced during the call, which was the member's own.
class UnscopedCall
{
public:
    /// `method` must outlive the call (a literal).
    explicit UnscopedCall(const char* method) noexcept;

    UnscopedCall(const UnscopedCall&) = delete;
    UnscopedCall& operator=(const UnscopedCall&) = delete;

    ~UnscopedCall() = default;

    HRESULT Return(HRESULT result) const noexcept;
    HRESULT Return(HRESULT result, DISPID member) const noexcept;
    HRESULT Return(HRESULT result, const wchar_t* name) const noexcept;

private:
    void Trace(HRESULT failure, const char* what) const noexcept;

    const char* m_method;
};
} // namespace velt
