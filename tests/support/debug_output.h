#pragma once

#include <windows.h>

#include <string>

namespace velt::test
{
/// Keeps what the calling thread writes to the debugger output while it lives; one at a time.
/// Without a debugger, the output is an exception first, and that is where this looks.
class DebugOutput
{
public:
    DebugOutput()
    {
        s_thread = ::GetCurrentThreadId();
        s_text.clear();
        m_handler = ::AddVectoredExceptionHandler(1, &DebugOutput::OnException);
    }

    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    ~DebugOutput()
    {
        ::RemoveVectoredExceptionHandler(m_handler);
    }

    const std::string& Text() const noexcept
    {
        return s_text;
    }

private:
    static LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) noexcept
    {
        constexpr DWORD kNarrowOutput = 0x40010006; // DBG_PRINTEXCEPTION_C
        const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
        if (record.ExceptionCode == kNarrowOutput && ::GetCurrentThreadId() == s_thread)
        {
            s_text.append(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    inline static DWORD s_thread = 0;
    inline static std::string s_text;
    void* m_handler = nullptr;
};
} // namespace velt::test
