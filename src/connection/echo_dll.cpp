#include "connection/echo_dll.h"

#include "foundation/find_function.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

#include <icmpapi.h>

CEchoDLL::CEchoDLL(std::unique_ptr<CLibraryUtils::CLibraryUtilsImpl> target)
    : m_module(velt::LoadSystemLibrary(L"ICMP.DLL")),
      m_create(velt::FindFunction<CreateFunction>(m_module.GetModule(), "IcmpCreateFile")),
      m_close(velt::FindFunction<CloseFunction>(m_module.GetModule(), "IcmpCloseHandle")),
      m_send(velt::FindFunction<SendFunction>(m_module.GetModule(), "IcmpSendEcho")),
      m_target(std::move(target))
{
}

std::unique_ptr<CEchoDLL> CEchoDLL::Load()
{
    // ICMP.DLL only hands its functions on to this library. The system would look for it in the
    // host's folder, too, and for what it needs, unless it is loaded already.
    auto target = std::make_unique<CLibraryUtils::CLibraryUtilsImpl>(
        velt::LoadSystemLibrary(L"IPHLPAPI.DLL"));
    if (!target->GetModule())
    {
        return nullptr;
    }
    std::unique_ptr<CEchoDLL> echo(new CEchoDLL(std::move(target)));
    return echo->IsComplete() ? std::move(echo) : nullptr;
}

bool CEchoDLL::IsComplete() const noexcept
{
    return m_create && m_close && m_send;
}

DWORD CEchoDLL::Send(IPAddr address, DWORD timeoutMs) const
{
    const HANDLE file = m_create();
    if (file == INVALID_HANDLE_VALUE)
    {
        return kNoReply;
    }
    std::array<char, 2> request{0x49, 0x00};
    alignas(ICMP_ECHO_REPLY) std::array<std::byte, sizeof(ICMP_ECHO_REPLY) + request.size()>
        replies{};
    const DWORD count =
        m_send(file, address, request.data(), static_cast<WORD>(request.size()), nullptr,
               replies.data(), static_cast<DWORD>(replies.size()), timeoutMs);
    m_close(file);
    ICMP_ECHO_REPLY reply{};
    std::memcpy(&reply, replies.data(), sizeof(reply));
    return count > 0 && reply.Status == IP_SUCCESS ? kReplied : kNoReply;
}
