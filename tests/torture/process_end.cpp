#include "tests/torture/process_end.h"

#include "foundation/unique_handle.h"
#include "tests/torture/fault_engine.h"

#include <cstdio>

namespace velt::torture
{
namespace
{
const void* StackOf(const CONTEXT& context) noexcept
{
#ifdef _WIN64
    return reinterpret_cast<const void*>(context.Rsp); // NOLINT(performance-no-int-to-ptr)
#else
    return reinterpret_cast<const void*>(context.Esp); // NOLINT(performance-no-int-to-ptr)
#endif
}

LONG WINAPI OnCrash(EXCEPTION_POINTERS* exception) noexcept
{
    std::printf("crash 0x%08lX at %p\n", exception->ExceptionRecord->ExceptionCode,
                exception->ExceptionRecord->ExceptionAddress);
    FaultEngine::PrintStack(StackOf(*exception->ContextRecord));
    std::fflush(stdout);
    ::TerminateProcess(::GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}
} // namespace

void TellOfCrashes() noexcept
{
    ::SetUnhandledExceptionFilter(&OnCrash);
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
}

void Say(const char* text) noexcept
{
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text, static_cast<DWORD>(::lstrlenA(text)),
                &written, nullptr);
}

void PrintStackOfThread(DWORD id) noexcept
{
    const velt::UniqueKernelObject thread(
        ::OpenThread(THREAD_GET_CONTEXT | THREAD_SUSPEND_RESUME, FALSE, id));
    ::SuspendThread(thread.Get());
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL;
    if (::GetThreadContext(thread.Get(), &context))
    {
        FaultEngine::PrintStack(StackOf(context));
        std::fflush(stdout);
    }
}
} // namespace velt::torture
