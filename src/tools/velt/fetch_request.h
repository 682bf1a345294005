#pragma once

#include "connection/url_request.h"
#include "internet/http_file.h"
#include "tools/velt/command_context.h"
#include "tools/velt/interrupt.h"
#include "tools/velt/request_header.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace velt::tool
{
/// What became of one URL.
struct FetchOutcome
{
    DWORD status = 0; // of HTTP; 0 when there was no answer
    std::uint64_t bytes = 0;
    std::optional<CommandFailure> failure;
};

/// What all requests of a command line have in common.
struct FetchSettings
{
    CONNECTION_MANAGER::url_options options; // but for the URL
    std::wstring userName;                   // empty when there is none to send
    std::wstring password;
    std::vector<RequestHeader> headers; // sent in this order
};

/// One URL: a request of the queue and its own event sink. It hands a whole body on, and only a
/// whole one; Ctrl+C abandons it.
class FetchRequest final : public CONNECTION_MANAGER::url_request, private CHTTPEvent
{
public:
    /// Takes a body on the worker thread; throws CommandFailure.
    using BodyTarget = std::function<void(const char* bytes, std::size_t count)>;

    /// `settings`, `interrupt` and what the target refers to outlive the request. `done` is called
    /// on the worker at the end. Throws SystemException::HRESULT for a URL that is not one of HTTP.
    FetchRequest(const std::string& url, const FetchSettings& settings, const Interrupt& interrupt,
                 BodyTarget target, std::function<void()> done);

    FetchRequest(const FetchRequest&) = delete;
    FetchRequest& operator=(const FetchRequest&) = delete;

    ~FetchRequest() override = default;

    /// How far it has come: the last status of the internet API and the bytes of the body. Any
    /// thread may ask.
    DWORD Status() const noexcept
    {
        return m_status;
    }

    std::uint32_t Bytes() const noexcept
    {
        return m_bytes;
    }

    bool IsDone() const noexcept
    {
        return m_done;
    }

    /// Only when it is done.
    const FetchOutcome& Outcome() const noexcept
    {
        return m_outcome;
    }

    // the worker's calls; what left a step would end the worker
    DWORD Step(CONNECTION_MANAGER::connection_object& connection,
               const std::vector<std::string>& probeHosts, bool mayConnect) noexcept override;
    void Complete(CONNECTION_MANAGER::connection_object& connection, DWORD* value) override;
    void OnBody(const char* body, DWORD lengthBytes) override;
    void OnOpened(CHttpFile& file);
    void OnProgress(std::size_t sizeBytes) noexcept;

private:
    void OnError(DWORD error) override;
    void OnComplete() override;
    bool OnStatus(DWORD status, DWORD_PTR value) override;

    /// The exchange has failed. Once for a request.
    void Fail(DWORD error) noexcept;

    /// Throws when the server has said that there is more of the body.
    void RequireWhole(DWORD lengthBytes) const;

    // constant after construction
    const FetchSettings& m_settings;
    const Interrupt& m_interrupt;
    const BodyTarget m_target;
    const std::function<void()> m_onDone;

    std::atomic<DWORD> m_status = 0;
    std::atomic<std::uint32_t> m_bytes = 0;
    std::atomic<std::uint32_t> m_sent = 0; // how often, since the last redirection
    std::atomic<DWORD> m_error = 0;
    std::atomic<bool> m_done = false;

    // worker only, until it is done
    CHttpFile* m_file = nullptr;                          // while the exchange runs
    CommandFailure m_noExchange{E_FAIL, L"the exchange"}; // made before memory can be out
    FetchOutcome m_outcome;
};
} // namespace velt::tool
