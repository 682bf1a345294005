#include "connection/connection_probe.h"
#include "foundation/wide_text.h"
#include "tools/velt/commands.h"

#include <winsock2.h>

#include <ws2tcpip.h>

#include <array>
#include <memory>

namespace velt::tool
{
namespace
{
constexpr std::uint32_t kDefaultTimeoutMs = 1000;
constexpr std::uint32_t kLongestTimeoutMs = 600'000;

class Sockets
{
public:
    Sockets()
    {
        WSADATA data;
        const int error = ::WSAStartup(MAKEWORD(2, 2), &data);
        if (error != 0)
        {
            throw CommandFailure{HRESULT_FROM_WIN32(static_cast<DWORD>(error)), L"sockets"};
        }
    }

    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

    ~Sockets()
    {
        ::WSACleanup();
    }
};

/// The first IPv4 address of a host, dotted.
std::string AddressOf(const std::wstring& host)
{
    const Sockets sockets;
    ADDRINFOW hints{};
    hints.ai_family = AF_INET;
    ADDRINFOW* found = nullptr;
    const int error = ::GetAddrInfoW(host.c_str(), nullptr, &hints, &found);
    const std::unique_ptr<ADDRINFOW, decltype(&::FreeAddrInfoW)> owner(found, &::FreeAddrInfoW);
    if (error != 0 || !found)
    {
        throw CommandFailure{HRESULT_FROM_WIN32(static_cast<DWORD>(error)), host};
    }
    const auto* const address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&address->sin_addr);
    return std::to_string(bytes[0]) + "." + std::to_string(bytes[1]) + "." +
           std::to_string(bytes[2]) + "." + std::to_string(bytes[3]);
}

bool AskSystem(const ConnectionProbe& probe, Report& results)
{
    DWORD flags = 0;
    const bool connected = probe.IsConnected(&flags) == S_OK;
    results.Add("connected", connected);
    results.Add("flags", static_cast<std::int64_t>(flags));
    return connected;
}

bool Connect(const ConnectionProbe& probe, const std::wstring& url, Report& results)
{
    DWORD state = 0;
    const HRESULT hr = probe.CheckConnection(RequireHttpUrl(url).c_str(), &state);
    results.Add("url", Utf8FromWide(url));
    results.Add("connected", hr == S_OK);
    results.Add("state", static_cast<std::int64_t>(state));
    return hr == S_OK;
}

bool Echo(const ConnectionProbe& probe, const std::wstring& host, DWORD timeoutMs, Report& results)
{
    const std::string address = AddressOf(host);
    const bool answered = probe.Ping(address.c_str(), timeoutMs) == S_OK;
    results.Add("host", Utf8FromWide(host));
    results.Add("address", address);
    results.Add("answered", answered);
    return answered;
}
} // namespace

ExitCode RunPing(const CommandLine& line, CommandContext& context)
{
    const auto timeoutMs = line.Has("timeout")
                               ? ParseNumber(line.Value("timeout"), 1, kLongestTimeoutMs)
                               : std::optional(kDefaultTimeoutMs);
    if (!timeoutMs)
    {
        throw WrongUsage{L"not a number of milliseconds: " + line.Value("timeout")};
    }
    if (!line.operands.empty() && line.operands[0].empty())
    {
        throw WrongUsage{L"an empty text is no host"}; // to the system it is this machine
    }
    const ConnectionProbe probe;
    if (line.operands.empty())
    {
        return ExitCodeFor(AskSystem(probe, context.Results()));
    }
    const std::wstring& target = line.operands[0];
    const bool url = target.find(L"://") != target.npos;
    return ExitCodeFor(url ? Connect(probe, target, context.Results())
                           : Echo(probe, target, *timeoutMs, context.Results()));
}
} // namespace velt::tool
