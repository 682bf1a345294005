#include "tools/velt/command_context.h"

#include "foundation/wide_text.h"
#include "tools/velt/internet_error_text.h"

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
    const std::wstring text = FailureText(failure.code);
    return failure.what + L": " + text + (text.empty() ? L"(" : L" (") + CodeText(failure.code) +
           L")";
}

void AddFailure(Report& results, const CommandFailure& failure)
{
    results.Add("failed", Utf8FromWide(failure.what));
    results.Add("code", Utf8FromWide(CodeText(failure.code)));
    results.Add("text", Utf8FromWide(FailureText(failure.code)));
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

void CommandContext::Finish() const
{
    m_output.Write(m_json ? m_results.Json() + "\n" : m_answer.value_or(m_results.Text()));
}

void CommandContext::Fail(const CommandFailure& failure)
{
    Message(FailureMessage(failure));
    AddFailure(m_results, failure);
    m_answer = std::string(); // as text, the message has said it all
}
} // namespace velt::tool
