#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace velt
{
/// Keeps scrambled values in the system's cookies: one cookie for a URL, which other programs of
/// the user see too. The caller sees to it that one thread at a time uses an object.
class CookieStore
{
public:
    CookieStore() = default;

    CookieStore(const CookieStore&) = delete;
    CookieStore& operator=(const CookieStore&) = delete;

    ~CookieStore() = default;

    /// The domain of the cookies that are written from now on; empty for the URL's own host.
    void SetDomain(std::wstring domain) noexcept;
    const std::wstring& Domain() const noexcept;

    /// Adds a value to the URL's cookie, or replaces the one of that name. Returns false, with a
    /// level 1 trace, and leaves the old cookie whole when the cookie would become longer than
    /// the store keeps, or the system refuses it. So it is with a URL or a domain that the system's
    /// narrow calls cannot spell: it would share its cookie with others. Throws std::bad_alloc.
    bool Write(const std::wstring& url, std::wstring_view name, std::wstring_view value);

    /// The value of a name; none when there is none, or the URL cannot be spelt. Throws as Write.
    std::optional<std::wstring> Read(const std::wstring& url, std::wstring_view name);

private:
    std::wstring m_domain;
};
} // namespace velt
