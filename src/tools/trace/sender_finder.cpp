#include "tools/trace/sender_finder.h"

#include "foundation/system_exception.h"
#include "foundation/unique_file.h"
#include "foundation/velt_auto_critical_section.h"
#include "tools/trace/process_names.h"

#include <windows.h>

#include <tlhelp32.h>

#include <array>
#include <exception>
#include <utility>

namespace velt
{
namespace
{
constexpr wchar_t kComponent[] = L"VeltHTTPClient12OEM.dll";
constexpr DWORD kPeriodMs = 500;
constexpr DWORD kForeignMs = 10'000; // a process id may have gone to another process meanwhile
constexpr std::size_t kMostNamed = 3;

enum class Finding
{
    has,
    hasNot,
    cannotSay, // no right to look, or a 64-bit process that a 32-bit one asks about
};

Finding LookInto(DWORD processId) noexcept
{
    // The second flag is for 32-bit processes when this one has 64 bits.
    const UniqueFile modules(
        ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE | TH32CS_SNAPMODULE32, processId));
    if (!modules)
    {
        // A process that changes its modules while they are read is asked again next time.
        return ::GetLastError() == ERROR_BAD_LENGTH ? Finding::hasNot : Finding::cannotSay;
    }
    MODULEENTRY32W module{};
    module.dwSize = sizeof(module);
    for (BOOL more = ::Module32FirstW(modules.Get(), &module); more;
         more = ::Module32NextW(modules.Get(), &module))
    {
        if (::lstrcmpiW(module.szModule, kComponent) == 0)
        {
            return Finding::has;
        }
    }
    return Finding::hasNot;
}

/// Whether this is a 32-bit process of 64-bit Windows, to which 64-bit ones do not show what they
/// have loaded.
bool IsWow64() noexcept
{
    BOOL is = FALSE;
    return ::IsWow64Process(::GetCurrentProcess(), &is) && is;
}
} // namespace

SenderFinder::SenderFinder()
    : m_quit(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_wanted(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_done(::CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      m_seesOneKind(IsWow64()),
      m_askedMs(::GetTickCount() - kPeriodMs)
{
    if (!m_quit || !m_wanted || !m_done)
    {
        ThrowLastError();
    }
    m_thread.Reset(::CreateThread(nullptr, 0, &SenderFinder::ThreadEntry, this, 0, nullptr));
    if (!m_thread)
    {
        ThrowLastError();
    }
}

SenderFinder::~SenderFinder()
{
    ::SetEvent(m_quit.Get());
    ::WaitForSingleObject(m_thread.Get(), INFINITE);
}

void SenderFinder::Look() noexcept
{
    const DWORD now = ::GetTickCount();
    if (now - m_askedMs.load() >= kPeriodMs)
    {
        m_askedMs = now;
        ::ResetEvent(m_done.Get());
        ::SetEvent(m_wanted.Get());
    }
}

bool SenderFinder::Wait(DWORD limitMs) const noexcept
{
    return ::WaitForSingleObject(m_done.Get(), limitMs) == WAIT_OBJECT_0;
}

std::string SenderFinder::Describe() const
{
    std::map<DWORD, std::string> all;
    {
        const VeltAutoCriticalSection lock(&m_lock);
        all = m_present;
        all.insert(m_previous.begin(), m_previous.end());
    }
    std::string text;
    std::size_t named = 0;
    for (const auto& [id, name] : all)
    {
        if (named++ == kMostNamed)
        {
            return text + " or others";
        }
        text += (text.empty() ? "" : " or ") + name;
    }
    if (text.empty())
    {
        return "?";
    }
    return m_seesOneKind ? text + " or a 64-bit program" : text;
}

DWORD WINAPI SenderFinder::ThreadEntry(void* self) noexcept
{
    static_cast<SenderFinder*>(self)->Run();
    return 0;
}

void SenderFinder::Run() noexcept
{
    const std::array<HANDLE, 2> events{m_quit.Get(), m_wanted.Get()};
    while (::WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                    INFINITE) == WAIT_OBJECT_0 + 1)
    {
        try
        {
            Scan();
        }
        catch (const std::exception&)
        {
            // No memory: the former answer stands.
        }
        ::SetEvent(m_done.Get());
    }
}

void SenderFinder::Scan()
{
    const DWORD now = ::GetTickCount();
    if (now - m_foreignMs > kForeignMs)
    {
        m_foreign.clear();
        m_foreignMs = now;
    }
    std::map<DWORD, std::string> found;
    const UniqueFile processes(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process{};
    process.dwSize = sizeof(process);
    for (BOOL more = processes && ::Process32FirstW(processes.Get(), &process); more;
         more = ::Process32NextW(processes.Get(), &process))
    {
        const DWORD id = process.th32ProcessID;
        // Id 0 would be this process.
        if (id == 0 || id == ::GetCurrentProcessId() || m_foreign.contains(id))
        {
            continue;
        }
        const Finding finding = LookInto(id);
        if (finding == Finding::has)
        {
            found.emplace(id, ProcessLabel(process.szExeFile, id));
        }
        else if (finding == Finding::cannotSay)
        {
            m_foreign.insert(id);
        }
    }
    const VeltAutoCriticalSection lock(&m_lock);
    m_previous = std::exchange(m_present, std::move(found));
}
} // namespace velt
