#include "service/velt_http_service.h"

#include "foundation/bstr.h"
#include "foundation/com_method.h"
#include "foundation/endpoints.h"
#include "foundation/type_info_holder.h"
#include "foundation/utrace.h"
#include "foundation/velt_auto_critical_section.h"
#include "service/connection_point_enumerator.h"
#include "service/service_tag.h"
#include "update/is_upgrade_request.h"

#include <olectl.h>
#include <wininet.h>
#include <wrl/client.h>

#include <cwchar>
#include <list>
#include <optional>
#include <string>
#include <utility>

using Microsoft::WRL::ComPtr;
using velt::ComMethod;
using velt::MakeBstr;
using velt::UniqueBstr;

namespace
{
constexpr wchar_t kOwnInstallerGuid[] = L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";
constexpr wchar_t kOwnVersion[] = L"3.0";
constexpr LONG kOwnLocale = 1033;

velt::TypeInfoHolder& ClassInfo() noexcept
{
    static constinit velt::TypeInfoHolder s_classInfo{CLSID_CVeltHTTPService};
    return s_classInfo;
}

/// The text of a BSTR; a null one is an empty text.
std::wstring TextOf(BSTR text)
{
    return text ? std::wstring(text, ::SysStringLen(text)) : std::wstring();
}

/// The same, for calls that read up to a NUL.
const wchar_t* PointerOf(BSTR text) noexcept
{
    return text ? text : L"";
}

/// All cookies of a URL as the platform lists them; none when it has none, or fails.
std::optional<std::wstring> CookieText(const wchar_t* url)
{
    DWORD size = 0;
    if (!::InternetGetCookieW(url, nullptr, nullptr, &size) || size == 0)
    {
        return std::nullopt;
    }
    std::wstring text(std::size_t{size} + 1, L'\0');
    if (!::InternetGetCookieW(url, nullptr, text.data(), &size))
    {
        return std::nullopt;
    }
    text.resize(std::wcslen(text.c_str()));
    return text;
}
} // namespace

/// A call that has the update agent asked, with the object lock held. The calling apartment may
/// take calls meanwhile, and one of those comes in on the same thread, lock or no lock; so the
/// events of all of them wait until the outermost one has given the lock up.
class CVeltHTTPService::AgentCall
{
public:
    explicit AgentCall(CVeltHTTPService& service) noexcept : m_service(service)
    {
        m_service.m_lock.Enter();
        ++m_service.m_agentCalls;
    }

    AgentCall(const AgentCall&) = delete;
    AgentCall& operator=(const AgentCall&) = delete;

    ~AgentCall()
    {
        std::list<std::wstring> ended;
        if (--m_service.m_agentCalls == 0)
        {
            ended.swap(m_service.m_ended);
        }
        m_service.m_lock.Leave();
        for (const std::wstring& installerGuid : ended)
        {
            m_service.m_sinks->NotifySelfUpgrade(installerGuid);
        }
    }

    /// The call's work for a product has ended: the sinks will hear of it. Takes the list's items
    /// over, so that nothing can fail once the work is done.
    void HasEnded(std::list<std::wstring>& installerGuid) noexcept
    {
        m_service.m_ended.splice(m_service.m_ended.end(), installerGuid);
    }

private:
    CVeltHTTPService& m_service;
};

CVeltHTTPService::CVeltHTTPService(IUnknown* outer)
    : ComObject(outer),
      m_sinks(std::make_shared<velt::SinkList>()),
      m_events(*this, m_sinks),
      m_worker(std::make_unique<velt::UpdateWorker>(m_sinks))
{
}

CVeltHTTPService::~CVeltHTTPService()
{
    m_sinks->Clear();
    velt::UpdateWorker::End(std::move(m_worker));
}

