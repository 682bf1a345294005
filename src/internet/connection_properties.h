#pragma once

#include <cstdint>
#include <map>
#include <string>

/// The defaults of an HTTP exchange, and what its request fills in. Narrow texts, as they go out.
class CConnectionProperties
{
public:
    /// The agent comes from the user's internet settings when they name one. Throws std::bad_alloc.
    CConnectionProperties();

    CConnectionProperties(const CConnectionProperties&) = default;
    CConnectionProperties& operator=(const CConnectionProperties&) = default;

    virtual ~CConnectionProperties() = default;

    std::uint32_t context = 1; // of the internet handles of the exchange
    std::string httpVersion = "HTTP/1.1";
    std::map<std::string, std::string> headers; // values carry their own CR LF
    std::string proxy;                          // "host:port" or "host"; empty for none
    std::string verb = "GET";

    // filled by the request that owns the properties
    std::string server;
    std::string object;
    std::string acceptType;
    std::string userName;
    std::string password;
};
