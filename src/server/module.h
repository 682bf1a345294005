#pragma once

#include "foundation/com_module.h"
#include "foundation/trace_state.h"
#include "foundation/velt_critical_section.h"
#include "server/class_table.h"
#include "server/registrar_script.h"

#include <windows.h>

#include <array>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

/// The library's module object: its class table, lock count and registration. One per process, a
/// static that is there before any export can run and torn down when the library is unloaded.
/// Any thread may call.
class CVeltHTTPClient final : public velt::ComModule
{
public:
    /// Runs after a successful registration; a failure is the registration's.
    using RegistrationHook = HRESULT (*)();

    CVeltHTTPClient() noexcept = default;

    CVeltHTTPClient(const CVeltHTTPClient&) = delete;
    CVeltHTTPClient& operator=(const CVeltHTTPClient&) = delete;

    ~CVeltHTTPClient();

    /// Completes the module at load: tracing starts here, and nothing else does. False when the
    /// system lacks what it needs.
    bool Initialise(HINSTANCE instance) noexcept;

    /// Whether Initialise has succeeded.
    bool IsInitialised() const noexcept;

    /// From now on the process is ending: the other threads are gone, and foreign objects are
    /// left alone at tear-down.
    void OnProcessEnd() noexcept;

    /// What the export DllGetClassObject does.
    HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** object);

    /// What the export DllRegisterServer does. Throws what the steps of velt/registration throw.
    HRESULT RegisterServer();

    void SetRegistrationHook(RegistrationHook hook) noexcept;

    /// Adds what every registrar script may use beside "MODULE", the library's full path.
    void AddCommonRGSReplacements(velt::RegistrarReplacements& replacements) const;

    LONG Lock() noexcept override;
    LONG Unlock() noexcept override;
    LONG GetLockCount() const noexcept;
    HRESULT GetGITPtr(IGlobalInterfaceTable** table) noexcept override;
    HRESULT AddTermFunc(TermFunc function, void* argument) noexcept override;
    HRESULT GetTypeLibrary(ITypeLib** library) noexcept override;

private:
    IClassFactory& FactoryOf(std::size_t row);

    // constant after Initialise
    HINSTANCE m_instance = nullptr;
    bool m_initialised = false;
    std::optional<UTrace::State> m_trace;
    RegistrationHook m_registrationHook = nullptr;

    // changed by interlocked calls only
    LONG m_lockCount = 0;
    IGlobalInterfaceTable* m_globalInterfaceTable = nullptr; // owned; set once

    bool m_processEnds = false;

    // guarded by m_lock
    VeltCriticalSection m_lock;
    std::array<std::unique_ptr<velt::CClassFactory>, velt::kClassCount> m_factories;
    std::vector<std::pair<TermFunc, void*>> m_termFuncs;
};
