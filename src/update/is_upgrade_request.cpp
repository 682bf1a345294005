#include "update/is_upgrade_request.h"

#include "foundation/bstr.h"
#include "foundation/endpoints.h"
#include "foundation/exception_to_hresult.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "foundation/wide_text.h"
#include "update/language_code.h"
#include "update/registered_products.h"
#include "update/update_agent.h"
#include "update/update_agent_class.h"

#include <objbase.h>
#include <wrl/client.h>

#include <utility>

using CONNECTION_MANAGER::connection_object;
using Microsoft::WRL::ComPtr;
using velt::MakeBstr;
using velt::ThrowIfFailed;
using velt::UniqueBstr;

namespace
{
constexpr LONG kForegroundMode = 8;
constexpr wchar_t kAgentWindow[] = L"Software Manager";

/// Runs work of which no failure may get out, inside a trace scope.
template <class Body>
void RunQuietly(const char* function, Body&& body) noexcept
{
    try
    {
        const UTrace::Function trace(function);
        try
        {
            body();
        }
        catch (...)
        {
            UTrace::TraceLevel1("Exception thrown: hr = %lX",
                                static_cast<unsigned long>(velt::HResultFromCurrentException()));
        }
    }
    catch (...)
    {
        // The thread cannot trace, or not any more: nothing is left that could be done.
    }
}

UniqueBstr UpdateServerAddress()
{
    return MakeBstr(std::wstring(L"http://") + velt::kUpdateHost);
}

HRESULT CreateAgent(ComPtr<IUpdateAgent>& agent)
{
    return ::CoCreateInstance(velt::kUpdateAgentClass, nullptr, CLSCTX_ALL,
                              IID_PPV_ARGS(agent.ReleaseAndGetAddressOf()));
}

/// How much is in a collection; a missing one is empty.
LONG CountOf(const ComPtr<IUpdateAgentCollection>& collection)
{
    LONG count = 0;
    if (collection)
    {
        ThrowIfFailed(collection->get_Count(&count));
    }
    return count;
}

bool AreUpdatesOrMessagesAvailable(IUpdateAgentEx& agentEx, BSTR guid)
{
    ComPtr<IUpdateAgentCollection> collection;
    ThrowIfFailed(agentEx.GetUpdates(guid, &collection));
    const LONG updates = CountOf(collection);
    ThrowIfFailed(agentEx.GetMessages(guid, collection.ReleaseAndGetAddressOf()));
    const LONG messages = CountOf(collection);
    return updates > 0 || messages > 0;
}

void RaiseAgentWindow()
{
    const HWND window = ::FindWindowW(nullptr, kAgentWindow);
    UTrace::TraceLevel3("FindWindowW \"Software Manager\" returned %08lX",
                        static_cast<unsigned long>(reinterpret_cast<UINT_PTR>(window)));
    if (window)
    {
        ::BringWindowToTop(window);
    }
}
} // namespace

IS_upgrade_request::IS_upgrade_request(CONNECTION_MANAGER::ICallback* owner) noexcept
    : m_owner(owner)
{
}

void IS_upgrade_request::SetISParameters(std::wstring installerGuid, std::wstring productVersion,
                                         LONG locale, std::wstring description, bool foreground)
{
    m_installerGuid = std::move(installerGuid);
    m_productVersion = std::move(productVersion);
    m_locale = locale;
    m_description = std::move(description);
    m_foreground = foreground;
    UTrace::TraceLevel3("IS_upgrade_request::StartUpdateService - params = {%s, %s, %ld, %s}",
                        velt::Utf8FromWide(m_installerGuid).c_str(),
                        velt::Utf8FromWide(m_productVersion).c_str(), m_locale,
                        velt::Utf8FromWide(m_description).c_str());
}

const std::wstring& IS_upgrade_request::InstallerGuid() const noexcept
{
    return m_installerGuid;
}

void IS_upgrade_request::DoWork() noexcept
{
    m_agentConnected.reset();
    RunQuietly("IS_upgrade_request::DoWork", [&] { Work(); });
}

bool IS_upgrade_request::IsUpdateOrMessageAvailable(bool connectToServer) noexcept
{
    const CLibraryUtils::SmartComInitializer com; // outlives every interface
    bool available = false;
    RunQuietly("IS_upgrade_request::IsUpdateOrMessageAvailable",
               [&] { available = AskAvailability(connectToServer); });
    return available;
}

DWORD IS_upgrade_request::Step(connection_object& connection, const std::vector<std::string>&, bool)
{
    DoWork();
    if (m_agentConnected)
    {
        return *m_agentConnected ? kFinished : kUnderWay;
    }
    DWORD flags = 0;
    return connection.IsConnected(&flags) == S_OK ? kFinished : kUnderWay;
}

void IS_upgrade_request::Complete(connection_object&, DWORD*)
{
    if (m_owner)
    {
        m_owner->OnRequestComplete(*this);
    }
}

