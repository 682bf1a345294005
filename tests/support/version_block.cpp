#include "tests/support/version_block.h"

#include "foundation/wide_text.h"

#include <winver.h>

#include <stdexcept>

namespace velt::test
{
namespace
{
/// A value of the block's, of its own type; null when there is none.
const void* Value(const std::vector<BYTE>& block, const std::wstring& where)
{
    void* value = nullptr;
    UINT size = 0;
    return ::VerQueryValueW(block.data(), where.c_str(), &value, &size) && size != 0 ? value
                                                                                     : nullptr;
}
} // namespace

VersionBlock::VersionBlock(const std::wstring& path)
{
    DWORD ignored = 0;
    m_block.resize(::GetFileVersionInfoSizeW(path.c_str(), &ignored));
    if (m_block.empty() ||
        !::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(m_block.size()), m_block.data()))
    {
        throw std::runtime_error("no version block: " + Utf8FromWide(path));
    }
    m_fixed = static_cast<const VS_FIXEDFILEINFO*>(Value(m_block, L"\\"));
    if (!m_fixed)
    {
        throw std::runtime_error("an empty version block: " + Utf8FromWide(path));
    }
}

std::wstring VersionBlock::Version() const
{
    const auto part = [](DWORD value, int shift) {
        return std::to_wstring((value >> shift) & 0xFFFF);
    };
    return part(m_fixed->dwFileVersionMS, 16) + L'.' + part(m_fixed->dwFileVersionMS, 0) + L'.' +
           part(m_fixed->dwFileVersionLS, 16) + L'.' + part(m_fixed->dwFileVersionLS, 0);
}

std::wstring VersionBlock::Text(const wchar_t* name) const
{
    const auto* const text = static_cast<const wchar_t*>(
        Value(m_block, std::wstring(L"\\StringFileInfo\\040904B0\\") + name));
    return text ? text : L"";
}
} // namespace velt::test
