#include "server/module.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "foundation/velt_auto_critical_section.h"
#include "server/registration.h"

#include <oleauto.h>

CVeltHTTPClient::~CVeltHTTPClient()
{
    if (m_processEnds)
    {
        return;
    }
    for (const auto& [function, argument] : m_termFuncs)
    {
        function(argument);
    }
    if (m_globalInterfaceTable)
    {
        m_globalInterfaceTable->Release();
    }
}

bool CVeltHTTPClient::Initialise(HINSTANCE instance) noexcept
{
    try
    {
        m_instance = instance;
        m_trace.emplace();
        UTrace::StartUp();
        m_initialised = true;
    }
    catch (const std::exception&)
    {
        // No thread-local index or memory left: the library cannot be loaded.
    }
    return m_initialised;
}

bool CVeltHTTPClient::IsInitialised() const noexcept
{
    return m_initialised;
}

void CVeltHTTPClient::OnProcessEnd() noexcept
{
    m_processEnds = true;
}

HRESULT CVeltHTTPClient::GetClassObject(REFCLSID clsid, REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    *object = nullptr;
    if (!m_initialised)
    {
        return E_UNEXPECTED;
    }
    const velt::ClassRow* const row = velt::FindClass(velt::kClassTable, clsid);
    if (!row)
    {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    return FactoryOf(static_cast<std::size_t>(row - velt::kClassTable.data()))
        .QueryInterface(iid, object);
}

HRESULT CVeltHTTPClient::RegisterServer()
{
    const velt::RegistrationScope scope = velt::CurrentRegistrationScope();
    UTrace::TraceLevel3("registering for %s",
                        scope == velt::RegistrationScope::user ? "the user" : "the machine");
    velt::RegistrarReplacements replacements;
    AddCommonRGSReplacements(replacements);
    velt::RegisterComponent(m_instance, scope, std::move(replacements), velt::kClassRegistrations);
    return m_registrationHook ? m_registrationHook() : S_OK;
}

void CVeltHTTPClient::SetRegistrationHook(RegistrationHook hook) noexcept
{
    m_registrationHook = hook;
}

void CVeltHTTPClient::AddCommonRGSReplacements(velt::RegistrarReplacements& replacements) const
{
    velt::AddCommonReplacements(replacements);
}

LONG CVeltHTTPClient::Lock() noexcept
{
    return ::InterlockedIncrement(&m_lockCount);
}

LONG CVeltHTTPClient::Unlock() noexcept
{
    return ::InterlockedDecrement(&m_lockCount);
}

LONG CVeltHTTPClient::GetLockCount() const noexcept
{
    return m_lockCount;
}

HRESULT CVeltHTTPClient::GetGITPtr(IGlobalInterfaceTable** table) noexcept
{
    if (!table)
    {
        return E_POINTER;
    }
    *table = nullptr;
    auto* const place = reinterpret_cast<void* volatile*>(&m_globalInterfaceTable);
    if (!*place)
    {
        IGlobalInterfaceTable* made = nullptr;
        const HRESULT hr = ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr,
                                              CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&made));
        if (FAILED(hr))
        {
            return hr;
        }
        if (::InterlockedCompareExchangePointer(place, made, nullptr))
        {
            made->Release(); // another thread was first
        }
    }
    *table = m_globalInterfaceTable;
    (*table)->AddRef();
    return S_OK;
}

HRESULT CVeltHTTPClient::AddTermFunc(TermFunc function, void* argument) noexcept
{
    try
    {
        const VeltAutoCriticalSection lock(&m_lock);
        m_termFuncs.emplace_back(function, argument);
        return S_OK;
    }
    catch (...)
    {
        return velt::HResultFromCurrentException();
    }
}

HRESULT CVeltHTTPClient::GetTypeLibrary(ITypeLib** library) noexcept
{
    try
    {
        return ::LoadTypeLibEx(velt::ModulePath(m_instance).c_str(), REGKIND_NONE, library);
    }
    catch (...)
    {
        return velt::HResultFromCurrentException();
    }
}

IClassFactory& CVeltHTTPClient::FactoryOf(std::size_t row)
{
    const VeltAutoCriticalSection lock(&m_lock);
    auto& factory = m_factories[row];
    if (!factory)
    {
        factory = std::make_unique<velt::CClassFactory>(velt::kClassTable[row].create);
    }
    return *factory;
}
