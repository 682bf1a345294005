#include "samples/update_agent/sample_agent.h"

#include "samples/update_agent/update_window.h"

#include <new>

namespace
{
/// Runs the body of a method; an exception becomes its result, because none may reach COM.
template <class Body>
HRESULT Guarded(Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const std::bad_alloc&)
    {
        return E_OUTOFMEMORY;
    }
    catch (...)
    {
        return E_UNEXPECTED;
    }
}

std::wstring Text(BSTR text)
{
    return {text, ::SysStringLen(text)};
}

/// Logs a call and takes the time that the settings ask for.
void Called(const std::wstring& call)
{
    agent_files::Log(call);
    const LONG delayMs = agent_files::Setting(L"agent", L"delay", 0);
    if (delayMs > 0)
    {
        ::Sleep(static_cast<DWORD>(delayMs));
    }
}

VARIANT_BOOL Flag(const wchar_t* name)
{
    return agent_files::Setting(L"agent", name, 1) != 0 ? VARIANT_TRUE : VARIANT_FALSE;
}

/// What is pending of one kind for a product.
HRESULT GiveCollection(const wchar_t* kind, BSTR productGuid, IUpdateAgentCollection** collection)
{
    const LONG count = agent_files::Setting(kind, Text(productGuid).c_str(), 0);
    *collection = new (std::nothrow) SampleCollection(count);
    return *collection ? S_OK : E_OUTOFMEMORY;
}
} // namespace

STDMETHODIMP SampleCollection::QueryInterface(REFIID iid, void** object)
{
    const bool isKnown = ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IDispatch) ||
                         ::IsEqualIID(iid, __uuidof(IUpdateAgentCollection));
    *object = isKnown ? static_cast<IUpdateAgentCollection*>(this) : nullptr;
    if (!isKnown)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) SampleCollection::AddRef()
{
    return static_cast<ULONG>(++m_references); // the server has one thread
}

STDMETHODIMP_(ULONG) SampleCollection::Release()
{
    const LONG left = --m_references;
    if (left == 0)
    {
        delete this;
    }
    return static_cast<ULONG>(left);
}

STDMETHODIMP SampleCollection::get_Count(LONG* count)
{
    *count = m_count;
    return S_OK;
}

STDMETHODIMP SampleAgent::QueryInterface(REFIID iid, void** object)
{
    *object = nullptr;
    if (::IsEqualIID(iid, __uuidof(IUpdateAgentEx)))
    {
        *object = static_cast<IUpdateAgentEx*>(this);
    }
    else if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IDispatch) ||
             ::IsEqualIID(iid, __uuidof(IUpdateAgent)))
    {
        *object = static_cast<IUpdateAgent*>(this);
    }
    if (!*object)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) SampleAgent::AddRef()
{
    return static_cast<ULONG>(++m_references);
}

STDMETHODIMP_(ULONG) SampleAgent::Release()
{
    const LONG left = --m_references;
    if (left == 0)
    {
        delete this;
    }
    return static_cast<ULONG>(left);
}

STDMETHODIMP SampleAgent::RegisterProduct(BSTR productGuid, BSTR version, BSTR serverAddress)
{
    return Guarded([&] {
        Called(L"RegisterProduct " + Text(productGuid) + L' ' + Text(version) + L' ' +
               Text(serverAddress));
        agent_files::KeepProduct(Text(productGuid), L"Version", Text(version));
        agent_files::KeepProduct(Text(productGuid), L"Server", Text(serverAddress));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::IsCheckWanted(BSTR productGuid, VARIANT_BOOL* wanted)
{
    return Guarded([&] {
        *wanted = Flag(L"wanted");
        Called(L"IsCheckWanted " + Text(productGuid) + (*wanted ? L": yes" : L": no"));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::SetLanguage(BSTR productGuid, LONG languageCode)
{
    return Guarded([&] {
        const std::wstring code = std::to_wstring(languageCode);
        Called(L"SetLanguage " + Text(productGuid) + L' ' + code);
        agent_files::KeepProduct(Text(productGuid), L"Language", code);
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::StartForegroundUpdate(BSTR productGuid, LONG mode)
{
    return Guarded([&] {
        const std::wstring guid = Text(productGuid);
        Called(L"StartForegroundUpdate " + guid + L' ' + std::to_wstring(mode));
        const std::wstring name = agent_files::Product(guid, L"ProductName");
        UpdateWindow::Show(L"Updating " + (name.empty() ? guid : name));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::StartBackgroundUpdate(BSTR productGuid)
{
    return Guarded([&] {
        Called(L"StartBackgroundUpdate " + Text(productGuid));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::IsConnectedEx(BSTR productGuid, VARIANT_BOOL* connected)
{
    return Guarded([&] {
        *connected = Flag(L"connected");
        Called(L"IsConnectedEx " + Text(productGuid) + (*connected ? L": yes" : L": no"));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::SetServerAddress(BSTR productGuid, BSTR serverAddress)
{
    return Guarded([&] {
        Called(L"SetServerAddress " + Text(productGuid) + L' ' + Text(serverAddress));
        agent_files::KeepProduct(Text(productGuid), L"Server", Text(serverAddress));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::SetProperty(BSTR productGuid, BSTR name, BSTR value)
{
    return Guarded([&] {
        Called(L"SetProperty " + Text(productGuid) + L' ' + Text(name) + L' ' + Text(value));
        agent_files::KeepProduct(Text(productGuid), Text(name).c_str(), Text(value));
        return S_OK;
    });
}

STDMETHODIMP SampleAgent::GetUpdates(BSTR productGuid, IUpdateAgentCollection** updates)
{
    return Guarded([&] {
        Called(L"GetUpdates " + Text(productGuid));
        return GiveCollection(L"updates", productGuid, updates);
    });
}

STDMETHODIMP SampleAgent::GetMessages(BSTR productGuid, IUpdateAgentCollection** messages)
{
    return Guarded([&] {
        Called(L"GetMessages " + Text(productGuid));
        return GiveCollection(L"messages", productGuid, messages);
    });
}
