#pragma once

#include "foundation/unique_handle.h"
#include "tools/trace/trace_receiver.h"

#include <windows.h>

#include <memory>

namespace velt
{
/// Listens to what programs write for a debugger (OutputDebugString), through the buffer that the
/// system shares with one such listener, on a thread of its own. A program that writes waits for
/// one copy of its text.
class DebugOutputReader
{
public:
    /// Null when another program has the buffer. `receiver` must outlive the reader. Throws
    /// SystemException::Win32.
    static std::unique_ptr<DebugOutputReader> Start(TraceReceiver& receiver);

    DebugOutputReader(const DebugOutputReader&) = delete;
    DebugOutputReader& operator=(const DebugOutputReader&) = delete;

    /// Gives the buffer back and waits for the thread.
    ~DebugOutputReader();

private:
    struct ViewTraits
    {
        using Type = const void*;

        static Type Invalid() noexcept
        {
            return nullptr;
        }

        static void Close(Type view) noexcept
        {
            ::UnmapViewOfFile(view);
        }
    };

    explicit DebugOutputReader(TraceReceiver& receiver) : m_receiver(receiver) {}

    bool Claim();
    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    void Run() noexcept;
    void Take() noexcept;

    // Constant after Start.
    TraceReceiver& m_receiver;
    UniqueKernelObject m_quit;
    UniqueKernelObject m_bufferReady;
    UniqueKernelObject m_dataReady;
    UniqueKernelObject m_buffer;
    UniqueHandle<ViewTraits> m_view;

    UniqueKernelObject m_thread;
};
} // namespace velt
