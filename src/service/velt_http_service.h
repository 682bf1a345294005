#pragma once

#include "foundation/com_object.h"
#include "foundation/dispatch_impl.h"
#include "foundation/velt_critical_section.h"
#include "service/cookie_store.h"
#include "service/event_connection_point.h"
#include "service/sink_list.h"
#include "service/update_worker.h"

#include <provider_lib.h>

#include <ocidl.h>

#include <cstddef>
#include <list>
#include <memory>
#include <string>

namespace velt
{
template <>
struct InterfaceIds<IProvideClassInfo2>
{
    static bool Contains(REFIID iid) noexcept
    {
        return ::IsEqualIID(iid, IID_IProvideClassInfo2) ||
               ::IsEqualIID(iid, IID_IProvideClassInfo);
    }
};
} // namespace velt

/// What hosts and scripts create: small values in the system's cookies, the connection's state and
/// the update service. Any thread may call; the object lock makes calls that touch its state follow
/// one another, by contract also while the update agent is asked.
///
/// By design, nearly all methods answer S_OK also when the platform failed, and leave the out value
/// as it was. A null out pointer is E_POINTER.
class CVeltHTTPService final
    : public velt::ComObject<CVeltHTTPService, velt::DispatchImpl<IVeltHTTPService>,
                             IConnectionPointContainer, IProvideClassInfo2>
{
public:
    /// Throws what queue_manager throws.
    explicit CVeltHTTPService(IUnknown* outer);

    CVeltHTTPService(const CVeltHTTPService&) = delete;
    CVeltHTTPService& operator=(const CVeltHTTPService&) = delete;

    ~CVeltHTTPService();

    STDMETHODIMP StartService() override;
    STDMETHODIMP WriteData(BSTR szSection, BSTR szName, BSTR szValue) override;
    STDMETHODIMP ReadData(BSTR szSection, BSTR szName, BSTR* szValue) override;
    STDMETHODIMP SafeWriteData(BSTR szSection, BSTR szName, BSTR szValue) override;
    STDMETHODIMP SafeReadData(BSTR szSection, BSTR szName, BSTR* szValue) override;
    STDMETHODIMP get_IsConnected(VARIANT_BOOL* pVal) override;
    STDMETHODIMP get_Redirect(BSTR* pVal) override;
    STDMETHODIMP put_domain(BSTR domain) override;
    STDMETHODIMP GetServiceTag(BSTR* tag) override;
    STDMETHODIMP InvokeUpdate(BSTR szInstallerGuid, BSTR szProductVersion, LONG szLocale,
                              BSTR szProdDesc) override;
    STDMETHODIMP IsUpdateOrMessageAvailable(BSTR szInstallerGuid, BSTR szProductVersion,
                                            LONG localeValue, VARIANT_BOOL vconnectToServer,
                                            VARIANT_BOOL* bAvailable) override;
    STDMETHODIMP GetDomain(BSTR* szDomain) override;
    STDMETHODIMP StartUpdateService(BSTR szInstallerGuid, BSTR szProductVersion, LONG szLocale,
                                    BSTR szProdDesc) override;

    STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** points) override;
    STDMETHODIMP FindConnectionPoint(REFIID iid, IConnectionPoint** point) override;

    STDMETHODIMP GetClassInfo(ITypeInfo** info) override;

    /// Only GUIDKIND_DEFAULT_SOURCE_DISP_IID has an answer.
    STDMETHODIMP GetGUID(DWORD kind, GUID* guid) override;

private:
    class AgentCall;

    /// A request of the update worker with its parameters. With the lock held. Throws
    /// std::bad_alloc.
    std::shared_ptr<IS_upgrade_request> MakeRequest(BSTR installerGuid, BSTR productVersion,
                                                    LONG locale, BSTR description, bool foreground);

    VeltCriticalSection m_lock;

    // constant after construction
    const std::shared_ptr<velt::SinkList> m_sinks; // does its own locking
    velt::EventConnectionPoint m_events;

    // guarded by m_lock
    std::unique_ptr<velt::UpdateWorker> m_worker;
    velt::CookieStore m_cookies;
    std::size_t m_agentCalls = 0;    // of the thread that holds the lock, one inside another
    std::list<std::wstring> m_ended; // products whose work has ended and is not told yet
};
