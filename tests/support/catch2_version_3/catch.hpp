#pragma once

// Catch2 version 3 under the name that the tests include, with the matchers' earlier names.
#if __has_include(<catch_amalgamated.hpp>)
#include <catch_amalgamated.hpp>
#else
#include <catch2/catch_all.hpp>
#endif

namespace Catch
{
using Matchers::EndsWith;
using Matchers::Matches;
using Matchers::Predicate;
using Matchers::StartsWith;
using TestEventListenerBase = EventListenerBase;

inline auto Contains(const std::string& text)
{
    return Matchers::ContainsSubstring(text);
}
} // namespace Catch
