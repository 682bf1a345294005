#include "tools/trace/debug_output_reader.h"

#include "foundation/system_exception.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace velt
{
namespace
{
// The system's: the writer's process id in four bytes, then its text with a zero at the end.
constexpr DWORD kBufferBytes = 4096;
constexpr std::size_t kTextAt = sizeof(DWORD);
} // namespace

std::unique_ptr<DebugOutputReader> DebugOutputReader::Start(TraceReceiver& receiver)
{
    std::unique_ptr<DebugOutputReader> reader(new DebugOutputReader(receiver));
    if (!reader->Claim())
    {
        return nullptr;
    }
    reader->m_thread.Reset(
        ::CreateThread(nullptr, 0, &DebugOutputReader::ThreadEntry, reader.get(), 0, nullptr));
    if (!reader->m_thread)
    {
        ThrowLastError();
    }
    ::SetEvent(reader->m_bufferReady.Get());
    return reader;
}

DebugOutputReader::~DebugOutputReader()
{
    if (m_thread)
    {
        ::SetEvent(m_quit.Get());
        ::WaitForSingleObject(m_thread.Get(), INFINITE);
    }
}

bool DebugOutputReader::Claim()
{
    // One who made the buffer reads it: two would take turns. That of a reader with more rights
    // cannot be opened.
    m_buffer.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                        kBufferBytes, L"DBWIN_BUFFER"));
    const DWORD error = ::GetLastError();
    if (error == ERROR_ALREADY_EXISTS || (!m_buffer && error == ERROR_ACCESS_DENIED))
    {
        return false;
    }
    m_quit.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_bufferReady.Reset(::CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_BUFFER_READY"));
    m_dataReady.Reset(::CreateEventW(nullptr, FALSE, FALSE, L"DBWIN_DATA_READY"));
    if (!m_buffer || !m_quit || !m_bufferReady || !m_dataReady)
    {
        ThrowLastError();
    }
    m_view.Reset(::MapViewOfFile(m_buffer.Get(), FILE_MAP_READ, 0, 0, kBufferBytes));
    if (!m_view)
    {
        ThrowLastError();
    }
    return true;
}

DWORD WINAPI DebugOutputReader::ThreadEntry(void* self) noexcept
{
    static_cast<DebugOutputReader*>(self)->Run();
    return 0;
}

void DebugOutputReader::Run() noexcept
{
    const std::array<HANDLE, 2> events{m_quit.Get(), m_dataReady.Get()};
    while (::WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                    INFINITE) == WAIT_OBJECT_0 + 1)
    {
        Take();
        ::SetEvent(m_bufferReady.Get());
    }
}

void DebugOutputReader::Take() noexcept
{
    // A copy first: whoever can open the buffer can change it meanwhile.
    std::array<std::byte, kBufferBytes> copy{};
    std::memcpy(copy.data(), m_view.Get(), copy.size());
    Arrival arrival;
    std::memcpy(&arrival.processId, copy.data(), kTextAt);
    const std::span<const std::byte> text = std::span<const std::byte>(copy).subspan(kTextAt);
    const auto end = std::find(text.begin(), text.end(), std::byte{0});
    arrival.origin = Arrival::Origin::debugOutput;
    arrival.sizeBytes = static_cast<std::uint32_t>(end - text.begin());
    m_receiver.Add(arrival, text.first(arrival.sizeBytes));
}
} // namespace velt
