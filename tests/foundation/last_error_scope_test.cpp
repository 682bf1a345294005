#include "foundation/last_error_scope.h"

#include <catch.hpp>

TEST_CASE("LastErrorScope: the thread's last error is what it was", "[foundation]")
{
    ::SetLastError(ERROR_BUSY);
    {
        const velt::LastErrorScope outer;
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        {
            const velt::LastErrorScope inner;
            ::SetLastError(0);
        }
        CHECK(::GetLastError() == ERROR_FILE_NOT_FOUND);
        ::SetLastError(0);
    }
    CHECK(::GetLastError() == ERROR_BUSY);
}

TEST_CASE("LastErrorScope: 0 is given back too", "[foundation]")
{
    ::SetLastError(0);
    {
        const velt::LastErrorScope scope;
        ::SetLastError(ERROR_BUSY);
    }
    CHECK(::GetLastError() == 0);
}
