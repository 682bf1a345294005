#pragma once

#include <windows.h>

#include <wininet.h>

#include <string>

namespace velt
{
/// Kinds of service that a URL's scheme stands for.
enum class ServiceType : DWORD
{
    ftp = 1,
    gopher = 2,
    http = 3,
    unknown = 0x1000,
    file = 0x1001,
    mailto = 0x1002,
    news = 0x1006,
    https = 0x100B,
};

/// Cuts a URL into its parts, after the internet API has made it canonical the way browsers do.
/// False when it cannot be cut; the service is unknown then, and the other results are untouched.
/// Throws std::bad_alloc only.
bool ParseURL(const wchar_t* url, ServiceType& service, std::wstring& server, std::wstring& object,
              INTERNET_PORT& port);
} // namespace velt