std::shared_ptr<IS_upgrade_request> CVeltHTTPService::MakeRequest(BSTR installerGuid,
                                                                  BSTR productVersion, LONG locale,
                                                                  BSTR description, bool foreground)
{
    auto request = m_worker->MakeRequest();
    request->SetISParameters(TextOf(installerGuid), TextOf(productVersion), locale,
                             TextOf(description), foreground);
    return request;
}

STDMETHODIMP CVeltHTTPService::StartService()
{
    return ComMethod("CVeltHTTPService::StartService", [&] {
        return StartUpdateService(MakeBstr(kOwnInstallerGuid).Get(), MakeBstr(kOwnVersion).Get(),
                                  kOwnLocale, MakeBstr(L"").Get());
    });
}

STDMETHODIMP CVeltHTTPService::WriteData(BSTR szSection, BSTR szName, BSTR szValue)
{
    return ComMethod("CVeltHTTPService::WriteData", [&] {
        const VeltAutoCriticalSection lock(&m_lock);
        // The name goes as it stands: with a null one the data carries "name=value". By design, the
        // platform's answer is not passed on.
        if (!::InternetSetCookieW(PointerOf(szSection), szName, PointerOf(szValue)))
        {
            UTrace::TraceLevel1("InternetSetCookieW failed: %lu", ::GetLastError());
        }
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::ReadData(BSTR szSection, BSTR, BSTR* szValue)
{
    return ComMethod("CVeltHTTPService::ReadData", [&] {
        if (!szValue)
        {
            return E_POINTER;
        }
        const VeltAutoCriticalSection lock(&m_lock);
        if (const std::optional<std::wstring> text = CookieText(PointerOf(szSection)))
        {
            *szValue = MakeBstr(*text).Release();
        }
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::SafeWriteData(BSTR szSection, BSTR szName, BSTR szValue)
{
    return ComMethod("CVeltHTTPService::SafeWriteData", [&] {
        const VeltAutoCriticalSection lock(&m_lock);
        m_cookies.Write(PointerOf(szSection), TextOf(szName), TextOf(szValue));
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::SafeReadData(BSTR szSection, BSTR szName, BSTR* szValue)
{
    return ComMethod("CVeltHTTPService::SafeReadData", [&] {
        if (!szValue)
        {
            return E_POINTER;
        }
        const VeltAutoCriticalSection lock(&m_lock);
        if (const auto value = m_cookies.Read(PointerOf(szSection), TextOf(szName)))
        {
            *szValue = MakeBstr(*value).Release();
        }
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::get_IsConnected(VARIANT_BOOL* pVal)
{
    return ComMethod("CVeltHTTPService::get_IsConnected", [&] {
        if (!pVal)
        {
            return E_POINTER;
        }
        const VeltAutoCriticalSection lock(&m_lock);
        *pVal = m_worker->IsConnected() ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::get_Redirect(BSTR* pVal)
{
    return ComMethod("CVeltHTTPService::get_Redirect", [&] {
        if (!pVal)
        {
            return E_POINTER;
        }
        *pVal = // a constant: no state is touched, so nothing is locked
            MakeBstr(std::wstring(L"http://") + velt::kRedirectHost + L"/redirect/redirect.aspx?")
                .Release();
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::put_domain(BSTR domain)
{
    return ComMethod("CVeltHTTPService::put_domain", [&] {
        const VeltAutoCriticalSection lock(&m_lock);
        m_cookies.SetDomain(TextOf(domain));
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::GetServiceTag(BSTR* tag)
{
    // A single-threaded apartment takes calls while it waits, a last Release among them.
    const ComPtr<IVeltHTTPService> self(this);
    return ComMethod("CVeltHTTPService::GetServiceTag", [&] {
        if (!tag)
        {
            return E_POINTER;
        }
        if (UniqueBstr found = velt::ReadServiceTag()) // touches no state, so nothing is locked
        {
            *tag = found.Release();
        }
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::InvokeUpdate(BSTR szInstallerGuid, BSTR szProductVersion,
                                            LONG szLocale, BSTR szProdDesc)
{
    // Until the end: a call that is taken meanwhile, or a sink, may give up the last reference.
    const ComPtr<IVeltHTTPService> self(this);
    return ComMethod("CVeltHTTPService::InvokeUpdate", [&] {
        std::list<std::wstring> installerGuid{TextOf(szInstallerGuid)};
        AgentCall call(*this);
        MakeRequest(szInstallerGuid, szProductVersion, szLocale, szProdDesc, true)->DoWork();
        call.HasEnded(installerGuid);
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::IsUpdateOrMessageAvailable(BSTR szInstallerGuid,
                                                          BSTR szProductVersion, LONG localeValue,
                                                          VARIANT_BOOL vconnectToServer,
                                                          VARIANT_BOOL* bAvailable)
{
    // A single-threaded apartment takes calls while the agent works, a last Release among them.
    const ComPtr<IVeltHTTPService> self(this);
    return ComMethod("CVeltHTTPService::IsUpdateOrMessageAvailable", [&] {
        if (!bAvailable)
        {
            return E_POINTER;
        }
        bool available = false;
        {
            const AgentCall call(*this);
            available = MakeRequest(szInstallerGuid, szProductVersion, localeValue, nullptr, true)
                            ->IsUpdateOrMessageAvailable(vconnectToServer == VARIANT_TRUE);
        }
        *bAvailable = available ? VARIANT_TRUE : VARIANT_FALSE;
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::GetDomain(BSTR* szDomain)
{
    return ComMethod("CVeltHTTPService::GetDomain", [&] {
        if (!szDomain)
        {
            return E_POINTER;
        }
        const VeltAutoCriticalSection lock(&m_lock);
        *szDomain = MakeBstr(m_cookies.Domain()).Release();
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::StartUpdateService(BSTR szInstallerGuid, BSTR szProductVersion,
                                                  LONG szLocale, BSTR szProdDesc)
{
    return ComMethod("CVeltHTTPService::StartUpdateService", [&] {
        const VeltAutoCriticalSection lock(&m_lock);
        m_worker->Queue(
            MakeRequest(szInstallerGuid, szProductVersion, szLocale, szProdDesc, false));
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::EnumConnectionPoints(IEnumConnectionPoints** points)
{
    return ComMethod("CVeltHTTPService::EnumConnectionPoints", [&] {
        return velt::CreateComObject<velt::CConnectionPointEnumerator>(
            points, static_cast<IConnectionPoint*>(&m_events), std::size_t{0});
    });
}

STDMETHODIMP CVeltHTTPService::FindConnectionPoint(REFIID iid, IConnectionPoint** point)
{
    return ComMethod("CVeltHTTPService::FindConnectionPoint", [&] {
        if (!point)
        {
            return E_POINTER;
        }
        const bool isKnown = ::IsEqualIID(iid, DIID_IVeltHTTPServiceEvents);
        *point = isKnown ? &m_events : nullptr;
        if (!isKnown)
        {
            return CONNECT_E_NOCONNECTION;
        }
        m_events.AddRef();
        return S_OK;
    });
}

STDMETHODIMP CVeltHTTPService::GetClassInfo(ITypeInfo** info)
{
    return ComMethod("CVeltHTTPService::GetClassInfo", [&] {
        if (!info)
        {
            return E_POINTER;
        }
        const HRESULT hr = ClassInfo().Get(info);
        if (SUCCEEDED(hr))
        {
            (*info)->AddRef();
        }
        return hr;
    });
}

STDMETHODIMP CVeltHTTPService::GetGUID(DWORD kind, GUID* guid)
{
    return ComMethod("CVeltHTTPService::GetGUID", [&] {
        if (!guid)
        {
            return E_POINTER;
        }
        const bool isKnown = kind == GUIDKIND_DEFAULT_SOURCE_DISP_IID;
        *guid = isKnown ? DIID_IVeltHTTPServiceEvents : GUID_NULL;
        return isKnown ? S_OK : E_INVALIDARG;
    });
}
