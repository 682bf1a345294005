#pragma once

#include "tools/velt/unique_file.h"

#include <cstddef>
#include <string>

namespace velt::tool
{
/// A file that gets its name when it is complete. Until then it is called "<name>.part" in the same
/// folder, and it goes when it is not completed. Everything throws CommandFailure.
class PartFile
{
public:
    /// Begins the file; a part that an earlier program left is replaced.
    explicit PartFile(std::wstring path);

    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    ~PartFile();

    void Write(const void* bytes, std::size_t count);

    /// Gives the file its name; one of that name is replaced.
    void Complete();

private:
    std::wstring m_path;
    std::wstring m_partPath;
    UniqueFile m_file; // none once complete
};
} // namespace velt::tool
