#pragma once

#include "connection/callback.h"
#include "connection/queue_request.h"
#include "update/language_code.h"

#include <windows.h>

#include <wtypes.h>

#include <optional>
#include <string>
#include <vector>

struct IUpdateAgent;
struct IUpdateAgentEx;

/// Has the update agent look after one product: registers it there, and starts its update in the
/// foreground, or in the background when there is something to get. No failure gets out of it; each
/// one is traced.
///
/// It is used by one thread at a time, which has initialised COM. Agents mostly live in a process
/// of their own: a call takes as long as the agent does, and a single-threaded apartment takes
/// calls meanwhile.
class IS_upgrade_request final : public CONNECTION_MANAGER::queue_request
{
public:
    /// `owner` is told when the queue has finished the request; it may be null.
    explicit IS_upgrade_request(CONNECTION_MANAGER::ICallback* owner) noexcept;

    IS_upgrade_request(const IS_upgrade_request&) = delete;
    IS_upgrade_request& operator=(const IS_upgrade_request&) = delete;

    ~IS_upgrade_request() override = default;

    /// The product, the locale (an LCID) of the texts that its user sees, the name of the product
    /// in them (may be empty), and whether the user watches. Throws std::bad_alloc.
    void SetISParameters(std::wstring installerGuid, std::wstring productVersion, LONG locale,
                         std::wstring description, bool foreground);

    const std::wstring& InstallerGuid() const noexcept;

    /// The work routine, on the calling thread.
    void DoWork() noexcept;

    /// Whether the agent has an update or a message for the product. Without `connectToServer`,
    /// whether there is an agent. Initialises COM for its own duration.
    bool IsUpdateOrMessageAvailable(bool connectToServer) noexcept;

    /// Runs the work routine. Finished when the machine is online: by the agent's answer, or by the
    /// system's where the agent gave none. Under way otherwise, so that it is tried again.
    DWORD Step(CONNECTION_MANAGER::connection_object& connection,
               const std::vector<std::string>& probeHosts, bool mayConnect) override;

    void Complete(CONNECTION_MANAGER::connection_object& connection, DWORD* value) override;

private:
    void Work();

    /// Makes the product known to the agent; whether the agent wants to be asked for updates now.
    bool Register(IUpdateAgent& agent, BSTR guid) const;

    void Update(IUpdateAgent& agent, IUpdateAgentEx& agentEx, BSTR guid);
    void StartUpdate(IUpdateAgent& agent, IUpdateAgentEx& agentEx, BSTR guid, bool connected) const;
    bool AskAvailability(bool connectToServer) const;
    LONG GetLanguageCode() const;

    CONNECTION_MANAGER::ICallback* const m_owner;
    std::wstring m_installerGuid;
    std::wstring m_productVersion;
    std::wstring m_description;
    LONG m_locale = velt::kDefaultLanguageCode;
    bool m_foreground = false;

    std::optional<bool> m_agentConnected; // what the agent answered to the last work routine
};
