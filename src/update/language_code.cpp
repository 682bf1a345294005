#include "update/language_code.h"

#include <algorithm>
#include <iterator>

namespace velt
{
namespace
{
struct Language
{
    std::int32_t locale;
    std::int32_t code;
};

// By design, with gaps: 1037, 1039, 1047, 1052, 1056 and all others are not known to the agent.
constexpr Language kLanguages[] = {
    {1026, 1026}, {1027, 1027}, {1028, 1028}, {1029, 1029}, {1030, 1030}, {1031, 1031},
    {1032, 1032}, {1033, 1033}, {1034, 1034}, {1035, 1035}, {1036, 1036}, {1038, 1038},
    {1040, 1040}, {1041, 1041}, {1042, 1042}, {1043, 1043}, {1044, 1044}, {1045, 1045},
    {1046, 1046}, {1048, 1048}, {1049, 1049}, {1050, 1050}, {1051, 1051}, {1053, 1053},
    {1054, 1054}, {1055, 1055}, {1057, 1057}, {1060, 1060}, {1069, 1069}, {2052, 2052},
    {2070, 2070}, {3082, 1034}, {3084, 3084}, {3098, 3098},
};
static_assert(std::ranges::is_sorted(kLanguages, {}, &Language::locale));
} // namespace

std::optional<std::int32_t> FindLanguageCode(std::int32_t locale) noexcept
{
    const auto* const found = std::ranges::lower_bound(kLanguages, locale, {}, &Language::locale);
    if (found == std::end(kLanguages) || found->locale != locale)
    {
        return std::nullopt;
    }
    return found->code;
}
} // namespace velt
