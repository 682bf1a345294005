#include "server/registrar_script.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

namespace velt
{
namespace
{
constexpr std::wstring_view kWhiteSpace = L" \t\r\n\v\f";
constexpr std::wstring_view kWordEnds = L" \t\r\n\v\f{}='";

// What the registry itself allows.
constexpr std::size_t kDeepestKey = 512;
constexpr std::size_t kLongestKeyName = 255;
constexpr std::size_t kLongestValueName = 16383;

/// Keys that belong to everybody: a script may fill them and may not delete them.
constexpr std::array<std::wstring_view, 12> kSharedKeys = {
    L"AppID",    L"CLSID",     L"Component Categories",
    L"FileType", L"Interface", L"Hardware",
    L"Mime",     L"SAM",       L"SECURITY",
    L"SYSTEM",   L"Software",  L"TypeLib"};

struct RootName
{
    std::wstring_view name;
    RegistryRoot root;
};
constexpr std::array<RootName, 10> kRootNames = {{
    {L"HKCR", RegistryRoot::classesRoot},
    {L"HKEY_CLASSES_ROOT", RegistryRoot::classesRoot},
    {L"HKCU", RegistryRoot::currentUser},
    {L"HKEY_CURRENT_USER", RegistryRoot::currentUser},
    {L"HKLM", RegistryRoot::localMachine},
    {L"HKEY_LOCAL_MACHINE", RegistryRoot::localMachine},
    {L"HKU", RegistryRoot::users},
    {L"HKEY_USERS", RegistryRoot::users},
    {L"HKCC", RegistryRoot::currentConfig},
    {L"HKEY_CURRENT_CONFIG", RegistryRoot::currentConfig},
}};

wchar_t LowerAscii(wchar_t c) noexcept
{
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

bool SameText(std::wstring_view a, std::wstring_view b) noexcept
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](wchar_t x, wchar_t y) { return LowerAscii(x) == LowerAscii(y); });
}

/// A wide text of ASCII as a narrow one; anything else becomes '?', which no number contains.
std::string NarrowAscii(std::wstring_view text)
{
    std::string narrow(text.size(), '?');
    std::transform(text.begin(), text.end(), narrow.begin(),
                   [](wchar_t c) { return c > 0 && c < 0x80 ? static_cast<char>(c) : '?'; });
    return narrow;
}

struct Token
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
        return kind == Kind::word && SameText(text, keyword);
    }
};

/// Thrown inside the parser only.
struct ScriptError
{
    std::size_t at;
    std::string message;
};

/// Cuts a script into tokens, one of them ahead.
class Tokens
{
public:
    Tokens(std::wstring_view script, const RegistrarReplacements& replacements) noexcept
        : m_script(script),
          m_replacements(replacements)
    {
    }

    /// Reads no further than asked, so that the first error of a script is the one reported.
    const Token& Peek()
    {
        if (!m_next)
        {
            m_next = Read();
        }
        return *m_next;
    }

    Token Take()
    {
        Peek();
        Token taken = std::move(*m_next);
        m_next.reset();
        return taken;
    }

    /// Takes the token when it is of that kind.
    bool TakeIf(Token::Kind kind)
    {
        const bool matches = Peek().kind == kind;
        if (matches)
        {
            m_next.reset();
        }
        return matches;
    }

private:
    Token Read()
    {
        m_at = std::min(m_script.find_first_not_of(kWhiteSpace, m_at), m_script.size());
        const std::size_t start = m_at;
        if (start == m_script.size())
        {
            return {Token::Kind::end, start, {}};
        }
        switch (m_script[start])
        {
        case L'{':
            return ReadSign(Token::Kind::open);
        case L'}':
            return ReadSign(Token::Kind::close);
        case L'=':
            return ReadSign(Token::Kind::equals);
        case L'\'':
            return {Token::Kind::quoted, start, ReadQuoted()};
        default:
            return ReadWord();
        }
    }

    Token ReadSign(Token::Kind kind) noexcept
    {
        return {kind, m_at++, {}};
    }

    /// A word that a replacement is part of is as inert as a quoted text: never a keyword.
    Token ReadWord()
    {
        const std::size_t start = m_at;
        const std::size_t end = std::min(m_script.find_first_of(kWordEnds, start), m_script.size());
        const bool plain = m_script.substr(start, end - start).find(L'%') == m_script.npos;
        std::wstring text;
        while (m_at < end)
        {
            AppendCharacter(text, end);
        }
        return {plain ? Token::Kind::word : Token::Kind::quoted, start, std::move(text)};
    }

