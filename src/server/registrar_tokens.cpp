#include "server/registrar_tokens.h"

namespace velt
{
namespace
{
constexpr std::wstring_view kWhiteSpace = L" \t\r\n\v\f";
constexpr std::wstring_view kWordEnds = L" \t\r\n\v\f{}='";
} // namespace

std::string NarrowAscii(std::wstring_view text)
{
    std::string narrow(text.size(), '?');
    std::transform(text.begin(), text.end(), narrow.begin(),
                   [](wchar_t c) { return c > 0 && c < 0x80 ? static_cast<char>(c) : '?'; });
    return narrow;
}

RegistrarToken RegistrarTokens::Read()
{
    m_at = std::min(m_script.find_first_not_of(kWhiteSpace, m_at), m_script.size());
    const std::size_t start = m_at;
    if (start == m_script.size())
    {
        return {RegistrarToken::Kind::end, start, {}};
    }
    switch (m_script[start])
    {
    case L'{':
        return ReadSign(RegistrarToken::Kind::open);
    case L'}':
        return ReadSign(RegistrarToken::Kind::close);
    case L'=':
        return ReadSign(RegistrarToken::Kind::equals);
    case L'\'':
        return {RegistrarToken::Kind::quoted, start, ReadQuoted()};
    default:
        return ReadWord();
    }
}

RegistrarToken RegistrarTokens::ReadSign(RegistrarToken::Kind kind) noexcept
{
    return {kind, m_at++, {}};
}

RegistrarToken RegistrarTokens::ReadWord()
{
    const std::size_t start = m_at;
    const std::size_t end = std::min(m_script.find_first_of(kWordEnds, start), m_script.size());
    const bool plain = m_script.substr(start, end - start).find(L'%') == m_script.npos;
    std::wstring text;
    while (m_at < end)
    {
        AppendCharacter(text, end);
    }
    return {plain ? RegistrarToken::Kind::word : RegistrarToken::Kind::quoted, start,
            std::move(text)};
}

std::wstring RegistrarTokens::ReadQuoted()
{
    const std::size_t start = m_at++;
    std::wstring text;
    while (m_at < m_script.size())
    {
        if (m_script[m_at] != L'\'')
        {
            AppendCharacter(text, m_script.size());
            continue;
        }
        const bool doubled = m_script.substr(m_at + 1).starts_with(L'\'');
        m_at += doubled ? 2 : 1;
        if (!doubled)
        {
            return text;
        }
        text.push_back(L'\'');
    }
    throw RegistrarScriptError{start, "a quoted text without its closing quote"};
}

void RegistrarTokens::AppendCharacter(std::wstring& text, std::size_t end)
{
    const std::size_t start = m_at++;
    if (m_script[start] != L'%')
    {
        text.push_back(m_script[start]);
        return;
    }
    const std::size_t close = m_script.substr(0, end).find_first_of(L"%'\r\n", m_at);
    if (close == m_script.npos || m_script[close] != L'%')
    {
        throw RegistrarScriptError{start, "a percent sign without its partner"};
    }
    const std::wstring_view name = m_script.substr(m_at, close - m_at);
    m_at = close + 1;
    if (name.empty())
    {
        text.push_back(L'%');
        return;
    }
    const auto found = m_replacements.find(name);
    if (found == m_replacements.end())
    {
        throw RegistrarScriptError{start, "unknown replacement %" + NarrowAscii(name) + "%"};
    }
    text.append(found->second);
}
} // namespace velt
