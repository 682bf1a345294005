#pragma once

#include "connection/connection_object.h"

#include <windows.h>

#include <wininet.h>

#include <string>
#include <vector>

namespace CONNECTION_MANAGER
{
/// One item of the queue: how the queue works it, and what is to be fetched; work of another kind
/// leaves the accessors as they are. The worker calls all of it, and holds a reference while it
/// does. Narrow texts go out as they are.
class queue_request
{
public:
    /// Results of a step up to this one mean that the request is still under way; a greater one,
    /// that it has finished.
    static constexpr DWORD kUnderWay = 2;
    static constexpr DWORD kFinished = 3;

    queue_request() = default;

    queue_request(const queue_request&) = delete;
    queue_request& operator=(const queue_request&) = delete;

    virtual std::string GetPassword() const
    {
        return {};
    }

    virtual std::string GetUserName() const
    {
        return {};
    }

    /// The body of the response; the bytes are followed by a NUL that is not counted and are gone
    /// after the call.
    virtual void OnBody([[maybe_unused]] const char* body, [[maybe_unused]] DWORD lengthBytes) {}

    /// Data that is sent with the request; null for none. Belongs to the request and stays as it is
    /// while the exchange runs.
    virtual const void* GetRequestData(DWORD* lengthBytes) const
    {
        *lengthBytes = 0;
        return nullptr;
    }

    /// INTERNET_FLAG_... bits of the request.
    virtual DWORD GetFlags() const
    {
        return 0;
    }

    virtual std::string GetHttpVersion() const
    {
        return {};
    }

    virtual std::string GetAcceptType() const // empty for none
    {
        return {};
    }

    virtual std::string GetObjectPath() const
    {
        return {};
    }

    virtual std::string GetVerb() const
    {
        return {};
    }

    virtual INTERNET_PORT GetPort() const
    {
        return 0;
    }

    virtual std::string GetServer() const
    {
        return {};
    }

    /// Works the request once. `probeHosts` are hosts by which it may test the connection.
    virtual DWORD Step(connection_object& connection, const std::vector<std::string>& probeHosts,
                       bool mayConnect) = 0;

    /// Called once, after the step that finished the request.
    virtual void Complete(connection_object& connection, DWORD* value) = 0;

    /// Whether the request is not wanted any more; asked by hold-and-retry processing only.
    virtual bool IsCancelled() const
    {
        return false;
    }

    /// "host:port" or "host"; empty for the system's own configuration.
    virtual std::string GetProxy() const
    {
        return {};
    }

    virtual ~queue_request() = default;
};
} // namespace CONNECTION_MANAGER
