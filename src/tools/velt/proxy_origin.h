#pragma once

#include "internet/internet_proxy.h"

#include <string>

namespace velt::tool
{
/// The registry key that a proxy was found in. Throws std::bad_alloc only.
std::wstring ProxyOrigin(const CInternetProxy& proxy);
} // namespace velt::tool
