// A library that is linked with what the component's containers throw with, because a program of
// the test framework brings the compiler's own.

#include <windows.h>

#include <cstddef>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace
{
void Throw(int what)
{
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    const volatile std::size_t one = 1;
    switch (what)
    {
    case 0:
        static_cast<void>(std::wstring().at(one));
        break;
    case 1:
        static_cast<void>(std::wstring(L"text").substr(one + 4));
        break;
    case 2:
        std::vector<char>().reserve(most / one);
        break;
    case 3:
    {
        const wchar_t* const volatile none = nullptr;
        static_cast<void>(std::wstring(none));
        break;
    }
    case 4:
        static_cast<void>(std::allocator<int>().allocate(most / one));
        break;
    case 5:
        static_cast<void>(std::allocator<char>().allocate(most / one));
        break;
    default:
        break;
    }
}
} // namespace

/// Catches it as the component does: 2 for what means that there is no memory, 1 for other
/// exceptions with their text, 0 for none.
extern "C" __declspec(dllexport) int CaughtFrom(int what, char* text, std::size_t characters)
{
    try
    {
        Throw(what);
    }
    catch (const std::bad_alloc&)
    {
        return 2;
    }
    catch (const std::exception& e)
    {
        ::lstrcpynA(text, e.what(), static_cast<int>(characters));
        return 1;
    }
    return 0;
}
