#pragma once

#include <windows.h>

#include <psapi.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace velt::test
{
/// How many handles this process has. From the system's list of all handles, because not every
/// platform's GetProcessHandleCount counts.
inline std::size_t HandleCount()
{
    constexpr auto kSystemHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);
    constexpr NTSTATUS kTooSmall = static_cast<NTSTATUS>(0xC0000004);
    struct Entry
    {
        std::uint16_t process;
        std::uint16_t backTrace;
        std::uint8_t type;
        std::uint8_t flags;
        std::uint16_t handle;
        void* object;
        std::uint32_t access;
    };
    std::vector<std::uint32_t> buffer(0x4000);
    NTSTATUS status = kTooSmall;
    while ((status = ::NtQuerySystemInformation(
                kSystemHandleInformation, buffer.data(),
                static_cast<ULONG>(buffer.size() * sizeof(buffer[0])), nullptr)) == kTooSmall)
    {
        buffer.resize(buffer.size() * 2);
    }
    if (status < 0)
    {
        throw std::runtime_error("the system does not list its handles");
    }
    const auto* const entries = reinterpret_cast<const Entry*>(buffer.data() + 1);
    std::size_t count = 0;
    for (std::uint32_t i = 0; i < buffer[0]; ++i)
    {
        count += entries[i].process == static_cast<std::uint16_t>(::GetCurrentProcessId());
    }
    return count;
}

/// The memory that only this process uses.
inline std::size_t PrivateBytes()
{
    PROCESS_MEMORY_COUNTERS counters{};
    if (!::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof(counters)))
    {
        throw std::runtime_error("the system does not tell the process's memory");
    }
    return counters.PagefileUsage;
}
} // namespace velt::test
