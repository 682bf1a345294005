#pragma once

#include <set>
#include <string>
#include <string_view>

namespace velt::tool
{
/// The name of the file that a URL's body is kept in: the last part of its path, unescaped, with
/// everything that a file name must not have replaced by '_'; "index.html" when the path has none.
/// UTF-8 in and out. The result is never empty, names no device and no folder, and has at most 120
/// characters. Throws std::bad_alloc only.
std::string FileNameFromUrl(std::string_view url);

/// The name itself, or with a number before its extension when it is taken, whatever its capitals;
/// the result is taken from then on.
std::string TakeFileName(std::set<std::string>& taken, const std::string& name);
} // namespace velt::tool
