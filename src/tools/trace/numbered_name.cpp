#include "tools/trace/numbered_name.h"

#include <cstddef>

namespace velt
{
std::string NumberedName(std::string_view path, int number)
{
    if (number <= 1)
    {
        return std::string(path);
    }
    const std::size_t folder = path.find_last_of("\\/:");
    const std::size_t name = folder == std::string_view::npos ? 0 : folder + 1;
    const std::size_t dot = path.substr(name).rfind('.');
    // A name that begins with its only dot has no ending.
    const std::size_t end = dot == std::string_view::npos || dot == 0 ? path.size() : name + dot;
    return std::string(path.substr(0, end)) + "." + std::to_string(number) +
           std::string(path.substr(end));
}
} // namespace velt
