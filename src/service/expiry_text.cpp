#include "service/expiry_text.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace velt
{
std::string ExpiryText(const CalendarTime& time)
{
    static constexpr std::array<const char*, 7> kDays = {"Sun", "Mon", "Tue", "Wed",
                                                         "Thu", "Fri", "Sat"};
    static constexpr std::array<const char*, 12> kMonths = {
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

    if (time.weekday < 0 || time.weekday > 6 || time.month < 1 || time.month > 12)
    {
        return {};
    }
    std::array<char, 96> text{}; // six numbers of any size fit
    const int length = std::snprintf(text.data(), text.size(), "%s, %i-%s-%4i %2i:%2i:%2i GMT",
                                     kDays[static_cast<std::size_t>(time.weekday)], time.day,
                                     kMonths[static_cast<std::size_t>(time.month - 1)], time.year,
                                     time.hour, time.minute, time.second);
    return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}
} // namespace velt
