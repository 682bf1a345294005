#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velt
{
/// The root keys that a script can name.
enum class RegistryRoot
{
    classesRoot,
    currentUser,
    localMachine,
    users,
    currentConfig,
};

/// One change of the registry.
struct RegistryOperation
{
    enum class Kind
    {
        createKey,  // opens a key that exists
        deleteTree, // the key and everything below it; no error when there is none
        setValue,   // in a key that an earlier operation created
    };
    using Value = std::variant<std::wstring,               // REG_SZ
                               std::uint32_t,              // REG_DWORD
                               std::vector<std::uint8_t>,  // REG_BINARY
                               std::vector<std::wstring>>; // REG_MULTI_SZ

    Kind kind;
    RegistryRoot root;
    std::wstring path;      // below the root, names divided by single backslashes
    std::wstring valueName; // setValue only; empty for the key's default value
    Value value;            // setValue only
    bool shared = false;    // createKey only: NoRemove, others have something in there too
};

/// Where a script is wrong, and how. Lines and columns count from 1.
struct RegistrarError
{
    std::size_t line;
    std::size_t column;
    std::string message;
};

/// Texts for the names between percent signs.
using RegistrarReplacements = std::map<std::wstring, std::wstring, std::less<>>;

using RegistrarResult = std::variant<std::vector<RegistryOperation>, RegistrarError>;

/// Reads a registrar script and lists the changes that a registration makes, in order.
///
///     script  := { root block }              root: HKCR, HKEY_CLASSES_ROOT, HKCU, ...
///     block   := '{' { entry } '}'
///     entry   := [ NoRemove | ForceRemove ] name [ '=' value ] [ block ]
///              | Delete name
///              | val name '=' value
///     value   := s text | d number | b hexadecimal digits | m text, parts divided by "\0"
///
/// A name or text is one word, or stands between single quotes, where '' is a quote. Keywords do
/// not mind case and are never quoted. `ForceRemove` deletes the key first; `NoRemove` matters to
/// whoever removes a registration. In a name or text %NAME% stands for its replacement, whose own
/// characters have no further meaning, and %% for a percent sign. Every input is valid; a script
/// with an error yields no operation. Throws std::bad_alloc only.
RegistrarResult ParseRegistrarScript(std::wstring_view script,
                                     const RegistrarReplacements& replacements);
} // namespace velt
