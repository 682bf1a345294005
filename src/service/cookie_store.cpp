#include "service/cookie_store.h"

#include "foundation/utrace.h"
#include "foundation/wide_text.h"
#include "service/cookie_codec.h"
#include "service/expiry_text.h"

#include <wininet.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace velt
{
namespace
{
static_assert(sizeof(wchar_t) == sizeof(char16_t));

std::u16string Units(std::wstring_view text)
{
    return {text.begin(), text.end()};
}

/// The moment at which a cookie that is made now ends. By design, broken down as local time. None,
/// which is traced, for a clock that is beyond the calendar.
std::optional<CalendarTime> ExpiryTime()
{
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER ticks; // of 100 ns
    ticks.LowPart = now.dwLowDateTime;
    ticks.HighPart = now.dwHighDateTime;
    ticks.QuadPart += std::uint64_t{kCookieLifetimeSeconds} * 10'000'000;
    const FILETIME end{ticks.LowPart, ticks.HighPart};
    SYSTEMTIME universal{};
    SYSTEMTIME local{};
    if (!::FileTimeToSystemTime(&end, &universal))
    {
        UTrace::TraceLevel1("FileTimeToSystemTime failed: %lu", ::GetLastError());
        return std::nullopt;
    }
    if (!::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local))
    {
        local = universal;
    }
    return CalendarTime{local.wYear, local.wMonth,  local.wDay,   local.wDayOfWeek,
                        local.wHour, local.wMinute, local.wSecond};
}

/// A text for the system's narrow calls; none, which is traced, when they cannot spell it. `what`
/// it is goes into the trace, and the text itself does not: nothing of a URL or a domain does.
std::optional<std::string> Narrow(const std::wstring& text, const char* what)
{
    std::optional<std::string> narrow = ExactNarrowFromWide(text, CP_ACP);
    if (!narrow)
    {
        UTrace::TraceLevel1("CookieStore: the %s is not in the code page", what);
    }
    return narrow;
}

/// All cookies of a URL; none, which is traced, when the system does not tell.
std::optional<std::string> CookiesOf(const std::string& url)
{
    constexpr DWORD kUsualBytes = 2 * kMaxCookieBytes;
    constexpr DWORD kMostBytes = 1 << 24; // more than any store holds for a URL
    std::string cookies;
    for (DWORD bytes = kUsualBytes; bytes <= kMostBytes;)
    {
        cookies.resize(bytes);
        DWORD needed = bytes;
        if (::InternetGetCookieA(url.c_str(), nullptr, cookies.data(), &needed))
        {
            cookies.resize(std::min(cookies.find('\0'), cookies.size()));
            return cookies;
        }
        const DWORD error = ::GetLastError();
        if (error == ERROR_NO_MORE_ITEMS)
        {
            return std::string();
        }
        if (error != ERROR_INSUFFICIENT_BUFFER)
        {
            UTrace::TraceLevel1("InternetGetCookieA failed: %lu", error);
            return std::nullopt;
        }
        bytes = std::max(needed, bytes) + kUsualBytes; // others write too
    }
    UTrace::TraceLevel1("InternetGetCookieA never has room enough");
    return std::nullopt;
}
} // namespace

void CookieStore::SetDomain(std::wstring domain) noexcept
{
    m_domain = std::move(domain);
}

const std::wstring& CookieStore::Domain() const noexcept
{
    return m_domain;
}

bool CookieStore::Write(const std::wstring& url, std::wstring_view name, std::wstring_view value)
{
    if (name.size() > kMaxCookieBytes || value.size() > kMaxCookieBytes)
    {
        UTrace::TraceLevel1("CookieStore::Write refused: no cookie can hold the value");
        return false; // before anything of that size is copied
    }
    const std::optional<std::string> narrowUrl = Narrow(url, "URL");
    const std::optional<std::string> domain = Narrow(m_domain, "domain");
    const std::optional<CalendarTime> expiry = ExpiryTime();
    if (!narrowUrl || !domain || !expiry)
    {
        return false;
    }
    const std::optional<std::string> cookies = CookiesOf(*narrowUrl);
    if (!cookies)
    {
        return false; // what is there cannot be seen, so it is not written over
    }
    SafeContent content = FindSafeContent(*cookies);
    content.Set(Units(name), Units(value));
    if (content.revision < UINT32_MAX)
    {
        ++content.revision;
    }
    const std::optional<std::string> data = MakeCookieData(content, *domain, ExpiryText(*expiry));
    if (!data)
    {
        UTrace::TraceLevel1("CookieStore::Write refused: no cookie can hold the value");
        return false;
    }
    if (!::InternetSetCookieA(narrowUrl->c_str(), nullptr, data->c_str()))
    {
        UTrace::TraceLevel1("InternetSetCookieA failed: %lu", ::GetLastError());
        return false;
    }
    return true;
}

std::optional<std::wstring> CookieStore::Read(const std::wstring& url, std::wstring_view name)
{
    const std::optional<std::string> narrowUrl = Narrow(url, "URL");
    const std::optional<std::string> cookies = narrowUrl ? CookiesOf(*narrowUrl) : std::nullopt;
    if (!cookies)
    {
        return std::nullopt;
    }
    const SafeContent content = FindSafeContent(*cookies);
    const std::u16string* const value = content.Find(Units(name));
    return value ? std::optional(std::wstring(value->begin(), value->end())) : std::nullopt;
}
} // namespace velt
