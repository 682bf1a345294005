// Feeds the registrar's parser with any text: whatever it is, the operations can be carried out or
// the error lies in the text.

#include "server/registrar_script.h"
#include "tests/fuzz/require.h"

#include <algorithm>

using velt::test::Require;

namespace
{
using velt::RegistrarError;
using velt::RegistryOperation;

/// Two bytes a character when the first byte is odd, so that all of UTF-16 is reached; one byte
/// otherwise, which is easier to mutate.
std::wstring ScriptFrom(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || data[0] % 2 == 0 || data[0] >= 0x20)
    {
        return {data, data + size};
    }
    std::wstring script;
    for (std::size_t at = 1; at + 1 < size; at += 2)
    {
        script.push_back(static_cast<wchar_t>(data[at] | data[at + 1] << 8));
    }
    return script;
}

void CheckError(const std::wstring& script, const RegistrarError& error)
{
    const auto lines = std::count(script.begin(), script.end(), L'\n') + 1;
    Require(error.line >= 1 && error.line <= static_cast<std::size_t>(lines), "line in the text");
    std::size_t start = 0;
    for (std::size_t line = 1; line < error.line; ++line)
    {
        start = script.find(L'\n', start) + 1;
    }
    const std::size_t length = std::min(script.find(L'\n', start), script.size()) - start;
    // One past the last character is the end of the text, or the end of the line itself.
    Require(error.column >= 1 && error.column <= length + 1, "column in the line");
    Require(!error.message.empty(), "message");
}

void CheckPath(std::wstring_view path)
{
    Require(!path.empty(), "path");
    std::size_t depth = 0;
    while (!path.empty())
    {
        const std::size_t end = std::min(path.find(L'\\'), path.size());
        Require(end > 0 && end <= 255, "name of a key");
        Require(end + 1 != path.size(), "no backslash at the end");
        Require(path.substr(0, end).find(L'\0') == path.npos, "no NUL in a path");
        path.remove_prefix(std::min(end + 1, path.size()));
        ++depth;
    }
    Require(depth <= 512, "depth");
}

void CheckOperation(const RegistryOperation& operation)
{
    Require(operation.kind <= RegistryOperation::Kind::setValue, "kind");
    Require(operation.root <= velt::RegistryRoot::currentConfig, "root");
    CheckPath(operation.path);
    Require(operation.valueName.size() <= 16383, "length of a value's name");
    Require(operation.valueName.find(L'\0') == std::wstring::npos, "no NUL in a value's name");
    if (operation.kind != RegistryOperation::Kind::setValue)
    {
        Require(operation.valueName.empty() && operation.value.index() == 0, "no value");
    }
    if (const auto* texts = std::get_if<std::vector<std::wstring>>(&operation.value))
    {
        for (const std::wstring& text : *texts)
        {
            Require(!text.empty(), "part of a multi-text");
        }
    }
}

/// A value is set in, and a key nested in, a key that was created before.
void CheckOrder(const std::vector<RegistryOperation>& operations)
{
    const RegistryOperation* created = nullptr;
    for (const RegistryOperation& operation : operations)
    {
        if (operation.kind == RegistryOperation::Kind::createKey)
        {
            created = &operation;
        }
        else if (operation.kind == RegistryOperation::Kind::setValue)
        {
            Require(created && created->root == operation.root &&
                        created->path.starts_with(operation.path),
                    "a value's key is created before it");
        }
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const velt::RegistrarReplacements replacements = {
        {L"A", L"a'b%c{d}"}, {L"M", L"C:\\x"}, {L"N", L"name"}, {L"E", L""}};
    const std::wstring script = ScriptFrom(data, size);
    const velt::RegistrarResult result = velt::ParseRegistrarScript(script, replacements);
    if (const auto* error = std::get_if<RegistrarError>(&result))
    {
        CheckError(script, *error);
        return 0;
    }
    const auto& operations = std::get<std::vector<RegistryOperation>>(result);
    std::for_each(operations.begin(), operations.end(), &CheckOperation);
    CheckOrder(operations);
    return 0;
}
