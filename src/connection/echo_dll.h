#pragma once

#include "foundation/library_utils.h"

#include <windows.h>

#include <ipexport.h>

#include <memory>

/// ICMP echo through ICMP.DLL.
class CEchoDLL
{
public:
    /// Null when the library, the one that it stands for, or one of their functions is missing.
    /// Throws std::bad_alloc.
    static std::unique_ptr<CEchoDLL> Load();

    CEchoDLL(const CEchoDLL&) = delete;
    CEchoDLL& operator=(const CEchoDLL&) = delete;

    virtual ~CEchoDLL() = default;

    /// Results of Send.
    static constexpr DWORD kReplied = 1;
    static constexpr DWORD kNoReply = 3;

    /// Sends one echo and waits for its reply, at most `timeoutMs` milliseconds. `address` is in
    /// network order.
    DWORD Send(IPAddr address, DWORD timeoutMs) const;

private:
    using CreateFunction = HANDLE(WINAPI*)();
    using CloseFunction = BOOL(WINAPI*)(HANDLE);
    using SendFunction = DWORD(WINAPI*)(HANDLE, IPAddr, void*, WORD, IP_OPTION_INFORMATION*, void*,
                                        DWORD, DWORD);

    explicit CEchoDLL(std::unique_ptr<CLibraryUtils::CLibraryUtilsImpl> target);

    bool IsComplete() const noexcept;

    CLibraryUtils::CLibraryUtilsImpl m_module;
    CreateFunction m_create;
    CloseFunction m_close;
    SendFunction m_send;
    std::unique_ptr<CLibraryUtils::CLibraryUtilsImpl> m_target; // of the functions
};
