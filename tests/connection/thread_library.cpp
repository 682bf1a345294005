#include "connection/thread_template.h"

#include "tests/connection/thread_library.h"

#include <windows.h>

#include <memory>

namespace
{
class Worker final : public ONLINE_THREADS::thread_template<Worker>
{
public:
    Worker(HANDLE running, HANDLE release) noexcept : m_running(running), m_release(release) {}

    ~Worker() override
    {
        stop();
    }

    void Run() override
    {
        ::SetEvent(m_running);
        ::WaitForSingleObject(m_release, INFINITE);
    }

private:
    HANDLE m_running;
    HANDLE m_release;
};

std::unique_ptr<Worker> g_worker; // goes with the library
} // namespace

void StartLibraryWorker(HANDLE running, HANDLE release, HANDLE* thread)
{
    g_worker = std::make_unique<Worker>(running, release);
    ::DuplicateHandle(::GetCurrentProcess(), g_worker->Start(g_worker.get()), ::GetCurrentProcess(),
                      thread, 0, FALSE, DUPLICATE_SAME_ACCESS);
}
