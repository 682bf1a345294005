#pragma once

#include "tests/support/call_log.h"

#include <windows.h>

#include <wtypes.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace velt::test
{
/// The update agent for the calling thread's apartment, until the end of the scope: a class object
/// that takes its place there. The log has each call with its arguments, the count of a collection
/// as "updates.Count" and "messages.Count", and "... gone" for each object at its end.
class StandInAgent
{
public:
    /// Throws std::runtime_error when the class object cannot be registered.
    StandInAgent();

    StandInAgent(const StandInAgent&) = delete;
    StandInAgent& operator=(const StandInAgent&) = delete;

    ~StandInAgent();

    CallLog log;
    CallLog releases; // "extended interface" and "agent", with the last reference of each

    // How it answers; set before the calls.
    bool isExtended = true;                         // whether it offers the extended interface
    VARIANT_BOOL isWanted = VARIANT_TRUE;           // IsCheckWanted
    VARIANT_BOOL isConnected = VARIANT_TRUE;        // IsConnectedEx
    std::optional<LONG> updates = 0;                // none: no collection is returned
    std::optional<LONG> messages = 0;               // the same
    std::map<std::string, HRESULT> results;         // by the first word of the call
    std::function<void(const std::string&)> onCall; // with that word, before the answer

    /// Objects of it that live.
    LONG LiveObjects() const noexcept
    {
        return m_liveObjects;
    }

private:
    class Agent;
    class Collection;
    class Factory;

    /// Logs a call and gives it its result.
    HRESULT Called(const std::string& call);

    volatile LONG m_liveObjects = 0;
    const std::unique_ptr<Factory> m_factory;
    DWORD m_registration = 0;
};
} // namespace velt::test
