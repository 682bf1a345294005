#include "foundation/velt_text.h"

#include "foundation/system_exception.h"
#include "foundation/text_format.h"
#include "foundation/wide_text.h"

#include <windows.h>

#include <cstdio>
#include <memory>
#include <optional>

namespace
{
constinit const VeltText* g_firstText = nullptr; // linked by the texts' constructors

struct FileCloser
{
    void operator()(std::FILE* file) const noexcept
    {
        std::fclose(file);
    }
};
using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

UniqueFile OpenForReading(const std::wstring& path)
{
    const bool olderFamily = (::GetVersion() & 0x80000000) != 0; // has no wide file calls
    if (!olderFamily)
    {
        return UniqueFile(::_wfopen(path.c_str(), L"rb"));
    }
    return UniqueFile(std::fopen(velt::NarrowFromWide(path, CP_ACP).c_str(), "rb"));
}

/// The bytes of a file; nothing when it cannot be opened or read to its end.
std::optional<std::string> ReadFileBytes(const std::wstring& path)
{
    const UniqueFile file = OpenForReading(path);
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0)
    {
        return std::nullopt;
    }
    const long size = std::ftell(file.get());
    if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0)
    {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (std::fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
    {
        return std::nullopt;
    }
    return bytes;
}
} // namespace

VeltText::VeltText(std::int32_t id, const char* defaultText) noexcept
    : m_id(id),
      m_defaultText(defaultText)
{
    const VeltText** link = &g_firstText;
    while (*link && (*link)->m_id < id)
    {
        link = &(*link)->m_next;
    }
    m_next = *link;
    *link = this;
}

std::int32_t VeltText::GetId() const noexcept
{
    return m_id;
}

std::string VeltText::Format(const std::vector<std::string>& arguments) const
{
    return velt::FormatPositional(GetText(), arguments);
}

std::string VeltText::GetText() const
{
    if (m_id != 0)
    {
        std::string translation = Language().Lookup(m_id);
        if (!translation.empty())
        {
            return translation;
        }
    }
    return m_defaultText;
}

VeltText::LanguageImpl& VeltText::Language() noexcept
{
    static LanguageImpl language;
    return language;
}

const VeltText* VeltText::First() noexcept
{
    return g_firstText;
}

const VeltText* VeltText::Next() const noexcept
{
    return m_next;
}

std::uint32_t VeltText::LanguageImpl::GetLanguage() const noexcept
{
    return m_current;
}

const char* VeltText::LanguageImpl::GetLanguageCode(std::uint32_t index) const noexcept
{
    return index < velt::kLanguages.size() ? velt::kLanguages[index].code : nullptr;
}

std::string VeltText::LanguageImpl::Lookup(std::int32_t id) const
{
    const auto found = m_translations.find(id);
    return found == m_translations.end() ? std::string() : found->second;
}

void VeltText::LanguageImpl::SetLanguage(std::uint32_t index, const std::string& directory)
{
    if (index == m_current)
    {
        return;
    }
    m_translations.clear();
    m_current = velt::kDefaultLanguage;
    const char* const code = GetLanguageCode(index);
    if (index == velt::kDefaultLanguage || !code)
    {
        return;
    }
    try
    {
        const auto bytes = ReadFileBytes(velt::WideFromUtf8(directory + "\\" + code + ".txt"));
        if (!bytes)
        {
            return;
        }
        m_translations = velt::ParseLanguageFile(*bytes);
        m_current = index;
    }
    catch (const SystemException::Win32&)
    {
        // A path that the code page cannot take is a file that cannot be opened.
    }
}
