#include "tests/support/stand_in_agent.h"

#include "foundation/wide_text.h"
#include "update/update_agent.h"
#include "update/update_agent_class.h"

#include <objbase.h>

#include <stdexcept>
#include <utility>

namespace velt::test
{
namespace
{
std::string Text(BSTR text)
{
    return Utf8FromWide({text, ::SysStringLen(text)});
}

/// A dual interface of an object that is called through the vtable only.
template <class Dual>
class VtableOnly : public Dual
{
public:
    STDMETHODIMP GetTypeInfoCount(UINT*) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override
    {
        return E_NOTIMPL;
    }

protected:
    ~VtableOnly() = default;
};
} // namespace

class StandInAgent::Collection final : public VtableOnly<IUpdateAgentCollection>
{
public:
    Collection(StandInAgent& owner, std::string name, LONG count)
        : m_owner(owner),
          m_name(std::move(name)),
          m_count(count)
    {
        ::InterlockedIncrement(&m_owner.m_liveObjects);
    }

    ~Collection()
    {
        m_owner.log.Add(m_name + " gone");
        ::InterlockedDecrement(&m_owner.m_liveObjects);
    }

    STDMETHODIMP QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG left = ::InterlockedDecrement(&m_references);
        if (left == 0)
        {
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP get_Count(LONG* count) override
    {
        const HRESULT hr = m_owner.Called(m_name + ".Count");
        *count = SUCCEEDED(hr) ? m_count : 0;
        return hr;
    }

private:
    StandInAgent& m_owner;
    const std::string m_name;
    const LONG m_count;
    LONG m_references = 1;
};

class StandInAgent::Agent final : public VtableOnly<IUpdateAgent>
{
public:
    explicit Agent(StandInAgent& owner) : m_owner(owner), m_extended(*this)
    {
        ::InterlockedIncrement(&m_owner.m_liveObjects);
    }

    ~Agent()
    {
        m_owner.log.Add("agent gone");
        ::InterlockedDecrement(&m_owner.m_liveObjects);
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        *object = nullptr;
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, __uuidof(IUpdateAgent)))
        {
            *object = this;
            AddRef();
        }
        else if (m_owner.isExtended && ::IsEqualIID(iid, __uuidof(IUpdateAgentEx)))
        {
            *object = &m_extended;
            m_extended.AddRef();
        }
        return *object ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        Keep();
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG left = ::InterlockedDecrement(&m_references);
        if (left == 0)
        {
            m_owner.releases.Add("agent");
        }
        LetGo();
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP RegisterProduct(BSTR guid, BSTR version, BSTR server) override
    {
        return m_owner.Called("RegisterProduct " + Text(guid) + ' ' + Text(version) + ' ' +
                              Text(server));
    }

    STDMETHODIMP IsCheckWanted(BSTR guid, VARIANT_BOOL* wanted) override
    {
        *wanted = m_owner.isWanted;
        return m_owner.Called("IsCheckWanted " + Text(guid));
    }

    STDMETHODIMP SetLanguage(BSTR guid, LONG code) override
    {
        return m_owner.Called("SetLanguage " + Text(guid) + ' ' + std::to_string(code));
    }

    STDMETHODIMP StartForegroundUpdate(BSTR guid, LONG mode) override
    {
        return m_owner.Called("StartForegroundUpdate " + Text(guid) + ' ' + std::to_string(mode));
    }

    STDMETHODIMP StartBackgroundUpdate(BSTR guid) override
    {
        return m_owner.Called("StartBackgroundUpdate " + Text(guid));
    }

private:
    /// The extended interface, which counts its own references.
    class Extended final : public VtableOnly<IUpdateAgentEx>
    {
    public:
        explicit Extended(Agent& agent) : m_agent(agent) {}

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override
        {
            return m_agent.QueryInterface(iid, object);
        }

        STDMETHODIMP_(ULONG) AddRef() override
        {
            m_agent.Keep();
            return static_cast<ULONG>(::InterlockedIncrement(&m_references));
        }

