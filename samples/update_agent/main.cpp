// An update agent to try the component with: a local server, so that calls cross processes. It
// knows what the files beside it say, and updates nothing.
//
//   sample_agent.exe /regserver      registers it for the machine (as an administrator)
//   sample_agent.exe /unregserver    removes that again
//
// COM starts it with /Embedding and it ends with its last object, or with its window.

#include "samples/update_agent/process_reference.h"
#include "samples/update_agent/registration.h"
#include "samples/update_agent/sample_agent.h"
#include "update/update_agent_class.h"

#include <windows.h>

#include <array>
#include <new>
#include <string>

namespace
{
/// Lives as long as the program.
class AgentFactory final : public IClassFactory
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown =
            ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IClassFactory);
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2;
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        *object = nullptr;
        if (outer)
        {
            return CLASS_E_NOAGGREGATION;
        }
        auto* const agent = new (std::nothrow) SampleAgent;
        if (!agent)
        {
            return E_OUTOFMEMORY;
        }
        const HRESULT hr = agent->QueryInterface(iid, object);
        agent->Release();
        return hr;
    }

    STDMETHODIMP LockServer(BOOL lock) override
    {
        if (lock)
        {
            ProcessReference::Add();
        }
        else
        {
            ProcessReference::Remove();
        }
        return S_OK;
    }
};

int Serve()
{
    AgentFactory factory;
    DWORD registration = 0;
    const HRESULT hr = ::CoRegisterClassObject(
        velt::kUpdateAgentClass, &factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &registration);
    if (FAILED(hr))
    {
        return 1;
    }
    ProcessReference::Keep(registration);
    agent_files::Log(L"started, process " + std::to_wstring(::GetCurrentProcessId()));
    MSG message{};
    while (::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::TranslateMessage(&message);
        ::DispatchMessageW(&message);
    }
    agent_files::Log(L"ended");
    return 0;
}

/// The program's only argument, "/name" or "-name".
bool IsArgument(const wchar_t* commandLine, const wchar_t* name)
{
    return (*commandLine == L'/' || *commandLine == L'-') &&
           ::lstrcmpiW(commandLine + 1, name) == 0;
}

/// 0, or 1 with the failure in the log.
int ExitCode(HRESULT hr)
{
    if (SUCCEEDED(hr))
    {
        return 0;
    }
    std::array<wchar_t, 40> text{};
    ::wsprintfW(text.data(), L"registration failed: 0x%08lX", static_cast<unsigned long>(hr));
    agent_files::Log(text.data());
    return 1;
}

int Run(const wchar_t* commandLine)
{
    if (IsArgument(commandLine, L"regserver"))
    {
        return ExitCode(registration::Register());
    }
    if (IsArgument(commandLine, L"unregserver"))
    {
        return ExitCode(registration::Unregister());
    }
    return Serve();
}
} // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t* commandLine, int)
{
    const HRESULT hr = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr))
    {
        return 1;
    }
    const int exitCode = Run(commandLine);
    ::CoUninitialize();
    return exitCode;
}
