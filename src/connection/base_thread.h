#pragma once

#include <windows.h>

#include <atomic>
#include <memory>

namespace ONLINE_THREADS
{
/// A thread that runs a method of the object that it belongs to, in a single-threaded apartment of
/// its own. The object may go on that very thread, inside Run: the thread does not touch it again.
class base_thread
{
public:
    base_thread() noexcept = default;

    base_thread(const base_thread&) = delete;
    base_thread& operator=(const base_thread&) = delete;

    virtual ~base_thread();

    /// The thread's body; its exceptions go no further than the thread.
    virtual void Run() = 0;

    /// Called on the thread after Run, whatever became of it; not for an object that went inside
    /// Run.
    virtual void OnThreadEnd() noexcept = 0;

    /// Whether the calling thread is this object's, inside Run.
    bool IsWorker() const noexcept;

protected:
    /// Starts the thread; null when it cannot be started. The thread holds a reference on the
    /// module that this code is in and gives it up at its very end, so that its last instructions
    /// do not go from under it.
    HANDLE BeginThread() noexcept;

    /// For a destructor that runs on the thread: what Run still uses of the object lives on until
    /// Run has returned.
    void LeaveToThread(std::shared_ptr<void> estate) noexcept;

    /// For a thread that was ended by others, and did not get to say so.
    void ForgetThread() noexcept;

    HANDLE m_hThread = nullptr;        // owned; null while no thread runs
    std::atomic<DWORD> m_threadId = 0; // written by the thread itself

private:
    static unsigned __stdcall ThreadEntry(void* thread) noexcept;

    /// Everything that the thread does of ours.
    static void RunThread(base_thread& thread) noexcept;

    /// What the thread hears of its object's end.
    struct Afterlife
    {
        bool isOrphan = false;
        std::shared_ptr<void> estate;
    };

    HMODULE m_module = nullptr;                    // the reference that the thread gives up
    std::atomic<Afterlife*> m_afterlife = nullptr; // the thread's own, while it is inside Run
};
} // namespace ONLINE_THREADS
