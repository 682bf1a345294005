#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace velt::test
{
/// What a file says about itself in its version block.
class VersionBlock
{
public:
    /// Throws std::runtime_error when the file has none.
    explicit VersionBlock(const std::wstring& path);

    const VS_FIXEDFILEINFO& Fixed() const noexcept
    {
        return *m_fixed;
    }

    /// The file's version in numbers, as text with dots.
    std::wstring Version() const;

    /// A text of its American English ones, which are Unicode; empty when it is missing.
    std::wstring Text(const wchar_t* name) const;

private:
    std::vector<BYTE> m_block;
    const VS_FIXEDFILEINFO* m_fixed; // in the block
};
} // namespace velt::test
