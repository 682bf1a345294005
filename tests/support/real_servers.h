#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace velt::test
{
/// The web server and the proxy that scripts/with_servers.sh has started beside this program; that
/// file says what is served. Everything throws std::runtime_error when they are not there.
namespace real_servers
{
inline constexpr wchar_t kHost[] = L"127.0.0.1";
/// The same server by names that one test each uses: systems use a server's password and its idle
/// connections again.
inline constexpr wchar_t kPasswordHost[] = L"127.0.0.2";
inline constexpr wchar_t kNewHost[] = L"127.0.0.3";
inline constexpr std::size_t kLargeBytes = 64u << 20;

inline std::string Variable(const char* name)
{
    const char* const value = std::getenv(name);
    if (!value)
    {
        throw std::runtime_error(std::string(name) + ": run this beside the real servers");
    }
    return value;
}

inline INTERNET_PORT HttpPort()
{
    return static_cast<INTERNET_PORT>(std::stoul(Variable("VELT_HTTP_PORT")));
}

inline INTERNET_PORT ProxyPort()
{
    return static_cast<INTERNET_PORT>(std::stoul(Variable("VELT_PROXY_PORT")));
}

/// "host:port" of the proxy.
inline std::wstring Proxy()
{
    return std::wstring(kHost) + L":" + std::to_wstring(ProxyPort());
}

/// A byte of /large, and of the pages that begin like it.
inline char LargeByte(std::size_t offset)
{
    constexpr std::size_t kLine = 64;
    constexpr std::size_t kDigits = kLine - 1;
    std::size_t place = offset % kLine;
    if (place == kDigits)
    {
        return '\n';
    }
    std::size_t number = offset / kLine;
    for (; place + 1 < kDigits && number != 0; ++place)
    {
        number /= 10;
    }
    return static_cast<char>('0' + number % 10);
}

/// The bytes of /large from an offset on.
inline std::string LargeBytes(std::size_t offset, std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
    {
        bytes[i] = LargeByte(offset + i);
    }
    return bytes;
}

/// The lines of a log in the servers' folder: "access.log", a line for each answer of the web
/// server, or "proxy.log".
inline std::vector<std::string> LogLines(const std::string& name)
{
    const std::string path = Variable("VELT_SERVERS_DIR_WINDOWS") + "\\" + name;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (!file)
    {
        throw std::runtime_error("no log: " + path);
    }
    std::string text;
    for (int character = std::fgetc(file); character != EOF; character = std::fgetc(file))
    {
        text.push_back(static_cast<char>(character));
    }
    std::fclose(file);
    std::vector<std::string> lines;
    for (std::size_t from = 0, end = 0; (end = text.find('\n', from)) != text.npos; from = end + 1)
    {
        lines.push_back(text.substr(from, end - from));
    }
    return lines;
}
} // namespace real_servers
} // namespace velt::test
