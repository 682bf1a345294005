#pragma once

#include <cstdint>
#include <string>

namespace velt
{
/// How long a cookie of the safe store lasts: 183 days, 0 hours, 0 minutes and 0 seconds.
inline constexpr std::int64_t kCookieLifetimeSeconds = std::int64_t{183} * 24 * 60 * 60;

/// A moment, broken down.
struct CalendarTime
{
    int year;
    int month;   // 1 to 12
    int day;     // 1 to 31
    int weekday; // 0 (Sunday) to 6
    int hour;
    int minute;
    int second;
};

/// The date of a cookie's "expires" attribute: "Sat, 5-May-2007  9: 4: 0 GMT". Numbers are filled
/// up with blanks, except the day. Empty when the month or the weekday does not exist.
///
/// By design, it is labelled GMT whatever the time zone of the parts is.
std::string ExpiryText(const CalendarTime& time);
} // namespace velt
