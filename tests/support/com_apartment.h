#pragma once

#include <windows.h>

#include <objbase.h>

namespace velt::test
{
/// Puts the current thread into an apartment, mostly a single-threaded one, until the end of the
/// scope.
class ComApartment
{
public:
    explicit ComApartment(COINIT kind = COINIT_APARTMENTTHREADED) noexcept
    {
        ::CoInitializeEx(nullptr, static_cast<DWORD>(kind));
    }

    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

    ~ComApartment()
    {
        ::CoUninitialize();
    }
};
} // namespace velt::test