void IS_upgrade_request::Work()
{
    ComPtr<IUpdateAgent> agent;
    const HRESULT hr = CreateAgent(agent);
    UTrace::TraceLevel3("m_agent.CoCreateInstance returns %lX", static_cast<unsigned long>(hr));
    ThrowIfFailed(hr);
    ComPtr<IUpdateAgentEx> agentEx;
    if (FAILED(agent.As(&agentEx)))
    {
        return;
    }
    const UniqueBstr guid = MakeBstr(m_installerGuid);
    if (Register(*agent.Get(), guid.Get()))
    {
        Update(*agent.Get(), *agentEx.Get(), guid.Get());
    }
}

bool IS_upgrade_request::Register(IUpdateAgent& agent, BSTR guid) const
{
    if (!velt::IsUpdateGUIDRegistered(m_installerGuid, m_productVersion))
    {
        const UniqueBstr version = MakeBstr(m_productVersion);
        const UniqueBstr server = UpdateServerAddress();
        ThrowIfFailed(agent.RegisterProduct(guid, version.Get(), server.Get()));
        velt::SetRegisteredUpdateGUIDIntoRegistry(m_installerGuid, m_productVersion);
        return true;
    }
    VARIANT_BOOL wanted = VARIANT_TRUE;
    if (!m_foreground)
    {
        ThrowIfFailed(agent.IsCheckWanted(guid, &wanted));
    }
    return wanted != VARIANT_FALSE;
}

void IS_upgrade_request::Update(IUpdateAgent& agent, IUpdateAgentEx& agentEx, BSTR guid)
{
    const LONG language = GetLanguageCode();
    UTrace::TraceLevel3("Update service invocation in the following language %ld", language);
    ThrowIfFailed(agent.SetLanguage(guid, language));

    VARIANT_BOOL bConnected = VARIANT_FALSE;
    const HRESULT hr = agentEx.IsConnectedEx(guid, &bConnected);
    UTrace::TraceLevel3("pAgentEx->IsConnectedEx returned %08lX, bConnected = %d",
                        static_cast<unsigned long>(hr), bConnected);
    const bool connected = SUCCEEDED(hr) && bConnected != VARIANT_FALSE;
    if (SUCCEEDED(hr))
    {
        m_agentConnected = connected;
        const UniqueBstr server = UpdateServerAddress();
        ThrowIfFailed(agentEx.SetServerAddress(guid, server.Get()));
        if (!m_description.empty())
        {
            const UniqueBstr name = MakeBstr(L"ProductName");
            const UniqueBstr description = MakeBstr(m_description);
            ThrowIfFailed(agentEx.SetProperty(guid, name.Get(), description.Get()));
        }
    }
    StartUpdate(agent, agentEx, guid, connected);
    RaiseAgentWindow();
}

void IS_upgrade_request::StartUpdate(IUpdateAgent& agent, IUpdateAgentEx& agentEx, BSTR guid,
                                     bool connected) const
{
    if (m_foreground)
    {
        UTrace::TraceLevel3("AppUpdating in ForeGround.............");
        ThrowIfFailed(agent.StartForegroundUpdate(guid, kForegroundMode));
    }
    else if (connected)
    {
        if (AreUpdatesOrMessagesAvailable(agentEx, guid))
        {
            UTrace::TraceLevel3("AppUpdating in BackGround.............");
            ThrowIfFailed(agent.StartBackgroundUpdate(guid));
        }
        else
        {
            UTrace::TraceLevel3("UpdatesAvailable(pAgentEx)= false");
        }
    }
}

bool IS_upgrade_request::AskAvailability(bool connectToServer) const
{
    ComPtr<IUpdateAgent> agent;
    ThrowIfFailed(CreateAgent(agent));
    if (!connectToServer)
    {
        return true;
    }
    ComPtr<IUpdateAgentEx> agentEx;
    ThrowIfFailed(agent.As(&agentEx));
    const UniqueBstr guid = MakeBstr(m_installerGuid);
    const UniqueBstr server = UpdateServerAddress();
    ThrowIfFailed(agentEx->SetServerAddress(guid.Get(), server.Get()));
    // Whether it is connected does not matter, only that it could be asked.
    VARIANT_BOOL connected = VARIANT_FALSE;
    ThrowIfFailed(agentEx->IsConnectedEx(guid.Get(), &connected));
    return AreUpdatesOrMessagesAvailable(*agentEx.Get(), guid.Get());
}

LONG IS_upgrade_request::GetLanguageCode() const
{
    const auto code = velt::FindLanguageCode(m_locale);
    if (!code)
    {
        UTrace::TraceLevel3("IS_upgrade_request::GetLanguageCode - locale LCID is not supported by "
                            "ISUM and not recognized by map. Default to English.");
    }
    return code.value_or(velt::kDefaultLanguageCode);
}
