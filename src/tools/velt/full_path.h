#pragma once

#include <string>

namespace velt::tool
{
/// A path from the current folder's point of view as a full one. Throws CommandFailure.
std::wstring FullPath(const std::wstring& path);

/// Makes a folder, given by its full path, and those above it; one that is there stays as it is.
/// Throws CommandFailure.
void MakeFolder(const std::wstring& path);

/// All bytes of a file. Throws CommandFailure, and std::bad_alloc for one that does not fit.
std::string ReadWholeFile(const std::wstring& path);
} // namespace velt::tool
