#pragma once

#include <windows.h>

namespace velt
{
/// The update agent, an installed component of another maker; update_agent.idl has its interfaces.
inline constexpr CLSID kUpdateAgentClass = {
    0xD8F219B9, 0xD0C0, 0x470C, {0x82, 0x10, 0x74, 0x65, 0x0E, 0x79, 0xD3, 0xDC}};
} // namespace velt
