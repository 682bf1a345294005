#pragma once

#include <windows.h>

namespace velt::test
{
/// Gives an environment variable of this process, and of the children that it starts, a value until
/// the end of the scope; null takes it away. It is not set afterwards.
class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const char* value) noexcept : m_name(name)
    {
        ::SetEnvironmentVariableA(name, value);
    }

    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

    ~EnvironmentVariable()
    {
        ::SetEnvironmentVariableA(m_name, nullptr);
    }

private:
    const char* m_name;
};
} // namespace velt::test
