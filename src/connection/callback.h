#pragma once

namespace CONNECTION_MANAGER
{
class queue_request;

/// Is told that a request is complete, on the thread that completed it. Whoever implements it
/// outlives the requests that know it.
class ICallback
{
public:
    ICallback() = default;
    ICallback(const ICallback&) = delete;
    ICallback& operator=(const ICallback&) = delete;

    virtual void OnRequestComplete(queue_request& request) = 0;

protected:
    ~ICallback() = default;
};
} // namespace CONNECTION_MANAGER