    std::wstring ReadQuoted()
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
        throw ScriptError{start, "a quoted text without its closing quote"};
    }

    /// Appends the character at the position, or what a replacement there stands for.
    void AppendCharacter(std::wstring& text, std::size_t end)
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
            throw ScriptError{start, "a percent sign without its partner"};
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
            throw ScriptError{start, "unknown replacement %" + NarrowAscii(name) + "%"};
        }
        text.append(found->second);
    }

    std::wstring_view m_script;
    const RegistrarReplacements& m_replacements;
    std::size_t m_at = 0;
    std::optional<Token> m_next;
};

/// Builds the operations of one script.
class Parser
{
public:
    Parser(std::wstring_view script, const RegistrarReplacements& replacements)
        : m_tokens(script, replacements)
    {
    }

    std::vector<RegistryOperation> Parse()
    {
        while (m_tokens.Peek().kind != Token::Kind::end)
        {
            ReadRoot();
            Expect(Token::Kind::open, "'{' expected after the root key");
            // Without recursion, so that a hostile script cannot use up the stack.
            m_parents.assign(1, L"");
            while (!m_parents.empty())
            {
                ReadEntry();
            }
        }
        return std::move(m_operations);
    }

private:
    void ReadRoot()
    {
        const Token token = m_tokens.Take();
        const auto found =
            std::find_if(kRootNames.begin(), kRootNames.end(),
                         [&](const RootName& row) { return token.IsKeyword(row.name); });
        if (found == kRootNames.end())
        {
            throw ScriptError{token.at, "a root key expected, such as HKCR"};
        }
        m_root = found->root;
    }

    void ReadEntry()
    {
        if (m_tokens.TakeIf(Token::Kind::close))
        {
            m_parents.pop_back();
            return;
        }
        if (m_tokens.Peek().IsKeyword(L"val"))
        {
            m_tokens.Take();
            ReadNamedValue();
        }
        else if (m_tokens.Peek().IsKeyword(L"Delete"))
        {
            m_tokens.Take();
            DeleteKey(ReadKeyName());
        }
        else
        {
            ReadKey();
        }
    }

    void ReadKey()
    {
        const bool force = m_tokens.Peek().IsKeyword(L"ForceRemove");
        if (force || m_tokens.Peek().IsKeyword(L"NoRemove"))
        {
            m_tokens.Take();
        }
        const Token name = ReadKeyName();
        const std::wstring path = PathOf(name.text);
        if (force)
        {
            DeleteKey(name);
        }
        Add(RegistryOperation::Kind::createKey, path);
        if (m_tokens.TakeIf(Token::Kind::equals))
        {
            SetValue(path, {}, ReadValue());
        }
        if (m_tokens.Peek().kind == Token::Kind::open)
        {
            m_tokens.Take();
            m_parents.push_back(path);
        }
    }

    void ReadNamedValue()
    {
        const Token name = m_tokens.Take();
        if (!name.IsText() || name.text.size() > kLongestValueName ||
            name.text.find(L'\0') != name.text.npos)
        {
            throw ScriptError{name.at, "the name of a value expected"};
        }
        if (m_parents.back().empty())
        {
            throw ScriptError{name.at, "a value cannot stand in a root key"};
        }
        Expect(Token::Kind::equals, "'=' expected after the name of a value");
        SetValue(m_parents.back(), name.text, ReadValue());
    }

    Token ReadKeyName()
    {
        Token name = m_tokens.Take();
        if (!name.IsText() || name.text.empty())
        {
            throw ScriptError{name.at, "the name of a key expected"};
        }
        if (name.text.size() > kLongestKeyName)
        {
            throw ScriptError{name.at, "the name of a key is longer than 255 characters"};
        }
        if (name.text.find_first_of(std::wstring_view(L"\\\0", 2)) != name.text.npos)
        {
            throw ScriptError{name.at, "the name of a key holds a backslash or NUL: nest the keys"};
        }
        if (m_parents.size() > kDeepestKey)
        {
            throw ScriptError{name.at, "keys nested deeper than the registry allows"};
        }
        return name;
    }

