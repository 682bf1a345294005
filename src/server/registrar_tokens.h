#pragma once

#include "server/registrar_script.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace velt
{
constexpr wchar_t LowerAscii(wchar_t c) noexcept
{
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

/// Whether two texts are the same, capitals of ASCII or not.
inline bool SameAsciiText(std::wstring_view a, std::wstring_view b) noexcept
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](wchar_t x, wchar_t y) { return LowerAscii(x) == LowerAscii(y); });
}

/// A wide text of ASCII as a narrow one; anything else becomes '?', which no number contains.
std::string NarrowAscii(std::wstring_view text);

/// One token of a registrar script.
struct RegistrarToken
{
    enum class Kind
    {
        word,
        quoted,
        open,
        close,
        equals,
        end,
    };

    Kind kind;
    std::size_t at; // where it starts in the script
    std::wstring text;

    bool IsText() const noexcept
    {
        return kind == Kind::word || kind == Kind::quoted;
    }

    bool IsKeyword(std::wstring_view keyword) const noexcept
    {
        return kind == Kind::word && SameAsciiText(text, keyword);
    }
};

/// What is wrong with a script, and where; thrown between the tokens and the parser only.
struct RegistrarScriptError
{
    std::size_t at;
    std::string message;
};

/// Cuts a script into tokens, one of them ahead.
class RegistrarTokens
{
public:
    RegistrarTokens(std::wstring_view script, const RegistrarReplacements& replacements) noexcept
        : m_script(script),
          m_replacements(replacements)
    {
    }

    /// Reads no further than asked, so that the first error of a script is the one reported.
    const RegistrarToken& Peek()
    {
        if (!m_next)
        {
            m_next = Read();
        }
        return *m_next;
    }

    RegistrarToken Take()
    {
        Peek();
        RegistrarToken taken = std::move(*m_next);
        m_next.reset();
        return taken;
    }

    /// Takes the token when it is of that kind.
    bool TakeIf(RegistrarToken::Kind kind)
    {
        const bool matches = Peek().kind == kind;
        if (matches)
        {
            m_next.reset();
        }
        return matches;
    }

private:
    RegistrarToken Read();
    RegistrarToken ReadSign(RegistrarToken::Kind kind) noexcept;

    /// A word that a replacement is part of is as inert as a quoted text: never a keyword.
    RegistrarToken ReadWord();
    std::wstring ReadQuoted();

    /// Appends the character at the position, or what a replacement there stands for.
    void AppendCharacter(std::wstring& text, std::size_t end);

    std::wstring_view m_script;
    const RegistrarReplacements& m_replacements;
    std::size_t m_at = 0;
    std::optional<RegistrarToken> m_next;
};
} // namespace velt
