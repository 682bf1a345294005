#include "tests/support/message_module.h"

#include "tests/support/built_file.h"

#include <array>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace velt::test
{
namespace
{
constexpr wchar_t kEmptyModule[] = L"tests\\support\\velt_empty_module.dll";

void Put16(std::vector<std::uint8_t>& to, std::size_t value)
{
    to.push_back(static_cast<std::uint8_t>(value & 0xFF));
    to.push_back(static_cast<std::uint8_t>(value >> 8 & 0xFF));
}

void Put32(std::vector<std::uint8_t>& to, std::uint32_t value)
{
    Put16(to, value & 0xFFFF);
    Put16(to, value >> 16);
}

/// A message table with one entry.
std::vector<std::uint8_t> MessageTable(DWORD id, const std::wstring& text)
{
    constexpr std::uint16_t kUnicode = 1;
    std::vector<std::uint8_t> table;
    Put32(table, 1);  // blocks
    Put32(table, id); // first and last id of the block, and where its entries start
    Put32(table, id);
    Put32(table, 16);
    const std::size_t size = (4 + 2 * (text.size() + 1) + 3) / 4 * 4;
    Put16(table, size);
    Put16(table, kUnicode);
    for (const wchar_t c : text)
    {
        Put16(table, c);
    }
    table.resize(16 + size);
    return table;
}
} // namespace

MessageModule::MessageModule(std::wstring path, DWORD id, const std::wstring& text)
    : m_path(std::move(path))
{
    if (!::CopyFileW(BuiltFile(kEmptyModule).c_str(), m_path.c_str(), TRUE))
    {
        throw std::runtime_error("the module cannot be copied");
    }
    std::vector<std::uint8_t> table = MessageTable(id, text);
    const HANDLE update = ::BeginUpdateResourceW(m_path.c_str(), TRUE);
    const bool isWritten =
        update && ::UpdateResourceW(update, RT_MESSAGETABLE, MAKEINTRESOURCEW(1), 0, table.data(),
                                    static_cast<DWORD>(table.size()));
    if (!update || !::EndUpdateResourceW(update, !isWritten) || !isWritten)
    {
        ::DeleteFileW(m_path.c_str());
        throw std::runtime_error("the messages cannot be written");
    }
}

MessageModule::~MessageModule()
{
    ::DeleteFileW(m_path.c_str());
}

std::wstring InSystemFolder(const std::wstring& name)
{
    std::array<wchar_t, MAX_PATH> folder{};
    ::GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size()));
    return std::wstring(folder.data()) + L"\\" + name;
}

std::wstring BesideProgram(const std::wstring& name)
{
    std::array<wchar_t, MAX_PATH> program{};
    ::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::wstring path = program.data();
    return path.substr(0, path.find_last_of(L'\\') + 1) + name;
}
} // namespace velt::test
