#pragma once

#include <windows.h>

#include <objbase.h>

namespace velt
{
/// The apartment that a thread is in: interface pointers of one are good for direct calls in it.
class Apartment
{
public:
    /// That of the calling thread. None for a thread that has not initialised COM itself, although
    /// the system counts it to the multithreaded apartment as long as there is one: nothing keeps
    /// that apartment, with the pointers of it, while the thread makes a call.
    static Apartment Current() noexcept
    {
        Apartment current;
        APTTYPE type = APTTYPE_CURRENT;
        APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
        if (SUCCEEDED(::CoGetApartmentType(&type, &qualifier)) &&
            qualifier != APTTYPEQUALIFIER_IMPLICIT_MTA &&
            SUCCEEDED(::CoGetContextToken(&current.m_context)))
        {
            current.m_thread = type == APTTYPE_MTA ? 0 : ::GetCurrentThreadId();
        }
        else
        {
            current.m_context = 0;
        }
        return current;
    }

    /// Whether both are one apartment.
    bool IsSame(const Apartment& other) const noexcept
    {
        return m_context != 0 && m_context == other.m_context && m_thread == other.m_thread;
    }

private:
    Apartment() noexcept = default;

    ULONG_PTR m_context = 0; // 0 for none
    DWORD m_thread = 0;      // 0 in the multithreaded apartment, which every thread of it shares
};
} // namespace velt
