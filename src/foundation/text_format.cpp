#include "foundation/text_format.h"

#include <cstddef>

namespace velt
{
std::string FormatPositional(std::string_view text, const std::vector<std::string>& arguments)
{
    std::string out;
    std::string_view rest = text; // what lies right of the search position
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string token = std::string("%").append(std::to_string(i));
        for (auto at = rest.find(token); at != rest.npos; at = rest.find(token))
        {
            out.append(rest.substr(0, at)).append(arguments[i]);
            rest.remove_prefix(at + token.size());
        }
    }
    return out.append(rest);
}
} // namespace velt
