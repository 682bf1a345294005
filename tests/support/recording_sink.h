#pragma once

#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"

#include <provider_lib.h>

#include <windows.h>

#include <oaidl.h>
#include <objbase.h>
#include <wrl/client.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
/// A sink of IVeltHTTPServiceEvents that keeps what it was told, then does what the test has said.
/// It lives in the test's scope: releasing does not free it. It starts with the test's own
/// reference. Any thread may call.
class RecordingSink final : public IDispatch
{
public:
    struct Event
    {
        DWORD thread;
        DISPID member;
        LONG event;
        std::wstring text;
    };

    RecordingSink() = default;

    /// What each call does and answers with, given the parameters.
    explicit RecordingSink(std::function<HRESULT(DISPPARAMS*)> body) : m_body(std::move(body)) {}

    RecordingSink(const RecordingSink&) = delete;
    RecordingSink& operator=(const RecordingSink&) = delete;

    ~RecordingSink() = default;

    /// Has it aggregate the system's free-threaded marshaler: any thread may call it directly.
    /// Before it is connected.
    void MakeAgile()
    {
        if (FAILED(::CoCreateFreeThreadedMarshaler(this, &m_marshaler)))
        {
            throw std::runtime_error("no free-threaded marshaler");
        }
    }

    /// Has a function called before each reference is given back, on the thread that does so; null
    /// for none. While nobody else uses the sink.
    void OnRelease(std::function<void()> function)
    {
        m_onRelease = std::move(function);
    }

    /// Has each call answer with the sink as its result, which the caller then holds. Before it is
    /// connected.
    void AnswerItself() noexcept
    {
        m_answersItself = true;
    }

    LONG References() const noexcept
    {
        return m_references;
    }

    std::vector<Event> Events()
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_events;
    }

    std::size_t Count()
    {
        return Events().size();
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        if (iid == IID_IMarshal && m_marshaler)
        {
            return m_marshaler->QueryInterface(iid, object);
        }
        const bool known =
            iid == IID_IUnknown || iid == IID_IDispatch || iid == DIID_IVeltHTTPServiceEvents;
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
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        if (m_onRelease)
        {
            m_onRelease();
        }
        return static_cast<ULONG>(::InterlockedDecrement(&m_references));
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override
    {
        *info = nullptr;
        return DISP_E_BADINDEX;
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID* ids) override
    {
        *ids = DISPID_UNKNOWN;
        return DISP_E_UNKNOWNNAME;
    }

    STDMETHODIMP Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT* result,
                        EXCEPINFO*, UINT*) override
    {
        Event event{::GetCurrentThreadId(), member, -1, {}};
        if (parameters->cArgs == 2 && parameters->rgvarg[1].vt == VT_I4 &&
            parameters->rgvarg[0].vt == VT_BSTR)
        {
            event.event = parameters->rgvarg[1].lVal;
            event.text.assign(parameters->rgvarg[0].bstrVal,
                              ::SysStringLen(parameters->rgvarg[0].bstrVal));
        }
        {
            const VeltAutoCriticalSection lock(&m_lock);
            m_events.push_back(std::move(event));
        }
        if (m_answersItself)
        {
            result->vt = VT_DISPATCH;
            result->pdispVal = this;
            AddRef();
        }
        return m_body ? m_body(parameters) : S_OK;
    }

private:
    const std::function<HRESULT(DISPPARAMS*)> m_body;
    std::function<void()> m_onRelease;
    bool m_answersItself = false;
    Microsoft::WRL::ComPtr<IUnknown> m_marshaler; // null when it is not agile
    VeltCriticalSection m_lock;
    std::vector<Event> m_events; // guarded by m_lock
    volatile LONG m_references = 1;
};
} // namespace velt::test
