#pragma once

#include <windows.h>

namespace velt
{
/// Sets the calling thread's locale and gives it back its own at the end of the scope.
class ThreadLocaleScope
{
public:
    explicit ThreadLocaleScope(LCID locale) noexcept : m_saved(::GetThreadLocale())
    {
        ::SetThreadLocale(locale);
    }

    ThreadLocaleScope(const ThreadLocaleScope&) = delete;
    ThreadLocaleScope& operator=(const ThreadLocaleScope&) = delete;

    ~ThreadLocaleScope()
    {
        ::SetThreadLocale(m_saved);
    }

private:
    LCID m_saved;
};
} // namespace velt