        STDMETHODIMP_(ULONG) Release() override
        {
            const LONG left = ::InterlockedDecrement(&m_references);
            if (left == 0)
            {
                m_agent.m_owner.releases.Add("extended interface");
            }
            m_agent.LetGo();
            return static_cast<ULONG>(left);
        }

        STDMETHODIMP IsConnectedEx(BSTR guid, VARIANT_BOOL* connected) override
        {
            *connected = m_agent.m_owner.isConnected;
            return m_agent.m_owner.Called("IsConnectedEx " + Text(guid));
        }

        STDMETHODIMP SetServerAddress(BSTR guid, BSTR server) override
        {
            return m_agent.m_owner.Called("SetServerAddress " + Text(guid) + ' ' + Text(server));
        }

        STDMETHODIMP SetProperty(BSTR guid, BSTR name, BSTR value) override
        {
            return m_agent.m_owner.Called("SetProperty " + Text(guid) + ' ' + Text(name) + ' ' +
                                          Text(value));
        }

        STDMETHODIMP GetUpdates(BSTR guid, IUpdateAgentCollection** updates) override
        {
            return GiveCollection("GetUpdates " + Text(guid), "updates", m_agent.m_owner.updates,
                                  updates);
        }

        STDMETHODIMP GetMessages(BSTR guid, IUpdateAgentCollection** messages) override
        {
            return GiveCollection("GetMessages " + Text(guid), "messages", m_agent.m_owner.messages,
                                  messages);
        }

    private:
        HRESULT GiveCollection(const std::string& call, const std::string& name,
                               std::optional<LONG> count, IUpdateAgentCollection** collection)
        {
            *collection = nullptr;
            const HRESULT hr = m_agent.m_owner.Called(call);
            if (SUCCEEDED(hr) && count)
            {
                *collection = new Collection(m_agent.m_owner, name, *count);
            }
            return hr;
        }

        Agent& m_agent;
        LONG m_references = 0;
    };

    void Keep() noexcept
    {
        ::InterlockedIncrement(&m_allReferences);
    }

    void LetGo() noexcept
    {
        if (::InterlockedDecrement(&m_allReferences) == 0)
        {
            delete this;
        }
    }

    StandInAgent& m_owner;
    Extended m_extended;
    LONG m_references = 1;
    LONG m_allReferences = 1; // of both interfaces
};

class StandInAgent::Factory final : public IClassFactory
{
public:
    explicit Factory(StandInAgent& owner) : m_owner(owner) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown =
            ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IClassFactory);
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2; // the stand-in owns it
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        *object = nullptr;
        const HRESULT hr = m_owner.Called("CreateInstance");
        if (FAILED(hr) || outer)
        {
            return outer ? CLASS_E_NOAGGREGATION : hr;
        }
        auto* const agent = new Agent(m_owner);
        const HRESULT found = agent->QueryInterface(iid, object);
        agent->Release();
        return found;
    }

    STDMETHODIMP LockServer(BOOL) override
    {
        return S_OK;
    }

private:
    StandInAgent& m_owner;
};

StandInAgent::StandInAgent() : m_factory(std::make_unique<Factory>(*this))
{
    if (FAILED(::CoRegisterClassObject(kUpdateAgentClass, m_factory.get(), CLSCTX_INPROC_SERVER,
                                       REGCLS_MULTIPLEUSE, &m_registration)))
    {
        throw std::runtime_error("the stand-in agent cannot be registered");
    }
}

StandInAgent::~StandInAgent()
{
    ::CoRevokeClassObject(m_registration);
}

HRESULT StandInAgent::Called(const std::string& call)
{
    const std::string word = call.substr(0, call.find(' '));
    log.Add(call);
    if (onCall)
    {
        onCall(word);
    }
    const auto found = results.find(word);
    return found == results.end() ? S_OK : found->second;
}
} // namespace velt::test
