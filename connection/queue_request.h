#pragma once

#include "connection/connection_object.h"

#include <windows.h>

#include <wininet.h>

#include <string>
#include <vector>

namespace CONNECTION_MANAGER
{
/// One item of the queue: what is to be fetched, and how the queue works it. The worker calls all
/// of it, and holds a reference while it does. Narrow texts go out as they are.
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

    virtual std::string GetPassword() const = 0;
    virtual std::string GetUserName() const = 0;

    /// The body of the response; the bytes are followed by a NUL that is not counted and are gone
    /// after the call.
    virtual void OnBody(const char* body, DWORD lengthBytes) = 0;

    /// Data that is sent with the request; null for none. Belongs to the request and stays as it is
    /// while the exchange runs.
    virtual const void* GetRequestData(DWORD* lengthBytes) const = 0;

    /// INTERNET_FLAG_... bits of the request.
    virtual DWORD GetFlags() const = 0;

    virtual std::string GetHttpVersion() const = 0;
    virtual std::string GetAcceptType() const = 0; // empty for none
    virtual std::string GetObjectPath() const = 0;
    virtual std::string GetVerb() const = 0;
    virtual INTERNET_PORT GetPort() const = 0;
    virtual std::string GetServer() const = 0;

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
    virtual std::string GetProxy() const = 0;

    virtual ~queue_request() = default;
};
} // namespace CONNECTION_MANAGER
