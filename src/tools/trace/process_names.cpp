#include "tools/trace/process_names.h"

#include "foundation/wide_text.h"

#include <array>
#include <utility>

namespace velt
{
namespace
{
std::wstring FileName(HANDLE process)
{
    std::array<wchar_t, 1024> path{};
    auto length = static_cast<DWORD>(path.size());
    if (!process || !::QueryFullProcessImageNameW(process, 0, path.data(), &length))
    {
        return L"?";
    }
    const std::wstring_view whole(path.data(), length);
    return std::wstring(whole.substr(whole.rfind(L'\\') + 1)); // npos + 1 is the start
}
} // namespace

std::string ProcessLabel(std::wstring_view name, DWORD processId)
{
    return Utf8FromWide(name) + " (" + std::to_string(processId) + ")";
}

std::string ProcessNames::NameOf(DWORD processId)
{
    const auto known = m_processes.find(processId);
    if (known != m_processes.end())
    {
        return known->second.name;
    }
    Process process;
    process.held.Reset(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    process.name = ProcessLabel(FileName(process.held.Get()), processId);
    return m_processes.emplace(processId, std::move(process)).first->second.name;
}

void ProcessNames::MarkEnded() noexcept
{
    for (auto& [id, process] : m_processes)
    {
        DWORD exitCode = STILL_ACTIVE;
        process.marked = !process.held || (::GetExitCodeProcess(process.held.Get(), &exitCode) &&
                                           exitCode != STILL_ACTIVE);
    }
}

void ProcessNames::ForgetMarked() noexcept
{
    std::erase_if(m_processes, [](const auto& each) { return each.second.marked; });
}
} // namespace velt