    RegistryOperation::Value ReadValue()
    {
        const Token type = m_tokens.Take();
        constexpr std::wstring_view kTypes = L"sdbm";
        const wchar_t letter = type.text.size() == 1 ? LowerAscii(type.text.front()) : L'\0';
        if (type.kind != Token::Kind::word || kTypes.find(letter) == kTypes.npos)
        {
            throw ScriptError{type.at, "a value's type expected: s, d, b or m"};
        }
        const Token data = m_tokens.Take();
        if (!data.IsText())
        {
            throw ScriptError{data.at, "a value's data expected"};
        }
        switch (letter)
        {
        case L's':
            return data.text;
        case L'd':
            return ReadNumber(data);
        case L'b':
            return ReadBytes(data);
        default:
            return ReadTexts(data);
        }
    }

    static std::uint32_t ReadNumber(const Token& token)
    {
        const std::string text = NarrowAscii(token.text);
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        const char* const first = text.data() + (hexadecimal ? 2 : 0);
        const char* const last = text.data() + text.size();
        std::uint32_t number = 0;
        const auto [stop, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
        if (error != std::errc{} || stop != last)
        {
            throw ScriptError{token.at, "a number of 32 bits expected"};
        }
        return number;
    }

    static std::vector<std::uint8_t> ReadBytes(const Token& token)
    {
        const std::string text = NarrowAscii(token.text);
        std::vector<std::uint8_t> bytes;
        for (std::size_t at = 0; at < text.size(); at += 2)
        {
            const char* const last = text.data() + std::min(at + 2, text.size());
            std::uint8_t byte = 0;
            const auto [stop, error] = std::from_chars(text.data() + at, last, byte, 16);
            if (error != std::errc{} || stop != text.data() + at + 2)
            {
                throw ScriptError{token.at, "pairs of hexadecimal digits expected"};
            }
            bytes.push_back(byte);
        }
        return bytes;
    }

    static std::vector<std::wstring> ReadTexts(const Token& token)
    {
        constexpr std::wstring_view kDivider = L"\\0";
        std::vector<std::wstring> texts;
        for (std::wstring_view rest = token.text; !rest.empty();)
        {
            const std::wstring_view text = rest.substr(0, rest.find(kDivider));
            if (text.empty())
            {
                throw ScriptError{token.at, "a multi-text holds an empty part, which would end it"};
            }
            texts.emplace_back(text);
            rest.remove_prefix(std::min(text.size() + kDivider.size(), rest.size()));
        }
        return texts;
    }

    void Expect(Token::Kind kind, const char* message)
    {
        if (!m_tokens.TakeIf(kind))
        {
            throw ScriptError{m_tokens.Peek().at, message};
        }
    }

    std::wstring PathOf(const std::wstring& name) const
    {
        const std::wstring& parent = m_parents.back();
        return parent.empty() ? name : parent + L'\\' + name;
    }

    void DeleteKey(const Token& name)
    {
        const auto isName = [&](std::wstring_view shared) { return SameText(shared, name.text); };
        if (m_parents.size() == 1 && std::any_of(kSharedKeys.begin(), kSharedKeys.end(), isName))
        {
            throw ScriptError{name.at, "a key that all programs share is not deleted"};
        }
        Add(RegistryOperation::Kind::deleteTree, PathOf(name.text));
    }

    void Add(RegistryOperation::Kind kind, std::wstring path)
    {
        m_operations.push_back({kind, m_root, std::move(path), {}, {}});
    }

    void SetValue(const std::wstring& path, const std::wstring& name,
                  RegistryOperation::Value value)
    {
        m_operations.push_back(
            {RegistryOperation::Kind::setValue, m_root, path, name, std::move(value)});
    }

    Tokens m_tokens;
    RegistryRoot m_root = RegistryRoot::classesRoot;
    std::vector<std::wstring> m_parents; // the open keys, outermost (the root, "") first
    std::vector<RegistryOperation> m_operations;
};

RegistrarError ErrorAt(std::wstring_view script, const ScriptError& error)
{
    const std::wstring_view before = script.substr(0, error.at);
    const auto lines = std::count(before.begin(), before.end(), L'\n');
    const std::size_t lineStart = before.rfind(L'\n') + 1; // npos + 1 is the script's start
    return {static_cast<std::size_t>(lines) + 1, error.at - lineStart + 1, error.message};
}
} // namespace

RegistrarResult ParseRegistrarScript(std::wstring_view script,
                                     const RegistrarReplacements& replacements)
{
    try
    {
        return Parser(script, replacements).Parse();
    }
    catch (const ScriptError& error)
    {
        return ErrorAt(script, error);
    }
}
} // namespace velt
