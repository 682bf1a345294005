#pragma once

#include "tests/support/import_patch.h"

#include <windows.h>

#include <ipexport.h>

#include <cstring>
#include <string>

namespace velt::test
{
/// Stands in for the system's echo functions and keeps what they got; nothing is sent. One at a
/// time.
class EchoStandIn
{
public:
    using FindPatch = ImportPatch<"GetProcAddress", decltype(::GetProcAddress)>;

    EchoStandIn() : m_patch("kernel32.dll", &EchoStandIn::Find)
    {
        s_current = this;
    }

    EchoStandIn(const EchoStandIn&) = delete;
    EchoStandIn& operator=(const EchoStandIn&) = delete;

    ~EchoStandIn()
    {
        s_current = nullptr;
    }

    // what the functions answer
    HANDLE file = reinterpret_cast<HANDLE>(0x1234);
    DWORD replies = 1;
    ULONG replyStatus = IP_SUCCESS;

    // what they got
    int created = 0;
    int closed = 0;
    int sent = 0;
    IPAddr address = 0;
    std::string data;
    bool hasOptions = true;
    DWORD replySize = 0;
    DWORD timeoutMs = 0;
    bool isZeroed = false;

private:
    static FARPROC Find(HMODULE module, const char* name)
    {
        const std::string function(name);
        if (function == "IcmpCreateFile")
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Create));
        }
        if (function == "IcmpCloseHandle")
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Close));
        }
        if (function == "IcmpSendEcho")
        {
            return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Send));
        }
        return FindPatch::Original(module, name);
    }

    static HANDLE WINAPI Create()
    {
        ++s_current->created;
        return s_current->file;
    }

    static BOOL WINAPI Close(HANDLE file)
    {
        s_current->closed += file == s_current->file;
        return TRUE;
    }

    static DWORD WINAPI Send(HANDLE, IPAddr address, void* data, WORD size,
                             IP_OPTION_INFORMATION* options, void* reply, DWORD replySize,
                             DWORD timeoutMs)
    {
        EchoStandIn& self = *s_current;
        ++self.sent;
        self.address = address;
        self.data.assign(static_cast<const char*>(data), size);
        self.hasOptions = options != nullptr;
        self.replySize = replySize;
        self.timeoutMs = timeoutMs;
        self.isZeroed =
            std::string(static_cast<const char*>(reply), replySize) == std::string(replySize, '\0');
        ICMP_ECHO_REPLY answer{};
        answer.Status = self.replyStatus;
        std::memcpy(reply, &answer, sizeof(answer));
        return self.replies;
    }

    inline static EchoStandIn* s_current = nullptr;
    FindPatch m_patch;
};
} // namespace velt::test
