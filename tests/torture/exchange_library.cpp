#include "tests/torture/exchange_library.h"

#include "connection/http_request.h"
#include "connection/queue_manager.h"
#include "connection/url_request.h"
#include "foundation/exception_to_hresult.h"
#include "foundation/unique_handle.h"
#include "internet/connection_properties.h"
#include "internet/handle_registry.h"
#include "internet/internet_proxy.h"

#include <algorithm>
#include <memory>
#include <string>

namespace
{
using CONNECTION_MANAGER::connection_object;
using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::queue_request;
using CONNECTION_MANAGER::url_options;
using CONNECTION_MANAGER::url_request;

constexpr DWORD kFresh = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;

template <class Body>
HRESULT Result(Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (...)
    {
        return velt::HResultFromCurrentException();
    }
}

class Sink final : public CHTTPEvent
{
public:
    explicit Sink(ExchangeOutcome& outcome) : m_outcome(outcome) {}

    ~Sink() = default;

    void OnError(DWORD error) override
    {
        m_outcome.lastError = error;
        ++m_outcome.errors;
    }

    void OnComplete() override
    {
        ++m_outcome.completions;
    }

    bool OnStatus(DWORD, DWORD_PTR) override
    {
        return false;
    }

private:
    ExchangeOutcome& m_outcome;
};

class Done final : public CONNECTION_MANAGER::ICallback
{
public:
    Done() = default;
    ~Done() = default;

    void OnRequestComplete(queue_request&) override
    {
        ::SetEvent(m_event.Get());
    }

    bool Wait(DWORD limitMs) const noexcept
    {
        return ::WaitForSingleObject(m_event.Get(), limitMs) == WAIT_OBJECT_0;
    }

private:
    velt::UniqueKernelObject m_event{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

void TakeBody(const url_request& request, ExchangeOutcome& outcome)
{
    if (const auto& body = request.GetBody())
    {
        outcome.hasBody = true;
        outcome.bodyBytes = static_cast<DWORD>(body->size());
        std::copy_n(body->begin(), std::min(body->size(), sizeof(outcome.body) - 1), outcome.body);
    }
}
} // namespace

HRESULT TortureFetch(const char* url, const char* user, const char* password, const char* data,
                     ExchangeOutcome* outcome)
{
    return Result([&] {
        url_options options;
        options.url = url;
        options.flags = kFresh;
        options.userName = user ? user : "";
        options.password = password ? password : "";
        options.data = data ? data : "";
        options.verb = data ? "POST" : "GET";
        Sink sink(*outcome);
        connection_object connection;
        url_request request(options, &sink, nullptr);
        request.Step(connection, {}, true);
        TakeBody(request, *outcome);
        return S_OK;
    });
}

HRESULT TortureQueue(const char* url, DWORD limitMs, ExchangeOutcome* outcome)
{
    constexpr DWORD kPeriodMs = 5;
    return Result([&] {
        url_options options;
        options.url = url;
        options.flags = kFresh;
        Sink sink(*outcome);
        Done done;
        const auto request = std::make_shared<url_request>(options, &sink, &done);
        HRESULT hr = S_OK;
        {
            queue_manager queue;
            queue.add(request);
            hr = queue.begin(kPeriodMs);
            if (SUCCEEDED(hr))
            {
                done.Wait(limitMs);
            }
        }
        TakeBody(*request, *outcome);
        return hr;
    });
}

HRESULT TortureProbe(DWORD* flags)
{
    return Result([&] { return velt::ConnectionProbe().IsConnected(flags); });
}

HRESULT TortureCheckConnection(const wchar_t* url, DWORD* state)
{
    return Result([&] { return velt::ConnectionProbe().CheckConnection(url, state); });
}

HRESULT TorturePing(const char* address)
{
    constexpr DWORD kTimeoutMs = 2000;
    return Result([&] { return velt::ConnectionProbe().Ping(address, kTimeoutMs); });
}

HRESULT TortureProxySettings()
{
    return Result([&] {
        const CInternetProxy proxy;
        std::wstring text = proxy.GetSessionProxy();
        velt::ConnectionProbe::QueryProxySettings(text);
        return S_OK;
    });
}

HRESULT TortureProperties()
{
    return Result([&] {
        const CConnectionProperties properties;
        return properties.verb == "GET" ? S_OK : E_UNEXPECTED;
    });
}

std::size_t TortureOpenHandles()
{
    return velt::HandleRegistry::Instance().Size();
}
