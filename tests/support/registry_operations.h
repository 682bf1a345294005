#pragma once

#include "server/registrar_script.h"

#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace velt
{
/// Printed by failing checks; characters outside of ASCII as '?'.
inline std::string PrintableText(std::wstring_view text)
{
    std::string printable;
    for (const wchar_t c : text)
    {
        printable.push_back(c >= L' ' && c < 0x7F ? static_cast<char>(c) : '?');
    }
    return printable;
}

inline std::ostream& operator<<(std::ostream& out, const RegistryOperation& operation)
{
    constexpr const char* kKinds[] = {"createKey", "deleteTree", "setValue"};
    out << kKinds[static_cast<int>(operation.kind)] << " root " << static_cast<int>(operation.root)
        << " '" << PrintableText(operation.path) << '\'';
    if (operation.kind == RegistryOperation::Kind::setValue)
    {
        out << " '" << PrintableText(operation.valueName) << "' type " << operation.value.index();
        if (const auto* text = std::get_if<std::wstring>(&operation.value))
        {
            out << " '" << PrintableText(*text) << '\'';
        }
    }
    return out;
}

inline bool operator==(const RegistryOperation& a, const RegistryOperation& b)
{
    return a.kind == b.kind && a.root == b.root && a.path == b.path && a.valueName == b.valueName &&
           a.value == b.value;
}
} // namespace velt

namespace velt::test
{
inline RegistryOperation CreateKey(std::wstring path, RegistryRoot root = RegistryRoot::classesRoot)
{
    return {RegistryOperation::Kind::createKey, root, std::move(path), {}, {}};
}

inline RegistryOperation DeleteTree(std::wstring path,
                                    RegistryRoot root = RegistryRoot::classesRoot)
{
    return {RegistryOperation::Kind::deleteTree, root, std::move(path), {}, {}};
}

inline RegistryOperation SetValue(std::wstring path, std::wstring name,
                                  RegistryOperation::Value value,
                                  RegistryRoot root = RegistryRoot::classesRoot)
{
    return {RegistryOperation::Kind::setValue, root, std::move(path), std::move(name),
            std::move(value)};
}
} // namespace velt::test
