#pragma once

#include <cstdio>
#include <cstdlib>

namespace velt::test
{
/// Ends the run at an input that breaks a rule, which the fuzzer then keeps.
inline void Require(bool kept, const char* rule = "", unsigned line = __builtin_LINE())
{
    if (!kept)
    {
        std::fprintf(stderr, "broken in line %u: %s\n", line, rule);
        std::abort();
    }
}
} // namespace velt::test
