#pragma once

#include <windows.h>

#include <atomic>

namespace ONLINE_THREADS
{
/// A thread that runs a method of the object that it belongs to, in a single-threaded apartment of
/// its own.
class base_thread
{
public:
    base_thread() noexcept = default;

    base_thread(const base_thread&) = delete;
    base_thread& operator=(const base_thread&) = delete;

    virtual ~base_thread();

    /// The thread's body; its exceptions go no further than the thread.
    virtual void Run() = 0;

    /// Called on the thread after Run, whatever became of it.
    virtual void OnThreadEnd() noexcept = 0;

protected:
    /// Starts the thread; null when it cannot be started. The thread holds a reference on the
    /// module that this code is in and gives it up at its very end, so that its last instructions
    /// do not go from under it.
    HANDLE BeginThread() noexcept;

    HANDLE m_hThread = nullptr;        // owned; null while no thread runs
    std::atomic<DWORD> m_threadId = 0; // written by the thread itself

private:
    static unsigned __stdcall ThreadEntry(void* thread) noexcept;

    /// Everything that the thread does of ours.
    static void RunThread(base_thread& thread) noexcept;

    HMODULE m_module = nullptr; // the reference that the thread gives up
};
} // namespace ONLINE_THREADS
