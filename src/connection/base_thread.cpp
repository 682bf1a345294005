#include "connection/base_thread.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/library_utils.h"

#include <process.h>

#include <cstdint>
#include <utility>

namespace ONLINE_THREADS
{
base_thread::~base_thread()
{
    if (IsWorker())
    {
        m_afterlife.load()->isOrphan = true;
    }
    if (m_hThread)
    {
        ::CloseHandle(m_hThread);
    }
}

bool base_thread::IsWorker() const noexcept
{
    // The system gives the number of a thread that has ended to another one.
    return m_afterlife && m_threadId == ::GetCurrentThreadId();
}

void base_thread::LeaveToThread(std::shared_ptr<void> estate) noexcept
{
    m_afterlife.load()->estate = std::move(estate);
}

void base_thread::ForgetThread() noexcept
{
    m_afterlife = nullptr;
}

HANDLE base_thread::BeginThread() noexcept
{
    // Before the thread is there, because the library could otherwise go before its first
    // instruction.
    if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                              reinterpret_cast<const wchar_t*>(&base_thread::ThreadEntry),
                              &m_module))
    {
        return nullptr;
    }
    unsigned id = 0;
    const std::uintptr_t thread =
        ::_beginthreadex(nullptr, 0, &base_thread::ThreadEntry, this, 0, &id);
    if (thread == 0)
    {
        ::FreeLibrary(m_module);
        return nullptr;
    }
    return reinterpret_cast<HANDLE>(thread); // NOLINT(performance-no-int-to-ptr): so it is given
}

unsigned __stdcall base_thread::ThreadEntry(void* thread) noexcept
{
    auto& self = *static_cast<base_thread*>(thread);
    const HMODULE module = self.m_module; // the object may be gone when its work is done
    RunThread(self);
    ::FreeLibraryAndExitThread(module, 0);
}

void base_thread::RunThread(base_thread& thread) noexcept
{
    const CLibraryUtils::SmartComInitializer com;
    Afterlife afterlife;
    thread.m_threadId = ::GetCurrentThreadId();
    thread.m_afterlife = &afterlife;
    try
    {
        thread.Run();
    }
    catch (...)
    {
        velt::TraceCurrentException(); // discarded
    }
    if (!afterlife.isOrphan)
    {
        thread.m_afterlife = nullptr;
        thread.OnThreadEnd();
    }
}
} // namespace ONLINE_THREADS
