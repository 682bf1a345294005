#pragma once

#include <windows.h>

#include <objbase.h>

namespace velt::test
{
/// Puts the current thread into a single-threaded apartment until the end of the scope.
class ComApartment
{
public:
    ComApartment() noexcept
    {
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    }

    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

    ~ComApartment()
    {
        ::CoUninitialize();
    }
};
} // namespace velt::test
