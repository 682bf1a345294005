#pragma once

#include <string>
#include <string_view>

namespace velt::test
{
/// Removes a folder with everything in it; what a link in it leads to stays, and so does what
/// somebody holds open.
void RemoveFolder(const std::wstring& path);

/// A folder of the test's own below the temporary one, removed with all that is in it at the end.
/// Failures throw std::runtime_error.
class TempFolder
{
public:
    /// `name` becomes a part of the folder's name.
    explicit TempFolder(const std::wstring& name = L"folder");

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    ~TempFolder();

    const std::wstring& Path() const noexcept
    {
        return m_path;
    }

    /// The full path of a file in the folder.
    std::wstring File(const std::wstring& name) const;

    /// Writes a file in the folder; an existing one is replaced.
    void Write(const std::wstring& name, std::string_view bytes) const;

    /// What is in a file of the folder, also while it is being written; nothing for one that is not
    /// there.
    std::string Read(const std::wstring& name) const;

private:
    std::wstring m_path;
};
} // namespace velt::test
