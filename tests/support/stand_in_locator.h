#pragma once

#include "tests/support/call_log.h"

#include <windows.h>

#include <objbase.h>
#include <wbemcli.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace velt::test
{
/// The management locator for the calling thread's apartment, until the end of the scope: a class
/// object that takes its place there. It has one enclosure and logs each step with its arguments;
/// steps fail as the test says. Its objects live in it and count their references.
class StandInLocator
{
public:
    /// Throws std::runtime_error when the class object cannot be registered.
    StandInLocator()
    {
        if (FAILED(::CoRegisterClassObject(CLSID_WbemLocator, &m_factory, CLSCTX_INPROC_SERVER,
                                           REGCLS_MULTIPLEUSE, &m_registration)))
        {
            throw std::runtime_error("the class object cannot be registered");
        }
    }

    StandInLocator(const StandInLocator&) = delete;
    StandInLocator& operator=(const StandInLocator&) = delete;

    ~StandInLocator()
    {
        ::CoRevokeClassObject(m_registration);
    }

    /// References to its objects that nobody has given back.
    LONG References() const noexcept
    {
        return m_references;
    }

    CallLog log;
    std::string failing;                        // the step that fails, as the log has its name
    HRESULT failure = E_FAIL;                   // with that code
    std::function<void(VARIANT*)> serialNumber; // fills the property

private:
    /// References count for all objects together.
    template <class Interface>
    class Part : public Interface
    {
    public:
        explicit Part(StandInLocator& locator) : m_locator(locator) {}

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override
        {
            const bool known = iid == IID_IUnknown || iid == __uuidof(Interface);
            *object = known ? this : nullptr;
            if (!known)
            {
                return E_NOINTERFACE;
            }
            AddRef();
            return S_OK;
        }

        STDMETHODIMP_(ULONG) AddRef() override
        {
            return static_cast<ULONG>(::InterlockedIncrement(&m_locator.m_references));
        }

        STDMETHODIMP_(ULONG) Release() override
        {
            return static_cast<ULONG>(::InterlockedDecrement(&m_locator.m_references));
        }

    protected:
        /// Logs a step; its result. The part that it leads to is handed out when it succeeds.
        template <class Next>
        HRESULT Lead(const std::string& step, const std::string& arguments, Next& next, Next** out)
        {
            m_locator.log.Add(step + arguments);
            if (m_locator.failing == step)
            {
                return m_locator.failure;
            }
            *out = &next;
            next.AddRef();
            return S_OK;
        }

        StandInLocator& m_locator;
    };

#define VELT_UNUSED(name, ...)              \
    STDMETHODIMP name(__VA_ARGS__) override \
    {                                       \
        return E_NOTIMPL;                   \
    }

    class Enclosure final : public Part<IWbemClassObject>
    {
    public:
        using Part::Part;

        STDMETHODIMP Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                         LONG* flavor) override
        {
            m_locator.log.Add("Get " + Narrow(name) + (flags || type || flavor ? " ?" : ""));
            if (m_locator.failing == "Get")
            {
                return m_locator.failure;
            }
            m_locator.serialNumber(value);
            return S_OK;
        }

        VELT_UNUSED(GetQualifierSet, IWbemQualifierSet**)
        VELT_UNUSED(Put, LPCWSTR, LONG, VARIANT*, CIMTYPE)
        VELT_UNUSED(Delete, LPCWSTR)
        VELT_UNUSED(GetNames, LPCWSTR, LONG, VARIANT*, SAFEARRAY**)
        VELT_UNUSED(BeginEnumeration, LONG)
        VELT_UNUSED(Next, LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*)
        VELT_UNUSED(EndEnumeration)
        VELT_UNUSED(GetPropertyQualifierSet, LPCWSTR, IWbemQualifierSet**)
        VELT_UNUSED(Clone, IWbemClassObject**)
        VELT_UNUSED(GetObjectText, LONG, BSTR*)
        VELT_UNUSED(SpawnDerivedClass, LONG, IWbemClassObject**)
        VELT_UNUSED(SpawnInstance, LONG, IWbemClassObject**)
        VELT_UNUSED(CompareTo, LONG, IWbemClassObject*)
        VELT_UNUSED(GetPropertyOrigin, LPCWSTR, BSTR*)
        VELT_UNUSED(InheritsFrom, LPCWSTR)
        VELT_UNUSED(GetMethod, LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**)
        VELT_UNUSED(PutMethod, LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*)
        VELT_UNUSED(DeleteMethod, LPCWSTR)
        VELT_UNUSED(BeginMethodEnumeration, LONG)
        VELT_UNUSED(NextMethod, LONG, BSTR*, IWbemClassObject**, IWbemClassObject**)
        VELT_UNUSED(EndMethodEnumeration)
        VELT_UNUSED(GetMethodQualifierSet, LPCWSTR, IWbemQualifierSet**)
        VELT_UNUSED(GetMethodOrigin, LPCWSTR, BSTR*)
    };

    class Enumerator final : public Part<IEnumWbemClassObject>
    {
    public:
        using Part::Part;

        STDMETHODIMP Next(LONG timeout, ULONG count, IWbemClassObject** objects,
                          ULONG* returned) override
        {
            *returned = 0;
            IWbemClassObject& enclosure = m_locator.m_enclosure;
            const HRESULT hr =
                Lead("Next", " " + std::to_string(timeout) + " " + std::to_string(count), enclosure,
                     objects);
            *returned = hr == S_OK ? 1 : 0;
            return hr;
        }

        VELT_UNUSED(Reset)
        VELT_UNUSED(NextAsync, ULONG, IWbemObjectSink*)
        VELT_UNUSED(Clone, IEnumWbemClassObject**)
        VELT_UNUSED(Skip, LONG, ULONG)
    };

    class Services final : public Part<IWbemServices>
    {
    public:
        using Part::Part;

        STDMETHODIMP ExecQuery(const BSTR language, const BSTR query, LONG, IWbemContext*,
                               IEnumWbemClassObject** objects) override
        {
            IEnumWbemClassObject& enumerator = m_locator.m_enumerator;
            return Lead("ExecQuery", " " + Narrow(language) + " " + Narrow(query), enumerator,
                        objects);
        }

        VELT_UNUSED(OpenNamespace, const BSTR, LONG, IWbemContext*, IWbemServices**,
                    IWbemCallResult**)
        VELT_UNUSED(CancelAsyncCall, IWbemObjectSink*)
        VELT_UNUSED(QueryObjectSink, LONG, IWbemObjectSink**)
        VELT_UNUSED(GetObject, const BSTR, LONG, IWbemContext*, IWbemClassObject**,
                    IWbemCallResult**)
        VELT_UNUSED(GetObjectAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(PutClass, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
        VELT_UNUSED(PutClassAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(DeleteClass, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
        VELT_UNUSED(DeleteClassAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(CreateClassEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
        VELT_UNUSED(CreateClassEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(PutInstance, IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**)
        VELT_UNUSED(PutInstanceAsync, IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(DeleteInstance, const BSTR, LONG, IWbemContext*, IWbemCallResult**)
        VELT_UNUSED(DeleteInstanceAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(CreateInstanceEnum, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**)
        VELT_UNUSED(CreateInstanceEnumAsync, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(ExecQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*)
        VELT_UNUSED(ExecNotificationQuery, const BSTR, const BSTR, LONG, IWbemContext*,
                    IEnumWbemClassObject**)
        VELT_UNUSED(ExecNotificationQueryAsync, const BSTR, const BSTR, LONG, IWbemContext*,
                    IWbemObjectSink*)
        VELT_UNUSED(ExecMethod, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                    IWbemClassObject**, IWbemCallResult**)
        VELT_UNUSED(ExecMethodAsync, const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                    IWbemObjectSink*)
    };

    class Locator final : public Part<IWbemLocator>
    {
    public:
        using Part::Part;

        STDMETHODIMP ConnectServer(const BSTR place, const BSTR user, const BSTR password,
                                   const BSTR locale, LONG, const BSTR authority, IWbemContext*,
                                   IWbemServices** services) override
        {
            IWbemServices& own = m_locator.m_services;
            return Lead("ConnectServer",
                        " " + Narrow(place) + (user || password || locale || authority ? " ?" : ""),
                        own, services);
        }
    };

    class Factory final : public Part<IClassFactory>
    {
    public:
        using Part::Part;

        STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override
        {
            IWbemLocator& locator = m_locator.m_object;
            IWbemLocator* made = nullptr;
            const HRESULT hr = Lead("CreateInstance", outer || iid != IID_IWbemLocator ? " ?" : "",
                                    locator, &made);
            *object = made;
            return hr;
        }

        STDMETHODIMP LockServer(BOOL) override
        {
            return S_OK;
        }
    };

#undef VELT_UNUSED

    static std::string Narrow(const wchar_t* text)
    {
        const std::wstring wide = text ? text : L"<null>";
        return std::string(wide.begin(), wide.end()); // ASCII
    }

    volatile LONG m_references = 0;
    Enclosure m_enclosure{*this};
    Enumerator m_enumerator{*this};
    Services m_services{*this};
    Locator m_object{*this};
    Factory m_factory{*this};
    DWORD m_registration = 0;
};
} // namespace velt::test
