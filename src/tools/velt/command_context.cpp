#include "tools/velt/command_context.h"

#include "foundation/wide_text.h"
#include "internet/parse_url.h"
#include "tools/velt/failure_text.h"

#include <cwchar>
#include <exception>

namespace velt::tool
{
namespace
{
std::wstring CodeText(HRESULT hr)
{
    wchar_t text[11];
    std::swprintf(text, 11, L"0x%08lX", static_cast<unsigned long>(hr));
    return text;
}
} // namespace

CommandFailure LastFailure(std::wstring what)
{
    const DWORD error = ::GetLastError();
    return {HRESULT_FROM_WIN32(error), std::move(what)};
}

void Require(HRESULT hr, const wchar_t* what)
{
    if (FAILED(hr))
    {
        throw CommandFailure{hr, what};
    }
}

std::wstring FailureMessage(const CommandFailure& failure)
{
    const std::wstring text = FailureText(failure.code, failure.what);
    return failure.what + L": " + text + (text.empty() ? L"(" : L" (") + CodeText(failure.code) +
           L")";
}

void AddFailure(Report& results, const CommandFailure& failure)
{
    results.Add("failed", Utf8FromWide(failure.what));
    results.Add("code", Utf8FromWide(CodeText(failure.code)));
    results.Add("text", Utf8FromWide(FailureText(failure.code, failure.what)));
}

const std::wstring& RequireHttpUrl(const std::wstring& url)
{
    ServiceType service{};
    std::wstring server;
    std::wstring object;
    INTERNET_PORT port = 0;
    if (!ParseURL(url.c_str(), service, server, object, port) || server.empty() ||
        (service != ServiceType::http && service != ServiceType::https))
    {
        throw WrongUsage{L"not an http or https URL: " + url};
    }
    return url;
}

void CommandContext::Line(std::string_view text) const
{
    if (!m_json)
    {
        m_output.Write(std::string(text) + "\n");
    }
}

void CommandContext::Message(std::wstring_view text) const noexcept
{
    try
    {
        m_messages.Write("velt: " + Utf8FromWide(text) + "\n");
    }
    catch (const std::exception&)
    {
        // Nobody is left to tell.
    }
}

void CommandContext::Finish(ExitCode code)
{
    if (m_json)
    {
        m_results.Add("exitCode", static_cast<std::int64_t>(code));
    }
    m_output.Write(m_json ? m_results.Json() + "\n" : m_answer.value_or(m_results.Text()));
}

void CommandContext::Fail(const CommandFailure& failure)
{
    Message(FailureMessage(failure));
    AddFailure(m_results, failure);
    m_answer = std::string(); // as text, the message has said it all
}

void CommandContext::SayWrong(const std::wstring& message, std::string_view topic)
{
    Message(message);
    const std::wstring command = topic.empty() ? std::wstring() : L" " + WideFromUtf8(topic);
    Message(L"try: velt" + command + L" --help");
    m_results = {}; // what the command had found by then answers no question
    m_results.Add("failed", "usage");
    m_results.Add("code", Utf8FromWide(CodeText(E_INVALIDARG)));
    m_results.Add("text", Utf8FromWide(message));
    m_answer = std::string();
}
} // namespace velt::tool
