#pragma once

namespace velt::test
{
/// What an out value holds that nobody has written to.
inline void* Poison()
{
    static int poison = 0;
    return &poison;
}
} // namespace velt::test
