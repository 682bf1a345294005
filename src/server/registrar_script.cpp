#include "server/registrar_script.h"

#include "server/registrar_tokens.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace velt
{
namespace
{
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
        while (m_tokens.Peek().kind != RegistrarToken::Kind::end)
        {
            ReadRoot();
            Expect(RegistrarToken::Kind::open, "'{' expected after the root key");
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
        const RegistrarToken token = m_tokens.Take();
        const auto found =
            std::find_if(kRootNames.begin(), kRootNames.end(),
                         [&](const RootName& row) { return token.IsKeyword(row.name); });
        if (found == kRootNames.end())
        {
            throw RegistrarScriptError{token.at, "a root key expected, such as HKCR"};
        }
        m_root = found->root;
    }

    void ReadEntry()
    {
        if (m_tokens.TakeIf(RegistrarToken::Kind::close))
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
        const bool shared = m_tokens.Peek().IsKeyword(L"NoRemove");
        if (force || shared)
        {
            m_tokens.Take();
        }
        const RegistrarToken name = ReadKeyName();
        const std::wstring path = PathOf(name.text);
        if (force)
        {
            DeleteKey(name);
        }
        Add(RegistryOperation::Kind::createKey, path);
        m_operations.back().shared = shared;
        if (m_tokens.TakeIf(RegistrarToken::Kind::equals))
        {
            SetValue(path, {}, ReadValue());
        }
        if (m_tokens.Peek().kind == RegistrarToken::Kind::open)
        {
            m_tokens.Take();
            m_parents.push_back(path);
        }
    }

    void ReadNamedValue()
    {
        const RegistrarToken name = m_tokens.Take();
        if (!name.IsText() || name.text.size() > kLongestValueName ||
            name.text.find(L'\0') != name.text.npos)
        {
            throw RegistrarScriptError{name.at, "the name of a value expected"};
        }
        if (m_parents.back().empty())
        {
            throw RegistrarScriptError{name.at, "a value cannot stand in a root key"};
        }
        Expect(RegistrarToken::Kind::equals, "'=' expected after the name of a value");
        SetValue(m_parents.back(), name.text, ReadValue());
    }

    RegistrarToken ReadKeyName()
    {
        RegistrarToken name = m_tokens.Take();
        if (!name.IsText() || name.text.empty())
        {
            throw RegistrarScriptError{name.at, "the name of a key expected"};
        }
        if (name.text.size() > kLongestKeyName)
        {
            throw RegistrarScriptError{name.at, "the name of a key is longer than 255 characters"};
        }
        if (name.text.find_first_of(std::wstring_view(L"\\\0", 2)) != name.text.npos)
        {
            throw RegistrarScriptError{name.at,
                                       "the name of a key holds a backslash or NUL: nest the keys"};
        }
        if (m_parents.size() > kDeepestKey)
        {
            throw RegistrarScriptError{name.at, "keys nested deeper than the registry allows"};
        }
        return name;
    }

    RegistryOperation::Value ReadValue()
    {
        const RegistrarToken type = m_tokens.Take();
        constexpr std::wstring_view kTypes = L"sdbm";
        const wchar_t letter = type.text.size() == 1 ? LowerAscii(type.text.front()) : L'\0';
        if (type.kind != RegistrarToken::Kind::word || kTypes.find(letter) == kTypes.npos)
        {
            throw RegistrarScriptError{type.at, "a value's type expected: s, d, b or m"};
        }
        const RegistrarToken data = m_tokens.Take();
        if (!data.IsText())
        {
            throw RegistrarScriptError{data.at, "a value's data expected"};
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

    static std::uint32_t ReadNumber(const RegistrarToken& token)
    {
        const std::string text = NarrowAscii(token.text);
        const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
        const char* const first = text.data() + (hexadecimal ? 2 : 0);
        const char* const last = text.data() + text.size();
        std::uint32_t number = 0;
        const auto [stop, error] = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
        if (error != std::errc{} || stop != last)
        {
            throw RegistrarScriptError{token.at, "a number of 32 bits expected"};
        }
        return number;
    }

    static std::vector<std::uint8_t> ReadBytes(const RegistrarToken& token)
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
                throw RegistrarScriptError{token.at, "pairs of hexadecimal digits expected"};
            }
            bytes.push_back(byte);
        }
        return bytes;
    }

    static std::vector<std::wstring> ReadTexts(const RegistrarToken& token)
    {
        constexpr std::wstring_view kDivider = L"\\0";
        std::vector<std::wstring> texts;
        for (std::wstring_view rest = token.text; !rest.empty();)
        {
            const std::wstring_view text = rest.substr(0, rest.find(kDivider));
            if (text.empty())
            {
                throw RegistrarScriptError{token.at,
                                           "a multi-text holds an empty part, which would end it"};
            }
            texts.emplace_back(text);
            rest.remove_prefix(std::min(text.size() + kDivider.size(), rest.size()));
        }
        return texts;
    }

    void Expect(RegistrarToken::Kind kind, const char* message)
    {
        if (!m_tokens.TakeIf(kind))
        {
            throw RegistrarScriptError{m_tokens.Peek().at, message};
        }
    }

    std::wstring PathOf(const std::wstring& name) const
    {
        const std::wstring& parent = m_parents.back();
        return parent.empty() ? name : parent + L'\\' + name;
    }

    void DeleteKey(const RegistrarToken& name)
    {
        const auto isName = [&](std::wstring_view shared) {
            return SameAsciiText(shared, name.text);
        };
        if (m_parents.size() == 1 && std::any_of(kSharedKeys.begin(), kSharedKeys.end(), isName))
        {
            throw RegistrarScriptError{name.at, "a key that all programs share is not deleted"};
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

    RegistrarTokens m_tokens;
    RegistryRoot m_root = RegistryRoot::classesRoot;
    std::vector<std::wstring> m_parents; // the open keys, outermost (the root, "") first
    std::vector<RegistryOperation> m_operations;
};

RegistrarError ErrorAt(std::wstring_view script, const RegistrarScriptError& error)
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
    catch (const RegistrarScriptError& error)
    {
        return ErrorAt(script, error);
    }
}
} // namespace velt
