#pragma once

#include "foundation/system_exception.h"
#include "service/velt_http_service.h"
#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/support/test_module.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "update/update_agent_class.h"

#include <windows.h>

#include <wininet.h>
#include <wrl/client.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

namespace velt::test
{
inline constexpr char kTerminating[] =
    "thread_template::stop WaitForSingleObject m_hWaitThreadEvent "
    "returned 258: Terminating Thread!!!";

/// A service whose worker wakes every 20 ms, an agent that is as the test says, and a connection.
struct WorkerFixture
{
    static constexpr DWORD kPeriodMs = 20;

    WorkerFixture()
    {
        s_isOnline = true;
        s_questions = 0;
        velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()));
    }

    WorkerFixture(const WorkerFixture&) = delete;
    WorkerFixture& operator=(const WorkerFixture&) = delete;

    ~WorkerFixture()
    {
        service.Reset();
        AwaitEnd();
    }

    /// Waits until nothing of the service is left; takes calls meanwhile.
    void AwaitEnd()
    {
        Await([&] { return module.LockCount() == 0; });
    }

    static void Await(const std::function<bool()>& condition)
    {
        const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const ULONGLONG end = ::GetTickCount64() + kWaitLimitMs;
        while (!condition())
        {
            if (::GetTickCount64() > end)
            {
                throw std::runtime_error("it does not happen");
            }
            ApartmentThread::WaitPumping(never.Get(), 2);
        }
    }

    HRESULT Start(const wchar_t* guid = kGuid) const
    {
        return service->StartUpdateService(velt::MakeBstr(guid).Get(), velt::MakeBstr(L"1.0").Get(),
                                           1031, velt::MakeBstr(L"A product").Get());
    }

    bool IsConnected() const
    {
        VARIANT_BOOL connected = 0x5555;
        velt::ThrowIfFailed(service->get_IsConnected(&connected));
        if (connected != VARIANT_TRUE && connected != VARIANT_FALSE)
        {
            throw std::runtime_error("no VARIANT_BOOL");
        }
        return connected == VARIANT_TRUE;
    }

    /// Whether the system says that it is online, and how often it was asked.
    inline static std::atomic<bool> s_isOnline = true;
    inline static std::atomic<int> s_questions = 0;

    static BOOL WINAPI GetConnectedState(DWORD* flags, DWORD) noexcept
    {
        *flags = INTERNET_CONNECTION_LAN;
        ++s_questions;
        return s_isOnline ? TRUE : FALSE;
    }

    const ComApartment apartment;
    TraceRecorder trace;
    TestModule module;

    // as asked for by the worker
    std::atomic<LONG> periodMs = 0;
    std::atomic<LONGLONG> due = 0;

    // set by the test; the calls come from the worker as well
    std::atomic<DWORD> stepPeriodMs = kPeriodMs;
    std::function<HRESULT()> onAgent; // in place of the agent, which is not there otherwise
    std::function<HRESULT()> onTable; // in place of the global interface table; S_FALSE for that

    ImportPatch<"SetWaitableTimer", decltype(::SetWaitableTimer)> timer{
        "kernel32.dll", [this](HANDLE handle, const LARGE_INTEGER* dueTime, LONG period,
                               PTIMERAPCROUTINE routine, void* argument, BOOL resume) {
            due = dueTime->QuadPart;
            periodMs = period;
            LARGE_INTEGER soon;
            soon.QuadPart = -10'000LL * stepPeriodMs;
            return decltype(timer)::Original(handle, &soon, static_cast<LONG>(stepPeriodMs.load()),
                                             routine, argument, resume);
        }};
    ImportPatch<"GetProcAddress", decltype(::GetProcAddress)> online{
        "kernel32.dll", [](HMODULE library, const char* name) {
            return std::string(name) == "InternetGetConnectedState"
                       ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&GetConnectedState))
                       : decltype(online)::Original(library, name);
        }};
    ImportPatch<"CoCreateInstance", decltype(::CoCreateInstance)> agent{
        "ole32.dll",
        [this](REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** object) {
            if (clsid == velt::kUpdateAgentClass && onAgent)
            {
                return onAgent();
            }
            if (clsid == CLSID_StdGlobalInterfaceTable && onTable)
            {
                if (const HRESULT hr = onTable(); FAILED(hr))
                {
                    return hr;
                }
            }
            return decltype(agent)::Original(clsid, outer, context, iid, object);
        }};

    Microsoft::WRL::ComPtr<IVeltHTTPService> service;
};
} // namespace velt::test
